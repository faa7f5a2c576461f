pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Layouts
import Tamvex

StepPage {
    id: step
    required property PermissionsCheck check
    property bool active: false
    onActiveChanged: active ? check.appear() : check.disappear()
    symbol: "lock.shield"
    title: "Tamvex нужно два разрешения"
    text: "Без них приложение не сможет работать. Система может попросить подтверждение."
    Repeater {
        model: [
            { symbol: "mic.fill", title: "Микрофон", text: "Чтобы записывать и распознавать твою речь.", mic: true },
            { symbol: "accessibility", title: "Доступ к вводу", text: "Чтобы вставлять распознанный текст в активное поле любого приложения.", mic: false }
        ]
        GlassCard {
            id: card
            required property var modelData
            readonly property bool granted: modelData.mic ? step.check.micGranted === true : step.check.accessibilityGranted
            width: step.width
            RowLayout {
                width: parent.width
                spacing: 12
                SymbolIcon { name: card.modelData.symbol; size: 20; color: Theme.accent }
                Column {
                    Layout.fillWidth: true
                    Text { text: card.modelData.title; color: Theme.primary; font.pixelSize: 14; font.bold: true }
                    Text { width: parent.width; wrapMode: Text.WordWrap; text: card.modelData.text; color: Theme.secondary; font.pixelSize: 12 }
                }
                SymbolIcon { visible: card.granted; name: "checkmark.circle.fill"; size: 20; color: Theme.accent }
                ActionButton { visible: !card.granted; text: "Как включить"; onClicked: step.check.read() }
            }
        }
    }
}
