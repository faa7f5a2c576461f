import QtQuick
import QtQuick.Controls.Material
import Tamvex

// The windows' push button: the style's button on a face the software renderer can draw.
Button {
    id: control
    background: ButtonFace {
        control: control
        implicitWidth: 64
        implicitHeight: control.Material.buttonHeight
    }
}
