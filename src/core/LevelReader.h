#pragma once

#include "platform/Clock.h"

#include <QObject>

namespace tamvex {

class AppState;
class AudioRecorder;

/// Reads the recorder's level every 0.06 s while the state is `recording`, which also
/// raises the recording's peak; the HUD draws the levels it reports.
class LevelReader : public QObject {
    Q_OBJECT
    Q_PROPERTY(float level READ level NOTIFY levelChanged)
public:
    LevelReader(AppState& appState, AudioRecorder& recorder, QObject* parent = nullptr);
    ~LevelReader() override;
    /// The last level read, in dBFS (-160 when not recording).
    float level() const { return m_level; }

signals:
    void levelChanged(float level);

private:
    void restart();
    void tick();

    AppState& m_appState;
    AudioRecorder& m_recorder;
    Clock::TimerId m_timer = 0;
    float m_level = -160.0f;
};

} // namespace tamvex
