#pragma once

#include "core/RecordingState.h"
#include "desktop/AudioRecorder.h"
#include "platform/Clock.h"

#include <QObject>
#include <QString>

#include <qcoro/qcorotask.h>

#include <memory>
#include <optional>

namespace tamvex {

class AppState;
class LevelReader;

/// Turns edges of the record hotkey and presses of the record controls into recordings,
/// and judges each finished recording.
class RecordingCoordinator : public QObject {
    Q_OBJECT
public:
    /// The gesture in progress.
    enum class Mode { holdPending, awaitingDoubleTap, toggleSticky };
    Q_ENUM(Mode)

    /// Creates the recorder (and its level reader) for `appState`.
    explicit RecordingCoordinator(AppState& appState, QObject* parent = nullptr);
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

    /// Stops the recorder and judges the recording; never throws.
    QCoro::Task<void> finishRecording();

signals:
    /// A tap was not followed by a second press: the short-tap tip may show.
    void shortTapTipRequested();
    /// A hold of more than a minute ended: the long-hold tip may show.
    void longHoldTipRequested();
    /// A recording passed the drop rules and is ready for transcription.
    void recordingAccepted(const QString& audioPath, double duration, float peakPower);

private:
    void start();
    void confirmDoubleTap();
    void stopSticky();
    void startFinishTask();
    void startDiscardTask();
    QCoro::Task<void> doubleTapWait(Cancellation cancellation);
    void discardRecording();
    void scheduleErrorClear();
    QCoro::Task<void> errorClearAfterDelay();
    void failedEnd(const QString& message);
    /// Where a kept recording goes on: the speech pipeline's entry point.
    QCoro::Task<void> transcribeRecording(const AudioRecorder::RecordingResult& result);
    void play(const char* name, float volume);

    AppState& m_appState;
    Clock& m_clock;
    std::unique_ptr<AudioRecorder> m_recorder;
    std::unique_ptr<LevelReader> m_levelReader;
    std::optional<Mode> m_currentMode;
    std::optional<double> m_keyDownAt;
    std::optional<double> m_lastKeyUpAt;
    std::optional<Cancellation> m_doubleTapCancelTask;
    bool m_currentRecordingWasHold = false;
};

} // namespace tamvex
