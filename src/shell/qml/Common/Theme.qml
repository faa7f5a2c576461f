pragma Singleton
import QtQuick

// The one palette of every window: always dark.
QtObject {
    readonly property color recordingAccent: Qt.rgba(1.0, 0.55, 0.45, 1)
    readonly property color processingAccent: Qt.rgba(0.65, 0.55, 0.95, 1)
    readonly property color orange: Qt.rgba(1.0, 0.584, 0.0, 1)
    // Granted, ready.
    readonly property color green: "#34c759"
    readonly property color primary: "#f2f2f7"
    readonly property color secondary: "#98989f"
    readonly property color window: "#1c1c1e"
    // Stand-in for the thin translucent material behind the HUD's shapes.
    readonly property color material: Qt.rgba(0.16, 0.16, 0.18, 0.86)
    readonly property string fontFamily: "sans-serif"
    // The windows' accent: selection, progress, the microphone ring.
    readonly property color accent: "#8e8cff"

    // A text category's colour by its name, as the dark system palette draws it.
    function categoryColor(name: string): color {
        switch (name) {
        case "green": return "#30d158";
        case "blue": return "#0a84ff";
        case "orange": return "#ff9f0a";
        case "pink": return "#ff375f";
        case "purple": return "#bf5af2";
        case "cyan": return "#64d2ff";
        case "yellow": return "#ffd60a";
        default: return "#8e8e93";
        }
    }
}
