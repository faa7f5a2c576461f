pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Material
import QtQuick.Layouts
import Tamvex

// The local model's card: the model the local road uses, one row per download state, as the
// section says; then every model with its size, languages and speed here, each with its own
// buttons; and a warning when the chosen model is too slow for this machine.
GlassCard {
    id: card
    required property LocalModelSection section

    Row {
        spacing: 8
        SymbolIcon { name: "lock.shield"; size: 16; color: Theme.accent }
        Text { text: "Локальная модель"; color: Theme.primary; font.pixelSize: 15; font.bold: true }
    }
    Text {
        width: parent.width
        wrapMode: Text.WordWrap
        text: "Распознавание полностью на устройстве — аудио никогда не покидает компьютер."
        color: Theme.secondary
        font.pixelSize: 12
    }
    RowLayout {
        width: parent.width
        spacing: 12
        SymbolIcon {
            visible: card.section.symbol.length > 0
            name: card.section.symbol
            size: 20
            color: card.section.phase === "failed" ? Theme.orange : Theme.green
        }
        ColumnLayout {
            Layout.fillWidth: true
            spacing: 4
            RowLayout {
                visible: card.section.title.length > 0
                Layout.fillWidth: true
                Text { Layout.fillWidth: true; elide: Text.ElideRight; text: card.section.title; color: Theme.primary; font.pixelSize: 14 }
                Text { visible: card.section.percentText.length > 0; text: card.section.percentText; color: Theme.secondary; font.pixelSize: 13 }
            }
            ProgressBar {
                visible: card.section.phase === "downloading"
                Layout.fillWidth: true
                value: card.section.progress
            }
            Text {
                visible: card.section.text.length > 0
                Layout.fillWidth: true
                wrapMode: Text.WordWrap
                text: card.section.text
                color: Theme.secondary
                font.pixelSize: 12
            }
        }
        ActionButton {
            visible: card.section.buttonText.length > 0
            text: card.section.buttonText
            highlighted: card.section.phase !== "downloading"
            icon.source: card.section.buttonSymbol.length > 0 ? "qrc:/Tamvex/icons/" + card.section.buttonSymbol + ".svg" : ""
            onClicked: card.section.press()
        }
    }

    RowLayout {
        visible: card.section.warning.length > 0
        width: parent.width
        spacing: 10
        SymbolIcon { Layout.alignment: Qt.AlignTop; name: "tortoise.fill"; size: 18; color: Theme.orange }
        Text {
            objectName: "localModelWarning"
            Layout.fillWidth: true
            wrapMode: Text.WordWrap
            text: card.section.warning
            color: Theme.primary
            font.pixelSize: 12
        }
    }
    Rectangle { width: parent.width; height: 1; color: Qt.rgba(1, 1, 1, 0.08) }
    Text { text: "Все модели"; color: Theme.secondary; font.pixelSize: 12; font.bold: true }
    Repeater {
        model: card.section.models
        delegate: RowLayout {
            id: entry
            required property var modelData
            // The first press on the bin asks; the second deletes.
            property bool confirming: false
            width: parent.width
            spacing: 10
            SymbolIcon {
                Layout.alignment: Qt.AlignTop
                Layout.topMargin: 2
                name: entry.modelData.current ? "checkmark.circle.fill" : "circle"
                size: 16
                color: entry.modelData.current ? Theme.accent : Theme.secondary
            }
            ColumnLayout {
                Layout.fillWidth: true
                spacing: 2
                Text {
                    Layout.fillWidth: true
                    elide: Text.ElideRight
                    text: entry.modelData.name + (entry.modelData.tag.length > 0 ? " · " + entry.modelData.tag : "")
                    color: Theme.primary
                    font.pixelSize: 13
                    font.bold: entry.modelData.tag.length > 0
                }
                Text {
                    Layout.fillWidth: true
                    wrapMode: Text.WordWrap
                    text: entry.modelData.details + " · " + entry.modelData.status
                    color: entry.modelData.phase === "failed" ? Theme.orange : Theme.secondary
                    font.pixelSize: 12
                }
                ProgressBar {
                    visible: entry.modelData.phase === "downloading"
                    Layout.fillWidth: true
                    value: entry.modelData.progress
                }
                Text {
                    visible: entry.modelData.speed.length > 0
                    Layout.fillWidth: true
                    wrapMode: Text.WordWrap
                    text: entry.modelData.speed
                    color: entry.modelData.slow ? Theme.orange : Theme.secondary
                    font.pixelSize: 12
                }
            }
            ActionButton {
                visible: entry.modelData.canDownload
                text: "Скачать"
                onClicked: card.section.download(entry.modelData.key)
            }
            ActionButton {
                visible: entry.modelData.canCancel
                text: "Отменить"
                onClicked: card.section.cancel()
            }
            ActionButton {
                visible: entry.modelData.canChoose && !entry.confirming
                text: "Выбрать"
                onClicked: card.section.choose(entry.modelData.key)
            }
            IconButton {
                visible: entry.modelData.canMeasure && !entry.confirming
                Accessible.name: "Проверить скорость"
                ToolTip.visible: hovered
                ToolTip.text: "Проверить скорость на этом компьютере"
                contentItem: SymbolIcon { name: "speedometer"; size: 14; color: Theme.secondary }
                onClicked: card.section.measure(entry.modelData.key)
            }
            IconButton {
                visible: entry.modelData.canDelete && !entry.confirming
                Accessible.name: "Удалить"
                ToolTip.visible: hovered
                ToolTip.text: "Удалить файл модели"
                contentItem: SymbolIcon { name: "trash"; size: 14; color: Theme.secondary }
                onClicked: entry.confirming = true
            }
            ActionButton {
                visible: entry.confirming
                text: "Удалить"
                highlighted: true
                onClicked: { entry.confirming = false; card.section.remove(entry.modelData.key) }
            }
            ActionButton {
                visible: entry.confirming
                text: "Оставить"
                onClicked: entry.confirming = false
            }
        }
    }
}
