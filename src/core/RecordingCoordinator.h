#pragma once

#include "core/PipelineBuilding.h"
#include "core/RecordingState.h"
#include "desktop/AudioRecorder.h"
#include "desktop/TextInjector.h"
#include "platform/Clock.h"
#include "platform/Error.h"

#include <QObject>
#include <QString>
#include <QUuid>

#include <qcoro/qcorotask.h>

#include <memory>
#include <optional>

namespace tamvex {

class AppState;
class LevelReader;
struct HistoryEntry;

/// A failure of the pipeline whose audio is safe on disk: the dictation can be tried again.
class RetryableError : public TamvexError {
public:
    RetryableError(QString userMessage, QString savedAudioPath)
        : TamvexError(userMessage), m_userMessage(std::move(userMessage)), m_savedAudioPath(std::move(savedAudioPath)) {}
    const QString& userMessage() const { return m_userMessage; }
    const QString& savedAudioPath() const { return m_savedAudioPath; }

private:
    QString m_userMessage;
    QString m_savedAudioPath;
};


/// Turns edges of the record hotkey and presses of the record controls into recordings,
/// and judges each finished recording.
class RecordingCoordinator : public QObject {
    Q_OBJECT
public:
    /// The gesture in progress.
    enum class Mode { holdPending, awaitingDoubleTap, toggleSticky };
    Q_ENUM(Mode)

    /// Creates the recorder (and its level reader) for `appState`; pastes through `injector`.
    /// Without an injector (the command line) a finished text stays in the history only.
    explicit RecordingCoordinator(AppState& appState, std::unique_ptr<TextInjector> injector = nullptr,
                                  QObject* parent = nullptr);
    ~RecordingCoordinator() override;

    /// The hotkey went down.
    void handleKeyDown();
    /// The hotkey came up.
    void handleKeyUp();
    /// Starts or stops a recording from the menu or the big microphone button.
    void toggleRecording();

    AudioRecorder& recorder() { return *m_recorder; }
    LevelReader& levelReader() { return *m_levelReader; }
    std::optional<Mode> currentMode() const { return m_currentMode; }
    bool currentRecordingWasHold() const { return m_currentRecordingWasHold; }

    /// The state and stores this coordinator works on.
    AppState& appState() const { return m_appState; }
    /// The paste of finished texts; null on the command line.
    TextInjector* injector() { return m_injector.get(); }

    /// Stops the recorder, judges the recording, runs the pipeline and books the outcome;
    /// never throws.
    QCoro::Task<void> finishRecording();
    /// Sends the kept audio of a failed entry through a new pipeline and rewrites the entry
    /// in place; never throws. Installed as the application's retry hook.
    QCoro::Task<void> retryTranscription(QUuid id);
    /// Moves a recording into the kept folder ("Tamv/audio"); gives its new path, or none
    /// when there is no file or the move failed.
    std::optional<QString> persistAudio(const QString& path);
    /// A new pipeline for the current settings; throws notSignedInError or modelNotDownloadedError.
    PipelineSetup buildPipeline() const;
    /// Runs `pipeline` on `path` for at most `seconds`; a failure keeps the audio and
    /// becomes a RetryableError where it can.
    QCoro::Task<SpeechResult> transcribeWithTimeout(QString path, std::shared_ptr<SpeechPipeline> pipeline,
                                                   double seconds);
    /// Classifications started and not yet stored.
    int pendingClassifications() const { return m_pendingClassifications; }

    static constexpr double tokensPerDollar = 250000.0;
    static constexpr const char* classifierModel = "google/gemini-2.5-flash-lite";

signals:
    /// A tap was not followed by a second press: the short-tap tip may show.
    void shortTapTipRequested();
    /// A hold of more than a minute ended: the long-hold tip may show.
    void longHoldTipRequested();
    /// A background classification stored its answer (or found its entry gone).
    void classificationFinished(const QUuid& id);
    /// A retry ended: `message` is the new text, or the error when it did not succeed.
    void retryFinished(const QUuid& id, bool succeeded, const QString& message);

private:
    /// How far one run (a dictation or a retry) got, so that whatever escapes it ends it with
    /// one entry and one final state, never a second entry or a state stuck at processing.
    /// Each flag goes up just before its step: a listener of the step may throw after it took effect.
    struct RunProgress {
        std::optional<QString> frontApp;
        bool processing = false; ///< the run set `processing`
        bool booked = false;     ///< its entry is written, or it was dropped and writes none
        bool succeeded = false;  ///< what it booked is a success
        bool ended = false;      ///< its final state is set
    };

    void start();
    void confirmDoubleTap();
    void stopSticky();
    void startFinishTask();
    void startDiscardTask();
    QCoro::Task<void> doubleTapWait(Cancellation cancellation);
    void discardRecording();
    void scheduleErrorClear();
    QCoro::Task<void> errorClearAfterDelay();
    QCoro::Task<void> runFinish(RunProgress& progress);
    void failedEnd(const QString& description, const RetryableError* retryable, RunProgress& progress);
    void failedEnd(const std::exception& error, RunProgress& progress);
    QCoro::Task<void> deliver(SpeechResult result, double duration, PipelineSetup setup, double startedAt,
                              RunProgress& progress);
    void hallucinationEnd(const SpeechResult& result, const QString& audioPath, double duration, qint64 words,
                          double wpm, RunProgress& progress);
    void clipboardFallback(const QString& text, const QString& description);
    QCoro::Task<void> runRetry(QUuid id, RunProgress& progress);
    void endRetryThatCrashed(const QUuid& id, const QString& description, RunProgress& progress);
    void spend(const UsageInfo& usage);
    std::optional<double> bookedCost(const std::optional<UsageInfo>& usage) const;
    void startClassification(const OpenRouterService::Mode& mode, const QUuid& id, const QString& text);
    QCoro::Task<void> classify(OpenRouterService::Mode mode, QUuid id, QString text);
    void scheduleSlowFlag();
    QCoro::Task<void> slowFlagAfterDelay();
    std::optional<QString> frontAppName() const;
    HistoryEntry newEntry(const std::optional<QString>& frontApp) const;
    void play(const char* name, float volume);

    AppState& m_appState;
    Clock& m_clock;
    std::unique_ptr<AudioRecorder> m_recorder;
    std::unique_ptr<LevelReader> m_levelReader;
    std::unique_ptr<TextInjector> m_injector;
    int m_pendingClassifications = 0;
    std::optional<Mode> m_currentMode;
    std::optional<double> m_keyDownAt;
    std::optional<double> m_lastKeyUpAt;
    std::optional<Cancellation> m_doubleTapCancelTask;
    bool m_currentRecordingWasHold = false;
};

} // namespace tamvex
