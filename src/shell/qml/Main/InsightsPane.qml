pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Material
import QtQuick.Layouts
import Tamvex

// Usage figures from the insights snapshot, or a placeholder while there is too little data.
Flickable {
    id: pane
    required property MainWindowModel model
    contentHeight: column.implicitHeight + 56
    clip: true
    ScrollBar.vertical: ScrollBar {}
    // Each time the pane comes into view: picked in the sidebar, or its window opened again.
    readonly property bool shown: visible && Window.visibility !== Window.Hidden
    onShownChanged: if (shown) model.refreshInsights()
    Component.onCompleted: if (shown) model.refreshInsights()

    Column {
        id: column
        x: 28
        y: 28
        width: pane.width - 56
        spacing: 16
        RowLayout {
            width: parent.width
            SectionHeader {
                Layout.fillWidth: true
                title: "Аналитика твоего голосового ввода"
                subtitle: pane.model.insightsUpdated
            }
            IconButton {
                objectName: "refreshInsights"
                Accessible.name: "Обновить"
                contentItem: SymbolIcon { name: "arrow.clockwise"; size: 16; color: Theme.secondary }
                onClicked: pane.model.refreshInsights()
            }
        }
        GlassCard {
            visible: !pane.model.insightsReady
            width: parent.width
            SymbolIcon { name: "chart.bar.fill"; size: 30; color: Theme.secondary }
            Text { text: pane.model.placeholderTitle; color: Theme.primary; font.pixelSize: 16; font.bold: true }
            Text { width: parent.width; wrapMode: Text.WordWrap; text: pane.model.placeholderText; color: Theme.secondary; font.pixelSize: 13 }
        }
        Column {
            visible: pane.model.insightsReady
            width: parent.width
            spacing: 16
            GridLayout {
                width: parent.width
                columns: 4
                columnSpacing: 12
                Repeater {
                    model: pane.model.insightCards
                    GlassCard {
                        id: card
                        required property var modelData
                        required property int index
                        // Equal shares of the row, whatever each card holds.
                        Layout.fillWidth: true
                        Layout.preferredWidth: 1
                        spacing: 4
                        // Behind the first card, words per minute: the last 7 days, today last.
                        Row {
                            visible: card.index === 0
                            parent: card
                            anchors.right: parent.right
                            anchors.bottom: parent.bottom
                            anchors.margins: 14
                            spacing: 3
                            Repeater {
                                model: pane.model.weekBars
                                Rectangle {
                                    required property real modelData
                                    y: 30 - height
                                    width: 6
                                    height: 2 + 28 * modelData
                                    radius: 2
                                    color: Qt.rgba(Theme.accent.r, Theme.accent.g, Theme.accent.b, 0.35)
                                }
                            }
                        }
                        Row {
                            spacing: 6
                            SymbolIcon { name: card.modelData.symbol; size: 13; color: Theme.accent }
                            Text { text: card.modelData.title; color: Theme.secondary; font.pixelSize: 12 }
                        }
                        Text { text: card.modelData.value; color: Theme.primary; font.pixelSize: 26; font.bold: true }
                        Text { text: card.modelData.subtitle; color: Theme.secondary; font.pixelSize: 11; visible: text.length > 0 }
                    }
                }
            }
            GlassCard {
                width: parent.width
                Text { text: "Активность за месяц"; color: Theme.primary; font.pixelSize: 14; font.bold: true }
                Text { text: "Количество слов по дням"; color: Theme.secondary; font.pixelSize: 12 }
                Grid {
                    columns: 7
                    spacing: 6
                    Repeater {
                        model: pane.model.activity
                        Rectangle {
                            required property var modelData
                            width: 30
                            height: 30
                            radius: 6
                            color: Qt.rgba(Theme.accent.r, Theme.accent.g, Theme.accent.b, modelData.opacity)
                        }
                    }
                }
                Row {
                    spacing: 12
                    Repeater {
                        // The scale's three steps, at the opacities of an empty, a half and a full day.
                        model: [{ text: "Мало", opacity: 0.1 }, { text: "Средне", opacity: 0.475 }, { text: "Много", opacity: 0.85 }]
                        Row {
                            id: step
                            required property var modelData
                            spacing: 4
                            Rectangle {
                                anchors.verticalCenter: parent.verticalCenter
                                width: 12
                                height: 12
                                radius: 3
                                color: Qt.rgba(Theme.accent.r, Theme.accent.g, Theme.accent.b, step.modelData.opacity)
                            }
                            Text { text: step.modelData.text; color: Theme.secondary; font.pixelSize: 11 }
                        }
                    }
                }
            }
            GlassCard {
                width: parent.width
                Text { text: "Категории"; color: Theme.primary; font.pixelSize: 14; font.bold: true }
                Text { visible: pane.model.categories.length === 0; text: pane.model.categoriesEmptyText; color: Theme.secondary; font.pixelSize: 13 }
                Repeater {
                    model: pane.model.categories
                    RowLayout {
                        id: share
                        required property var modelData
                        width: parent.width
                        spacing: 10
                        SymbolIcon { name: share.modelData.symbol; size: 14; color: Theme.categoryColor(share.modelData.color) }
                        Text { text: share.modelData.title; color: Theme.primary; font.pixelSize: 13; Layout.preferredWidth: 140 }
                        Rectangle {
                            Layout.fillWidth: true
                            height: 6
                            radius: 3
                            color: Qt.rgba(1, 1, 1, 0.08)
                            Rectangle { width: parent.width * share.modelData.percent / 100; height: 6; radius: 3; color: Theme.categoryColor(share.modelData.color) }
                        }
                        Text { text: share.modelData.percentText; color: Theme.secondary; font.pixelSize: 12 }
                    }
                }
            }
            GlassCard {
                width: parent.width
                Text { text: "Часто использую"; color: Theme.primary; font.pixelSize: 14; font.bold: true }
                Text { visible: pane.model.topWords.length === 0; text: pane.model.topWordsEmptyText; color: Theme.secondary; font.pixelSize: 13 }
                FlowLayout {
                    width: parent.width
                    Repeater {
                        model: pane.model.topWords
                        Rectangle {
                            id: chipItem
                            required property var modelData
                            radius: 12
                            color: Qt.rgba(1, 1, 1, 0.08)
                            implicitWidth: chip.implicitWidth + 20
                            implicitHeight: 26
                            Text { id: chip; anchors.centerIn: parent; text: chipItem.modelData.word + "  " + chipItem.modelData.count; color: Theme.primary; font.pixelSize: 12 }
                        }
                    }
                }
            }
        }
    }
}
