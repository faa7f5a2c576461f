import QtQuick
import Tamvex
import QtQuick.Shapes

// A triangle with its apex at the top middle and its base on the bottom edge.
Shape {
    id: root
    property color color: Theme.recordingAccent
    width: 14
    height: 12
    ShapePath {
        strokeWidth: -1
        fillColor: root.color
        startX: root.width / 2; startY: 0
        PathLine { x: root.width; y: root.height }
        PathLine { x: 0; y: root.height }
        PathLine { x: root.width / 2; y: 0 }
    }
}
