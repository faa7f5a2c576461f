#include "desktop/AudioTestSupport.h"
#include "support/ProcessFixtures.h"
#include "support/TestMain.h"

#include "desktop/AudioInputMicrophone.h"
#include "desktop/AudioRecorder.h"
#include "platform/AudioDecoder.h"

#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>

#include <algorithm>

#include <sys/stat.h>

using namespace tamvex;
using namespace tamvex::test;

namespace {
constexpr double toneAmplitude = 0.3; // RMS -13.5 dBFS
}

/// Records for real through Qt Multimedia from a private PulseAudio server whose only
/// microphone is a pipe source. FFmpeg speaks a tone into its FIFO in real time (-re): the pipe
/// source takes whatever arrives, so the pace is the speaker's.
class MicrophoneTest : public QObject {
    Q_OBJECT
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

        const QString tone = QString("aevalsrc=%1*sin(2*PI*440*t):s=44100").arg(toneAmplitude);
        m_speaker.start("ffmpeg", {"-nostdin", "-loglevel", "error", "-re", "-f", "lavfi", "-i", tone, "-f", "s16le",
                                   "-ac", "1", "-y", fifo()});
        return m_speaker.waitForStarted(5000) ? QString() : "ffmpeg did not start: " + m_speaker.errorString();
    }

private slots:
    void initTestCase() {
        QVERIFY(m_runtime.isValid());
        m_skipReason = startServer();
        if (!m_skipReason.isEmpty())
            endProcess(m_server);
    }

    void cleanupTestCase() {
        endProcess(m_speaker);
        endProcess(m_server);
    }

    void recordsTheVirtualMicrophoneThroughQtMultimedia() {
        if (!m_skipReason.isEmpty())
            QSKIP(qPrintable("no sound server: " + m_skipReason));
        struct stat node {};
        QVERIFY2(::stat(qPrintable(fifo()), &node) == 0 && S_ISFIFO(node.st_mode),
                 qPrintable("the pipe source made no FIFO at " + fifo()));
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
