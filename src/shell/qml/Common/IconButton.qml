import QtQuick
import QtQuick.Controls.Material
import Tamvex

// A small flat button around a symbol or a sign, with a face the software renderer can draw.
ToolButton {
    id: control
    flat: true
    font.capitalization: Font.MixedCase
    background: ButtonFace { control: control; implicitWidth: 28; implicitHeight: 28 }
}
