import QtQuick
import Tamvex
import QtQuick.Shapes

// One of our symbols filled with a colour; `size` is the glyph's size in points.
Item {
    id: root
    property string name
    property color color: Theme.primary
    property real size: 12
    implicitWidth: size * 1.2
    implicitHeight: size * 1.2
    Shape {
        anchors.centerIn: parent
        width: 24
        height: 24
        scale: root.width / 24
        ShapePath {
            strokeWidth: -1
            fillColor: root.color
            fillRule: SymbolIcons.evenOdd(root.name) ? ShapePath.OddEvenFill : ShapePath.WindingFill
            PathSvg { path: SymbolIcons.pathData(root.name) }
        }
    }
}
