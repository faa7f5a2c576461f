#include "desktop/AudioTestSupport.h"
#include "support/TestMain.h"
#include "support/TestSupport.h"

#include "desktop/AudioInputFile.h"
#include "desktop/AudioInputMicrophone.h"
#include "desktop/AudioRecorder.h"
#include "platform/AudioDecoder.h"

#include <QDir>
#include <QRegularExpression>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;

namespace {

/// A stand-in microphone of any rate and channel count whose `samples` (interleaved) are all
/// there at its start; without samples its start fails.
class ReadyInput final : public AudioInput {
public:
    ReadyInput(int rate, int channels, std::vector<float> samples)
        : m_rate(rate), m_channels(channels), m_samples(std::move(samples)) {}
    void open() override {}
    void start(Sink sink) override {
        if (m_samples.empty())
            throw AudioInputError("поток не запустился");
        sink(m_samples.data(), qsizetype(m_samples.size()) / m_channels);
    }
    void poll() override {}
    void stop() override {}
    int sampleRate() const override { return m_rate; }
    int channels() const override { return m_channels; }

private:
    int m_rate;
    int m_channels;
    std::vector<float> m_samples;
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

QStringList recordings(const QString& dir) {
    return QDir(dir).entryList({"sorvel-*"}, QDir::Files);
}

bool near(double value, double expected, double tolerance) {
    return std::abs(value - expected) < tolerance;
}

// 0.1 amplitude: RMS 0.0707, -23.0 dBFS.
const double kToneDb = toDb(0.1 / std::sqrt(2.0));

} // namespace

class AudioRecorderTest : public QObject {
    Q_OBJECT
    TestEnv m_env;
    ManualClock m_clock;

    QString wav(const QString& name) const { return m_env.root.filePath(name); }

    AudioRecorder fileRecorder(const QString& file) {
        return AudioRecorder(
            m_clock, [this, file] { return std::make_unique<FileAudioInput>(m_clock, file); }, m_env.paths.tempDir);
    }

private slots:
    void initTestCase() { QVERIFY(writeWav(wav("tone.wav"), sine(440, 0.1, 4.0, 44100), 44100, 1)); }

    void cleanup() {
        for (const QString& f : recordings(m_env.paths.tempDir))
            QFile::remove(QDir(m_env.paths.tempDir).filePath(f));
    }

    void sineRecordsAtItsLevelIntoAMonoAacFile() {
        auto recorder = fileRecorder(wav("tone.wav"));
        QCOMPARE(recorder.readLevel(), -160.0f);

        const QString url = recorder.start();
        QVERIFY(recorder.isRecording());
        const QFileInfo info(url);
        QCOMPARE(info.absolutePath(), QFileInfo(m_env.paths.tempDir).absoluteFilePath());
        const QRegularExpression name("^sorvel-[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}\\.m4a$");
        QVERIFY2(name.match(info.fileName()).hasMatch(), qPrintable(info.fileName()));

        const auto levels = readLevelsFor(m_clock, recorder, 2.46);
        for (float level : levels)
            QVERIFY2(near(level, kToneDb, 1.0), qPrintable(QString::number(level)));
        QCOMPARE(recorder.peakPower(), *std::max_element(levels.begin(), levels.end()));
        const auto result = recorder.stop();
        QVERIFY(!recorder.isRecording());
        QCOMPARE(result.url, url);
        QVERIFY(qFuzzyCompare(result.duration, 2.46));
        QVERIFY2(near(result.peakPower, kToneDb, 1.0), qPrintable(QString::number(result.peakPower)));
        QCOMPARE(recorder.peakPower(), -160.0f);

        AudioFileDecoder decoded(url, 0);
        QCOMPARE(decoded.codecName(), QStringLiteral("aac"));
        QCOMPARE(decoded.inputSampleRate(), 44100);
        QCOMPARE(decoded.inputChannels(), 1);
        QVERIFY2(near(decoded.durationSeconds(), 2.46, 0.05), qPrintable(QString::number(decoded.durationSeconds())));
        QVERIFY(near(toDb(rms(decoded.readAll())), kToneDb, 1.0));
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
        QVERIFY(near(AudioFileDecoder(result.url, 0).durationSeconds(), 1.5, 0.05));
    }

    void meterSpansFullScaleToTheFloor() {
        // A full-scale square wave is 0 dBFS; a whisper far below the floor stays at -160.
        std::vector<float> square(44100), whisper(44100, 1e-10f);
        for (size_t i = 0; i < square.size(); ++i)
            square[i] = i % 50 < 25 ? 1.0f : -1.0f;
        QVERIFY(writeWav(wav("square.wav"), square, 44100, 1, true) &&
                writeWav(wav("whisper.wav"), whisper, 44100, 1, true));
        auto loud = fileRecorder(wav("square.wav"));
        loud.start();
        m_clock.advance(0.2);
        QVERIFY(std::abs(loud.readLevel()) < 0.01f);
        QVERIFY(loud.stop().peakPower > -0.01f);

        auto faint = fileRecorder(wav("whisper.wav"));
        faint.start();
        m_clock.advance(0.2);
        QCOMPARE(faint.readLevel(), -160.0f);
        // A reading with no new samples since the last one is silence too.
        QCOMPARE(faint.readLevel(), -160.0f);
        QCOMPARE(faint.stop().peakPower, -160.0f);
    }

    void otherRatesAndChannelsAreConvertedToTheFileFormat() {
        // 48 kHz stereo with the tone on one side: the mono file keeps the average, -6 dB.
        std::vector<float> stereo;
        for (float s : sine(500, 0.4, 1.8, 48000))
            stereo.insert(stereo.end(), {s, 0.0f});
        AudioRecorder recorder(
            m_clock, [&] { return std::make_unique<ReadyInput>(48000, 2, stereo); }, m_env.paths.tempDir);
        recorder.start();
        readLevelsFor(m_clock, recorder, 1.8);
        const auto result = recorder.stop();
        const double expected = toDb(0.2 / std::sqrt(2.0));
        QVERIFY2(near(result.peakPower, expected, 1.0), qPrintable(QString::number(result.peakPower)));
        AudioFileDecoder decoded(result.url, 0);
        QVERIFY(near(decoded.durationSeconds(), 1.8, 0.05));
        QVERIFY(near(toDb(rms(decoded.readAll())), expected, 1.0));
    }

    void startAndStopOutOfTurn() {
        auto recorder = fileRecorder(wav("tone.wav"));
        auto e = thrown<AudioRecorderError>([&] { recorder.stop(); });
        QVERIFY(e && e->kind() == AudioRecorderError::Kind::notRecording);
        QCOMPARE(e->description(), QStringLiteral("Запись не запущена."));

        const QString url = recorder.start();
        readLevelsFor(m_clock, recorder, 0.6);
        const float peak = recorder.peakPower();
        QVERIFY(near(peak, kToneDb, 1.0));
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
        QVERIFY(near(AudioFileDecoder(url, 0).durationSeconds(), 1.2, 0.05));

        e = thrown<AudioRecorderError>([&] { recorder.stop(); });
        QVERIFY(e && e->kind() == AudioRecorderError::Kind::notRecording);
        // A finished recorder starts a new file; one too short for a reading has the stop's as its peak.
        QVERIFY(recorder.start() != url);
        m_clock.advance(0.04);
        QCOMPARE(recorder.peakPower(), -160.0f);
        const auto shortOne = recorder.stop();
        QVERIFY2(near(shortOne.peakPower, kToneDb, 1.0), qPrintable(QString::number(shortOne.peakPower)));
        QVERIFY(qFuzzyCompare(shortOne.duration, 0.04));
    }

    void failuresCarryTheirTextAndLeaveNoFile() {
        struct Case {
            AudioRecorder::InputFactory factory;
            QString tempDir;
            QString description;
        };
        const QString missingDir = m_env.root.filePath("no-such-dir");
        const QList<Case> cases{
            {[] { return std::make_unique<ReadyInput>(44100, 1, std::vector<float>{}); }, m_env.paths.tempDir,
             "Не удалось начать запись: Не удалось начать запись: поток не запустился"},
            {[] { return std::make_unique<MicrophoneInput>("no-such-device"); }, m_env.paths.tempDir,
             "Не удалось начать запись: Не удалось начать запись: микрофон «no-such-device» не найден"},
            {[]() -> std::unique_ptr<AudioInput> { throw AudioInputError("нет драйвера"); }, m_env.paths.tempDir,
             "Не удалось начать запись: нет драйвера"},
            {[this] { return std::make_unique<FileAudioInput>(m_clock, wav("missing.wav")); }, m_env.paths.tempDir,
             "Не удалось начать запись: Не удалось начать запись: не удалось прочитать звуковой файл (cannot open "},
            {[this] { return std::make_unique<FileAudioInput>(m_clock, wav("tone.wav")); }, missingDir,
             "Не удалось начать запись: cannot create " + missingDir},
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
