import QtQuick
import QtQuick.Controls.Material
import QtQuick.Controls.Material.impl

// A radio button whose hover mark is a plain circle: the style's ripple lands in the window's
// top-left corner under the software renderer.
RadioButton {
    id: control
    indicator: RadioIndicator {
        x: control.leftPadding
        y: (control.height - height) / 2
        control: control
        Rectangle {
            z: -1
            anchors.centerIn: parent
            width: 28
            height: 28
            radius: 14
            color: Qt.rgba(1, 1, 1, control.pressed ? 0.12 : control.hovered ? 0.06 : 0)
        }
    }
}
