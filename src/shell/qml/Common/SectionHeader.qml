import QtQuick
import Tamvex

// A pane's heading with an optional line under it.
Column {
    property string title
    property string subtitle
    spacing: 4
    Text {
        text: parent.title
        color: Theme.primary
        font.pixelSize: 26
        font.bold: true
    }
    Text {
        visible: parent.subtitle.length > 0
        text: parent.subtitle
        color: Theme.secondary
        font.pixelSize: 13
    }
}
