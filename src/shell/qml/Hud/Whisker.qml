import QtQuick
import Tamvex

// One whisker of the level meter; its height comes from HudMath.
Rectangle {
    id: root
    property int whiskerIndex: 0
    property bool processing: false
    property real level: -60
    property real phase: 0
    property color accent: Theme.recordingAccent
    width: 3
    height: HudMath.whiskerHeight(whiskerIndex, processing, level, phase)
    radius: width / 2
    color: accent
    Behavior on height { NumberAnimation { duration: 100; easing.type: Easing.InOutQuad } } // qmllint disable
}
