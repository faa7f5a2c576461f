pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Material
import Tamvex

// The custom shortcut's field: a click starts the recording, the first key with a modifier
// is taken; Esc leaves it, Backspace clears it. The recorder decides; this only shows.
Rectangle {
    id: field
    required property ShortcutRecorder recorder
    readonly property string shown: recorder.active ? recorder.heldModifiersText : recorder.text
    // A refused press (no modifier, no key) has no words: the field shakes with a warm border,
    // as a desktop without a bell still shows.
    property bool refused: false
    objectName: "shortcutField"
    implicitWidth: 240
    implicitHeight: 34
    radius: 8
    color: Qt.rgba(1, 1, 1, recorder.active ? 0.12 : 0.06)
    border.color: refused ? Theme.orange : recorder.active ? Theme.accent : Qt.rgba(1, 1, 1, 0.14)
    transform: Translate { id: shake }
    activeFocusOnTab: true

    Text {
        x: 12
        anchors.verticalCenter: parent.verticalCenter
        width: parent.width - 52
        elide: Text.ElideRight
        text: field.shown.length > 0 ? field.shown : field.recorder.placeholder
        color: field.shown.length > 0 ? Theme.primary : Theme.secondary
        font.pixelSize: 13
    }
    IconButton {
        visible: field.recorder.hasShortcut && !field.recorder.active
        anchors.right: parent.right
        anchors.verticalCenter: parent.verticalCenter
        height: parent.height
        Accessible.name: "Очистить"
        text: "×"
        onClicked: field.recorder.clear()
    }
    TapHandler { onTapped: field.forceActiveFocus() }

    onActiveFocusChanged: recorder.active = activeFocus
    Keys.onPressed: event => {
        field.recorder.handleQtKey(event.nativeScanCode, event.modifiers);
        event.accepted = true;
    }
    Keys.onReleased: event => {
        field.recorder.handleQtKeyRelease(event.nativeScanCode, event.modifiers);
        event.accepted = true;
    }
    // A taken or cancelled shortcut gives the focus up.
    readonly property bool recording: recorder.active
    onRecordingChanged: if (!recording) focus = false
    function showAlert(text: string, informativeText: string, buttons: list<string>) {
        alert.title = text;
        alert.informative = informativeText;
        alert.buttons = buttons;
        alert.open();
    }
    Component.onCompleted: recorder.alertRequested.connect(showAlert)
    Connections {
        target: field.recorder
        function onBeep() {
            field.refused = true;
            refusal.restart();
        }
    }
    SequentialAnimation {
        id: refusal
        NumberAnimation { target: shake; property: "x"; to: -6; duration: 50 }
        NumberAnimation { target: shake; property: "x"; to: 6; duration: 80 }
        NumberAnimation { target: shake; property: "x"; to: -3; duration: 70 }
        NumberAnimation { target: shake; property: "x"; to: 0; duration: 60 }
        PauseAnimation { duration: 200 }
        PropertyAction { target: field; property: "refused"; value: false }
    }

    PanelDialog {
        id: alert
        property string informative
        property list<string> buttons
        y: field.height + 8
        Label {
            width: 360
            wrapMode: Text.WordWrap
            text: alert.informative
            visible: text.length > 0
        }
        footer: DialogButtonBox {
            Repeater {
                model: alert.buttons
                ActionButton {
                    required property int index
                    required property string modelData
                    text: modelData
                    flat: true
                    DialogButtonBox.buttonRole: index === 0 ? DialogButtonBox.RejectRole : DialogButtonBox.AcceptRole // qmllint disable
                }
            }
        }
        onAccepted: field.recorder.forceUsePending()
        onRejected: field.recorder.dismissPending()
    }
}
