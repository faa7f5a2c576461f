import QtQuick
import QtQuick.Controls.Material
import QtQuick.Layouts
import Tamvex

// The list's header and delegates reach the pane by id. Qt 6.4's qmllint calls that
// unqualified, and its cure there (ComponentBehavior: Bound) cannot build a ListView header.
// qmllint disable unqualified

// The home pane: greeting with the microphone, figures and weekly goal, and the history.
Item {
    id: pane
    required property MainWindowModel model
    readonly property var goal: model.weeklyGoal
    // Coming into view regroups the list: past midnight, today's rows belong under "ВЧЕРА".
    readonly property bool shown: visible && Window.visibility !== Window.Hidden
    onShownChanged: if (shown) model.history.refresh()

    ListView {
        id: list
        objectName: "history"
        anchors.fill: parent
        anchors.margins: 28
        spacing: 4
        clip: true
        cacheBuffer: 800
        reuseItems: true
        model: pane.model.history
        ScrollBar.vertical: ScrollBar {}
        // The header grows as its cards fill in; until the user scrolls, keep its top in view.
        property bool userScrolled: false
        onMovementStarted: userScrolled = true
        onAtYEndChanged: if (atYEnd && contentHeight > height) pane.model.history.loadNextPage()

        header: Column {
            width: list.width
            onHeightChanged: if (!list.userScrolled) Qt.callLater(list.positionViewAtBeginning)
            spacing: 16
            bottomPadding: 12
            GlassCard {
                width: parent.width
                RowLayout {
                    width: parent.width
                    spacing: 20
                    Column {
                        Layout.fillWidth: true
                        spacing: 6
                        Text { text: "Привет, я Sorvel"; color: Theme.primary; font.pixelSize: 22; font.bold: true }
                        Text {
                            width: parent.width
                            wrapMode: Text.WordWrap
                            text: "Зажми FN и говори. Я превращу твою речь в чистый структурированный текст."
                            color: Theme.primary
                            font.pixelSize: 14
                        }
                        Text {
                            width: parent.width
                            wrapMode: Text.WordWrap
                            text: "«вставить в поле» — текст автоматически окажется в активном окне."
                            color: Theme.secondary
                            font.pixelSize: 13
                        }
                        Text { text: "Распознаю автоматически:"; color: Theme.primary; font.pixelSize: 13; font.bold: true; topPadding: 6 }
                        Repeater {
                            model: ["Абзацы и переносы строк", "Маркированные списки", "Нумерованные списки", "Заголовки и подзаголовки"]
                            Text { required property string modelData; text: "• " + modelData; color: Theme.secondary; font.pixelSize: 13 }
                        }
                    }
                    BigMicButton {
                        recording: pane.model.recording
                        onToggled: pane.model.toggleRecording()
                    }
                }
            }
            RowLayout {
                width: parent.width
                spacing: 12
                Repeater {
                    model: pane.model.homeTiles
                    GlassCard {
                        id: tile
                        required property var modelData
                        // Equal shares of the row, whatever each tile holds.
                        Layout.fillWidth: true
                        Layout.preferredWidth: 1
                        spacing: 4
                        Row {
                            spacing: 6
                            SymbolIcon { name: tile.modelData.symbol; size: 13; color: Theme.accent }
                            Text { text: tile.modelData.title; color: Theme.secondary; font.pixelSize: 12 }
                        }
                        Text { text: tile.modelData.value; color: Theme.primary; font.pixelSize: 24; font.bold: true }
                        Text { text: tile.modelData.subtitle; color: Theme.secondary; font.pixelSize: 11; visible: text.length > 0 }
                    }
                }
            }
            GlassCard {
                width: parent.width
                spacing: 8
                RowLayout {
                    width: parent.width
                    Text { text: pane.goal.label; color: Theme.primary; font.pixelSize: 14; Layout.fillWidth: true }
                    Row {
                        spacing: 4
                        SymbolIcon { anchors.verticalCenter: parent.verticalCenter; name: "chart.bar.fill"; size: 12; color: Theme.accent }
                        Text { text: "Инсайты"; color: Theme.accent; font.pixelSize: 13 }
                        TapHandler { onTapped: pane.model.section = "insights" }
                    }
                }
                Rectangle {
                    width: parent.width
                    height: 8
                    radius: 4
                    color: Qt.rgba(1, 1, 1, 0.08)
                    Rectangle { width: parent.width * pane.goal.fill; height: parent.height; radius: 4; color: Theme.accent }
                }
                Text { text: pane.goal.caption; color: Theme.secondary; font.pixelSize: 12 }
            }
            Text { text: "ИСТОРИЯ"; color: Theme.secondary; font.pixelSize: 12; font.bold: true; topPadding: 8 }
            Column {
                visible: pane.model.history.empty
                width: parent.width
                spacing: 6
                topPadding: 30
                SymbolIcon { anchors.horizontalCenter: parent.horizontalCenter; name: "tray"; size: 34; color: Theme.secondary }
                Text { anchors.horizontalCenter: parent.horizontalCenter; text: "История пока пустая"; color: Theme.primary; font.pixelSize: 15 }
                Text {
                    anchors.horizontalCenter: parent.horizontalCenter
                    text: "Зажми FN и говори — записи появятся здесь"
                    color: Theme.secondary
                    font.pixelSize: 13
                }
            }
        }

        section.property: "group"
        section.delegate: Text {
            required property string section
            text: section
            color: Theme.secondary
            font.pixelSize: 11
            font.bold: true
            topPadding: 14
            bottomPadding: 4
        }

        delegate: HistoryRow {
            width: list.width
            model: pane.model
        }
    }
}
