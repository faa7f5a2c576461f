pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Layouts
import Tamvex

// The sections, top to bottom, with the status pill at the bottom.
Rectangle {
    id: sidebar
    required property MainWindowModel model
    color: Qt.rgba(1, 1, 1, 0.03)

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 16
        spacing: 6
        Row {
            spacing: 10
            Layout.bottomMargin: 18
            SymbolIcon { name: "pawprint.fill"; size: 22; color: Theme.accent }
            Text { text: "Tamvex"; color: Theme.primary; font.pixelSize: 20; font.bold: true }
        }
        Repeater {
            model: [
                { title: "Главная", symbol: "house.fill", section: "home" },
                { title: "Инсайты", symbol: "chart.bar.fill", section: "insights" },
                { title: "Аккаунт", symbol: "person.crop.circle.fill", section: "account" },
                { title: "Настройки", symbol: "gearshape.fill", section: "settings" }
            ]
            delegate: Rectangle {
                id: row
                required property var modelData
                readonly property bool current: sidebar.model.section === modelData.section
                Layout.fillWidth: true
                height: 36
                radius: 8
                color: current ? Qt.rgba(1, 1, 1, 0.1) : (area.containsMouse ? Qt.rgba(1, 1, 1, 0.05) : "transparent")
                Row {
                    anchors.verticalCenter: parent.verticalCenter
                    x: 10
                    spacing: 10
                    SymbolIcon { name: row.modelData.symbol; size: 15; color: row.current ? Theme.accent : Theme.secondary }
                    Text { text: row.modelData.title; color: Theme.primary; font.pixelSize: 14 }
                }
                MouseArea {
                    id: area
                    anchors.fill: parent
                    hoverEnabled: true
                    onClicked: sidebar.model.section = row.modelData.section
                }
            }
        }
        Item { Layout.fillHeight: true }
        Rectangle {
            objectName: "statusPill"
            Layout.fillWidth: true
            height: 34
            radius: 17
            color: Qt.rgba(1, 1, 1, 0.08)
            Row {
                anchors.centerIn: parent
                spacing: 8
                SymbolIcon {
                    name: sidebar.model.loggedIn ? "circle.hexagongrid.fill" : "person.fill"
                    size: 13
                    color: Theme.accent
                }
                Text {
                    text: sidebar.model.loggedIn ? sidebar.model.balanceText : "Войти"
                    color: Theme.primary
                    font.pixelSize: 13
                }
            }
            MouseArea { anchors.fill: parent; onClicked: sidebar.model.tapStatusPill() }
        }
    }
}
