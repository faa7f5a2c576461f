pragma ComponentBehavior: Bound
import QtQuick
import Tamvex
import QtQuick.Layouts

StepPage {
    id: step
    required property ShortcutRecorder recorder
    required property OnboardingRoad road
    symbol: "keyboard"
    title: "Как записывать?"
    text: "По умолчанию используется клавиша FN — она удобна тем, что не блокирует другие шорткаты."
    RowLayout {
        width: parent.width
        spacing: 12
        Repeater {
            model: [
                { symbol: "hand.point.up.left.fill", title: "Удержание", text: "Зажми FN — говори — отпусти. Текст вставится." },
                { symbol: "hand.tap.fill", title: "Двойной клик", text: "Короткий клик FN — запись пошла. Ещё клик — стоп." }
            ]
            GlassCard {
                id: card
                required property var modelData
                Layout.fillWidth: true
                Layout.preferredWidth: 1
                SymbolIcon { name: card.modelData.symbol; size: 22; color: Theme.accent }
                Text { text: card.modelData.title; color: Theme.primary; font.pixelSize: 15; font.bold: true }
                Text { width: parent.width; wrapMode: Text.WordWrap; text: card.modelData.text; color: Theme.secondary; font.pixelSize: 13 }
            }
        }
    }
    // Where no keyboard here sends FN, the step says so and the recorder sets the hotkey.
    RowLayout {
        objectName: "noFunctionKey"
        visible: !step.road.functionKeyAvailable
        width: parent.width
        spacing: 10
        SymbolIcon { Layout.alignment: Qt.AlignTop; name: "exclamationmark.triangle.fill"; size: 16; color: Theme.orange } // qmllint disable
        Text {
            Layout.fillWidth: true
            wrapMode: Text.WordWrap
            text: step.road.functionKeyNote
            color: Theme.primary
            font.pixelSize: 13
        }
    }
    Text {
        visible: step.road.functionKeyAvailable
        width: parent.width
        wrapMode: Text.WordWrap
        text: "Не нравится FN? Можно задать дополнительную клавишу:"
        color: Theme.secondary
        font.pixelSize: 13
    }
    ShortcutField { width: Math.min(parent.width, 320); recorder: step.recorder }
}
