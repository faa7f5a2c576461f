import QtQuick
import Tamvex

// A tip: accent bar, icon tile, title with the hotkey's cap, and the text.
Rectangle {
    id: root
    property string icon
    property string title
    property string body
    property string hotkey
    property color accent: Theme.recordingAccent
    implicitWidth: row.implicitWidth + 28
    implicitHeight: row.implicitHeight + 24
    radius: 14
    color: Theme.material
    border.color: Qt.rgba(1, 1, 1, 0.08)
    border.width: 0.5

    Row {
        id: row
        x: 14
        y: 12
        spacing: 12
        Rectangle {
            width: 3
            height: Math.max(tile.height, column.height)
            radius: 1.5
            color: root.accent
        }
        Rectangle {
            id: tile
            width: 36
            height: 36
            radius: 8
            gradient: Gradient {
                orientation: Gradient.Horizontal
                GradientStop { position: 0; color: Qt.rgba(root.accent.r, root.accent.g, root.accent.b, 0.28) }
                GradientStop { position: 1; color: Qt.rgba(root.accent.r, root.accent.g, root.accent.b, 0.14) }
            }
            SymbolIcon {
                anchors.centerIn: parent
                name: root.icon
                size: 16
                color: root.accent
            }
        }
        Column {
            id: column
            width: Math.min(280, Math.max(titleRow.implicitWidth, bodyText.implicitWidth))
            spacing: 4
            Row {
                id: titleRow
                spacing: 8
                Text {
                    anchors.verticalCenter: parent.verticalCenter
                    text: root.title
                    color: Theme.primary
                    font.pixelSize: 13
                    font.weight: Font.DemiBold
                }
                Keycap {
                    anchors.verticalCenter: parent.verticalCenter
                    visible: root.hotkey.length > 0
                    label: root.hotkey
                }
            }
            Text {
                id: bodyText
                width: parent.width
                text: root.body
                color: Theme.secondary
                font.pointSize: 11.5 * 0.75 // 11.5 px at 96 dpi
                lineHeight: 1.15
                wrapMode: Text.WordWrap
            }
        }
    }
}
