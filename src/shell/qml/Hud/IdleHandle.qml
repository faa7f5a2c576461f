import QtQuick
import Tamvex

// The thin handle between dictations; on hover it names the program and the week's words.
Item {
    id: root
    property int wordsLastWeek: 0
    readonly property bool hovered: mouse.containsMouse
    signal tapped()
    implicitWidth: Math.max(110, hoverCard.implicitWidth)
    implicitHeight: Math.max(28, hoverCard.implicitHeight)

    Rectangle {
        anchors.centerIn: parent
        visible: !root.hovered
        width: 80
        height: 4
        radius: 2
        color: Qt.rgba(Theme.secondary.r, Theme.secondary.g, Theme.secondary.b, 0.4)
    }

    Rectangle {
        id: hoverCard
        anchors.centerIn: parent
        visible: root.hovered
        implicitWidth: row.implicitWidth + 24
        implicitHeight: row.implicitHeight + 12
        width: implicitWidth
        height: implicitHeight
        radius: height / 2
        color: Theme.material
        border.color: Qt.rgba(Theme.secondary.r, Theme.secondary.g, Theme.secondary.b, 0.3)
        border.width: 1
        Row {
            id: row
            anchors.centerIn: parent
            spacing: 8
            SymbolIcon {
                anchors.verticalCenter: parent.verticalCenter
                name: "pawprint.fill"
                size: 12
                color: Theme.recordingAccent
            }
            Column {
                anchors.verticalCenter: parent.verticalCenter
                Text {
                    text: "Tamvex"
                    color: Theme.primary
                    font.pixelSize: 11
                    font.weight: Font.DemiBold
                }
                Text {
                    text: root.wordsLastWeek + " слов за неделю"
                    color: Theme.secondary
                    font.pixelSize: 9
                }
            }
        }
    }

    MouseArea {
        id: mouse
        anchors.fill: parent
        hoverEnabled: true
        cursorShape: Qt.PointingHandCursor // qmllint disable
        onClicked: root.tapped()
    }
}
