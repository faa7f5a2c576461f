#include "desktop/AudioTestSupport.h"
#include "support/ProcessFixtures.h"
#include "support/TestMain.h"

#include "desktop/AudioInputMicrophone.h"
#include "desktop/AudioRecorder.h"
#include "platform/AudioDecoder.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>
#include <QTimer>

#include <algorithm>

#include <fcntl.h>
#include <unistd.h>

using namespace tamvex;
using namespace tamvex::test;

namespace {
constexpr double toneAmplitude = 0.3; // RMS -13.5 dBFS
}

/// Speaks a tone into the FIFO behind a pipe source, in real time: the pipe source takes
/// whatever arrives, so the pace is ours.
class FifoSpeaker {
public:
    explicit FifoSpeaker(const QString& fifo) {
        m_fd = ::open(fifo.toLocal8Bit().constData(), O_WRONLY | O_NONBLOCK);
        QObject::connect(&m_timer, &QTimer::timeout, [this] { feed(); });
    }
    ~FifoSpeaker() {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    bool isOpen() const { return m_fd >= 0; }
    void start() {
        m_clock.start();
        m_timer.start(10);
    }

private:
    void feed() {
        const qint64 due = m_clock.nsecsElapsed() * 44100 / 1000000000 + 441 * 4; // a little ahead
        std::vector<qint16> block;
        for (; m_sent < due; ++m_sent)
            block.push_back(qint16(std::lround(toneAmplitude * 32767.0 *
                                               std::sin(2.0 * std::numbers::pi * 440.0 * double(m_sent) / 44100.0))));
        const auto bytes = ssize_t(block.size() * sizeof(qint16));
        if (bytes > 0 && ::write(m_fd, block.data(), size_t(bytes)) != bytes)
            m_sent -= qint64(block.size()); // the pipe was full: say it again next time
    }
    int m_fd = -1;
    QTimer m_timer;
    QElapsedTimer m_clock;
    qint64 m_sent = 0;
};

/// Records for real through Qt Multimedia from a private PulseAudio server whose only
/// microphone is a pipe source that the test speaks into.
class MicrophoneTest : public QObject {
    Q_OBJECT
    QTemporaryDir m_runtime;
    QProcess m_server;
    std::unique_ptr<FifoSpeaker> m_speaker;
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

        m_speaker = std::make_unique<FifoSpeaker>(fifo());
        m_speaker->start();
        return {};
    }

private slots:
    void initTestCase() {
        QVERIFY(m_runtime.isValid());
        m_skipReason = startServer();
        if (!m_skipReason.isEmpty())
            endProcess(m_server);
    }

    void cleanupTestCase() {
        m_speaker.reset();
        endProcess(m_server);
    }

    void recordsTheVirtualMicrophoneThroughQtMultimedia() {
        if (!m_skipReason.isEmpty())
            QSKIP(qPrintable("no sound server: " + m_skipReason));
        QVERIFY2(m_speaker->isOpen(), qPrintable("the pipe source made no FIFO at " + fifo()));
        // Qt hides monitor sources and ignores the server's default: the id picks the device.
        QByteArrayList ids;
        for (const QAudioDevice& d : MicrophoneInput::availableDevices())
            ids.append(d.id());
        QVERIFY2(ids.contains("tamvex_mic"), ids.join(", ").constData());

        qputenv("TAMVEX_AUDIO_DEVICE", "tamvex_mic");
        MicrophoneInput fromEnvironment;
        fromEnvironment.open();
        qunsetenv("TAMVEX_AUDIO_DEVICE");
        QCOMPARE(fromEnvironment.device().id(), QByteArray("tamvex_mic"));

        WallClock clock;
        TestEnv env;
        AudioRecorder recorder(
            clock, [] { return std::make_unique<MicrophoneInput>("tamvex_mic"); }, env.paths.tempDir);
        // The HUD's level reader, every 0.06 s, for 1.5 s of the wall clock.
        QList<float> levels;
        recorder.start();
        QEventLoop loop;
        std::function<void()> read = [&] {
            levels.append(recorder.readLevel());
            clock.schedule(0.06, read);
        };
        clock.schedule(0.06, read);
        clock.schedule(1.5, [&] { loop.quit(); });
        loop.exec();
        const auto result = recorder.stop();
        const double expected = toDb(toneAmplitude / std::sqrt(2.0));
        // Readings on the wall clock can fall on a window with no new samples (-160) or on one
        // shorter than the tone's period (up to 3 dB high): the typical reading is the tone's level.
        QList<float> heard;
        for (float level : levels)
            if (level > -100)
                heard.append(level);
        std::sort(heard.begin(), heard.end());
        QVERIFY2(heard.size() >= 10, qPrintable(QString::number(heard.size())));
        const float median = heard[heard.size() / 2];
        QVERIFY2(std::abs(median - expected) < 1.0, qPrintable(QString::number(median)));
        QVERIFY2(result.peakPower >= expected - 1.0 && result.peakPower <= expected + 3.5,
                 qPrintable(QString::number(result.peakPower)));
        QVERIFY(result.duration >= 1.5 && result.duration < 3.0);

        AudioFileDecoder decoded(result.url, 0);
        // The sound server hands audio over in periods, so the file and the clock may differ
        // by its buffering, never by more.
        const double seconds = decoded.durationSeconds();
        QVERIFY2(std::abs(seconds - result.duration) < 0.3, qPrintable(QString::number(seconds)));
        QVERIFY(std::abs(toDb(rms(decoded.readAll())) - expected) < 1.0);
    }
};

TAMVEX_TEST_CLASS(MicrophoneTest)
#include "MicrophoneTest.moc"
