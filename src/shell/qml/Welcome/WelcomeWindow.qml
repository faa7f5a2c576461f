pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Material
import QtQuick.Layouts
import Tamvex

// The six-step introduction: dots, the step, and "Назад" / "Дальше" / "Готово".
Window {
    id: window
    required property WelcomeFlow flow
    required property PermissionsCheck permissions
    required property LoginForms loginForms
    required property ShortcutRecorder recorder
    required property OnboardingRoad road
    required property var appState
    color: Theme.window
    Material.theme: Material.Dark
    Material.accent: Theme.accent

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 24
        spacing: 16
        Row {
            objectName: "dots"
            Layout.alignment: Qt.AlignHCenter // qmllint disable
            spacing: 8
            Repeater {
                model: window.flow.totalSteps
                Rectangle {
                    required property int index
                    width: 6
                    height: 6
                    radius: 3
                    color: index === window.flow.step ? Theme.accent : Qt.rgba(1, 1, 1, 0.3)
                }
            }
        }
        StackLayout {
            id: steps
            objectName: "steps"
            Layout.fillWidth: true
            Layout.fillHeight: true
            currentIndex: window.flow.step
            // Each step comes in with an ease-in-out of 0.25 s.
            onCurrentIndexChanged: stepIn.restart()
            NumberAnimation { id: stepIn; target: steps; property: "opacity"; from: 0; to: 1; duration: 250; easing.type: Easing.InOutQuad }
            HelloStep {}
            HotkeyStep { recorder: window.recorder; road: window.road }
            UseCasesStep { flow: window.flow }
            LoginStep { forms: window.loginForms }
            // Read only while the step is on screen: a closed window must not keep asking.
            PermissionsStep { check: window.permissions; active: window.flow.step === 4 && window.visible }
            TestStep { lastTranscription: window.appState ? window.appState.lastTranscription : ""; road: window.road }
        }
        RowLayout {
            Layout.fillWidth: true
            ActionButton { visible: window.flow.canGoBack; text: "Назад"; flat: true; onClicked: window.flow.back() }
            Item { Layout.fillWidth: true }
            ActionButton {
                objectName: "advance"
                Layout.minimumWidth: 80
                text: window.flow.advanceTitle
                highlighted: true
                enabled: window.flow.canAdvance
                onClicked: window.flow.advance()
            }
        }
    }
}
