#include "shell/settings/SettingsPaneModel.h"

#include "core/AppState.h"
#include "shell/SettingsStore.h"

namespace tamvex {

SettingsPaneModel::SettingsPaneModel(AppState& state, const MicrophoneAccess& microphone, const InputAccess& input,
                                     ModelDownloader& models, QObject* parent)
    : QObject(parent), m_state(state),
      m_recorder(state.shortcuts(), KeyboardShortcuts::sorvelRecordAlternative), m_localModel(models),
      m_microphone(state.clock(), PermissionRow::microphoneSpec(microphone)),
      m_input(state.clock(), PermissionRow::inputSpec(input)) {
    connect(&m_state, &AppState::functionKeyAvailableChanged, this, &SettingsPaneModel::functionKeyChanged);
}

bool SettingsPaneModel::functionKeyAvailable() const {
    // Until the key input has looked, FN is taken to work, as it does on most laptops.
    return m_state.functionKeyAvailable().value_or(true);
}

QString SettingsPaneModel::functionKeyNote() const {
    return functionKeyAvailable() ? QString()
                                  : functionKeyMissingText() + QStringLiteral(" Выбери «Своя комбинация» и задай сочетание.");
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
