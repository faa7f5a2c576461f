import QtQuick
import Tamvex

Column {
    spacing: 14
    topPadding: 30
    Rectangle {
        anchors.horizontalCenter: parent.horizontalCenter
        width: 130
        height: 130
        radius: 65
        color: Qt.rgba(Theme.accent.r, Theme.accent.g, Theme.accent.b, 0.15)
        SymbolIcon { anchors.centerIn: parent; name: "pawprint.fill"; size: 72; color: Theme.accent }
        SequentialAnimation on scale {
            loops: Animation.Infinite
            NumberAnimation { from: 1.0; to: 1.06; duration: 1400; easing.type: Easing.InOutQuad } // qmllint disable
            NumberAnimation { from: 1.06; to: 1.0; duration: 1400; easing.type: Easing.InOutQuad } // qmllint disable
        }
    }
    Text { width: parent.width; horizontalAlignment: Text.AlignHCenter; text: "Привет!"; color: Theme.primary; font.pixelSize: 28; font.bold: true }
    Text {
        width: parent.width
        horizontalAlignment: Text.AlignHCenter
        wrapMode: Text.WordWrap
        text: "Это Sorvel — голосовая диктовка прямо в любое поле ввода.\nЗажми клавишу, говори, отпусти — текст вставится сам."
        color: Theme.primary
        font.pixelSize: 15
    }
    Text { width: parent.width; horizontalAlignment: Text.AlignHCenter; text: "Настройка займёт меньше минуты"; color: Theme.secondary; font.pixelSize: 13 }
}
