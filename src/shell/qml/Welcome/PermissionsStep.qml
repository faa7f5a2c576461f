import QtQuick
import Tamvex

// The settings pane's permission rows: the check, "Запросить", and for input access the
// commands that grant it with a copy button. They are read only while `active`.
StepPage {
    id: step
    required property PermissionsCheck check
    property bool active: false
    onActiveChanged: active ? check.appear() : check.disappear()
    Component.onCompleted: if (active) check.appear()
    symbol: "lock.shield"
    title: "Tamvex нужно два разрешения"
    text: "Без них приложение не сможет работать. Система может попросить подтверждение."
    GlassCard {
        width: step.width
        PermissionRowView { width: parent.width; row: step.check.microphone; symbol: "mic.fill" }
        PermissionRowView { width: parent.width; row: step.check.input; symbol: "accessibility" }
    }
}
