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
            id: panes
            objectName: "panes"
            Layout.fillWidth: true
            Layout.fillHeight: true
            currentIndex: window.model.sectionIndex
            // A pane is built when first shown, then kept: the first frame waits for one pane only.
            function buildCurrent() {
                const pane = panes.children[currentIndex] as Loader;
                if (pane)
                    pane.active = true;
            }
            onCurrentIndexChanged: buildCurrent()
            Component.onCompleted: buildCurrent()
            Loader { active: false; sourceComponent: HomePane { model: window.model } } // qmllint disable unqualified
            Loader { active: false; sourceComponent: InsightsPane { model: window.model } } // qmllint disable unqualified
            Loader { active: false; sourceComponent: AccountPane { model: window.model } } // qmllint disable unqualified
            Loader { active: false; sourceComponent: SettingsPane { model: window.model } } // qmllint disable unqualified
        }
    }
}
