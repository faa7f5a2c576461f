import QtQuick
import Tamvex

// The common frame of a step: a symbol, a title and a text, then the step's own content.
Column {
    id: page
    property string symbol
    property string title
    property string text
    default property alias content: extra.data
    spacing: 12
    SymbolIcon { visible: page.symbol.length > 0; anchors.horizontalCenter: parent.horizontalCenter; name: page.symbol; size: 40; color: Theme.accent }
    Text { width: parent.width; horizontalAlignment: Text.AlignHCenter; text: page.title; color: Theme.primary; font.pixelSize: 24; font.bold: true }
    Text { width: parent.width; horizontalAlignment: Text.AlignHCenter; wrapMode: Text.WordWrap; visible: text.length > 0; text: page.text; color: Theme.secondary; font.pixelSize: 14 }
    Column { id: extra; width: parent.width; spacing: 10 }
}
