#pragma once

#include "platform/Error.h"

#include <QObject>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

namespace tamvex {

class Clock;
class AudioInput;

/// Errors of the recorder, with the texts the user sees.
class AudioRecorderError : public TamvexError {
public:
    enum class Kind { createFailed, alreadyRecording, notRecording };
    /// "Не удалось начать запись: " + detail.
    static AudioRecorderError createFailed(const QString& detail);
    /// "Запись уже идёт."
    static AudioRecorderError alreadyRecording();
    /// "Запись не запущена."
    static AudioRecorderError notRecording();
    /// Which of the three it is.
    Kind kind() const { return m_kind; }

private:
    AudioRecorderError(Kind kind, QString description) : TamvexError(std::move(description)), m_kind(kind) {}
    Kind m_kind;
};

/// Records an AudioInput into "sorvel-<UUID>.m4a" (AAC-LC, 44.1 kHz, mono, 64 kbit/s)
/// in the temporary folder, and meters its average power in dBFS.
class AudioRecorder : public QObject {
    Q_OBJECT
public:
    struct RecordingResult {
        QString url;          ///< path of the finished file
        double duration = 0;  ///< seconds from start to stop, by the clock
        float peakPower = -160.0f;
    };

    /// Makes a fresh input for each recording (the microphone, a file, a stand-in).
    using InputFactory = std::function<std::unique_ptr<AudioInput>()>;

    /// Records from inputs made by `inputFactory` into files directly in `tempDir`.
    AudioRecorder(Clock& clock, InputFactory inputFactory, QString tempDir, QObject* parent = nullptr);
    /// A recording still running is finished into a playable file.
    ~AudioRecorder() override;

    /// Opens the input and starts writing a new file; returns its path.
    QString start();
    /// Closes the file and returns it with its duration and peak.
    RecordingResult stop();

    /// True between a good start and stop.
    bool isRecording() const;
    /// The highest level read so far in this recording (-160 when none).
    float peakPower() const { return m_peakPower; }
    /// The level reader's call: average power since the last reading, raising the peak;
    /// -160 when not recording.
    float readLevel();

private:
    class Session;
    Clock& m_clock;
    InputFactory m_inputFactory;
    QString m_tempDir;
    std::unique_ptr<Session> m_session;
    QString m_currentURL;
    std::optional<double> m_startedAt;
    float m_peakPower = -160.0f;
};

} // namespace tamvex
