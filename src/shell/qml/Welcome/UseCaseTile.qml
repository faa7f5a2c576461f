import QtQuick
import Tamvex

Rectangle {
    id: tile
    property string symbol
    property string title
    property string subtitle
    property bool selected
    signal tapped()
    height: 56
    radius: 12
    color: selected ? Qt.rgba(Theme.accent.r, Theme.accent.g, Theme.accent.b, 0.18) : Qt.rgba(1, 1, 1, 0.05)
    Row {
        x: 14
        anchors.verticalCenter: parent.verticalCenter
        spacing: 12
        SymbolIcon { anchors.verticalCenter: parent.verticalCenter; name: tile.symbol; size: 20; color: Theme.accent }
        Column {
            Text { text: tile.title; color: Theme.primary; font.pixelSize: 14 }
            Text { text: tile.subtitle; color: Theme.secondary; font.pixelSize: 12 }
        }
    }
    SymbolIcon {
        anchors.right: parent.right
        anchors.rightMargin: 14
        anchors.verticalCenter: parent.verticalCenter
        name: tile.selected ? "checkmark.circle.fill" : "circle"
        size: 18
        color: tile.selected ? Theme.accent : Theme.secondary
    }
    MouseArea { anchors.fill: parent; onClicked: tile.tapped() }
}
