pragma ComponentBehavior: Bound
import QtQuick
import Tamvex

StepPage {
    id: step
    property string lastTranscription
    title: "Готово!"
    text: "Как только закроешь это окно, Sorvel сядет в трей и появится плавающая полоска внизу экрана."
    Text { text: "Подсказка:"; color: Theme.primary; font.pixelSize: 14; font.bold: true }
    Repeater {
        model: ["Зажми FN — говори — отпусти. Или короткий клик FN, ещё клик — стоп.", "Скажи что хочешь",
                "Отпусти — текст появится в активном поле", "Наведи мышь на полоску внизу — там меню и счётчик слов"]
        Text {
            required property int index
            required property string modelData
            width: step.width
            wrapMode: Text.WordWrap
            text: (index + 1) + ". " + modelData
            color: Theme.secondary
            font.pixelSize: 13
        }
    }
    GlassCard {
        visible: step.lastTranscription.length > 0
        width: step.width
        Text { text: "Последний распознанный текст:"; color: Theme.secondary; font.pixelSize: 12 }
        Text { width: parent.width; wrapMode: Text.WordWrap; text: step.lastTranscription; color: Theme.primary; font.pixelSize: 14 }
    }
}
