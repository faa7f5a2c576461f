import QtQuick
import QtQuick.Controls.Material
import QtQuick.Layouts
import Tamvex

// Why the paste needs input access, and the commands that grant it, where a paste failed.
Window {
    id: window
    required property PermissionRow row
    color: Theme.window
    Material.theme: Material.Dark
    Material.accent: Theme.accent

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 24
        spacing: 14
        RowLayout {
            spacing: 12
            SymbolIcon { name: "accessibility"; size: 32; color: Theme.accent }
            Text { text: "Вставке нужен доступ к вводу"; color: Theme.primary; font.pixelSize: 20; font.bold: true }
        }
        Text {
            Layout.fillWidth: true
            wrapMode: Text.WordWrap
            text: "Tamvex вставляет распознанный текст, нажимая Ctrl+V за тебя через виртуальную клавиатуру "
                  + "(/dev/uinput). Без доступа к ней текст остаётся в буфере обмена — вставь его сам, Ctrl+V."
            color: Theme.secondary
            font.pixelSize: 13
        }
        GlassCard {
            Layout.fillWidth: true
            PermissionRowView { width: parent.width; row: window.row; symbol: "keyboard" }
        }
        Text {
            Layout.fillWidth: true
            wrapMode: Text.WordWrap
            text: "Выполни команды в терминале, затем выйди из системы и войди снова: группа input действует с нового входа."
            color: Theme.secondary
            font.pixelSize: 12
        }
        Item { Layout.fillHeight: true }
        ActionButton {
            objectName: "done"
            Layout.alignment: Qt.AlignRight // qmllint disable
            Layout.minimumWidth: 80
            text: "Понятно"
            highlighted: true
            onClicked: window.close()
        }
    }
}
