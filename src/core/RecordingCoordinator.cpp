// The gesture machine: key edges and the record controls become recordings.
#include "core/RecordingCoordinator.h"

#include "core/AppState.h"
#include "core/LevelReader.h"
#include "core/RecordingConstants.h"
#include "desktop/TextInjector.h"
#include "platform/Log.h"
#include "platform/Sounds.h"

#include <QFile>
#include <QPointer>
#include <QTimer>

#include <limits>

namespace tamvex {

namespace C = RecordingConstants;

RecordingCoordinator::RecordingCoordinator(AppState& appState, std::unique_ptr<TextInjector> injector,
                                           QObject* parent)
    : QObject(parent), m_appState(appState), m_clock(appState.clock()),
      m_recorder(std::make_unique<AudioRecorder>(appState.clock(), appState.environment().audioInput,
                                                 appState.environment().paths.tempDir)),
      m_levelReader(std::make_unique<LevelReader>(appState, *m_recorder)), m_injector(std::move(injector)) {}

RecordingCoordinator::~RecordingCoordinator() {
    if (m_doubleTapCancelTask)
        m_doubleTapCancelTask->cancel();
}

void RecordingCoordinator::play(const char* name, float volume) {
    m_appState.environment().sounds.play(QString::fromLatin1(name), volume);
}

void RecordingCoordinator::handleKeyDown() {
    const RecordingState state = m_appState.recordingState();
    switch (state.kind()) {
    case RecordingState::Case::processing:
    case RecordingState::Case::error:
        return; // the press is lost
    case RecordingState::Case::idle:
        start();
        return;
    case RecordingState::Case::recording:
        if (m_currentMode == Mode::awaitingDoubleTap)
            confirmDoubleTap();
        else if (m_currentMode == Mode::toggleSticky)
            stopSticky();
        // holdPending, or no mode while a stop is on its way: nothing.
        return;
    }
}

void RecordingCoordinator::start() {
    m_keyDownAt = m_clock.now();
    m_currentMode = Mode::holdPending;
    m_currentRecordingWasHold = true;
    try {
        m_recorder->start();
    } catch (const std::exception& e) {
        const QString description = describeError(e);
        logError("Recording start failed: " + description);
        m_appState.setRecordingState(RecordingState::error(description));
        scheduleErrorClear();
        return;
    }
    m_appState.setRecordingState(RecordingState::recording());
    play("Pop", 0.35f);
    logInfo("Recording started (hold pending)");
}

void RecordingCoordinator::confirmDoubleTap() {
    if (m_doubleTapCancelTask) {
        m_doubleTapCancelTask->cancel();
        m_doubleTapCancelTask.reset();
    }
    m_currentMode = Mode::toggleSticky;
    m_keyDownAt = m_clock.now();
    m_lastKeyUpAt.reset();
    m_currentRecordingWasHold = false;
    play("Purr", 0.4f);
    logInfo(QStringLiteral("Double-tap confirmed → toggleSticky"));
}

void RecordingCoordinator::stopSticky() {
    m_currentMode.reset();
    m_lastKeyUpAt.reset();
    play("Bottle", 0.3f);
    startFinishTask();
}

void RecordingCoordinator::handleKeyUp() {
    if (m_currentMode != Mode::holdPending)
        return;
    const double held = m_keyDownAt ? m_clock.now() - *m_keyDownAt : std::numeric_limits<double>::infinity();
    if (held < C::shortClickThresholdSec) {
        m_currentMode = Mode::awaitingDoubleTap;
        m_lastKeyUpAt = m_clock.now();
        logInfo(QStringLiteral("Short tap (%1s) — awaiting double-tap").arg(QString::asprintf("%.2f", held)));
        if (m_doubleTapCancelTask)
            m_doubleTapCancelTask->cancel();
        Cancellation cancellation;
        m_doubleTapCancelTask = cancellation;
        doubleTapWait(cancellation);
        return;
    }
    m_currentMode.reset();
    m_lastKeyUpAt.reset();
    play("Bottle", 0.3f);
    logInfo(QStringLiteral("Hold release (%1s) → stopping").arg(QString::asprintf("%.2f", held)));
    startFinishTask();
}

QCoro::Task<void> RecordingCoordinator::doubleTapWait(Cancellation cancellation) {
    QPointer<RecordingCoordinator> self(this);
    const bool slept = co_await m_clock.sleep(C::doubleTapWindowSec, cancellation);
    if (!slept || cancellation.isCancelled() || !self || self->m_currentMode != Mode::awaitingDoubleTap)
        co_return;
    self->m_currentMode.reset();
    self->m_lastKeyUpAt.reset();
    logInfo(QStringLiteral("Double-tap window expired — discarding short tap"));
    emit self->shortTapTipRequested();
    self->startDiscardTask();
}

void RecordingCoordinator::startDiscardTask() {
    QTimer::singleShot(0, this, [this] { discardRecording(); });
}

void RecordingCoordinator::discardRecording() {
    if (!m_appState.recordingState().is(RecordingState::Case::recording))
        return;
    try {
        const AudioRecorder::RecordingResult result = m_recorder->stop();
        QFile::remove(result.url);
    } catch (const std::exception&) {
        // Nothing was recording: there is no file to remove.
    }
    m_appState.setRecordingState(RecordingState::idle());
}

void RecordingCoordinator::toggleRecording() {
    switch (m_appState.recordingState().kind()) {
    case RecordingState::Case::idle:
        m_currentMode = Mode::toggleSticky;
        m_keyDownAt = m_clock.now();
        try {
            m_recorder->start();
        } catch (const std::exception& e) {
            m_appState.setRecordingState(RecordingState::error(describeError(e)));
            scheduleErrorClear();
            return;
        }
        m_appState.setRecordingState(RecordingState::recording());
        return;
    case RecordingState::Case::recording:
        m_currentMode.reset();
        startFinishTask();
        return;
    case RecordingState::Case::processing:
    case RecordingState::Case::error:
        return;
    }
}

void RecordingCoordinator::startFinishTask() {
    // A new task: the current event finishes first, as with any key edge.
    QTimer::singleShot(0, this, [this] { finishRecording(); });
}

void RecordingCoordinator::scheduleErrorClear() {
    errorClearAfterDelay();
}

QCoro::Task<void> RecordingCoordinator::errorClearAfterDelay() {
    QPointer<RecordingCoordinator> self(this);
    co_await m_clock.sleep(C::errorClearSec);
    if (self && self->m_appState.recordingState().isError())
        self->m_appState.setRecordingState(RecordingState::idle());
}

} // namespace tamvex
