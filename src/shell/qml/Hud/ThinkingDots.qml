pragma ComponentBehavior: Bound
import QtQuick
import Tamvex

// Three dots that rise and brighten in turn; `phase` is the wall-clock time in seconds.
Row {
    id: root
    property color accent: Theme.processingAccent
    property real phase: 0
    spacing: 3
    height: 8
    Repeater {
        model: 3
        Rectangle {
            required property int index
            width: 4
            height: 4
            radius: 2
            color: root.accent
            y: 4 + HudMath.dotOffset(index, root.phase)
            opacity: HudMath.dotOpacity(index, root.phase)
        }
    }
}
