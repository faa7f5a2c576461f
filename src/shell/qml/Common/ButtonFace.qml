import QtQuick
import QtQuick.Templates as T
import Tamvex

// The face of a button in each of its states, from plain rectangles. The style's faces wear a
// shader shadow and a ripple; the software renderer the program runs on draws no shader, so
// the face vanished, and it put the ripple in the window's top-left corner.
Rectangle {
    id: face
    required property T.Button control
    readonly property real lift: control.pressed ? 0.12 : control.hovered ? 0.06 : 0
    radius: 6
    border.width: control.visualFocus ? 1 : 0
    border.color: Theme.accent
    color: !control.enabled ? (control.flat ? "transparent" : Qt.rgba(1, 1, 1, 0.06))
         : control.highlighted && !control.flat ? Qt.darker(Theme.accent, 1 + 2 * lift)
         : Qt.rgba(1, 1, 1, (control.flat ? 0 : 0.08) + lift)
}
