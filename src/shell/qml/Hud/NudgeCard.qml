pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Shapes
import Tamvex

// A tip: accent bar, icon tile, title with the hotkey's cap, and the text; a soft shadow
// under it, 12 wide and 4 down.
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

    // Black at 0.18 blurred by 12: rounded layers that fade outwards, since the software
    // renderer draws no shader effect.
    Repeater {
        model: 6
        Rectangle {
            required property int index
            z: -1
            x: -(index + 1) * 2
            y: 4 - (index + 1) * 2
            width: root.width + 4 * (index + 1)
            height: root.height + 4 * (index + 1)
            radius: root.radius + 2 * (index + 1)
            color: Qt.rgba(0, 0, 0, 0.18 * (6 - index) / 21)
        }
    }

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
        // A gradient from the top leading to the bottom trailing corner, which a Rectangle cannot draw.
        Shape {
            id: tile
            width: 36
            height: 36
            ShapePath {
                strokeWidth: -1
                fillGradient: LinearGradient {
                    x1: 0; y1: 0; x2: 36; y2: 36
                    GradientStop { position: 0; color: Qt.rgba(root.accent.r, root.accent.g, root.accent.b, 0.28) }
                    GradientStop { position: 1; color: Qt.rgba(root.accent.r, root.accent.g, root.accent.b, 0.14) }
                }
                startX: 8; startY: 0
                PathLine { x: 28; y: 0 }
                PathArc { x: 36; y: 8; radiusX: 8; radiusY: 8 }
                PathLine { x: 36; y: 28 }
                PathArc { x: 28; y: 36; radiusX: 8; radiusY: 8 }
                PathLine { x: 8; y: 36 }
                PathArc { x: 0; y: 28; radiusX: 8; radiusY: 8 }
                PathLine { x: 0; y: 8 }
                PathArc { x: 8; y: 0; radiusX: 8; radiusY: 8 }
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
