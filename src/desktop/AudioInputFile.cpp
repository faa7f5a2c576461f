#include "desktop/AudioInputFile.h"

#include "platform/AudioDecoder.h"
#include "platform/Log.h"

#include <algorithm>
#include <cmath>

namespace tamvex {

namespace {
/// How often the file's audio is handed over; about what a sound server's period is.
constexpr double tickSec = 0.02;
constexpr qint64 maxChunkFrames = 8192;
} // namespace

FileAudioInput::FileAudioInput(Clock& clock, QString path, double speed)
    : m_clock(clock), m_path(std::move(path)), m_speed(speed > 0 ? speed : 1.0) {}

FileAudioInput::~FileAudioInput() {
    stop();
}

void FileAudioInput::open() {
    try {
        m_decoder = std::make_unique<AudioFileDecoder>(m_path, 0);
    } catch (const AudioDecodeError& e) {
        throw AudioInputError(QStringLiteral("не удалось прочитать звуковой файл (%1)").arg(e.description()));
    }
    // A file without a single sample still stands for a microphone: silence at the recording's rate.
    m_rate = m_decoder->outputRate() > 0 ? m_decoder->outputRate() : 44100;
}

void FileAudioInput::start(Sink sink) {
    if (!m_decoder)
        throw AudioInputError(QStringLiteral("звуковой файл не открыт"));
    m_sink = std::move(sink);
    m_startedAt = m_clock.now();
    m_running = true;
    poll();
    if (m_running)
        m_timer = m_clock.schedule(tickSec, [this] { tick(); });
}

void FileAudioInput::tick() {
    m_timer = 0;
    poll();
    if (m_running)
        m_timer = m_clock.schedule(tickSec, [this] { tick(); });
}

void FileAudioInput::poll() {
    if (!m_running)
        return;
    const double elapsed = std::max(0.0, m_clock.now() - m_startedAt);
    if (!m_fileEnded) {
        const qint64 due = std::isinf(m_speed) ? std::numeric_limits<qint64>::max()
                                               : qint64(std::floor(elapsed * m_speed * m_rate + 1e-6));
        while (m_fileDelivered < due && !m_fileEnded) {
            m_buffer.clear();
            qsizetype got = 0;
            try {
                got = m_decoder->read(m_buffer, std::min(due - m_fileDelivered, maxChunkFrames));
            } catch (const AudioDecodeError& e) {
                // A damaged tail ends the file early; what was heard so far is still recorded.
                logError("FileAudioInput: " + e.description());
            }
            if (got == 0) {
                m_fileEnded = true;
                m_fileEndsAt = std::isinf(m_speed) ? 0.0 : double(m_fileDelivered) / (m_speed * m_rate);
                // Says when the "microphone" has said all it had, so a script can let go of the key.
                logInfo(QStringLiteral("FileAudioInput: file ended after %1 s").arg(m_fileEndsAt, 0, 'f', 2));
                break;
            }
            m_sink(m_buffer.data(), got);
            m_fileDelivered += got;
        }
    }
    // The user may hold the key longer than the file lasts: like a microphone in a silent
    // room, the input goes on with digital zeros until it is stopped.
    if (m_fileEnded) {
        const qint64 due = qint64(std::floor(std::max(0.0, elapsed - m_fileEndsAt) * m_rate + 1e-6));
        deliverSilence(due - m_silenceDelivered);
    }
}

void FileAudioInput::deliverSilence(qint64 frames) {
    while (frames > 0) {
        const qint64 n = std::min(frames, maxChunkFrames);
        m_buffer.assign(size_t(n), 0.0f);
        m_sink(m_buffer.data(), n);
        m_silenceDelivered += n;
        frames -= n;
    }
}

void FileAudioInput::stop() {
    if (!m_running)
        return;
    poll();
    m_running = false;
    if (m_timer)
        m_clock.cancelTimer(m_timer);
    m_timer = 0;
    m_sink = {};
}

} // namespace tamvex
