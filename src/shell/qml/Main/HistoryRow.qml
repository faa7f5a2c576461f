import QtQuick
import QtQuick.Layouts
import Tamvex

// One dictation in the history; a tap opens its details.
Rectangle {
    id: row
    required property MainWindowModel model
    required property string entryId
    required property string title
    required property string text
    required property string symbol
    required property string categoryColor
    required property string time
    required property string words
    required property string cost
    required property bool saved
    readonly property bool selected: model.selectedEntryId === entryId
    readonly property bool retrying: model.retrying.ids.indexOf(entryId) >= 0 // qmllint disable

    radius: 10
    color: selected ? Qt.rgba(1, 1, 1, 0.08) : Qt.rgba(1, 1, 1, 0.03)
    implicitHeight: body.implicitHeight + 20

    ColumnLayout {
        id: body
        x: 12
        y: 10
        width: row.width - 24
        spacing: 8
        RowLayout {
            spacing: 12
            Layout.fillWidth: true
            Rectangle {
                width: 30
                height: 30
                radius: 8
                color: Qt.rgba(1, 1, 1, 0.07)
                SymbolIcon { visible: row.symbol.length > 0; anchors.centerIn: parent; name: row.symbol; size: 15; color: Theme.categoryColor(row.categoryColor) }
            }
            Column {
                Layout.fillWidth: true
                spacing: 2
                Text { width: parent.width; text: row.title; elide: Text.ElideRight; color: Qt.rgba(1, 1, 1, 0.92); font.pixelSize: 13 }
                Text {
                    visible: row.text.length > 0
                    width: parent.width
                    text: row.text
                    maximumLineCount: row.selected ? 20 : 1
                    wrapMode: Text.WordWrap
                    elide: Text.ElideRight
                    color: Qt.rgba(1, 1, 1, 0.4)
                    font.pixelSize: 11
                }
            }
            // Only the summary selects: the detail's buttons keep their taps.
            TapHandler { onTapped: row.model.tapEntry(row.entryId) }
        }
        RowLayout {
            visible: row.selected
            Layout.fillWidth: true
            spacing: 12
            Text { text: row.time; color: Theme.secondary; font.pixelSize: 12 }
            Text { visible: row.words.length > 0; text: row.words; color: Theme.secondary; font.pixelSize: 12 }
            Text { visible: row.cost.length > 0; text: row.cost; color: Theme.secondary; font.pixelSize: 12 }
            Rectangle {
                visible: row.saved
                radius: 6
                color: Qt.rgba(1, 1, 1, 0.1)
                implicitWidth: savedText.implicitWidth + 12
                implicitHeight: savedText.implicitHeight + 4
                Text { id: savedText; anchors.centerIn: parent; text: "сохранено"; color: Theme.secondary; font.pixelSize: 11 }
            }
            Item { Layout.fillWidth: true }
            ActionButton {
                visible: row.saved
                flat: true
                enabled: !row.retrying
                text: row.retrying ? "Распознаю…" : "Распознать ещё раз"
                icon.source: "qrc:/Tamvex/icons/arrow.clockwise.svg"
                onClicked: row.model.retryEntry(row.entryId)
            }
            IconButton {
                Accessible.name: "Копировать"
                contentItem: SymbolIcon { name: "doc.on.doc"; size: 14; color: Theme.secondary }
                onClicked: row.model.copyEntry(row.entryId)
            }
            IconButton {
                Accessible.name: "Удалить"
                contentItem: SymbolIcon { name: "trash"; size: 14; color: Theme.secondary }
                onClicked: row.model.removeEntry(row.entryId)
            }
        }
    }
}
