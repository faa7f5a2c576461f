import QtQuick
import QtQuick.Controls.Material
import Tamvex

// A switch whose knob needs no shader: the style's own knob wears a shader shadow, which the
// software renderer the program runs on does not draw, and the knob vanished with it.
Switch {
    id: control
    indicator: Rectangle {
        implicitWidth: 36
        implicitHeight: 20
        x: control.leftPadding
        y: (control.height - height) / 2
        radius: height / 2
        color: control.checked ? Theme.accent : Qt.rgba(1, 1, 1, 0.18)
        Rectangle {
            x: control.checked ? parent.width - width - 2 : 2
            y: 2
            width: 16
            height: 16
            radius: 8
            color: Theme.primary
            Behavior on x { NumberAnimation { duration: 120 } }
        }
    }
}
