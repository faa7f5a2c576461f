import QtQuick
import QtQuick.Controls.Material
import QtQuick.Layouts
import Tamvex

// The main window: the sidebar and one pane per section.
Window {
    id: window
    required property MainWindowModel model
    color: Theme.window
    Material.theme: Material.Dark
    Material.accent: Theme.accent

    RowLayout {
        anchors.fill: parent
        spacing: 0
        Sidebar {
            Layout.fillHeight: true
            Layout.preferredWidth: 230
            model: window.model
        }
        StackLayout {
            objectName: "panes"
            Layout.fillWidth: true
            Layout.fillHeight: true
            currentIndex: ["home", "insights", "account", "settings"].indexOf(window.model.section)
            HomePane { model: window.model }
            InsightsPane { model: window.model }
            AccountPane { model: window.model }
            SettingsPane { model: window.model }
        }
    }
}
