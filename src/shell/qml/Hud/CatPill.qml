import QtQuick
import Tamvex

// The cat: ears over a face whose whiskers are the level meter, or the purr with thinking
// dots while processing. Time comes from the wall clock at each frame.
Item {
    id: root
    property bool processing: false
    property real level: -60
    property bool slow: false
    property bool blink: false
    property real now: Date.now() / 1000
    readonly property color accent: processing ? Theme.processingAccent : Theme.recordingAccent
    readonly property bool badgeShown: processing && slow
    implicitWidth: column.implicitWidth
    implicitHeight: column.implicitHeight

    // Only the purr and the dots need the time at each frame; while recording the whiskers
    // move with the level alone.
    FrameAnimation {
        running: root.visible && root.processing
        onTriggered: root.now = Date.now() / 1000
    }

    // Blinking: a pause that depends on the mode read at the start of each round, then the
    // eye closes for 0.14 s (the eye animates its own height).
    Timer {
        id: openEyes
        running: root.visible
        interval: root.processing ? 1200 : 3500
        onTriggered: {
            root.blink = true
            closeEyes.start()
        }
    }
    Timer {
        id: closeEyes
        interval: 140
        onTriggered: {
            root.blink = false
            if (root.visible) {
                openEyes.interval = root.processing ? 1200 : 3500
                openEyes.restart()
            }
        }
    }
    onVisibleChanged: if (!visible) blink = false

    Column {
        id: column
        anchors.centerIn: parent
        spacing: 4

        StatusBadge {
            id: badge
            anchors.horizontalCenter: parent.horizontalCenter
            icon: "tortoise.fill"
            text: "сервера перегружены"
            visible: opacity > 0
            opacity: root.badgeShown ? 1 : 0
            // In and out by opacity with a move from the bottom edge.
            transform: Translate {
                y: root.badgeShown ? 0 : badge.height
                Behavior on y { NumberAnimation { duration: 250; easing.type: Easing.InOutQuad } } // qmllint disable
            }
            Behavior on opacity { NumberAnimation { duration: 250; easing.type: Easing.InOutQuad } } // qmllint disable
        }

        Row {
            anchors.horizontalCenter: parent.horizontalCenter
            spacing: 6

            Column {
                id: cat
                spacing: -3
                Row {
                    anchors.horizontalCenter: parent.horizontalCenter
                    spacing: 70
                    height: 14
                    CatEar { anchors.bottom: parent.bottom; color: root.accent }
                    CatEar { anchors.bottom: parent.bottom; color: root.accent }
                }
                CatFace {
                    anchors.horizontalCenter: parent.horizontalCenter
                    processing: root.processing
                    level: root.level
                    accent: root.accent
                    purrPhase: HudMath.purrPhase(root.now)
                    blink: root.blink
                }
            }

            ThinkingDots {
                visible: root.processing
                anchors.bottom: cat.bottom
                anchors.bottomMargin: 4
                accent: Theme.processingAccent
                phase: root.now
            }
        }
    }
}
