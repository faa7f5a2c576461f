#include "shell/welcome/OnboardingRoad.h"

#include "KeyboardShortcuts/Recorder.h"
#include "account/AccountStore.h"
#include "core/AppState.h"
#include "pipelines/local/LocalModelChoice.h"
#include "pipelines/local/ModelDownloader.h"
#include "pipelines/local/WhisperModel.h"
#include "shell/SettingsStore.h"
#include "shell/settings/SettingsPaneModel.h"
#include "shell/welcome/WelcomeFlow.h"

#include <QFileInfo>

namespace tamvex {

OnboardingRoad::OnboardingRoad(AppState& state, ModelDownloader& models, WelcomeFlow& flow,
                               KeyboardShortcuts::Recorder& recorder, QObject* parent)
    : QObject(parent), m_state(state), m_models(models), m_flow(flow) {
    connect(&state.settings(), &SettingsStore::changed, this, &OnboardingRoad::changed);
    connect(&state.account(), &AccountStore::changed, this, &OnboardingRoad::changed);
    connect(&state, &AppState::functionKeyAvailableChanged, this, &OnboardingRoad::changed);
    connect(&models, &ModelDownloader::stateChanged, this, &OnboardingRoad::changed);
    // Where FN cannot be heard, the shortcut recorded in the step is the hotkey.
    connect(&recorder, &KeyboardShortcuts::Recorder::changed, this, [this](const QString& text) {
        if (!functionKeyAvailable() && !text.isEmpty())
            m_state.settings().setUseFnHotkey(false);
    });
}

OnboardingRoad::Road OnboardingRoad::roadFor(bool localPreset, bool modelPresent, bool ownKey, bool signedIn) {
    if (localPreset)
        return modelPresent ? Road::local : Road::none;
    if (ownKey)
        return Road::ownKey;
    return signedIn ? Road::service : Road::none;
}

// The model the local preset runs: chosen, found on disk, or the one this machine runs best.
WhisperModel OnboardingRoad::localModel() const {
    return chooseLocalModelIn(m_state.settings().localModel(),
                              m_state.environment().paths.dataFile(QStringLiteral("models")));
}

bool OnboardingRoad::modelPresent() const {
    return QFileInfo::exists(m_state.environment().paths.dataFile(QStringLiteral("models")) + QLatin1Char('/') +
                             whisperModels::fileName(localModel()));
}

OnboardingRoad::Road OnboardingRoad::road() const {
    const AccountStore& account = m_state.account();
    return roadFor(m_state.settings().preset() == PipelinePreset::local, modelPresent(),
                   !m_state.usesServiceBalance(), account.isLoggedIn() && account.accessToken().has_value());
}

QString OnboardingRoad::roadRaw() const {
    static const QString raw[] = {QStringLiteral("service"), QStringLiteral("ownKey"), QStringLiteral("local"),
                                  QStringLiteral("none")};
    return raw[int(road())];
}

QString OnboardingRoad::roadTitle() const {
    static const QString titles[] = {QStringLiteral("через сервис"), QStringLiteral("свой ключ"),
                                     QStringLiteral("на этом компьютере"), QString()};
    return titles[int(road())];
}

bool OnboardingRoad::functionKeyAvailable() const {
    // Until the key input has looked, FN is taken to work, as the settings pane does.
    return m_state.functionKeyAvailable().value_or(true);
}

QString OnboardingRoad::functionKeyNote() const {
    return functionKeyAvailable() ? QString()
                                  : SettingsPaneModel::functionKeyMissingText() +
                                        QStringLiteral(" Задай сочетание здесь — оно и будет клавишей диктовки.");
}

QString OnboardingRoad::downloadPhase() const {
    using Kind = ModelDownloadState::Kind;
    switch (m_models.state().kind()) {
    case Kind::downloading:
        return QStringLiteral("downloading");
    case Kind::verifying:
        return QStringLiteral("verifying");
    case Kind::failed:
        return QStringLiteral("failed");
    case Kind::idle:
    case Kind::completed:
        break;
    }
    return QStringLiteral("idle");
}

double OnboardingRoad::downloadProgress() const {
    return m_models.state().progress();
}

QString OnboardingRoad::downloadText() const {
    const ModelDownloadState state = m_models.state();
    using Kind = ModelDownloadState::Kind;
    switch (state.kind()) {
    case Kind::downloading:
        return QStringLiteral("Скачивается локальная модель · %1%").arg(qRound(state.progress() * 100));
    case Kind::verifying:
        return QStringLiteral("Проверяем целостность файла…");
    case Kind::failed:
        return QStringLiteral("Ошибка скачивания: ") + state.reason();
    case Kind::idle:
    case Kind::completed:
        break;
    }
    return {};
}

void OnboardingRoad::chooseLocal() {
    m_state.settings().setPreset(PipelinePreset::local);
    const auto kind = m_models.state().kind();
    if (modelPresent() || kind == ModelDownloadState::Kind::downloading ||
        kind == ModelDownloadState::Kind::verifying)
        return;
    const WhisperModel model = localModel();
    m_state.settings().setLocalModel(model);
    m_models.download(model);
}

void OnboardingRoad::enterOwnKey(const QString& key) {
    SettingsStore& settings = m_state.settings();
    m_flow.setApiKey(key);
    settings.setApiKey(key);
    if (key.trimmed().isEmpty())
        return;
    settings.setUseEmbeddedKey(false);
    if (settings.preset() == PipelinePreset::local && !modelPresent())
        settings.setPreset(PipelinePreset::fast);
}

void OnboardingRoad::cancelDownload() {
    m_models.cancel();
}

} // namespace tamvex
