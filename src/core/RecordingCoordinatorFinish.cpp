// The road of a stopped recording: drop rules, the pipeline under its time limit, the
// speed rule, the books, and the paste.
#include "account/AccountStore.h"
#include "account/AnalyticsService.h"
#include "core/AppState.h"
#include "core/DropRules.h"
#include "core/RecordingConstants.h"
#include "core/RecordingCoordinator.h"
#include "desktop/TextInjector.h"
#include "history/HistoryStore.h"
#include "history/TextClassifier.h"
#include "history/Words.h"
#include "pipelines/PipelinePreset.h"
#include "platform/Clipboard.h"
#include "platform/Defaults.h"
#include "platform/FrontmostApp.h"
#include "platform/Log.h"
#include "shell/SettingsStore.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>

#include <cmath>

namespace tamvex {

namespace C = RecordingConstants;

namespace {

QVariant costProperty(const std::optional<UsageInfo>& usage) {
    // Without usage the property is the integer 0, as the dashboards have always had it.
    return usage ? QVariant(usage->costUSD) : QVariant(0);
}

} // namespace

std::optional<QString> RecordingCoordinator::frontAppName() const {
    const FrontmostApp* front = m_appState.environment().frontmostApp;
    const std::optional<FocusedWindow> window = front ? front->focusedWindow() : std::nullopt;
    if (!window)
        return std::nullopt;
    const QString name = !window->className.isEmpty() ? window->className : window->instanceName;
    return name.isEmpty() ? std::nullopt : std::optional<QString>(name);
}

HistoryEntry RecordingCoordinator::newEntry(const std::optional<QString>& frontApp) const {
    HistoryEntry entry;
    entry.id = QUuid::createUuid();
    entry.createdAt = m_clock.currentDateTime();
    entry.modelUsed = presets::title(m_appState.settings().preset());
    entry.appContext = frontApp;
    return entry;
}

PipelineSetup RecordingCoordinator::buildPipeline() const {
    return tamvex::buildPipeline(m_appState);
}

QCoro::Task<void> RecordingCoordinator::finishRecording() {
    // A detached task: whatever escapes the road below still ends as one recorded outcome.
    QPointer<RecordingCoordinator> self(this);
    RunProgress progress;
    std::optional<QString> failure;
    try {
        QCoro::Task<void> run = runFinish(progress);
        co_await run;
    } catch (const std::exception& e) {
        failure = describeError(e);
    } catch (...) {
        failure = QStringLiteral("неизвестная ошибка");
    }
    if (!failure || !self)
        co_return;
    logError("finishRecording crashed: " + *failure);
    if (!progress.booked)
        self->failedEnd(*failure, nullptr, progress);
    else if (!progress.ended) // the outcome is in the history: only its state is left to set
        self->m_appState.setRecordingState(RecordingState::idle());
}

QCoro::Task<void> RecordingCoordinator::runFinish(RunProgress& progress) {
    // Read first, while the user's target application is still in front.
    progress.frontApp = frontAppName();
    AudioRecorder::RecordingResult result;
    try {
        result = m_recorder->stop();
    } catch (const std::exception& e) {
        failedEnd(e, progress);
        co_return;
    }

    const QFileInfo info(result.url);
    const qint64 size = info.exists() ? info.size() : -1;
    logInfo(QStringLiteral("Recording stopped: %1B, dur=%2s, peak=%3dB")
                .arg(size)
                .arg(QString::asprintf("%.2f", result.duration), QString::asprintf("%.1f", double(result.peakPower))));

    if (m_currentRecordingWasHold && result.duration > C::longHoldTipThresholdSec)
        emit longHoldTipRequested();
    m_currentRecordingWasHold = false;

    const DropVerdict verdict = judgeRecording(result.duration, result.peakPower);
    const double durationRounded = std::round(result.duration * 100.0) / 100.0;
    const float peakRounded = std::round(result.peakPower * 10.0f) / 10.0f;
    // The wire carries the tenth as written (-35.2), not the float widened (-35.20000076293945).
    const double peakSent = std::round(double(peakRounded) * 10.0) / 10.0;
    if (verdict.dropped()) {
        progress.booked = true; // a dropped recording writes no entry
        const auto boolText = [](bool b) { return b ? QStringLiteral("true") : QStringLiteral("false"); };
        logInfo(QStringLiteral("Recording dropped (short=%1, quiet=%2, suspicious=%3)")
                    .arg(boolText(verdict.isShort), boolText(verdict.isQuiet), boolText(verdict.isSuspicious)));
        AnalyticsService::track("record_dropped", {{"duration_sec", durationRounded},
                                                   {"peak_db", peakSent},
                                                   {"reason_short", verdict.isShort},
                                                   {"reason_quiet", verdict.isQuiet},
                                                   {"reason_suspicious", verdict.isSuspicious}});
        QFile::remove(result.url);
        progress.ended = true;
        m_appState.setRecordingState(RecordingState::error(verdict.message()));
        scheduleErrorClear();
        co_return;
    }

    progress.processing = true;
    m_appState.setRecordingState(RecordingState::processing());
    scheduleSlowFlag();
    AnalyticsService::track("record_finished", {{"duration_sec", durationRounded},
                                                {"peak_db", peakSent},
                                                {"front_app", progress.frontApp.value_or(QStringLiteral("unknown"))}});
    const double startedAt = m_clock.now();

    PipelineSetup setup;
    try {
        setup = buildPipeline(); // on failure the file stays in the temporary folder
    } catch (const std::exception& e) {
        failedEnd(e, progress);
        co_return;
    }

    QPointer<RecordingCoordinator> self(this);
    std::optional<SpeechResult> speech;
    std::exception_ptr error;
    try {
        QCoro::Task<SpeechResult> run = transcribeWithTimeout(result.url, setup.pipeline, C::transcribeTimeoutSec);
        speech = co_await run;
    } catch (...) {
        error = std::current_exception();
    }
    if (!self)
        co_return;
    if (error) {
        try {
            std::rethrow_exception(error);
        } catch (const std::exception& e) {
            failedEnd(e, progress);
        }
        co_return;
    }

    const SpeedVerdict speed = judgeSpeed(speech->text, result.duration);
    if (speed.hallucinated) {
        hallucinationEnd(*speech, result.url, result.duration, speed.words, speed.wpm, progress);
        co_return;
    }
    QFile::remove(result.url); // only the text of a good dictation is kept
    QCoro::Task<void> delivery = deliver(std::move(*speech), result.duration, std::move(setup), startedAt, progress);
    co_await delivery;
}

QCoro::Task<SpeechResult> RecordingCoordinator::transcribeWithTimeout(QString path,
                                                                     std::shared_ptr<SpeechPipeline> pipeline,
                                                                     double seconds) {
    QPointer<RecordingCoordinator> self(this);
    std::exception_ptr error;
    bool timedOut = false;
    try {
        QCoro::Task<SpeechResult> run = runWithTimeLimit(m_clock, std::move(pipeline), path, seconds);
        co_return co_await run;
    } catch (const TimeoutError&) {
        timedOut = true;
    } catch (...) {
        error = std::current_exception();
    }

    const std::optional<QString> kept = self ? self->persistAudio(path) : std::nullopt;
    if (timedOut) {
        const QString message = QStringLiteral("LLM не ответил за %1 сек. Жми «Повторить» в истории — отправим "
                                               "запись ещё раз.")
                                    .arg(qint64(seconds));
        throw RetryableError(message, kept.value_or(path));
    }
    if (!kept)
        std::rethrow_exception(error);
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& e) {
        throw RetryableError(describeError(e), *kept);
    }
}

void RecordingCoordinator::scheduleSlowFlag() {
    slowFlagAfterDelay();
}

QCoro::Task<void> RecordingCoordinator::slowFlagAfterDelay() {
    // Never cancelled: a run that ends early leaves it to raise the flag of the next one.
    QPointer<RecordingCoordinator> self(this);
    co_await m_clock.sleep(C::slowProcessingThresholdSec);
    if (self && self->m_appState.recordingState().is(RecordingState::Case::processing))
        self->m_appState.setSlowProcessing(true);
}

std::optional<double> RecordingCoordinator::bookedCost(const std::optional<UsageInfo>& usage) const {
    // With the user's own key nothing is booked against the history.
    if (!m_appState.usesServiceBalance())
        return 0.0;
    return usage ? std::optional<double>(usage->costUSD) : std::nullopt;
}

void RecordingCoordinator::spend(const UsageInfo& usage) {
    m_appState.settings().recordUsage(usage);
    AccountStore& account = m_appState.account();
    if (usage.costUSD > 0 && account.isLoggedIn() && m_appState.usesServiceBalance()) {
        account.lowerShownBalance(usage.costUSD * tokensPerDollar);
        account.startRefresh(); // the server's figure soon replaces the estimate
    }
}

void RecordingCoordinator::hallucinationEnd(const SpeechResult& result, const QString& audioPath, double duration,
                                            qint64 words, double wpm, RunProgress& progress) {
    const qint64 wholeWpm = qint64(std::trunc(wpm));
    logError(QStringLiteral("Hallucination dropped: dur=%1s, words=%2, wpm=%3, preview=\"%4\"")
                 .arg(QString::asprintf("%.2f", duration))
                 .arg(words)
                 .arg(wholeWpm)
                 .arg(leftCharacters(result.text, C::hallucinationPreviewCharacters)));
    AnalyticsService::track("transcription_hallucinated", {{"duration_sec", std::round(duration * 100.0) / 100.0},
                                                           {"word_count", words},
                                                           {"wpm", wholeWpm},
                                                           {"cost_usd", costProperty(result.usage)}});
    if (result.usage)
        spend(*result.usage); // paid for, though nobody will see it
    QFile::remove(audioPath); // no retry of a hallucination: the entry below keeps no audio
    HistoryEntry entry = newEntry(progress.frontApp);
    entry.durationSec = duration;
    entry.errorMessage = QStringLiteral("Слишком быстро или ошибка распознавания. Текст не вставлен.");
    entry.costUSD = bookedCost(result.usage);
    if (result.usage) {
        entry.promptTokens = result.usage->promptTokens;
        entry.completionTokens = result.usage->completionTokens;
    }
    progress.booked = true;
    m_appState.history().add(entry);
    progress.ended = true;
    m_appState.setRecordingState(RecordingState::error(QStringLiteral("Слишком быстро или ошибка распознавания")));
    scheduleErrorClear();
}

QCoro::Task<void> RecordingCoordinator::deliver(SpeechResult result, double duration, PipelineSetup setup,
                                                double startedAt, RunProgress& progress) {
    const QString text = result.text;
    // The settings file is written once, right after the paste chord: its disk write is the
    // slowest step here and the user waits for nothing it holds.
    auto settingsWrite = std::make_unique<Defaults::Batch>(m_appState.environment().defaults);
    m_appState.settings().markRequest();
    if (result.usage)
        spend(*result.usage);

    HistoryEntry entry = newEntry(progress.frontApp);
    entry.durationSec = duration;
    entry.text = text;
    entry.costUSD = bookedCost(result.usage);
    if (result.usage) {
        entry.promptTokens = result.usage->promptTokens;
        entry.completionTokens = result.usage->completionTokens;
    }
    progress.booked = progress.succeeded = true;
    m_appState.history().add(entry);
    if (setup.cloudMode)
        startClassification(*setup.cloudMode, entry.id, text);
    m_appState.setLastTranscription(text);
    // The books are closed before the paste, so a failing paste cannot lose the dictation.
    progress.ended = true;
    m_appState.setRecordingState(RecordingState::idle());

    const PipelinePreset preset = m_appState.settings().preset();
    AnalyticsService::track(
        "transcription_success",
        {{"duration_sec", std::round(duration * 100.0) / 100.0},
         {"client_latency_ms", qint64(std::trunc((m_clock.now() - startedAt) * 1000.0))},
         {"word_count", countWords(text)},
         {"cost_usd", costProperty(result.usage)},
         {"preset", presets::title(preset)},
         {"mode_proxy", setup.cloudMode && setup.cloudMode->kind == OpenRouterService::Mode::Kind::proxy},
         {"preset_local", preset == PipelinePreset::local}});
    if (text.isEmpty())
        co_return;

    QPointer<RecordingCoordinator> self(this);
    std::optional<QString> pasteError;
    if (!m_injector) {
        pasteError = describeError(TextInjectorError(TextInjectorError::Kind::eventSourceFailed));
    } else {
        try {
            QCoro::Task<void> paste = m_injector->inject(text); // the chord goes out before it first waits
            settingsWrite.reset();
            co_await paste;
        } catch (const std::exception& e) { // whatever stopped the paste, the text goes on the clipboard
            pasteError = describeError(e);
        }
    }
    if (pasteError && self)
        self->clipboardFallback(text, *pasteError);
}

void RecordingCoordinator::clipboardFallback(const QString& text, const QString& description) {
    logError("Injection failed: " + description + " — copying to clipboard");
    if (m_injector) {
        m_injector->clipboard().clear();
        if (!m_injector->clipboard().setText(text))
            logError("Clipboard fallback failed: another program kept the clipboard");
    }
    AnalyticsService::track("injection_failed_clipboard_fallback", {{"error", description}});
    m_appState.setRecordingState(
        RecordingState::error(QStringLiteral("Текст в буфере, Ctrl+V вставит. Дай Доступ к вводу для авто-вставки.")));
    scheduleErrorClear();
}

void RecordingCoordinator::failedEnd(const std::exception& error, RunProgress& progress) {
    failedEnd(describeError(error), dynamic_cast<const RetryableError*>(&error), progress);
}

void RecordingCoordinator::failedEnd(const QString& description, const RetryableError* retryable,
                                     RunProgress& progress) {
    logError("finishRecording failed: " + description);
    AnalyticsService::track("transcription_failed", {{"error", description}, {"is_retryable", retryable != nullptr}});
    const QString message = retryable ? retryable->userMessage() : description;
    HistoryEntry entry = newEntry(progress.frontApp);
    entry.durationSec = 0; // deliberately, even when the duration is known
    entry.errorMessage = message;
    if (retryable)
        entry.audioPath = retryable->savedAudioPath();
    progress.booked = true;
    m_appState.history().add(entry);
    progress.ended = true;
    m_appState.setRecordingState(RecordingState::error(message));
    scheduleErrorClear();
}

void RecordingCoordinator::startClassification(const OpenRouterService::Mode& mode, const QUuid& id,
                                               const QString& text) {
    ++m_pendingClassifications;
    classify(mode, id, text);
}

QCoro::Task<void> RecordingCoordinator::classify(OpenRouterService::Mode mode, QUuid id, QString text) {
    QPointer<RecordingCoordinator> self(this);
    QPointer<HistoryStore> history(&m_appState.history());
    TextCategory category = TextCategory::other;
    try {
        TextClassifier classifier(std::make_shared<OpenRouterService>(mode), QString::fromLatin1(classifierModel));
        QCoro::Task<TextCategory> asked = classifier.classify(text);
        category = co_await asked;
    } catch (const std::exception& e) {
        logError("classify failed: " + describeError(e));
    }
    // The entry may be gone, or out of the loaded pages: the store then drops the answer.
    if (history)
        history->setCategory(id, category);
    if (self) {
        --self->m_pendingClassifications;
        emit self->classificationFinished(id);
    }
}

std::optional<QString> RecordingCoordinator::persistAudio(const QString& path) {
    if (!QFileInfo::exists(path))
        return std::nullopt;
    const QString folder = m_appState.environment().paths.dataFile(QStringLiteral("audio"));
    if (!QDir().mkpath(folder)) {
        logError("persistAudio failed: cannot create " + folder);
        return std::nullopt;
    }
    const QString target = QDir(folder).filePath(QFileInfo(path).fileName());
    if (QDir::cleanPath(QFileInfo(path).absoluteFilePath()) == QDir::cleanPath(QFileInfo(target).absoluteFilePath()))
        return target; // a retry of a kept file: already in place
    QFile::remove(target);
    QFile file(path);
    if (!file.rename(target)) {
        logError("persistAudio failed: " + file.errorString());
        return std::nullopt;
    }
    return target;
}

} // namespace tamvex
