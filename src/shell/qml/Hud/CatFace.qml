pragma ComponentBehavior: Bound
import QtQuick
import Tamvex

// Eye, five whiskers, eye, in a capsule outlined with the accent.
Rectangle {
    id: root
    property bool processing: false
    property real level: -60
    property color accent: Theme.recordingAccent
    property real purrPhase: 0
    property bool blink: false
    implicitWidth: row.implicitWidth + 28
    implicitHeight: row.implicitHeight + 16
    radius: height / 2
    color: Theme.material
    border.color: Qt.rgba(accent.r, accent.g, accent.b, 0.65)
    border.width: 1.2

    component Eye: Rectangle {
        property bool closed: false
        width: 5
        height: closed ? 1.5 : 7
        radius: width / 2
        Behavior on height { NumberAnimation { duration: 120; easing.type: Easing.InOutQuad } } // qmllint disable
    }

    Row {
        id: row
        anchors.centerIn: parent
        spacing: 8
        Eye { anchors.verticalCenter: parent.verticalCenter; closed: root.blink; color: root.accent }
        Row {
            anchors.verticalCenter: parent.verticalCenter
            spacing: 3
            // The tallest whisker is 22: a fixed height keeps the face still while they move.
            height: 22
            Repeater {
                model: 5
                Whisker {
                    required property int index
                    anchors.verticalCenter: parent.verticalCenter
                    whiskerIndex: index
                    processing: root.processing
                    level: root.level
                    phase: root.purrPhase
                    accent: root.accent
                }
            }
        }
        Eye { anchors.verticalCenter: parent.verticalCenter; closed: root.blink; color: root.accent }
    }
}
