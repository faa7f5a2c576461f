import QtQuick
import QtQuick.Controls.Material
import Tamvex

// The windows' push button: the style's button on a face the software renderer can draw, its
// text as written (the style would set every label in capitals).
Button {
    id: control
    font.capitalization: Font.MixedCase
    background: ButtonFace {
        control: control
        implicitWidth: 64
        implicitHeight: control.Material.buttonHeight
    }
}
