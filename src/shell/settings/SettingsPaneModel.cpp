#include "shell/settings/SettingsPaneModel.h"

#include "KeyboardShortcuts/ShortcutRegistry.h"
#include "core/AppState.h"
#include "desktop/HotkeyNotes.h"
#include "shell/SettingsStore.h"

namespace tamvex {

SettingsPaneModel::SettingsPaneModel(AppState& state, const MicrophoneAccess& microphone, const InputAccess& input,
                                     ModelDownloader& models, ModelSelfTest* selfTest, QObject* parent)
    : QObject(parent), m_state(state),
      m_recorder(state.shortcuts(), KeyboardShortcuts::sorvelRecordAlternative), m_localModel(models, selfTest),
      m_microphone(state.clock(), PermissionRow::microphoneSpec(microphone)),
      m_input(state.clock(), PermissionRow::inputSpec(input)) {
    m_localModel.followSettings(state.settings());
    connect(&m_state, &AppState::functionKeyAvailableChanged, this, &SettingsPaneModel::functionKeyChanged);
    connect(&m_state.shortcuts(), &KeyboardShortcuts::ShortcutRegistry::deliveryChanged, this,
            &SettingsPaneModel::functionKeyChanged);
    connect(&m_state.settings(), &SettingsStore::hotkeyModeChanged, this, &SettingsPaneModel::functionKeyChanged);
}

hotkeyNotes::Situation SettingsPaneModel::situation() const {
    return {m_state.shortcuts().delivery(), m_state.settings().useFnHotkey(), functionKeyAvailable()};
}

bool SettingsPaneModel::functionKeyAvailable() const {
    // Until the key input has looked, FN is taken to work, as it does on most laptops.
    return m_state.functionKeyAvailable().value_or(true);
}

QString SettingsPaneModel::functionKeyNote() const {
    if (functionKeyAvailable())
        return {};
    return hotkeyNotes::functionKeyNote(situation());
}

QString SettingsPaneModel::sessionNote() const { return hotkeyNotes::sessionNote(situation()); }

QString SettingsPaneModel::desktopTrigger() const {
    if (m_state.shortcuts().delivery() != KeyboardShortcuts::Delivery::desktop)
        return {};
    return m_state.shortcuts().desktopTrigger(KeyboardShortcuts::sorvelRecordAlternative);
}

QString SettingsPaneModel::functionKeyMissingText() {
    return QStringLiteral("Ни одна клавиатура этого компьютера не передаёт FN: её обрабатывает сама клавиатура.");
}

QVariantList SettingsPaneModel::quitChoices() {
    using B = SettingsStore::CmdQBehavior;
    const std::pair<B, QString> choices[] = {{B::ask, QStringLiteral("Спрашивать")},
                                             {B::minimize, QStringLiteral("Сворачивать")},
                                             {B::quit, QStringLiteral("Выходить")}};
    QVariantList list;
    for (const auto& [behavior, title] : choices)
        list.append(QVariantMap{{"raw", SettingsStore::cmdQBehaviorRawValue(behavior)}, {"title", title}});
    return list;
}

void SettingsPaneModel::appear() {
    m_microphone.appear();
    m_input.appear();
    m_localModel.refresh();
}

void SettingsPaneModel::disappear() {
    m_microphone.disappear();
    m_input.disappear();
    m_recorder.setActive(false);
}

void SettingsPaneModel::chooseQuitBehavior(const QString& raw) {
    if (const auto behavior = SettingsStore::cmdQBehaviorFromRawValue(raw))
        m_state.settings().setCmdQBehavior(*behavior);
}

} // namespace tamvex
