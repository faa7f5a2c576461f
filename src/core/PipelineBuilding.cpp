#include "core/PipelineBuilding.h"

#include "account/AccountStore.h"
#include "core/AppState.h"
#include "pipelines/CloudPipelines.h"
#include "pipelines/local/LocalModelChoice.h"
#include "pipelines/local/LocalWhisperPipeline.h"
#include "pipelines/PipelinePreset.h"
#include "pipelines/local/WhisperModel.h"
#include "shell/SettingsStore.h"

#include <QFileInfo>

namespace tamvex {

DomainError notSignedInError() {
    return {QStringLiteral("Tamvex"), 4,
            QStringLiteral("Войди в аккаунт во вкладке «Аккаунт» — для пользования Sorvel нужен баланс.")};
}

DomainError modelNotDownloadedError() {
    return {QStringLiteral("Tamvex"), -101,
            QStringLiteral(
                "Локальная модель не загружена. Зайди в Настройки → Локальная модель и нажми «Скачать».")};
}

OpenRouterService::Mode resolveCloudMode(const AppState& appState) {
    if (!appState.usesServiceBalance())
        return OpenRouterService::Mode::direct(appState.settings().apiKey());
    const AccountStore& account = appState.account();
    if (account.accessToken() && account.isLoggedIn())
        return OpenRouterService::Mode::proxy(*account.accessToken());
    throw notSignedInError();
}

std::shared_ptr<SpeechPipeline> makeCloudPipeline(const AppState& appState, std::shared_ptr<OpenRouterService> service,
                                                  std::optional<PipelinePreset> presetOverride) {
    const PipelinePreset preset = presetOverride.value_or(appState.settings().preset());
    // A model of the user's choice works only with the user's own key.
    const QString customModel =
        appState.usesServiceBalance() ? QString() : appState.settings().customModelId().trimmed();
    if (!customModel.isEmpty())
        return std::make_shared<SinglePassPipeline>(std::move(service), customModel, prompts::cleanupPrompt);
    switch (preset) {
    case PipelinePreset::cheap:
        return std::make_shared<TwoStagePipeline>(std::move(service), QStringLiteral("preset:cheap-audio"),
                                                  QStringLiteral("preset:cheap-cleanup"), prompts::cleanupPrompt,
                                                  prompts::verbatimPrompt);
    case PipelinePreset::fast:
        return std::make_shared<SinglePassPipeline>(std::move(service), QStringLiteral("preset:fast-audio"),
                                                    prompts::cleanupPrompt);
    case PipelinePreset::precise:
        return std::make_shared<SinglePassPipeline>(std::move(service), QStringLiteral("preset:precise-audio"),
                                                    prompts::cleanupPrompt);
    case PipelinePreset::local:
        break; // buildPipeline takes it first
    }
    return std::make_shared<SinglePassPipeline>(std::move(service), QString(), prompts::cleanupPrompt);
}

PipelineSetup buildPipeline(const AppState& appState, std::optional<PipelinePreset> presetOverride) {
    const PipelinePreset preset = presetOverride.value_or(appState.settings().preset());
    if (preset == PipelinePreset::local) {
        const QString models = appState.environment().paths.dataFile(QStringLiteral("models"));
        const WhisperModel model = chooseLocalModelIn(appState.settings().localModel(), models);
        const QString path = models + QLatin1Char('/') + whisperModels::fileName(model);
        if (!QFileInfo::exists(path))
            throw modelNotDownloadedError();
        return {std::make_shared<LocalWhisperPipeline>(model, appState.settings().localSpeechDetection()),
                std::nullopt};
    }
    const OpenRouterService::Mode mode = resolveCloudMode(appState);
    auto service = std::make_shared<OpenRouterService>(mode);
    return {makeCloudPipeline(appState, std::move(service), preset), mode};
}

QCoro::Task<SpeechResult> runWithTimeLimit(Clock& clock, std::shared_ptr<SpeechPipeline> pipeline, QString path,
                                           double seconds) {
    Cancellation abortRun;
    Cancellation stopTimer;
    auto timedOut = std::make_shared<bool>(false);
    // The limit aborts the request in flight; the pipeline still has to return before we go on.
    [](Clock& clock, double seconds, Cancellation stopTimer, Cancellation abortRun,
       std::shared_ptr<bool> timedOut) -> QCoro::Task<void> {
        if (co_await clock.sleep(seconds, stopTimer)) {
            *timedOut = true;
            abortRun.cancel();
        }
    }(clock, seconds, stopTimer, abortRun, timedOut);

    std::optional<SpeechResult> result;
    std::exception_ptr error;
    try {
        QCoro::Task<SpeechResult> run = pipeline->process(path, abortRun);
        result = co_await run;
    } catch (...) {
        error = std::current_exception();
    }
    stopTimer.cancel();
    if (*timedOut)
        throw TimeoutError();
    if (!result)
        std::rethrow_exception(error);
    co_return std::move(*result);
}

} // namespace tamvex
