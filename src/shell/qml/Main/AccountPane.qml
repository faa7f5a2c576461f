import QtQuick
import QtQuick.Controls.Material
import QtQuick.Layouts
import Tamvex

// The account: balance and sign-out when signed in, the sign-in form otherwise.
Flickable {
    id: pane
    required property MainWindowModel model
    contentHeight: column.implicitHeight + 56
    clip: true

    Column {
        id: column
        // A readable column, centred in a wide window.
        x: Math.max(28, (pane.width - width) / 2)
        y: 28
        width: Math.min(pane.width - 56, 720)
        spacing: 16
        SectionHeader { title: "Аккаунт" }
        Loader {
            width: parent.width
            active: !pane.model.loggedIn
            visible: active
            sourceComponent: LoginForm { forms: pane.model.loginForms } // qmllint disable unqualified
        }
        Column {
            visible: pane.model.loggedIn
            width: parent.width
            spacing: 16
            RowLayout {
                width: parent.width
                Text { text: pane.model.phone; color: Theme.primary; font.pixelSize: 16; Layout.fillWidth: true }
                Rectangle {
                    radius: 12
                    color: Qt.rgba(1, 1, 1, 0.08)
                    implicitWidth: badge.implicitWidth + 20
                    implicitHeight: 26
                    Row {
                        id: badge
                        anchors.centerIn: parent
                        spacing: 6
                        SymbolIcon { name: "circle.hexagongrid.fill"; size: 12; color: Theme.accent }
                        Text { text: "Баланс · " + pane.model.balanceText; color: Theme.primary; font.pixelSize: 12 }
                    }
                }
            }
            GlassCard {
                width: parent.width
                Text { text: "БАЛАНС"; color: Theme.secondary; font.pixelSize: 12; font.bold: true }
                Text { text: pane.model.balanceText; color: Theme.primary; font.pixelSize: 44; font.bold: true }
                ActionButton { text: "Пополнить"; highlighted: true; onClicked: pane.model.openTopUp() }
            }
            GlassCard {
                width: parent.width
                RowLayout {
                    width: parent.width
                    Text { text: "Выйти из аккаунта"; color: Theme.primary; font.pixelSize: 14; Layout.fillWidth: true }
                    ActionButton { text: "Выйти"; onClicked: signOutDialog.open() }
                }
            }
        }
        GlassCard {
            width: parent.width
            Text { text: "Очистить локальные данные"; color: Theme.primary; font.pixelSize: 14; font.bold: true }
            Text { text: "Удалить всю историю диктовок и инсайты с этого компьютера."; color: Theme.secondary; font.pixelSize: 13 }
            ActionButton { text: "Очистить историю"; onClicked: clearDialog.open() }
        }
    }

    PanelDialog {
        id: signOutDialog
        x: (pane.width - width) / 2
        y: 160
        title: "Выйти из аккаунта?"
        Label { text: "Придётся войти заново и повторно подтвердить номер." }
        footer: DialogButtonBox {
            ActionButton { text: "Отмена"; flat: true; DialogButtonBox.buttonRole: DialogButtonBox.RejectRole } // qmllint disable
            ActionButton { text: "Выйти"; flat: true; DialogButtonBox.buttonRole: DialogButtonBox.AcceptRole } // qmllint disable
        }
        onAccepted: pane.model.signOut()
    }
    PanelDialog {
        id: clearDialog
        x: (pane.width - width) / 2
        y: 160
        title: "Удалить всю историю и инсайты?"
        Label { text: "Восстановить нельзя." }
        footer: DialogButtonBox {
            ActionButton { text: "Отмена"; flat: true; DialogButtonBox.buttonRole: DialogButtonBox.RejectRole } // qmllint disable
            ActionButton { text: "Удалить навсегда"; flat: true; DialogButtonBox.buttonRole: DialogButtonBox.AcceptRole } // qmllint disable
        }
        onAccepted: pane.model.clearHistory()
    }
}
