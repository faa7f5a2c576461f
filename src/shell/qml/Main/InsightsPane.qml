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

    Column {
        id: column
        x: 28
        y: 28
        width: pane.width - 56
        spacing: 16
        SectionHeader {
            title: "Аналитика твоего голосового ввода"
            subtitle: pane.model.insightsUpdated
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
                        Layout.fillWidth: true
                        spacing: 4
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
                Text { text: "Активность за 4 недели"; color: Theme.primary; font.pixelSize: 14; font.bold: true }
                Grid {
                    columns: 14
                    spacing: 6
                    Repeater {
                        model: pane.model.activity
                        Rectangle {
                            required property var modelData
                            width: 26
                            height: 26
                            radius: 5
                            color: Qt.rgba(Theme.accent.r, Theme.accent.g, Theme.accent.b, modelData.opacity)
                        }
                    }
                }
                Row {
                    spacing: 4
                    Text { text: "меньше"; color: Theme.secondary; font.pixelSize: 11 }
                    Repeater {
                        model: [0.1, 0.3, 0.55, 0.8, 1.0]
                        Rectangle {
                            required property real modelData
                            width: 12
                            height: 12
                            radius: 3
                            color: Qt.rgba(Theme.accent.r, Theme.accent.g, Theme.accent.b, modelData)
                        }
                    }
                    Text { text: "больше"; color: Theme.secondary; font.pixelSize: 11 }
                }
            }
            GlassCard {
                width: parent.width
                Text { text: "Категории"; color: Theme.primary; font.pixelSize: 14; font.bold: true }
                Repeater {
                    model: pane.model.categories
                    RowLayout {
                        id: share
                        required property var modelData
                        width: parent.width
                        spacing: 10
                        SymbolIcon { name: share.modelData.symbol; size: 14; color: Theme.accent }
                        Text { text: share.modelData.title; color: Theme.primary; font.pixelSize: 13; Layout.preferredWidth: 140 }
                        Rectangle {
                            Layout.fillWidth: true
                            height: 6
                            radius: 3
                            color: Qt.rgba(1, 1, 1, 0.08)
                            Rectangle { width: parent.width * share.modelData.percent / 100; height: 6; radius: 3; color: Theme.accent }
                        }
                        Text { text: share.modelData.percentText; color: Theme.secondary; font.pixelSize: 12 }
                    }
                }
            }
            GlassCard {
                width: parent.width
                Text { text: "Частые слова"; color: Theme.primary; font.pixelSize: 14; font.bold: true }
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
