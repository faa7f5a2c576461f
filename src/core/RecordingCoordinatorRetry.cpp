// A failed dictation sent again from its kept audio; the entry is rewritten in place.
#include "account/AnalyticsService.h"
#include "core/AppState.h"
#include "core/RecordingConstants.h"
#include "core/RecordingCoordinator.h"
#include "history/HistoryStore.h"
#include "history/Words.h"
#include "platform/Defaults.h"
#include "platform/Log.h"
#include "shell/SettingsStore.h"

#include <QFileInfo>
#include <QPointer>

namespace tamvex {

namespace {
QString retryTag(const QUuid& id) {
    return "retry[" + uuidText(id).left(8) + "]: ";
}
} // namespace

QCoro::Task<void> RecordingCoordinator::retryTranscription(QUuid id) {
    // A detached task, like the dictation itself: whatever escapes it still ends the retry.
    QPointer<RecordingCoordinator> self(this);
    RunProgress progress;
    std::optional<QString> failure;
    try {
        QCoro::Task<void> run = runRetry(id, progress);
        co_await run;
    } catch (const std::exception& e) {
        failure = describeError(e);
    } catch (...) {
        failure = QStringLiteral("неизвестная ошибка");
    }
    if (failure && self)
        self->endRetryThatCrashed(id, *failure, progress);
}

void RecordingCoordinator::endRetryThatCrashed(const QUuid& id, const QString& description, RunProgress& progress) {
    logError(retryTag(id) + "crashed: " + description);
    if (progress.processing && !progress.booked)
        m_appState.history().setError(id, description); // the audio stays for another try
    if (progress.processing && !progress.ended) {
        if (progress.succeeded) {
            m_appState.setRecordingState(RecordingState::idle());
        } else {
            m_appState.setRecordingState(RecordingState::error(description));
            scheduleErrorClear();
        }
    }
    emit retryFinished(id, progress.succeeded, description);
}

QCoro::Task<void> RecordingCoordinator::runRetry(QUuid id, RunProgress& progress) {
    const QString tag = retryTag(id);
    AnalyticsService::track("retry_clicked", {});
    logError(tag + "start, recState=" + m_appState.recordingState().description());

    const std::optional<HistoryEntry> entry = m_appState.history().entry(id);
    if (!entry || !entry->audioPath || !QFileInfo::exists(*entry->audioPath)) {
        logError(tag + "нет аудио — guard fail");
        AnalyticsService::track("retry_aborted", {{"reason", "no_audio"}});
        emit retryFinished(id, false, QStringLiteral("Запись для повтора не сохранилась."));
        co_return;
    }
    const QString audioPath = *entry->audioPath;
    logError(tag + "guard ok, audio at " + audioPath);
    progress.processing = true;
    m_appState.setRecordingState(RecordingState::processing());
    scheduleSlowFlag();

    PipelineSetup setup;
    try {
        setup = buildPipeline();
    } catch (const std::exception& e) {
        // No HUD message here: the new text shows on the history row alone.
        const QString description = describeError(e);
        logError(tag + "buildPipeline threw: " + description);
        progress.booked = true;
        m_appState.history().setError(id, description);
        progress.ended = true;
        m_appState.setRecordingState(RecordingState::idle());
        emit retryFinished(id, false, description);
        co_return;
    }

    logError(tag + "calling pipeline…");
    QPointer<RecordingCoordinator> self(this);
    std::optional<SpeechResult> speech;
    QString message;
    try {
        QCoro::Task<SpeechResult> run =
            transcribeWithTimeout(audioPath, setup.pipeline, RecordingConstants::transcribeTimeoutSec);
        speech = co_await run;
    } catch (const RetryableError& e) {
        message = e.userMessage();
    } catch (const std::exception& e) {
        message = describeError(e);
    }
    if (!self)
        co_return;
    if (!speech) {
        logError(tag + "FAILED — " + message);
        progress.booked = true;
        m_appState.history().setError(id, message); // the audio stays for another try
        progress.ended = true;
        m_appState.setRecordingState(RecordingState::error(message));
        scheduleErrorClear();
        AnalyticsService::track("retry_failed", {{"error", message}});
        emit retryFinished(id, false, message);
        co_return;
    }

    // A retry takes the text as it comes: no speed rule, empty text too.
    logError(tag + "pipeline ok, text len=" + QString::number(countCharacters(speech->text)));
    {
        const Defaults::Batch batch(m_appState.environment().defaults);
        m_appState.settings().markRequest();
        if (speech->usage)
            spend(*speech->usage);
    }
    progress.booked = progress.succeeded = true;
    m_appState.history().applyRetrySuccess(
        id, speech->text, bookedCost(speech->usage),
        speech->usage ? std::optional<qint64>(speech->usage->promptTokens) : std::nullopt,
        speech->usage ? std::optional<qint64>(speech->usage->completionTokens) : std::nullopt);
    if (setup.cloudMode)
        startClassification(*setup.cloudMode, id, speech->text);
    m_appState.setLastTranscription(speech->text);
    progress.ended = true;
    m_appState.setRecordingState(RecordingState::idle());
    AnalyticsService::track("retry_success", {{"word_count", countWords(speech->text)},
                                              {"cost_usd", speech->usage ? QVariant(speech->usage->costUSD) : QVariant(0)}});
    logError(tag + "success, replaced entry");
    emit retryFinished(id, true, speech->text);
}

} // namespace tamvex
