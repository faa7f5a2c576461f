#include "support/TestMain.h"
#include "desktop/AudioTestSupport.h"
#include "support/TestSupport.h"

#include "cli/MicTest.h"
#include "platform/AudioDecoder.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;

/// `tamvex mic-test` end to end on the wall clock, with files standing in for the microphone.
class MicTestCliTest : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;

    CommandOutput run(const QStringList& args) {
        return captureCommand([&](QTextStream& out, QTextStream& err) { return runMicTest(args, out, err); });
    }

    /// The peak of readings of a sine of `amplitude`: its RMS, or up to the amplitude itself when
    /// a reading covered less than a period, as when the wall clock fired two reads close together.
    static bool sineLevel(double peakDb, double amplitude) {
        return peakDb > toDb(amplitude / std::sqrt(2.0)) - 1.0 && peakDb < toDb(amplitude) + 0.5;
    }

private slots:
    void initTestCase() {
        // The recorder writes into the system's temporary folder: make it ours.
        qputenv("TMPDIR", m_dir.path().toLocal8Bit());
        QVERIFY(writeWav(m_dir.filePath("loud.wav"), sine(300, 0.42, 5.0, 16000), 16000, 1));
        QVERIFY(writeWav(m_dir.filePath("quiet.wav"), sine(300, 0.0045, 5.0, 48000), 48000, 1));
    }

    void aLoudRecordingIsKeptAndReportedAsJson() {
        const CommandOutput r = run({"--seconds", "3.2", "--audio-input", m_dir.filePath("loud.wav"), "--json"});
        QCOMPARE(r.code, 0);
        QJsonParseError parseError;
        const QJsonObject report = QJsonDocument::fromJson(r.out.toUtf8(), &parseError).object();
        QVERIFY2(parseError.error == QJsonParseError::NoError, qPrintable(r.out));
        // At least the time asked for, which is past the 3 s default; how much more depends
        // on the machine's load, so no upper bound.
        const double duration = report["duration_sec"].toDouble();
        QVERIFY2(duration >= 3.2, qPrintable(r.out));
        QVERIFY2(sineLevel(report["peak_db"].toDouble(), 0.42), qPrintable(r.out));
        QCOMPARE(report["dropped"].toBool(), false);
        QCOMPARE(report["message"].toString(), QString());
        const QString file = report["file"].toString();
        QVERIFY2(QFileInfo(file).fileName().startsWith("sorvel-") && QFileInfo(file).dir() == QDir(m_dir.path()),
                 qPrintable(file));
        QCOMPARE(report["size_bytes"].toInteger(), QFileInfo(file).size());
        // The file holds the whole 3.2 s waited for. The duration also counts opening the input
        // and the encoder, which on a busy machine can take a good part of a second, so it
        // bounds the file's length only from above.
        const double fileSeconds = AudioFileDecoder(file, 0).durationSeconds();
        QVERIFY2(
            fileSeconds >= 3.2 - 0.05 && fileSeconds < duration + 0.1,
            qPrintable(QString::number(fileSeconds) + " s in the file, " + QString::number(duration) + " s reported"));
    }

    void aQuietRecordingShowsTheRuleAndTheMessage() {
        const CommandOutput r = run({"--audio-input", m_dir.filePath("quiet.wav"), "--seconds", "1.3"});
        QCOMPARE(r.code, 0);
        QVERIFY2(r.err.startsWith("Запись 1.3 с…\n"), qPrintable(r.err));
        const auto peak = QRegularExpression("Пик: (-[0-9]+\\.[0-9]) дБ").match(r.out);
        QVERIFY2(peak.hasMatch() && sineLevel(peak.captured(1).toDouble(), 0.0045), qPrintable(r.out));
        // "suspicious" holds under 3 s, and a loaded machine may stretch the wall-clock recording past that.
        const auto duration = QRegularExpression("Длительность: ([0-9.]+) с").match(r.out);
        QVERIFY2(duration.hasMatch(), qPrintable(r.out));
        const QString reasons = duration.captured(1).toDouble() < 3.0 ? "quiet, suspicious" : "quiet";
        QVERIFY2(r.out.contains("Итог: запись была бы отброшена (" + reasons +
                                "): «Слишком тихо — говори ближе к микрофону»"),
                 qPrintable(r.out));
        QVERIFY(r.out.startsWith("Файл: " + m_dir.path()));
    }

    void wrongCommandLinesAndMissingFilesFailClearly() {
        for (const QStringList& args : {QStringList{"--seconds", "abc"}, QStringList{"--seconds", "0"},
                                        QStringList{"--seconds"}, QStringList{"--loud"}}) {
            const CommandOutput r = run(args);
            QCOMPARE(r.code, 2);
            QVERIFY2(r.err.startsWith("mic-test: ") && r.err.contains("Использование: tamvex mic-test"), qPrintable(r.err));
            QVERIFY(r.out.isEmpty());
        }
        const CommandOutput missing = run({"--audio-input", m_dir.filePath("absent.wav"), "--seconds", "0.2"});
        QCOMPARE(missing.code, 1);
        QVERIFY2(missing.err.startsWith("Не удалось начать запись: Не удалось начать запись: не удалось прочитать звуковой файл"),
                 qPrintable(missing.err));
    }
};

TAMVEX_TEST_CLASS(MicTestCliTest)
#include "MicTestCliTest.moc"
