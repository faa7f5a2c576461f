#include "desktop/AudioTestSupport.h"
#include "support/ProcessFixtures.h"
#include "support/TestMain.h"
#include "support/TestSupport.h"

#include "cli/MicTest.h"
#include "desktop/AudioInputFile.h"
#include "desktop/AudioInputMicrophone.h"
#include "desktop/AudioRecorder.h"
#include "platform/AudioDecoder.h"
#include "platform/AudioEncoder.h"

#include <QDir>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTest>

#include <algorithm>

using namespace tamvex;
using namespace tamvex::test;

namespace {

constexpr double toneAmplitude = 0.3; // RMS -13.5 dBFS

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

constexpr int kAacRate = 44100;

// The recorder's own files are written in the uneven pieces a microphone hands over.
void encodeFile(const QString& path, const std::vector<float>& samples) {
    AudioFileEncoder encoder(path);
    encoder.write(samples.data(), qsizetype(samples.size()));
    encoder.finish();
}

// 0.1 amplitude: RMS 0.0707, -23.0 dBFS.
const double kToneDb = toDb(0.1 / std::sqrt(2.0));

} // namespace

/// The recorder over file inputs in virtual time, the FFmpeg encoder and decoder it writes and
/// reads with, and `tamvex mic-test` end to end on the wall clock. The microphone records for
/// real through Qt Multimedia from a private PulseAudio server whose only microphone is a pipe
/// source. FFmpeg speaks a tone into its FIFO in real time (-re): the pipe source takes whatever
/// arrives, so the pace is the speaker's.
class AudioTest : public QObject {
    Q_OBJECT
    TestEnv m_env;
    ManualClock m_clock;
    QTemporaryDir m_runtime;
    QProcess m_server;
    QProcess m_speaker;
    QString m_skipReason;

    QString socket() const { return m_runtime.filePath("native"); }
    QString fifo() const { return m_runtime.filePath("mic.fifo"); }

    QString startServer() {
        const QString pulseaudio = QStandardPaths::findExecutable("pulseaudio");
        if (pulseaudio.isEmpty())
            return "pulseaudio is not installed (scripts/install-deps.sh installs it)";
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("XDG_RUNTIME_DIR", m_runtime.path());
        env.insert("HOME", m_runtime.path());
        m_server.setProcessEnvironment(env);
        m_server.setProcessChannelMode(QProcess::MergedChannels);
        // The FIFO's module goes first, so the socket appearing means both are there.
        m_server.start(
            pulseaudio,
            {"-n", "--daemonize=no", "--exit-idle-time=-1", "--use-pid-file=no", "-F", "/dev/null",
             "--load=module-pipe-source source_name=tamvex_mic format=s16le rate=44100 channels=1 file=" + fifo(),
             "--load=module-native-protocol-unix auth-anonymous=1 socket=" + socket()});
        if (!m_server.waitForStarted(5000))
            return "pulseaudio did not start: " + m_server.errorString();
        if (!spinUntil([&] { return QFile::exists(socket()) || m_server.state() == QProcess::NotRunning; }, 10000) ||
            m_server.state() == QProcess::NotRunning)
            return "pulseaudio did not come up: " + QString::fromLocal8Bit(m_server.readAll()).trimmed();

        // Qt's PulseAudio backend connects on first use, so the server must be named before that.
        qputenv("XDG_RUNTIME_DIR", m_runtime.path().toLocal8Bit());
        qputenv("PULSE_SERVER", ("unix:" + socket()).toLocal8Bit());
        qputenv("HOME", m_runtime.path().toLocal8Bit());

        return QString();
    }

    QString path(const QString& name) const { return m_env.root.filePath(name); }

    AudioRecorder fileRecorder(const QString& file) {
        return AudioRecorder(
            m_clock, [this, file] { return std::make_unique<FileAudioInput>(m_clock, file); }, m_env.paths.tempDir);
    }

    CommandOutput micTest(const QStringList& args) {
        return captureCommand([&](QTextStream& out, QTextStream& err) { return runMicTest(args, out, err); });
    }

    /// The peak of readings of a sine of `amplitude`: its RMS, or up to the amplitude itself when
    /// a reading covered less than a period, as when the wall clock fired two reads close together.
    static bool sineLevel(double peakDb, double amplitude) {
        return peakDb > toDb(amplitude / std::sqrt(2.0)) - 1.0 && peakDb < toDb(amplitude) + 0.5;
    }

private slots:
    void initTestCase() {
        QVERIFY(writeWav(path("tone.wav"), sine(440, 0.1, 4.0, 44100), 44100, 1));
        QVERIFY(writeWav(path("quiet.wav"), sine(300, 0.0045, 5.0, 48000), 48000, 1));
        // mic-test records into the system's temporary folder: make it ours.
        qputenv("TMPDIR", m_env.paths.tempDir.toLocal8Bit());
        QVERIFY(m_runtime.isValid());
        m_skipReason = startServer();
        if (!m_skipReason.isEmpty())
            endProcess(m_server);
    }

    void cleanupTestCase() {
        endProcess(m_speaker);
        endProcess(m_server);
    }

    void cleanup() {
        for (const QString& f : recordings(m_env.paths.tempDir))
            QFile::remove(QDir(m_env.paths.tempDir).filePath(f));
    }

    void sineRecordsAtItsLevelIntoAMonoAacFileAndStartsAndStopsInTurn() {
        auto recorder = fileRecorder(path("tone.wav"));
        auto e = thrown<AudioRecorderError>([&] { recorder.stop(); });
        QVERIFY(e && e->kind() == AudioRecorderError::Kind::notRecording);

        const QString url = recorder.start();
        const QFileInfo info(url);
        const QRegularExpression name("^sorvel-[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}\\.m4a$");
        QVERIFY2(name.match(info.fileName()).hasMatch(), qPrintable(info.fileName()));

        auto levels = readLevelsFor(m_clock, recorder, 1.2);
        const float peak = recorder.peakPower();
        e = thrown<AudioRecorderError>([&] { recorder.start(); });
        QVERIFY(e && e->kind() == AudioRecorderError::Kind::alreadyRecording);
        // The running recording goes on untouched: same file, same peak, still recording.
        QVERIFY(recorder.isRecording());
        QCOMPARE(recorder.peakPower(), peak);
        QCOMPARE(recordings(m_env.paths.tempDir), QStringList{info.fileName()});
        levels += readLevelsFor(m_clock, recorder, 1.26);
        for (float level : levels)
            QVERIFY2(near(level, kToneDb, 1.0), qPrintable(QString::number(level)));
        QCOMPARE(recorder.peakPower(), *std::max_element(levels.begin(), levels.end()));
        const auto result = recorder.stop();
        QCOMPARE(result.url, url);
        QVERIFY(qFuzzyCompare(result.duration, 2.46));
        QVERIFY2(near(result.peakPower, kToneDb, 1.0), qPrintable(QString::number(result.peakPower)));

        AudioFileDecoder decoded(url, 0);
        QCOMPARE(decoded.codecName(), QStringLiteral("aac"));
        QCOMPARE(decoded.inputSampleRate(), 44100);
        QCOMPARE(decoded.inputChannels(), 1);
        QVERIFY2(near(decoded.durationSeconds(), 2.46, 0.05), qPrintable(QString::number(decoded.durationSeconds())));
        // The codec's trailing padding is cut off: the samples match the time recorded.
        const auto samples = decoded.readAll();
        QVERIFY2(near(double(samples.size()), 2.46 * kAacRate, 0.05 * kAacRate),
                 qPrintable(QString::number(samples.size())));
        QVERIFY(near(toDb(rms(samples)), kToneDb, 1.0));

        // A finished recorder starts a new file; one too short for a reading has the stop's as its peak.
        QVERIFY(recorder.start() != url);
        m_clock.advance(0.04);
        const auto shortOne = recorder.stop();
        QVERIFY2(near(shortOne.peakPower, kToneDb, 1.0), qPrintable(QString::number(shortOne.peakPower)));
        QVERIFY(qFuzzyCompare(shortOne.duration, 0.04));
    }

    void meterSpansFullScaleToTheFloorAndTheSourcesEndIsSilence() {
        // A full-scale square wave is 0 dBFS; a whisper far below the floor stays at -160.
        std::vector<float> square(44100), whisper(44100, 1e-10f);
        for (size_t i = 0; i < square.size(); ++i)
            square[i] = i % 50 < 25 ? 1.0f : -1.0f;
        QVERIFY(writeWav(path("square.wav"), square, 44100, 1, true) &&
                writeWav(path("whisper.wav"), whisper, 44100, 1, true));
        // A second of the square, then the key is held on: the source ends, zeros follow.
        auto loud = fileRecorder(path("square.wav"));
        loud.start();
        const auto levels = readLevelsFor(m_clock, loud, 1.5);
        QVERIFY(std::abs(levels.first()) < 0.01f);
        QCOMPARE(levels.last(), -160.0f);
        const auto result = loud.stop();
        // The file runs as long as the key was held, not as long as the source.
        QVERIFY(near(AudioFileDecoder(result.url, 0).durationSeconds(), 1.5, 0.05));

        auto faint = fileRecorder(path("whisper.wav"));
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
            {[this] { return std::make_unique<FileAudioInput>(m_clock, path("missing.wav")); }, m_env.paths.tempDir,
             "Не удалось начать запись: Не удалось начать запись: не удалось прочитать звуковой файл (cannot open "},
            {[this] { return std::make_unique<FileAudioInput>(m_clock, path("tone.wav")); }, missingDir,
             "Не удалось начать запись: cannot create " + missingDir},
        };
        for (const Case& c : cases) {
            AudioRecorder recorder(m_clock, c.factory, c.tempDir);
            const auto e = thrown<AudioRecorderError>([&] { recorder.start(); });
            QVERIFY2(e && e->kind() == AudioRecorderError::Kind::createFailed, qPrintable(c.description));
            QVERIFY2(e->description().startsWith(c.description), qPrintable(e->description()));
            QVERIFY_THROWS_EXCEPTION(AudioRecorderError, recorder.stop());
            QCOMPARE(recordings(c.tempDir), QStringList{});
        }
    }

    void wavOfOtherRatesAndChannelsBecomesMonoAtTheAskedRate() {
        // 48 kHz stereo, the same tone on both sides: the mono mix keeps its level
        // (a sum of the channels would be 6 dB louder, the default -3 dB mix 3 dB louder).
        const auto tone = sine(1000, 0.25, 1.5, 48000);
        std::vector<float> stereo;
        for (float s : tone)
            stereo.insert(stereo.end(), {s, s});
        QVERIFY(writeWav(path("stereo48.wav"), stereo, 48000, 2));
        AudioFileDecoder decoder(path("stereo48.wav"), 16000);
        // Read in small blocks, as the whisper reader does: nothing lost or doubled.
        std::vector<float> blocks;
        qsizetype got = 0;
        while ((got = decoder.read(blocks, 1000)) > 0)
            QVERIFY(got <= 1000);
        QVERIFY2(std::abs(double(blocks.size()) - 24000.0) <= 16, qPrintable(QString::number(blocks.size())));
        QVERIFY(std::abs(toDb(rms(blocks)) - toDb(rms(tone))) < 0.2);
        QCOMPARE(decoder.read(blocks, 1000), qsizetype(0));

        // Float mono at its own rate passes through untouched, even past full scale, where a
        // converter would be free to clip or dither.
        auto low = sine(300, 0.5, 1.0, 8000);
        low[10] = 1.5f;
        low[11] = -2.25f;
        QVERIFY(writeWav(path("mono8k.wav"), low, 8000, 1, true));
        QVERIFY(AudioFileDecoder(path("mono8k.wav"), 8000).readAll() == low);
    }

    void badFilesGiveClearErrorsAndEmptyOnesDecodeToNothing() {
        // A recording cut short before its index was written.
        encodeFile(path("whole.m4a"), sine(440, 0.1, 1.0, kAacRate));
        const QByteArray whole = fileBytes(path("whole.m4a"));
        QVERIFY(writeFile(path("cut.m4a"), whole.left(whole.size() / 2)));

        for (const QString name : {"cut.m4a", "missing.wav"}) {
            const auto e = thrown<AudioDecodeError>([&] { AudioFileDecoder(path(name), 16000).readAll(); });
            QVERIFY2(e, qPrintable(name + " decoded without an error"));
            QVERIFY2(e->description().contains(path(name) + ": "), qPrintable(e->description()));
        }

        // Empty files are no error: they decode to nothing.
        QVERIFY(writeWav(path("empty.wav"), {}, 16000, 1));
        encodeFile(path("empty.m4a"), {});
        for (const QString name : {"empty.wav", "empty.m4a"})
            QVERIFY2(AudioFileDecoder(path(name), 16000).readAll().empty(), qPrintable(name));
    }

    void aQuietRecordingShowsTheRuleAndTheMessage() {
        const CommandOutput r = micTest({"--audio-input", path("quiet.wav"), "--seconds", "1.3"});
        QCOMPARE(r.code, 0);
        const auto peak = QRegularExpression("Пик: (-[0-9]+\\.[0-9]) дБ").match(r.out);
        QVERIFY2(peak.hasMatch() && sineLevel(peak.captured(1).toDouble(), 0.0045), qPrintable(r.out));
        // "suspicious" holds under 3 s, and a loaded machine may stretch the wall-clock recording past that.
        const auto duration = QRegularExpression("Длительность: ([0-9.]+) с").match(r.out);
        QVERIFY2(duration.hasMatch(), qPrintable(r.out));
        const QString reasons = duration.captured(1).toDouble() < 3.0 ? "quiet, suspicious" : "quiet";
        QVERIFY2(r.out.contains("Итог: запись была бы отброшена (" + reasons +
                                "): «Слишком тихо — говори ближе к микрофону»"),
                 qPrintable(r.out));
        QVERIFY(r.out.startsWith("Файл: " + m_env.paths.tempDir));
    }

    void recordsTheVirtualMicrophoneThroughQtMultimedia() {
        if (!m_skipReason.isEmpty())
            QSKIP(qPrintable("no sound server: " + m_skipReason));
        // The speaker starts just before the recording: what it wrote while other tests ran would
        // wait in the FIFO and reach the recording in a burst.
        const QString tone = QString("aevalsrc=%1*sin(2*PI*440*t):s=44100").arg(toneAmplitude);
        m_speaker.start("ffmpeg", {"-nostdin", "-loglevel", "error", "-re", "-f", "lavfi", "-i", tone, "-f", "s16le",
                                   "-ac", "1", "-y", fifo()});
        QVERIFY2(m_speaker.waitForStarted(5000), qPrintable("ffmpeg did not start: " + m_speaker.errorString()));

        // Qt hides monitor sources and ignores the server's default: the id picks the device.
        qputenv("TAMVEX_AUDIO_DEVICE", "tamvex_mic");
        MicrophoneInput microphone;
        microphone.open();
        qunsetenv("TAMVEX_AUDIO_DEVICE");
        QCOMPARE(microphone.device().id(), QByteArray("tamvex_mic"));
        // A loaded machine may take a while to start FFmpeg: the tone is taken from its first loud sample.
        std::vector<float> heard;
        microphone.start([&](const float* samples, qsizetype frames) {
            for (qsizetype i = 0; i < frames * microphone.channels(); ++i)
                if (!heard.empty() || std::abs(samples[i]) > toneAmplitude / 2)
                    heard.push_back(samples[i]);
        });
        // A second of the tone arrives at its level, whatever format the server hands over.
        QVERIFY(spinUntil(
            [&] {
                microphone.poll();
                return heard.size() >= size_t(44100 * microphone.channels());
            },
            15000));
        microphone.stop();
        QVERIFY2(near(toDb(rms(heard)), toDb(toneAmplitude / std::sqrt(2.0)), 1.0),
                 qPrintable(QString::number(toDb(rms(heard)))));
    }
};

TAMVEX_TEST_CLASS(AudioTest)
#include "AudioTest.moc"
