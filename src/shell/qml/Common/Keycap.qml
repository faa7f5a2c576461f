import QtQuick
import Tamvex

// A key's name drawn as a key cap.
Rectangle {
    id: root
    property string label
    implicitWidth: text.implicitWidth + 16
    implicitHeight: text.implicitHeight + 6
    radius: 6
    color: Qt.rgba(Theme.primary.r, Theme.primary.g, Theme.primary.b, 0.08)
    border.color: Qt.rgba(Theme.primary.r, Theme.primary.g, Theme.primary.b, 0.18)
    border.width: 0.5
    Text {
        id: text
        anchors.centerIn: parent
        text: root.label
        color: Theme.primary
        font.pixelSize: 10
        font.weight: Font.DemiBold
    }
}
