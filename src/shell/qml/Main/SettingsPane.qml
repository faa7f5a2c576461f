pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Material
import QtQuick.Layouts
import Tamvex

// The settings, card by card: hotkey, model, local model, API key, permissions, the
// application, the contact.
Flickable {
    id: pane
    required property MainWindowModel model
    readonly property var settings: model.settings
    readonly property SettingsPaneModel extra: model.settingsPane
    contentHeight: column.implicitHeight + 56
    clip: true
    ScrollBar.vertical: ScrollBar {}

    // The rows read their state on appearing, the window's reopening included; their polls
    // end when the pane or its window goes.
    readonly property bool shown: visible && Window.visibility !== Window.Hidden
    onShownChanged: {
        if (!extra)
            return;
        if (shown)
            extra.appear();
        else
            extra.disappear();
    }

    component CardTitle: Row {
        id: cardTitle
        property string symbol
        property string title
        spacing: 8
        SymbolIcon { visible: cardTitle.symbol.length > 0; name: cardTitle.symbol; size: 16; color: Theme.accent }
        Text { text: cardTitle.title; color: Theme.primary; font.pixelSize: 15; font.bold: true }
    }
    component Note: Text {
        width: parent ? parent.width : implicitWidth
        wrapMode: Text.WordWrap
        color: Theme.secondary
        font.pixelSize: 12
    }

    Column {
        id: column
        // A readable column, centred in a wide window.
        x: Math.max(28, (pane.width - width) / 2)
        y: 28
        width: Math.min(pane.width - 56, 820)
        spacing: 16
        SectionHeader { title: "Настройки"; subtitle: "Горячие клавиши, модель, разрешения" }

        GlassCard {
            width: parent.width
            CardTitle { title: "Горячая клавиша" }
            Row {
                spacing: 8
                RadioChoice { text: "FN (по умолчанию)"; checked: pane.settings.useFnHotkey; onClicked: pane.settings.useFnHotkey = true }
                RadioChoice { text: "Своя комбинация"; checked: !pane.settings.useFnHotkey; onClicked: pane.settings.useFnHotkey = false }
            }
            Row {
                visible: pane.settings.useFnHotkey && pane.extra.functionKeyAvailable
                spacing: 8
                Keycap { label: "FN" }
                Text { anchors.verticalCenter: parent.verticalCenter; text: "активна"; color: Theme.secondary; font.pixelSize: 13 }
            }
            RowLayout {
                visible: pane.settings.useFnHotkey && !pane.extra.functionKeyAvailable
                width: parent.width
                spacing: 10
                SymbolIcon { name: "exclamationmark.triangle.fill"; size: 16; color: Theme.orange }
                Text {
                    Layout.fillWidth: true
                    wrapMode: Text.WordWrap
                    text: pane.extra.functionKeyNote
                    color: Theme.primary
                    font.pixelSize: 12
                }
                ActionButton { text: "Задать сочетание"; flat: true; onClicked: pane.settings.useFnHotkey = false }
            }
            Column {
                visible: !pane.settings.useFnHotkey
                width: parent.width
                spacing: 8
                ShortcutField { recorder: pane.extra.recorder }
                Note { text: "Если поле не сохраняется — комбинация занята системой. Попробуй другую (например Alt+Space, Ctrl+Shift+M)." }
                // On Wayland the desktop binds the shortcut and may assign another key: that one works.
                Row {
                    visible: pane.extra.desktopTrigger.length > 0
                    spacing: 8
                    Text { anchors.verticalCenter: parent.verticalCenter; text: "Рабочий стол назначил:"; color: Theme.secondary; font.pixelSize: 13 }
                    Keycap { label: pane.extra.desktopTrigger }
                }
                Note {
                    visible: pane.extra.desktopTrigger.length > 0
                    text: "Сочетание задаёт рабочий стол (портал GlobalShortcuts). Сменить его можно и в настройках рабочего стола — здесь покажется то, что он назначил."
                }
            }
            RowLayout {
                visible: pane.extra.sessionNote.length > 0
                width: parent.width
                spacing: 10
                SymbolIcon { name: "exclamationmark.triangle.fill"; size: 16; color: Theme.orange }
                Text {
                    Layout.fillWidth: true
                    wrapMode: Text.WordWrap
                    text: pane.extra.sessionNote
                    color: Theme.primary
                    font.pixelSize: 12
                }
            }
            Note { text: "Зажми — пишется пока удерживаешь. Двойной короткий клик — запись остаётся включённой до следующего клика." }
        }

        GlassCard {
            width: parent.width
            CardTitle { symbol: "brain.head.profile"; title: "Модель" }
            Repeater {
                model: pane.model.presets
                Rectangle {
                    id: presetCard
                    required property var modelData
                    width: parent.width
                    height: 62
                    radius: 10
                    color: modelData.selected ? Qt.rgba(1, 1, 1, 0.1) : Qt.rgba(1, 1, 1, 0.04)
                    border.color: modelData.selected ? Theme.accent : "transparent"
                    Column {
                        x: 12
                        anchors.verticalCenter: parent.verticalCenter
                        width: parent.width - 60
                        spacing: 2
                        Text { text: presetCard.modelData.title; color: Theme.primary; font.pixelSize: 14 }
                        Text { width: parent.width; elide: Text.ElideRight; text: presetCard.modelData.subtitle + " · " + presetCard.modelData.cost; color: Theme.secondary; font.pixelSize: 12 }
                    }
                    SymbolIcon {
                        visible: presetCard.modelData.selected
                        anchors.right: parent.right
                        anchors.rightMargin: 14
                        anchors.verticalCenter: parent.verticalCenter
                        name: "checkmark.circle.fill"
                        size: 18
                        color: Theme.accent
                    }
                    TapHandler { onTapped: pane.model.choosePreset(presetCard.modelData.raw) }
                }
            }
        }

        LocalModelCard { width: parent.width; section: pane.extra.localModel }

        GlassCard {
            width: parent.width
            CardTitle { symbol: "key.horizontal"; title: "Источник API-ключа" }
            Row {
                spacing: 8
                RadioChoice { text: "Через наш сервер"; checked: pane.settings.useEmbeddedKey; onClicked: pane.settings.useEmbeddedKey = true }
                RadioChoice { text: "Свой ключ"; checked: !pane.settings.useEmbeddedKey; onClicked: pane.settings.useEmbeddedKey = false }
            }
            Column {
                visible: !pane.settings.useEmbeddedKey
                width: parent.width
                spacing: 8
                RowLayout {
                    width: parent.width
                    spacing: 10
                    TextField {
                        Layout.fillWidth: true
                        echoMode: TextInput.Password
                        placeholderText: "sk-or-v1-…"
                        text: pane.settings.apiKey
                        onTextEdited: pane.settings.apiKey = text
                    }
                    SymbolIcon { visible: pane.settings.apiKey.length > 0; name: "checkmark.circle.fill"; size: 18; color: Theme.green }
                }
                Note { text: "Введи свой ключ выше — без него работает Sorvel-баланс." }
                TextField {
                    width: parent.width
                    placeholderText: "Своя модель (например, anthropic/claude-haiku)"
                    text: pane.settings.customModelId
                    onTextEdited: pane.settings.customModelId = text
                }
                RowLayout {
                    width: parent.width
                    spacing: 8
                    SymbolIcon { Layout.alignment: Qt.AlignTop; name: "info.circle"; size: 14; color: Theme.secondary } // qmllint disable
                    Text {
                        Layout.fillWidth: true
                        wrapMode: Text.WordWrap
                        text: "Оставь пустым для авто-выбора модели по пресету. Заполни — отправляется в OpenRouter как есть, минуя preset routing."
                        color: Theme.secondary
                        font.pixelSize: 12
                    }
                }
            }
        }

        GlassCard {
            width: parent.width
            CardTitle { title: "Разрешения" }
            PermissionRowView { width: parent.width; row: pane.extra.microphone; symbol: "mic.fill" }
            PermissionRowView { width: parent.width; row: pane.extra.input; symbol: "keyboard" }
        }

        GlassCard {
            width: parent.width
            CardTitle { symbol: "macwindow"; title: "Приложение" }
            ToggleSwitch { text: "Показывать в панели задач"; checked: pane.settings.showInDock; onToggled: pane.settings.showInDock = checked }
            Note { text: "Иконка в панели задач + главное окно. Без галочки — только трей и плавающая полоска." }
            ToggleSwitch { text: "Запускать при входе в систему"; checked: pane.settings.launchAtLogin; onToggled: pane.settings.launchAtLogin = checked }
            Note { text: "Sorvel будет автоматически запускаться когда ты входишь в систему. Иначе диктовка появится только после ручного запуска." }
            Text { text: "При нажатии Ctrl+Q"; color: Theme.primary; font.pixelSize: 14 }
            Note { text: "Сворачивать в трей или выходить полностью. По умолчанию — спрашивать." }
            Row {
                spacing: 8
                Repeater {
                    model: pane.extra.quitChoices
                    RadioChoice {
                        required property var modelData
                        text: modelData.title
                        checked: pane.settings.cmdQBehaviorRaw === modelData.raw
                        onClicked: pane.extra.chooseQuitBehavior(modelData.raw)
                    }
                }
            }
        }

        GlassCard {
            width: parent.width
            CardTitle { symbol: "bubble.left.and.bubble.right"; title: "Связь с автором" }
            Note { text: "Если есть пожелания, идеи или что-то сломалось — напиши напрямую, отвечаю быстро." }
            Repeater {
                model: [
                    { symbols: ["lightbulb", "sparkles"], title: "Пожелания и идеи", text: "Предложения по фичам" },
                    { symbols: ["exclamationmark.bubble"], title: "Рассказать о проблеме", text: "" }
                ]
                RowLayout {
                    id: contactRow
                    required property var modelData
                    width: parent.width
                    spacing: 10
                    Row {
                        spacing: 2
                        Repeater {
                            model: contactRow.modelData.symbols
                            SymbolIcon { required property string modelData; name: modelData; size: 14; color: Theme.accent }
                        }
                    }
                    Text { text: contactRow.modelData.title; color: Theme.primary; font.pixelSize: 13 }
                    Text { visible: text.length > 0; text: contactRow.modelData.text; color: Theme.secondary; font.pixelSize: 12 }
                    Item { Layout.fillWidth: true }
                }
            }
            ActionButton {
                text: pane.model.telegramTitle
                highlighted: true
                icon.source: "qrc:/Tamvex/icons/paperplane.fill.svg"
                onClicked: pane.model.openTelegram()
            }
        }
    }
}
