import QtQuick
import QtQuick.Layouts
import Tamvex

// One permission: its symbol, title and subtitle, then a check mark or "Запросить"; the
// commands that grant it, with a copy button, once asked for.
ColumnLayout {
    id: view
    required property PermissionRow row
    required property string symbol
    spacing: 6

    RowLayout {
        Layout.fillWidth: true
        Layout.topMargin: 6
        Layout.bottomMargin: 6
        spacing: 12
        SymbolIcon { name: view.symbol; size: 18; color: Theme.accent }
        ColumnLayout {
            Layout.fillWidth: true
            spacing: 2
            Text { text: view.row.title; color: Theme.primary; font.pixelSize: 14 }
            Text {
                Layout.fillWidth: true
                wrapMode: Text.WordWrap
                text: view.row.subtitle
                color: Theme.secondary
                font.pixelSize: 12
            }
        }
        SymbolIcon { visible: view.row.granted; name: "checkmark.circle.fill"; size: 18; color: Theme.green }
        ActionButton {
            visible: !view.row.granted
            text: "Запросить"
            onClicked: view.row.request()
        }
    }
    Rectangle {
        visible: view.row.commandsShown && !view.row.granted
        Layout.fillWidth: true
        implicitHeight: commands.implicitHeight + 20
        radius: 8
        color: Qt.rgba(0, 0, 0, 0.35)
        Text {
            id: commands
            x: 12
            y: 10
            width: parent.width - copy.width - 32
            wrapMode: Text.WrapAnywhere
            text: view.row.commands
            color: Theme.primary
            font.family: "monospace"
            font.pixelSize: 12
        }
        ActionButton {
            id: copy
            anchors.right: parent.right
            anchors.rightMargin: 8
            anchors.verticalCenter: parent.verticalCenter
            flat: true
            text: "Копировать"
            icon.source: "qrc:/Tamvex/icons/doc.on.doc.svg"
            icon.color: Theme.secondary
            onClicked: view.row.copyCommands()
        }
    }
}
