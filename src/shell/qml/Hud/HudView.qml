import QtQuick
import Tamvex

// What the HUD shows for a state: the nudge or the handle when idle, the cat while
// recording and processing, the orange pill on a failure. Padding 8 all round.
Item {
    id: root
    // "idle", "recording", "processing" or "error".
    property string stateKind: "idle"
    property real level: -60
    property bool slowProcessing: false
    property string errorMessage
    property bool hasNudge: false
    property string nudgeIcon
    property string nudgeTitle
    property string nudgeBody
    property string nudgeHotkey
    property int wordsLastWeek: 0
    readonly property bool handleHovered: handle.visible && handle.hovered
    signal menuTapped()

    readonly property Item current: stateKind === "recording" || stateKind === "processing" ? pill
                                  : stateKind === "error" ? errorPill
                                  : hasNudge ? nudge : handle
    implicitWidth: current.implicitWidth + 16
    implicitHeight: current.implicitHeight + 16

    // A spring whenever the kind of state changes (not the error's text): response 0.4 s,
    // damping 0.78, from a slightly smaller picture.
    property real springTime: 2
    onStateKindChanged: entrance.restart()
    NumberAnimation {
        id: entrance
        target: root
        property: "springTime"
        from: 0
        to: 1.2
        duration: 1200
    }

    Item {
        id: content
        anchors.fill: parent
        anchors.margins: 8
        scale: 0.86 + 0.14 * HudMath.spring(root.springTime)

        IdleHandle {
            id: handle
            anchors.centerIn: parent
            visible: root.current === handle
            wordsLastWeek: root.wordsLastWeek
            onTapped: root.menuTapped()
        }
        NudgeCard {
            id: nudge
            anchors.centerIn: parent
            readonly property bool shown: root.current === nudge
            visible: opacity > 0
            opacity: shown ? 1 : 0
            // In and out by opacity with a move from the bottom edge, 0.3 s each way.
            transform: Translate {
                y: nudge.shown ? 0 : nudge.height / 2
                Behavior on y { NumberAnimation { duration: 300; easing.type: Easing.InOutQuad } } // qmllint disable
            }
            Behavior on opacity { NumberAnimation { duration: 300; easing.type: Easing.InOutQuad } } // qmllint disable
            icon: root.nudgeIcon
            title: root.nudgeTitle
            body: root.nudgeBody
            hotkey: root.nudgeHotkey
        }
        CatPill {
            id: pill
            anchors.centerIn: parent
            visible: root.current === pill
            processing: root.stateKind === "processing"
            level: root.level
            // A slow service matters only once the recording is over.
            slow: processing && root.slowProcessing
        }
        ErrorPill {
            id: errorPill
            anchors.centerIn: parent
            visible: root.current === errorPill
            message: root.errorMessage
        }
    }
}
