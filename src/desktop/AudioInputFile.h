#pragma once

#include "desktop/AudioInput.h"
#include "platform/Clock.h"

#include <QString>

#include <limits>
#include <memory>
#include <vector>

namespace tamvex {

class AudioFileDecoder;

/// Plays an audio file (any format FFmpeg reads) as if it were spoken into a microphone,
/// paced by the Clock: in virtual time ManualClock::advance delivers the audio. Mono at the
/// file's own rate. After the end of the file it delivers digital silence until stopped.
class FileAudioInput final : public AudioInput {
public:
    /// The speed that hands the whole file over inside start().
    static constexpr double allAtOnce = std::numeric_limits<double>::infinity();

    /// `speed` 1 plays in real time, 2 twice as fast, allAtOnce without waiting.
    FileAudioInput(Clock& clock, QString path, double speed = 1.0);
    ~FileAudioInput() override;

    /// Opens and probes the file. Throws AudioInputError with the decoder's words.
    void open() override;
    /// Starts playing; what is due at once is delivered before it returns.
    void start(Sink sink) override;
    /// Delivers everything due by the clock's present time.
    void poll() override;
    /// Delivers what is due and stops.
    void stop() override;
    int sampleRate() const override { return m_rate; }
    int channels() const override { return 1; }
    /// Frames of the file delivered so far (without the silence after it).
    qint64 fileFramesDelivered() const { return m_fileDelivered; }

private:
    void tick();
    void deliverSilence(qint64 frames);

    Clock& m_clock;
    QString m_path;
    double m_speed;
    std::unique_ptr<AudioFileDecoder> m_decoder;
    Sink m_sink;
    std::vector<float> m_buffer;
    int m_rate = 0;
    double m_startedAt = 0;
    double m_fileEndsAt = 0; // seconds after start when the file ran out
    qint64 m_fileDelivered = 0;
    qint64 m_silenceDelivered = 0;
    bool m_fileEnded = false;
    bool m_running = false;
    Clock::TimerId m_timer = 0;
};

} // namespace tamvex
