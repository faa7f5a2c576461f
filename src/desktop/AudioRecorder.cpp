#include "desktop/AudioRecorder.h"

#include "desktop/AudioInput.h"
#include "platform/AudioDecoder.h"
#include "platform/AudioEncoder.h"
#include "platform/Clock.h"
#include "platform/Log.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <algorithm>
#include <cmath>
#include <vector>

namespace tamvex {

namespace {
constexpr float silenceDb = -160.0f;
constexpr int fileRate = AudioFileEncoder::sampleRate;
} // namespace

AudioRecorderError AudioRecorderError::createFailed(const QString& detail) {
    return AudioRecorderError(Kind::createFailed, QStringLiteral("Не удалось начать запись: ") + detail);
}

AudioRecorderError AudioRecorderError::alreadyRecording() {
    return AudioRecorderError(Kind::alreadyRecording, QStringLiteral("Запись уже идёт."));
}

AudioRecorderError AudioRecorderError::notRecording() {
    return AudioRecorderError(Kind::notRecording, QStringLiteral("Запись не запущена."));
}

/// One recording: the input, the file being encoded, and the meter's running sums.
/// Samples are encoded on the main thread as they arrive. AAC at 64 kbit/s mono costs well
/// under 2% of a core, a few hundred microseconds per delivery, so a worker thread would buy
/// nothing but locks; and since the file is written as we go, stop() only flushes one frame.
class AudioRecorder::Session {
public:
    explicit Session(const QString& url) : encoder(url) {}

    ~Session() {
        if (input)
            input->stop();
        if (!encoder.isFinished())
            finishFile();
    }

    /// Settles conversion to the file's format once the input's own format is known.
    void prepare() {
        if (input->sampleRate() != fileRate || input->channels() != 1)
            resampler = std::make_unique<AudioResampler>(input->sampleRate(), input->channels(), fileRate);
    }

    void consume(const float* samples, qsizetype frames) {
        const float* mono = samples;
        qsizetype count = frames;
        if (resampler) {
            converted.clear();
            try {
                resampler->convert(samples, frames, converted);
            } catch (const AudioDecodeError& e) {
                // Called from the input's delivery: an exception must not unwind through it.
                logError("AudioRecorder: converting failed: " + e.description());
            }
            mono = converted.data();
            count = qsizetype(converted.size());
        }
        meter(mono, count);
        write(mono, count);
    }

    /// Average power of what came in since the last reading, in dBFS.
    float takeLevel() {
        float level = silenceDb;
        if (meterCount > 0 && sumOfSquares > 0) {
            const double db = 10.0 * std::log10(sumOfSquares / double(meterCount));
            level = float(std::clamp(db, double(silenceDb), 0.0));
        }
        sumOfSquares = 0;
        meterCount = 0;
        return level;
    }

    /// Stops the input, drains the filter and closes the file.
    void close() {
        input->stop();
        if (resampler) {
            converted.clear();
            resampler->flush(converted);
            write(converted.data(), qsizetype(converted.size()));
        }
        finishFile();
    }

    AudioFileEncoder encoder;
    std::unique_ptr<AudioResampler> resampler;
    std::vector<float> converted;
    double sumOfSquares = 0;
    qint64 meterCount = 0;
    bool writeFailed = false;
    bool recording = false;
    std::unique_ptr<AudioInput> input; // last: destroyed first, so no sample outlives the encoder

private:
    void meter(const float* samples, qsizetype count) {
        double sum = 0;
        for (qsizetype i = 0; i < count; ++i)
            sum += double(samples[i]) * double(samples[i]);
        sumOfSquares += sum;
        meterCount += count;
    }

    void write(const float* samples, qsizetype count) {
        if (writeFailed)
            return;
        try {
            encoder.write(samples, count);
        } catch (const AudioEncodeError& e) {
            // A full disk: the meter and the timing go on, the file keeps what it got.
            writeFailed = true;
            logError("AudioRecorder: writing failed: " + e.description());
        }
    }

    void finishFile() {
        try {
            encoder.finish();
        } catch (const AudioEncodeError& e) {
            logError("AudioRecorder: closing the file failed: " + e.description());
        }
    }
};

AudioRecorder::AudioRecorder(Clock& clock, InputFactory inputFactory, QString tempDir, QObject* parent)
    : QObject(parent), m_clock(clock), m_inputFactory(std::move(inputFactory)), m_tempDir(std::move(tempDir)) {}

AudioRecorder::~AudioRecorder() = default;

bool AudioRecorder::isRecording() const { return m_session && m_session->recording; }

QString AudioRecorder::start() {
    if (isRecording())
        throw AudioRecorderError::alreadyRecording();
    const QString url =
        QDir(m_tempDir).filePath("sorvel-" + QUuid::createUuid().toString(QUuid::WithoutBraces) + ".m4a");
    m_currentURL = url;
    m_peakPower = silenceDb;
    m_startedAt = m_clock.now();

    std::unique_ptr<Session> session;
    auto fail = [&](const QString& description) {
        logError("AudioRecorder.start failed: " + description);
        // Nobody will get this file from stop(), so a half-made header is not left behind.
        session.reset();
        QFile::remove(url);
        return AudioRecorderError::createFailed(description);
    };
    // Creating the input and the file: its own error reaches the user behind one prefix.
    try {
        session = std::make_unique<Session>(url);
        session->input = m_inputFactory ? m_inputFactory() : nullptr;
        if (!session->input)
            throw AudioInputError(QStringLiteral("нет источника звука"));
    } catch (const std::exception& e) {
        throw fail(describeError(e));
    }
    // Preparing and starting are wrapped once more, so the user sees the prefix twice.
    try {
        session->input->open();
        session->prepare();
    } catch (const std::exception& e) {
        throw fail(AudioRecorderError::createFailed(describeError(e)).description());
    }
    Session* live = session.get();
    try {
        session->input->start([live](const float* samples, qsizetype frames) { live->consume(samples, frames); });
    } catch (const std::exception& e) {
        throw fail(AudioRecorderError::createFailed(describeError(e)).description());
    }
    session->recording = true;
    m_session = std::move(session);
    logInfo(QStringLiteral("AudioRecorder: started → ") + QFileInfo(url).fileName());
    return url;
}

float AudioRecorder::readLevel() {
    if (!isRecording())
        return silenceDb;
    m_session->input->poll();
    const float level = m_session->takeLevel();
    m_peakPower = std::max(m_peakPower, level);
    return level;
}

AudioRecorder::RecordingResult AudioRecorder::stop() {
    if (!m_session || m_currentURL.isEmpty() || !m_startedAt)
        throw AudioRecorderError::notRecording();
    m_session->input->poll();
    const float level = m_session->takeLevel();
    RecordingResult result;
    result.peakPower = std::max(m_peakPower, level);
    result.duration = m_clock.now() - *m_startedAt;
    result.url = m_currentURL;
    m_session->close();
    m_session.reset();
    m_currentURL.clear();
    m_startedAt.reset();
    m_peakPower = silenceDb;
    return result;
}

} // namespace tamvex
