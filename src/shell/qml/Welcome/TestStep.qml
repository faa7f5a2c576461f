pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Material
import QtQuick.Layouts
import Tamvex

StepPage {
    id: step
    property string lastTranscription
    required property OnboardingRoad road
    // Once a way is being set up here, it stays on screen while the road changes under it.
    property bool keyOpen: false
    property bool localOpen: false
    readonly property bool offering: road.road === "none" || keyOpen || localOpen
    title: "Готово!"
    text: "Как только закроешь это окно, Sorvel сядет в трей и появится плавающая полоска внизу экрана."

    GlassCard {
        objectName: "road"
        width: step.width
        padding: 12
        spacing: 8
        RowLayout {
            width: parent.width
            spacing: 8
            SymbolIcon {
                name: step.road.road === "none" ? "exclamationmark.triangle.fill" : "checkmark.circle.fill"
                size: 16
                color: step.road.road === "none" ? Theme.orange : Theme.green
            }
            Text {
                Layout.fillWidth: true
                wrapMode: Text.WordWrap
                textFormat: Text.StyledText
                text: step.road.road === "none"
                      ? "Сейчас диктовка не сработает: нет входа в аккаунт, своего ключа и локальной модели."
                      : "Следующая диктовка пойдёт <b>" + step.road.roadTitle + "</b>."
                color: Theme.primary
                font.pixelSize: 13
            }
        }
        Text {
            visible: step.road.road === "none" && !step.keyOpen && !step.localOpen
            width: parent.width
            wrapMode: Text.WordWrap
            text: "Без аккаунта работают два способа:"
            color: Theme.secondary
            font.pixelSize: 12
        }
        Flow {
            visible: step.offering
            width: parent.width
            spacing: 8
            ActionButton {
                objectName: "chooseLocal"
                text: "Распознавать на этом компьютере"
                highlighted: step.localOpen
                icon.source: "qrc:/Tamvex/icons/lock.shield.svg"
                onClicked: {
                    step.localOpen = true;
                    step.keyOpen = false;
                    step.road.chooseLocal();
                }
            }
            ActionButton {
                objectName: "enterKey"
                text: "Ввести свой ключ OpenRouter"
                highlighted: step.keyOpen
                icon.source: "qrc:/Tamvex/icons/key.horizontal.svg"
                onClicked: {
                    step.keyOpen = true;
                    step.localOpen = false;
                }
            }
        }
        RowLayout {
            visible: step.localOpen && step.road.downloadPhase !== "idle"
            width: parent.width
            spacing: 10
            ColumnLayout {
                Layout.fillWidth: true
                spacing: 4
                Text {
                    objectName: "downloadText"
                    Layout.fillWidth: true
                    wrapMode: Text.WordWrap
                    text: step.road.downloadText
                    color: step.road.downloadPhase === "failed" ? Theme.orange : Theme.secondary
                    font.pixelSize: 12
                }
                ProgressBar {
                    visible: step.road.downloadPhase === "downloading"
                    Layout.fillWidth: true
                    value: step.road.downloadProgress
                }
            }
            ActionButton {
                visible: step.road.downloadPhase === "downloading"
                flat: true
                text: "Отменить"
                onClicked: step.road.cancelDownload()
            }
            ActionButton {
                visible: step.road.downloadPhase === "failed"
                flat: true
                text: "Попробовать снова"
                icon.source: "qrc:/Tamvex/icons/arrow.clockwise.svg"
                onClicked: step.road.chooseLocal()
            }
        }
        RowLayout {
            visible: step.keyOpen
            width: parent.width
            spacing: 10
            TextField {
                objectName: "ownKey"
                Layout.fillWidth: true
                echoMode: TextInput.Password
                placeholderText: "sk-or-v1-…"
                onTextEdited: step.road.enterOwnKey(text)
            }
            SymbolIcon { visible: step.road.road === "ownKey"; name: "checkmark.circle.fill"; size: 18; color: Theme.green }
        }
    }
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
