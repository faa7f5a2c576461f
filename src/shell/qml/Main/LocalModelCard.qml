import QtQuick
import QtQuick.Controls.Material
import QtQuick.Layouts
import Tamvex

// The local model's card: one row per download state, as the section says.
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
}
