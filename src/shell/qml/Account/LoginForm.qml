import QtQuick
import QtQuick.Controls.Material
import QtQuick.Layouts
import Tamvex

// The sign-in form of the account pane and the onboarding: Yandex ID, or the phone with a
// code from the Telegram bot.
Column {
    id: root
    objectName: "loginForm"
    required property LoginForms forms
    readonly property var form: forms.create(root)
    spacing: 12
    width: 460

    Text { text: "Войти в Tamvex"; color: Theme.primary; font.pixelSize: 22; font.bold: true }
    Text { width: parent.width; wrapMode: Text.WordWrap; text: root.form.subtitle; color: Theme.secondary; font.pixelSize: 13 }

    // enterPhone
    Column {
        visible: root.form.phaseName === "enterPhone"
        width: parent.width
        spacing: 12
        Rectangle {
            width: parent.width
            height: 60
            radius: 12
            color: Qt.rgba(1, 1, 1, 0.06)
            RowLayout {
                anchors.fill: parent
                anchors.margins: 6
                spacing: 12
                Rectangle {
                    width: 48
                    height: 48
                    radius: 12
                    color: Qt.rgba(0.99, 0.18, 0.18, 1)
                    Text { visible: !root.form.yandexInFlight; anchors.centerIn: parent; text: "Я"; color: "white"; font.family: "serif"; font.bold: true; font.pixelSize: 22 }
                    BusyIndicator { visible: root.form.yandexInFlight; running: visible; anchors.fill: parent }
                }
                Text { text: "Войти через Яндекс ID"; color: Theme.primary; font.pixelSize: 15; Layout.fillWidth: true }
                ActionButton {
                    visible: root.form.yandexInFlight
                    text: "Отмена"
                    flat: true
                    onClicked: root.form.cancelYandex()
                }
            }
            MouseArea {
                anchors.fill: parent
                enabled: !root.form.yandexInFlight
                onClicked: root.form.signInWithYandex()
                z: -1
            }
        }
        RowLayout {
            width: parent.width
            Rectangle { Layout.fillWidth: true; height: 1; color: Qt.rgba(1, 1, 1, 0.12) }
            Text { text: "или"; color: Theme.secondary; font.pixelSize: 12 }
            Rectangle { Layout.fillWidth: true; height: 1; color: Qt.rgba(1, 1, 1, 0.12) }
        }
        Text {
            width: parent.width
            wrapMode: Text.WordWrap
            text: "Любой международный номер. Например: +7 (999) 123-45-67 или +1 415 555 1234."
            color: Theme.secondary
            font.pixelSize: 12
        }
        TextField {
            objectName: "phoneField"
            width: parent.width
            placeholderText: "+7 (999) 123-45-67"
            text: root.form.phone
            inputMethodHints: Qt.ImhDialableCharactersOnly // qmllint disable
            onTextEdited: { root.form.phone = text; text = Qt.binding(() => root.form.phone) }
        }
        ActionButton {
            objectName: "requestCodeButton"
            text: "Получить код"
            icon.source: "qrc:/Tamvex/icons/arrow.right.svg"
            LayoutMirroring.enabled: true // the arrow after the words
            highlighted: true
            enabled: root.form.canRequestCode
            onClicked: root.form.requestCode()
        }
    }

    // needBotActivation
    Column {
        visible: root.form.phaseName === "needBotActivation"
        width: parent.width
        spacing: 10
        onVisibleChanged: visible ? root.form.startPolling() : root.form.stopPolling()
        RowLayout {
            width: parent.width
            Text { text: root.form.phone; color: Theme.primary; font.pixelSize: 15; Layout.fillWidth: true }
            ActionButton { text: "Изменить номер"; flat: true; onClicked: root.form.backToPhone() }
        }
        Row {
            spacing: 8
            BusyIndicator { width: 20; height: 20; running: parent.visible }
            Text { text: "Жду активацию…"; color: Theme.primary; font.pixelSize: 13 }
        }
        Text {
            width: parent.width
            wrapMode: Text.WordWrap
            text: "Как только нажмёшь «Поделиться номером» в Telegram — этот экран сам обновится и покажет поле для ввода кода."
            color: Theme.secondary
            font.pixelSize: 12
        }
        Text { text: "Открой бота и поделись номером"; color: Theme.primary; font.pixelSize: 14; font.bold: true }
        ActionButton {
            objectName: "openBotButton"
            text: "Открыть @" + root.form.botUsername
            icon.source: "qrc:/Tamvex/icons/paperplane.fill.svg"
            font.capitalization: Font.MixedCase // the bot is a name, not a label
            onClicked: Qt.openUrlExternally(root.form.botLink)
        }
    }

    // enterCode
    Column {
        visible: root.form.phaseName === "enterCode"
        width: parent.width
        spacing: 10
        RowLayout {
            width: parent.width
            Text { text: root.form.phone; color: Theme.primary; font.pixelSize: 15; Layout.fillWidth: true }
            ActionButton { text: "Изменить"; flat: true; onClicked: root.form.editPhone() }
        }
        TextField {
            width: parent.width
            placeholderText: "123456"
            text: root.form.code
            onTextEdited: root.form.code = text
            onAccepted: if (root.form.canVerify) root.form.verify()
        }
        ActionButton {
            id: verifyButton
            text: "Войти"
            highlighted: true
            enabled: root.form.canVerify
            onClicked: root.form.verify()
            // While the code is checked a spinner stands before the word.
            leftPadding: root.form.loading ? verifyButton.horizontalPadding + 26 : verifyButton.horizontalPadding
            BusyIndicator {
                objectName: "verifyProgress"
                visible: root.form.loading
                running: visible
                x: verifyButton.horizontalPadding - 2
                anchors.verticalCenter: verifyButton.verticalCenter
                width: 24
                height: 24
            }
        }
        Row {
            spacing: 6
            Text { anchors.verticalCenter: parent.verticalCenter; text: "Не пришло?"; color: Theme.secondary; font.pixelSize: 12 }
            ActionButton { text: "Прислать заново"; flat: true; onClicked: root.form.requestCode() }
        }
    }

    Row {
        visible: root.form.errorText.length > 0
        spacing: 8
        SymbolIcon { name: "exclamationmark.triangle.fill"; size: 14; color: Theme.orange }
        Text { width: root.width - 30; wrapMode: Text.WordWrap; text: root.form.errorText; color: Theme.orange; font.pixelSize: 13 }
    }
}
