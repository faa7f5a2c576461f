import QtQuick
import QtQuick.Window
import Tamvex

// The floating panel. It never takes the focus, so the text lands where the user was typing;
// its size follows what it shows and RecordingHUDController places it.
Window {
    id: window
    property RecordingHUDController controller
    readonly property alias view: view
    flags: Qt.Tool | Qt.FramelessWindowHint | Qt.WindowStaysOnTopHint | Qt.WindowDoesNotAcceptFocus // qmllint disable
    color: "transparent"
    title: "Tamvex HUD"
    width: view.implicitWidth
    height: view.implicitHeight

    HudView {
        id: view
        anchors.fill: parent
        stateKind: window.controller ? window.controller.stateKind : "idle"
        level: window.controller ? window.controller.level : -60
        slowProcessing: window.controller ? window.controller.slowProcessing : false
        errorMessage: window.controller ? window.controller.errorMessage : ""
        hasNudge: window.controller ? window.controller.hasNudge : false
        nudgeIcon: window.controller ? window.controller.nudgeIcon : ""
        nudgeTitle: window.controller ? window.controller.nudgeTitle : ""
        nudgeBody: window.controller ? window.controller.nudgeBody : ""
        nudgeHotkey: window.controller ? window.controller.nudgeHotkey : ""
        wordsLastWeek: window.controller ? window.controller.wordsLastWeek : 0
        onMenuTapped: if (window.controller) window.controller.menuTap()
    }
}
