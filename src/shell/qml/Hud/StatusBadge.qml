import QtQuick
import Tamvex

// White symbol and text on an orange capsule.
Rectangle {
    id: root
    property string icon
    property string text
    implicitWidth: row.implicitWidth + 16
    implicitHeight: row.implicitHeight + 8
    radius: height / 2
    color: Qt.rgba(Theme.orange.r, Theme.orange.g, Theme.orange.b, 0.92)
    Row {
        id: row
        anchors.centerIn: parent
        spacing: 4
        SymbolIcon {
            anchors.verticalCenter: parent.verticalCenter
            name: root.icon
            size: 10
            color: "white"
        }
        Text {
            anchors.verticalCenter: parent.verticalCenter
            text: root.text
            color: "white"
            font.pixelSize: 11
            font.weight: Font.DemiBold
        }
    }
}
