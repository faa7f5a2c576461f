import QtQuick
import Tamvex

Item {
    id: step
    required property LoginForms forms
    Loader {
        anchors.horizontalCenter: parent.horizontalCenter
        active: !step.forms.loggedIn
        sourceComponent: LoginForm { forms: step.forms } // qmllint disable unqualified
    }
    Column {
        visible: step.forms.loggedIn
        anchors.centerIn: parent
        spacing: 12
        SymbolIcon { anchors.horizontalCenter: parent.horizontalCenter; name: "checkmark.seal.fill"; size: 56; color: Theme.accent }
        Text { text: "Ты вошёл!"; color: Theme.primary; font.pixelSize: 22; font.bold: true }
    }
}
