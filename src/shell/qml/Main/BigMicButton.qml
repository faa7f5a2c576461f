import QtQuick
import QtQuick.Controls.Material
import QtQuick.Shapes
import Tamvex

// The big microphone: a ring that pulses while recording around a red disc.
Item {
    id: button
    property bool recording: false
    signal toggled()
    width: 76
    height: 76
    Accessible.role: Accessible.Button
    Accessible.name: recording ? "Остановить запись" : "Начать запись"

    Rectangle {
        id: ring
        anchors.fill: parent
        radius: width / 2
        color: "transparent"
        border.width: 3
        border.color: button.recording ? Qt.rgba(1, 0, 0, 0.35) : Qt.rgba(Theme.accent.r, Theme.accent.g, Theme.accent.b, 0.4)
        SequentialAnimation on scale {
            running: button.recording
            loops: Animation.Infinite
            NumberAnimation { from: 1.0; to: 1.2; duration: 1400; easing.type: Easing.InOutQuad } // qmllint disable
            NumberAnimation { from: 1.2; to: 1.0; duration: 1400; easing.type: Easing.InOutQuad } // qmllint disable
            onRunningChanged: if (!running) ring.scale = 1.0
        }
    }
    // The disc's red shadow, blurred by 8: rings that fade outwards, since the software
    // renderer draws no shader effect.
    Repeater {
        model: 8
        Rectangle {
            required property int index
            anchors.centerIn: parent
            width: 56 + 2 * (index + 1)
            height: width
            radius: width / 2
            color: Qt.rgba(1, 0, 0, 0.5 * (8 - index) / 36)
        }
    }
    // A gradient from the top leading to the bottom trailing corner, which a Rectangle cannot draw.
    Shape {
        anchors.centerIn: parent
        width: 56
        height: 56
        ShapePath {
            strokeWidth: -1
            fillGradient: LinearGradient {
                x1: 0; y1: 0; x2: 56; y2: 56
                GradientStop { position: 0; color: "red" }
                GradientStop { position: 1; color: Qt.rgba(1.0, 0.4, 0.5, 1) }
            }
            startX: 28; startY: 0
            PathArc { x: 28; y: 56; radiusX: 28; radiusY: 28 }
            PathArc { x: 28; y: 0; radiusX: 28; radiusY: 28 }
        }
        SymbolIcon { anchors.centerIn: parent; name: button.recording ? "stop.fill" : "mic.fill"; size: 22; color: "white" }
    }
    MouseArea {
        id: mouse
        anchors.fill: parent
        hoverEnabled: true
        onClicked: button.toggled()
    }
    // The help on hover, as the button names itself.
    ToolTip.visible: mouse.containsMouse
    ToolTip.delay: 600
    ToolTip.text: Accessible.name
}
