import QtQuick
import Tamvex

// A rounded panel on the window's background; its children stack in a column.
Rectangle {
    id: card
    property real padding: 16
    default property alias content: column.data
    property alias spacing: column.spacing
    radius: 14
    color: Qt.rgba(1, 1, 1, 0.05)
    border.color: Qt.rgba(1, 1, 1, 0.08)
    implicitWidth: column.implicitWidth + 2 * padding
    implicitHeight: column.implicitHeight + 2 * padding
    Column {
        id: column
        x: card.padding
        y: card.padding
        width: card.width - 2 * card.padding
        spacing: 10
    }
}
