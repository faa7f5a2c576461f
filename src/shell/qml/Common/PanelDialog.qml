import QtQuick
import QtQuick.Controls.Material
import QtQuick.Templates as T

// A modal question on a plain panel. The style's panel is drawn through a shader shadow, which
// the software renderer leaves out, panel and all; its veil over a dark window is a light one.
Dialog {
    id: control
    modal: true
    background: Rectangle {
        radius: 2
        color: control.Material.dialogColor
        border.color: Qt.rgba(1, 1, 1, 0.08)
    }
    T.Overlay.modal: Rectangle { color: Qt.rgba(0, 0, 0, 0.5) }
}
