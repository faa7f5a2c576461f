#include "support/TestMain.h"
#include "desktop/AudioTestSupport.h"
#include "support/TestSupport.h"

#include "desktop/AudioInput.h"
#include "desktop/AudioInputFile.h"
#include "desktop/AudioInputMicrophone.h"
#include "desktop/AudioRecorder.h"
#include "platform/AudioDecoder.h"

#include <QDir>
#include <QRegularExpression>
#include <QTest>

#include <functional>

using namespace tamvex;
using namespace tamvex::test;

namespace {

/// A stand-in microphone: interleaved samples from `signal(frameIndex, channel)` at any rate
/// and channel count, delivered every 10 ms of the clock; can be told to fail at its start.
class SynthInput final : public AudioInput {
public:
    enum class FailAt { nowhere, start };
    SynthInput(Clock& clock, int rate, int channels, std::function<float(qint64, int)> signal,
               FailAt failAt = FailAt::nowhere)
        : m_clock(clock), m_rate(rate), m_channels(channels), m_signal(std::move(signal)), m_failAt(failAt) {}
    ~SynthInput() override { stop(); }

    void open() override {}
    void start(Sink sink) override {
        if (m_failAt == FailAt::start)
            throw AudioInputError("поток не запустился");
        m_sink = std::move(sink);
        m_startedAt = m_clock.now();
        schedule();
    }
    void poll() override {
        if (!m_sink)
            return;
        const qint64 due = qint64((m_clock.now() - m_startedAt) * m_rate + 1e-6);
        std::vector<float> block;
        for (; m_sent < due; ++m_sent)
            for (int c = 0; c < m_channels; ++c)
                block.push_back(m_signal(m_sent, c));
        if (!block.empty())
            m_sink(block.data(), qsizetype(block.size()) / m_channels);
    }
    void stop() override {
        poll();
        m_sink = {};
        if (m_timer)
            m_clock.cancelTimer(m_timer);
        m_timer = 0;
    }
    int sampleRate() const override { return m_rate; }
    int channels() const override { return m_channels; }

private:
    void schedule() {
        m_timer = m_clock.schedule(0.01, [this] {
            poll();
            schedule();
        });
    }
    Clock& m_clock;
    int m_rate;
    int m_channels;
    std::function<float(qint64, int)> m_signal;
    FailAt m_failAt;
    Sink m_sink;
    double m_startedAt = 0;
    qint64 m_sent = 0;
    Clock::TimerId m_timer = 0;
};

/// Advances the clock by `seconds` the way the HUD's level reader does, every 0.06 s.
QList<float> readLevelsFor(ManualClock& clock, AudioRecorder& recorder, double seconds) {
    QList<float> levels;
    const int steps = int(std::lround(seconds / 0.06));
    for (int i = 0; i < steps; ++i) {
        clock.advance(0.06);
        levels.append(recorder.readLevel());
    }
    return levels;
}

QStringList recordings(const QString& dir) { return QDir(dir).entryList({"sorvel-*"}, QDir::Files); }

} // namespace

class AudioRecorderTest : public QObject {
    Q_OBJECT
    TestEnv m_env;
    ManualClock m_clock;

    QString wav(const QString& name) const { return m_env.root.filePath(name); }

    AudioRecorder fileRecorder(const QString& file) {
        return AudioRecorder(m_clock, [this, file] { return std::make_unique<FileAudioInput>(m_clock, file); },
                             m_env.paths.tempDir);
    }

private slots:
    void cleanup() {
        for (const QString& f : recordings(m_env.paths.tempDir))
            QFile::remove(QDir(m_env.paths.tempDir).filePath(f));
    }

    void sineRecordsAtItsLevelIntoAMonoAacFile() {
        // 0.1 amplitude: RMS 0.0707, -23.0 dBFS.
        const auto tone = sine(440, 0.1, 4.0, 44100);
        QVERIFY(writeWav(wav("tone.wav"), tone, 44100, 1));
        const double expectedDb = toDb(rms(tone));
        AudioRecorder recorder(m_clock, [this] { return std::make_unique<FileAudioInput>(m_clock, wav("tone.wav")); },
                               m_env.paths.tempDir);
        QCOMPARE(recorder.readLevel(), -160.0f);

        const QString url = recorder.start();
        QVERIFY(recorder.isRecording());
        const QFileInfo info(url);
        QCOMPARE(info.absolutePath(), QFileInfo(m_env.paths.tempDir).absoluteFilePath());
        QVERIFY2(QRegularExpression("^sorvel-[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}\\.m4a$")
                     .match(info.fileName())
                     .hasMatch(),
                 qPrintable(info.fileName()));

        const auto levels = readLevelsFor(m_clock, recorder, 2.46);
        for (float level : levels)
            QVERIFY2(std::abs(level - expectedDb) < 1.0, qPrintable(QString::number(level)));
        QCOMPARE(recorder.peakPower(), *std::max_element(levels.begin(), levels.end()));
        const auto result = recorder.stop();
        QVERIFY(!recorder.isRecording());
        QCOMPARE(result.url, url);
        QVERIFY(qFuzzyCompare(result.duration, 2.46));
        QVERIFY2(std::abs(result.peakPower - expectedDb) < 1.0, qPrintable(QString::number(result.peakPower)));
        QCOMPARE(recorder.peakPower(), -160.0f);

        AudioFileDecoder decoded(url, 0);
        QCOMPARE(decoded.codecName(), QStringLiteral("aac"));
        QCOMPARE(decoded.inputSampleRate(), 44100);
        QCOMPARE(decoded.inputChannels(), 1);
        QVERIFY2(std::abs(decoded.durationSeconds() - 2.46) < 0.05, qPrintable(QString::number(decoded.durationSeconds())));
        QVERIFY(std::abs(toDb(rms(decoded.readAll())) - expectedDb) < 1.0);
    }

    void silenceAndTheEndOfTheFileReadAsDigitalSilence() {
        // Half a second of tone, then the key is held on: the file ends, zeros follow.
        QVERIFY(writeWav(wav("short.wav"), sine(440, 0.5, 0.5, 44100), 44100, 1));
        auto recorder = fileRecorder(wav("short.wav"));
        recorder.start();
        const auto levels = readLevelsFor(m_clock, recorder, 1.5);
        QVERIFY(levels.first() > -10);
        QCOMPARE(levels.last(), -160.0f);
        const auto result = recorder.stop();
        QVERIFY(result.peakPower > -10);
        // The file runs as long as the key was held, not as long as the source.
        QVERIFY(std::abs(AudioFileDecoder(result.url, 0).durationSeconds() - 1.5) < 0.05);
    }

    void meterSpansFullScaleToTheFloor() {
        // A full-scale square wave is 0 dBFS; a whisper far below the floor stays at -160.
        AudioRecorder loud(m_clock, [this] {
            return std::make_unique<SynthInput>(m_clock, 44100, 1, [](qint64 i, int) { return i % 50 < 25 ? 1.0f : -1.0f; });
        }, m_env.paths.tempDir);
        loud.start();
        m_clock.advance(0.2);
        QVERIFY(std::abs(loud.readLevel()) < 0.01f);
        QVERIFY(loud.stop().peakPower > -0.01f);

        AudioRecorder faint(m_clock, [this] {
            return std::make_unique<SynthInput>(m_clock, 44100, 1, [](qint64, int) { return 1e-10f; });
        }, m_env.paths.tempDir);
        faint.start();
        m_clock.advance(0.2);
        QCOMPARE(faint.readLevel(), -160.0f);
        // A reading with no new samples since the last one is silence too.
        QCOMPARE(faint.readLevel(), -160.0f);
        QCOMPARE(faint.stop().peakPower, -160.0f);
    }

    void otherRatesAndChannelsAreConvertedToTheFileFormat() {
        // 48 kHz stereo with the tone on one side: the mono file keeps the average, -6 dB.
        AudioRecorder recorder(m_clock, [this] {
            return std::make_unique<SynthInput>(m_clock, 48000, 2, [](qint64 i, int c) {
                return c == 0 ? float(0.4 * std::sin(2 * std::numbers::pi * 500 * double(i) / 48000)) : 0.0f;
            });
        }, m_env.paths.tempDir);
        recorder.start();
        readLevelsFor(m_clock, recorder, 1.8);
        const auto result = recorder.stop();
        const double expected = toDb(0.2 / std::sqrt(2.0));
        QVERIFY2(std::abs(result.peakPower - expected) < 1.0, qPrintable(QString::number(result.peakPower)));
        AudioFileDecoder decoded(result.url, 0);
        QVERIFY(std::abs(decoded.durationSeconds() - 1.8) < 0.05);
        QVERIFY(std::abs(toDb(rms(decoded.readAll())) - expected) < 1.0);
    }

    void aRecordingTooShortForTheTimerHasTheStopReadingAsItsPeak() {
        QVERIFY(writeWav(wav("tone.wav"), sine(440, 0.1, 1.0, 44100), 44100, 1));
        auto recorder = fileRecorder(wav("tone.wav"));
        recorder.start();
        m_clock.advance(0.04);
        QCOMPARE(recorder.peakPower(), -160.0f);
        const auto result = recorder.stop();
        QVERIFY2(std::abs(result.peakPower - toDb(0.1 / std::sqrt(2.0))) < 1.0, qPrintable(QString::number(result.peakPower)));
        QVERIFY(qFuzzyCompare(result.duration, 0.04));
    }

    void startAndStopOutOfTurn() {
        QVERIFY(writeWav(wav("tone.wav"), sine(440, 0.3, 3.0, 44100), 44100, 1));
        auto recorder = fileRecorder(wav("tone.wav"));
        auto e = thrown<AudioRecorderError>([&] { recorder.stop(); });
        QVERIFY(e && e->kind() == AudioRecorderError::Kind::notRecording);
        QCOMPARE(e->description(), QStringLiteral("Запись не запущена."));

        const QString url = recorder.start();
        readLevelsFor(m_clock, recorder, 0.6);
        const float peak = recorder.peakPower();
        QVERIFY(peak > -15);
        e = thrown<AudioRecorderError>([&] { recorder.start(); });
        QVERIFY(e && e->kind() == AudioRecorderError::Kind::alreadyRecording);
        QCOMPARE(e->description(), QStringLiteral("Запись уже идёт."));
        // The running recording goes on untouched: same file, same peak, still recording.
        QVERIFY(recorder.isRecording());
        QCOMPARE(recorder.peakPower(), peak);
        QCOMPARE(recordings(m_env.paths.tempDir), QStringList{QFileInfo(url).fileName()});
        readLevelsFor(m_clock, recorder, 0.6);
        const auto result = recorder.stop();
        QCOMPARE(result.url, url);
        QVERIFY(qFuzzyCompare(result.duration, 1.2));
        QVERIFY(std::abs(AudioFileDecoder(url, 0).durationSeconds() - 1.2) < 0.05);

        e = thrown<AudioRecorderError>([&] { recorder.stop(); });
        QVERIFY(e && e->kind() == AudioRecorderError::Kind::notRecording);
        // A finished recorder starts a new file.
        const QString next = recorder.start();
        QVERIFY(next != url);
        recorder.stop();
    }

    void failuresCarryTheirTextAndLeaveNoFile() {
        struct Case {
            AudioRecorder::InputFactory factory;
            QString tempDir;
            QString description;
        };
        auto synth = [this](SynthInput::FailAt at) {
            return [this, at] { return std::make_unique<SynthInput>(m_clock, 44100, 1, [](qint64, int) { return 0.0f; }, at); };
        };
        const QString missingDir = m_env.root.filePath("no-such-dir");
        const QList<Case> cases{
            {synth(SynthInput::FailAt::start), m_env.paths.tempDir,
             "Не удалось начать запись: Не удалось начать запись: поток не запустился"},
            {[] { return std::make_unique<MicrophoneInput>("no-such-device"); }, m_env.paths.tempDir,
             "Не удалось начать запись: Не удалось начать запись: микрофон «no-such-device» не найден"},
            {[]() -> std::unique_ptr<AudioInput> { throw AudioInputError("нет драйвера"); }, m_env.paths.tempDir,
             "Не удалось начать запись: нет драйвера"},
            {[this] { return std::make_unique<FileAudioInput>(m_clock, wav("missing.wav")); }, m_env.paths.tempDir,
             "Не удалось начать запись: Не удалось начать запись: не удалось прочитать звуковой файл (cannot open "},
            {synth(SynthInput::FailAt::nowhere), missingDir, "Не удалось начать запись: cannot create " + missingDir},
        };
        for (const Case& c : cases) {
            AudioRecorder recorder(m_clock, c.factory, c.tempDir);
            const auto e = thrown<AudioRecorderError>([&] { recorder.start(); });
            QVERIFY2(e && e->kind() == AudioRecorderError::Kind::createFailed, qPrintable(c.description));
            QVERIFY2(e->description().startsWith(c.description), qPrintable(e->description()));
            QVERIFY(!recorder.isRecording());
            QCOMPARE(recorder.readLevel(), -160.0f);
            QVERIFY_THROWS_EXCEPTION(AudioRecorderError, recorder.stop());
            QCOMPARE(recordings(c.tempDir), QStringList{});
        }
    }
};

TAMVEX_TEST_CLASS(AudioRecorderTest)
#include "AudioRecorderTest.moc"
