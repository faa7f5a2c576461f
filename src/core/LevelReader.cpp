#include "core/LevelReader.h"

#include "core/AppState.h"
#include "core/RecordingConstants.h"
#include "desktop/AudioRecorder.h"

namespace tamvex {

LevelReader::LevelReader(AppState& appState, AudioRecorder& recorder, QObject* parent)
    : QObject(parent), m_appState(appState), m_recorder(recorder) {
    connect(&appState, &AppState::recordingStateChanged, this, &LevelReader::restart);
    restart();
}

LevelReader::~LevelReader() {
    if (m_timer)
        m_appState.clock().cancelTimer(m_timer);
}

void LevelReader::restart() {
    if (m_timer) {
        m_appState.clock().cancelTimer(m_timer);
        m_timer = 0;
    }
    if (m_appState.recordingState().is(RecordingState::Case::recording))
        m_timer = m_appState.clock().schedule(RecordingConstants::levelReadIntervalSec, [this] { tick(); });
}

void LevelReader::tick() {
    m_timer = m_appState.clock().schedule(RecordingConstants::levelReadIntervalSec, [this] { tick(); });
    m_level = m_recorder.readLevel();
    emit levelChanged(m_level);
}

} // namespace tamvex
