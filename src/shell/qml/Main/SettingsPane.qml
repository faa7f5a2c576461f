import QtQuick
import QtQuick.Controls.Material
import QtQuick.Layouts
import Tamvex

// The settings, card by card.
Flickable {
    id: pane
    required property MainWindowModel model
    readonly property var settings: model.settings
    contentHeight: column.implicitHeight + 56
    clip: true
    ScrollBar.vertical: ScrollBar {}

    Column {
        id: column
        x: 28
        y: 28
        width: Math.min(pane.width - 56, 820)
        spacing: 16
        SectionHeader { title: "Настройки"; subtitle: "Горячие клавиши, модель, разрешения" }

        GlassCard {
            width: parent.width
            Text { text: "Горячая клавиша"; color: Theme.primary; font.pixelSize: 15; font.bold: true }
            Row {
                spacing: 8
                RadioButton { text: "FN (по умолчанию)"; checked: pane.settings.useFnHotkey; onClicked: pane.settings.useFnHotkey = true }
                RadioButton { text: "Своя комбинация"; checked: !pane.settings.useFnHotkey; onClicked: pane.settings.useFnHotkey = false }
            }
            Row {
                visible: pane.settings.useFnHotkey
                spacing: 8
                Keycap { label: "FN" }
                Text { anchors.verticalCenter: parent.verticalCenter; text: "активна"; color: Theme.secondary; font.pixelSize: 13 }
            }
            Text {
                visible: !pane.settings.useFnHotkey
                width: parent.width
                wrapMode: Text.WordWrap
                text: "Если поле не сохраняется — комбинация занята системой. Попробуй другую (например Alt+Space, Ctrl+Shift+M)."
                color: Theme.secondary
                font.pixelSize: 12
            }
            Text {
                width: parent.width
                wrapMode: Text.WordWrap
                text: "Зажми — пишется пока удерживаешь. Двойной короткий клик — запись остаётся включённой до следующего клика."
                color: Theme.secondary
                font.pixelSize: 12
            }
        }

        GlassCard {
            width: parent.width
            Row {
                spacing: 8
                SymbolIcon { name: "brain.head.profile"; size: 16; color: Theme.accent }
                Text { text: "Модель"; color: Theme.primary; font.pixelSize: 15; font.bold: true }
            }
            Repeater {
                model: pane.model.presets
                Rectangle {
                    required property var modelData
                    width: parent.width
                    height: 62
                    radius: 10
                    color: modelData.selected ? Qt.rgba(1, 1, 1, 0.1) : Qt.rgba(1, 1, 1, 0.04)
                    Column {
                        x: 12
                        anchors.verticalCenter: parent.verticalCenter
                        width: parent.width - 60
                        spacing: 2
                        Text { text: modelData.title; color: Theme.primary; font.pixelSize: 14 }
                        Text { width: parent.width; elide: Text.ElideRight; text: modelData.subtitle + " · " + modelData.cost; color: Theme.secondary; font.pixelSize: 12 }
                    }
                    SymbolIcon {
                        visible: modelData.selected
                        anchors.right: parent.right
                        anchors.rightMargin: 14
                        anchors.verticalCenter: parent.verticalCenter
                        name: "checkmark.circle.fill"
                        size: 18
                        color: Theme.accent
                    }
                    MouseArea { anchors.fill: parent; onClicked: pane.model.choosePreset(modelData.raw) }
                }
            }
        }

        GlassCard {
            width: parent.width
            Row {
                spacing: 8
                SymbolIcon { name: "key.horizontal"; size: 16; color: Theme.accent }
                Text { text: "Источник API-ключа"; color: Theme.primary; font.pixelSize: 15; font.bold: true }
            }
            Row {
                spacing: 8
                RadioButton { text: "Через наш сервер"; checked: pane.settings.useEmbeddedKey; onClicked: pane.settings.useEmbeddedKey = true }
                RadioButton { text: "Свой ключ"; checked: !pane.settings.useEmbeddedKey; onClicked: pane.settings.useEmbeddedKey = false }
            }
            Column {
                visible: !pane.settings.useEmbeddedKey
                width: parent.width
                spacing: 8
                TextField {
                    width: parent.width
                    echoMode: TextInput.Password
                    placeholderText: "sk-or-v1-…"
                    text: pane.settings.apiKey
                    onEditingFinished: pane.settings.apiKey = text
                }
                Text { text: "Введи свой ключ выше — без него работает Sorvel-баланс."; color: Theme.secondary; font.pixelSize: 12 }
                TextField {
                    width: parent.width
                    placeholderText: "Своя модель (например, anthropic/claude-haiku)"
                    text: pane.settings.customModelId
                    onEditingFinished: pane.settings.customModelId = text
                }
                Text {
                    width: parent.width
                    wrapMode: Text.WordWrap
                    text: "Оставь пустым для авто-выбора модели по пресету. Заполни — отправляется в OpenRouter как есть, минуя preset routing."
                    color: Theme.secondary
                    font.pixelSize: 12
                }
            }
        }

        GlassCard {
            width: parent.width
            Row {
                spacing: 8
                SymbolIcon { name: "macwindow"; size: 16; color: Theme.accent }
                Text { text: "Приложение"; color: Theme.primary; font.pixelSize: 15; font.bold: true }
            }
            Switch { text: "Показывать в панели задач"; checked: pane.settings.showInDock; onToggled: pane.settings.showInDock = checked }
            Text { width: parent.width; wrapMode: Text.WordWrap; text: "Иконка в панели задач + главное окно. Без галочки — только трей и плавающая полоска."; color: Theme.secondary; font.pixelSize: 12 }
            Switch { text: "Запускать при входе в систему"; checked: pane.settings.launchAtLogin; onToggled: pane.settings.launchAtLogin = checked }
            Text { width: parent.width; wrapMode: Text.WordWrap; text: "Sorvel будет автоматически запускаться когда ты входишь в систему. Иначе диктовка появится только после ручного запуска."; color: Theme.secondary; font.pixelSize: 12 }
        }

        GlassCard {
            width: parent.width
            Row {
                spacing: 8
                SymbolIcon { name: "bubble.left.and.bubble.right"; size: 16; color: Theme.accent }
                Text { text: "Связь с автором"; color: Theme.primary; font.pixelSize: 15; font.bold: true }
            }
            Text { width: parent.width; wrapMode: Text.WordWrap; text: "Если есть пожелания, идеи или что-то сломалось — напиши напрямую, отвечаю быстро."; color: Theme.secondary; font.pixelSize: 12 }
            Button { text: pane.model.telegramTitle; highlighted: true; onClicked: pane.model.openTelegram() }
        }
    }
}
