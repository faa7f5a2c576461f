#include "support/TestMain.h"
#include "support/TestSupport.h"

#include "desktop/AudioTestSupport.h"

#include "cli/ModelCommands.h"
#include "pipelines/local/AudioSamples.h"
#include "pipelines/local/LocalWhisperEngineCache.h"
#include "pipelines/local/LocalWhisperPipeline.h"
#include "pipelines/local/WhisperEngine.h"
#include "pipelines/local/WhisperEngineError.h"
#include "pipelines/local/LocalEngine.h"
#include "pipelines/local/LocalModelFile.h"
#include "pipelines/local/ModelDownloader.h"
#include "pipelines/local/ModelSelfTest.h"
#include "pipelines/local/ParakeetEngine.h"
#include "pipelines/local/ParakeetEngineError.h"
#include "pipelines/local/SpeechDetector.h"

#include <QDir>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

using namespace tamvex;
using namespace tamvex::test;

namespace {

/// A file of the ggml magic followed by these header words, little-endian.
QByteArray ggmlHeader(const QList<qint32>& words) {
    QByteArray bytes("lmgg");
    for (qint32 w : words) {
        char le[4];
        qToLittleEndian(w, le);
        bytes.append(le, 4);
    }
    return bytes;
}

/// Pink noise (Paul Kellet's filter over seeded white noise) at `dbfs` RMS.
std::vector<float> pinkNoise(double seconds, double dbfs) {
    QRandomGenerator random(25);
    std::vector<float> out(size_t(seconds * whisperSampleRate));
    double b0 = 0, b1 = 0, b2 = 0;
    for (float& s : out) {
        const double white = random.generateDouble() * 2.0 - 1.0;
        b0 = 0.99765 * b0 + white * 0.0990460;
        b1 = 0.96300 * b1 + white * 0.2965164;
        b2 = 0.57000 * b2 + white * 1.0526913;
        s = float(b0 + b1 + b2 + white * 0.1848);
    }
    const double gain = std::pow(10.0, dbfs / 20.0) / rms(out);
    for (float& s : out)
        s = float(s * gain);
    return out;
}

CommandOutput transcribeLocal(const QStringList& args) {
    return captureCommand([&](QTextStream& out, QTextStream& err) { return runTranscribeLocal(args, out, err); });
}

int countLines(const LogCapture& log, const QString& prefix) {
    int n = 0;
    // Lines come as "info: text" or "error: text".
    for (const QString& line : log.lines())
        n += line.mid(line.indexOf(": ") + 2).startsWith(prefix) ? 1 : 0;
    return n;
}

} // namespace

class LocalRoadTest : public QObject {
    Q_OBJECT
private:
    QTemporaryDir dir;
    QString silence;
    QString noise;

    /// Why the local road can't run here, or empty when it can.
    static QString missing(const QStringList& files, bool parakeet) {
        if (!SpeechDetector::isAvailable() || (parakeet && !ParakeetEngine::isAvailable()))
            return "this build has no whisper.cpp with Parakeet";
        for (const QString& f : files)
            if (testData(f).isEmpty())
                return "needs ../shared/testdata/" + f;
        return {};
    }

private slots:
    void initTestCase() {
        silence = dir.filePath("silence.wav");
        noise = dir.filePath("pink-noise.wav");
        QVERIFY(writeWav(silence, std::vector<float>(10 * whisperSampleRate, 0.0f), whisperSampleRate, 1));
        const std::vector<float> pink = pinkNoise(10.0, -30.0);
        QVERIFY(std::abs(toDb(rms(pink)) + 30.0) < 0.01);
        QVERIFY(writeWav(noise, pink, whisperSampleRate, 1));
    }

    void modelKindsAreToldApartByTheHeader() {
        // Header words as the published files and whisper.cpp's loaders have them.
        const QList<qint32> parakeetV3{8192, 5000, 1024, 8, 24, 128, 2002, 512, 8, 256, 9, 640, 2, 5, 10, 128, 257};
        const QList<qint32> turbo{51866, 1500, 1280, 20, 32, 448, 1280, 20, 4, 128, 2008, 128, 201, 0, 0, 0, 0};
        QList<qint32> broken = parakeetV3;
        broken[16] = 300; // a filterbank that does not fit n_fft
        const struct {
            const char* name;
            QByteArray bytes;
            QString testFile;
            LocalModelKind kind;
        } rows[] = {
            {"Parakeet v3 header", ggmlHeader(parakeetV3), {}, LocalModelKind::parakeet},
            {"large-v3-turbo header", ggmlHeader(turbo), {}, LocalModelKind::whisper},
            {"inconsistent header", ggmlHeader(broken), {}, LocalModelKind::unknown},
            {"magic only", QByteArray("lmgg"), {}, LocalModelKind::unknown},
            {"random bytes", QByteArray(4096, '\x5a'), {}, LocalModelKind::unknown},
            {"empty file", QByteArray(), {}, LocalModelKind::unknown},
            {"toy Parakeet", {}, "for-tests-ggml-parakeet-tdt.bin", LocalModelKind::parakeet},
            {"whisper test model", {}, "for-tests-ggml-tiny.bin", LocalModelKind::whisper},
            {"Silero detector", {}, "ggml-silero-v6.2.0.bin", LocalModelKind::speechDetector},
            {"a WAV file", {}, "jfk.wav", LocalModelKind::unknown},
        };
        for (const auto& row : rows) {
            QString path = row.testFile.isEmpty() ? dir.filePath(row.name) : testData(row.testFile);
            if (path.isEmpty())
                continue; // that test file is absent here; the written rows still run
            if (row.testFile.isEmpty())
                QVERIFY(writeFile(path, row.bytes));
            QString why;
            QCOMPARE(localModelKind(path, &why), row.kind);
            QVERIFY2(why.isEmpty() == (row.kind != LocalModelKind::unknown), row.name);
        }
        QString why;
        QCOMPARE(localModelKind(dir.filePath("absent.bin"), &why), LocalModelKind::unknown);
        QVERIFY(why.endsWith("absent.bin"));
    }

    void speechIsCutOutAndJoinedWithShortPauses() {
        std::vector<float> samples(48000);
        for (size_t i = 0; i < samples.size(); ++i)
            samples[i] = float(i);
        const qint64 gap = whisperSampleRate / 10;
        const struct {
            const char* name;
            std::vector<SpeechSpan> spans;
            qint64 size;
            float first;
            float last;
        } rows[] = {
            {"none", {}, 0, 0, 0},
            {"one", {{100, 200}}, 100, 100, 199},
            {"two, a pause between", {{0, 10}, {1000, 1010}}, 20 + gap, 0, 1009},
            {"past the end is clamped", {{47990, 60000}}, 10, 47990, 47999},
            {"empty and inverted spans are skipped", {{5, 5}, {300, 200}, {-50, 3}}, 3, 0, 2},
        };
        for (const auto& row : rows) {
            const std::vector<float> kept = SpeechDetector::keepSpeech(samples, row.spans);
            QVERIFY2(qint64(kept.size()) == row.size, row.name);
            if (!kept.empty()) {
                QCOMPARE(kept.front(), row.first);
                QCOMPARE(kept.back(), row.last);
            }
        }
        // The pause is silence.
        const std::vector<float> two = SpeechDetector::keepSpeech(samples, {{0, 10}, {1000, 1010}});
        QCOMPARE(two[10], 0.0f);
        QCOMPARE(two[size_t(9 + gap)], 0.0f);
    }

    void detectorFindsSpeechButNotSilenceOrNoise() {
        if (const QString why = missing({"ggml-silero-v6.2.0.bin", "jfk.wav"}, false); !why.isEmpty())
            QSKIP(qPrintable(why));
        QElapsedTimer timer;
        timer.start();
        SpeechDetector detector(testData("ggml-silero-v6.2.0.bin"));
        const std::vector<float> speech = readAudioSamples(testData("jfk.wav"));
        const std::vector<SpeechSpan> spans = detector.detect(speech);
        QVERIFY(!spans.empty());
        qint64 previousEnd = 0;
        for (const SpeechSpan& s : spans) {
            QVERIFY(s.begin >= previousEnd && s.end > s.begin && s.end <= qint64(speech.size()));
            previousEnd = s.end;
        }
        // The speech starts after JFK's first breath and covers most of the clip.
        qint64 covered = 0;
        for (const SpeechSpan& s : spans)
            covered += s.end - s.begin;
        QVERIFY2(covered > qint64(speech.size()) / 2, qPrintable(QString::number(covered)));

        QVERIFY(detector.detect(readAudioSamples(silence)).empty());
        QVERIFY(detector.detect(readAudioSamples(noise)).empty());
        QVERIFY(detector.detect({}).empty());
        qInfo("detector on 31 s of audio with loading: %lld ms", timer.elapsed());

        // Not a detector file: refused before whisper.cpp sees it.
        const auto e = thrown<SpeechDetectorError>([] { SpeechDetector d(testData("jfk.wav")); });
        QVERIFY(e && e->description().startsWith("Не получилось загрузить детектор речи: "));
    }

    void parakeetEngineRunsItsModelAndRefusesOtherFiles() {
        if (const QString why =
                missing({"for-tests-ggml-parakeet-tdt.bin", "for-tests-ggml-tiny.bin", "jfk.wav"}, true);
            !why.isEmpty())
            QSKIP(qPrintable(why));
        LogCapture log;
        ParakeetEngine engine(testData("for-tests-ggml-parakeet-tdt.bin"));
        const std::vector<float> speech = readAudioSamples(testData("jfk.wav"));
        QVERIFY(log.has("Parakeet context loaded from " + testData("for-tests-ggml-parakeet-tdt.bin")));
        engine.transcribe(speech);
        QCOMPARE(countLines(log, "Parakeet: parakeet_full ok in "), 1);

        // No samples: the library is not called.
        QCOMPARE(engine.transcribe(std::vector<float>{}), QString());
        QVERIFY(log.has("Parakeet: empty samples buffer — returning empty text"));
        QCOMPARE(countLines(log, "Parakeet: parakeet_full ok in "), 1);

        // A raised stop makes the library give up at its first step; the engine stays usable.
        const std::atomic<bool> stop{true};
        const auto stopped = thrown<ParakeetEngineError>([&] { engine.transcribe(speech, &stop); });
        QVERIFY(stopped && stopped->kind() == ParakeetEngineError::Kind::cancelled);
        QCOMPARE(countLines(log, "Parakeet: parakeet_full ok in "), 1);
        engine.transcribe(speech);
        QCOMPARE(countLines(log, "Parakeet: parakeet_full ok in "), 2);

        const QString random = dir.filePath("random.bin");
        QByteArray bytes("lmgg");
        for (int i = 0; i < 4096; ++i)
            bytes.append(char(QRandomGenerator::global()->bounded(256)));
        QVERIFY(writeFile(random, bytes));
        for (const QString& path : {testData("for-tests-ggml-tiny.bin"), random, dir.filePath("absent.bin")}) {
            const auto e = thrown<ParakeetEngineError>([&] { ParakeetEngine other(path); });
            QVERIFY2(e && e->kind() == ParakeetEngineError::Kind::modelLoadFailed, qPrintable(path));
            QVERIFY(e->description().startsWith("Не получилось загрузить модель Parakeet: "));
        }
    }

    void cacheLoadsEitherKindAndTheCommandTakesBoth() {
        if (const QString why =
                missing({"for-tests-ggml-parakeet-tdt.bin", "for-tests-ggml-tiny.bin", "speech-ru-16k.wav"}, true);
            !why.isEmpty())
            QSKIP(qPrintable(why));
        QString where = testData("for-tests-ggml-parakeet-tdt.bin");
        LocalWhisperEngineCache cache([&](WhisperModel) { return where; });
        const auto parakeet = syncWait(cache.engine(WhisperModel::largeV3TurboQ5), 60000);
        QCOMPARE(parakeet->kind(), LocalModelKind::parakeet);
        QCOMPARE(syncWait(cache.engine(WhisperModel::largeV3TurboQ5)), parakeet);
        // Another model replaces it, whatever its kind.
        where = testData("for-tests-ggml-tiny.bin");
        QCOMPARE(syncWait(cache.engine(WhisperModel::mediumQ5), 60000)->kind(), LocalModelKind::whisper);
        where = testData("ggml-silero-v6.2.0.bin");
        if (!where.isEmpty()) {
            const auto e = thrown<WhisperEngineError>([&] { syncWait(cache.engine(WhisperModel::largeV3TurboQ5)); });
            QVERIFY(e && e->kind() == WhisperEngineError::Kind::modelLoadFailed);
        }

        const QString speech = testData("speech-ru-16k.wav");
        for (const QString& model :
             {testData("for-tests-ggml-parakeet-tdt.bin"), testData("for-tests-ggml-tiny.bin")}) {
            const CommandOutput ok = transcribeLocal({speech, "--model", model, "--no-vad"});
            QVERIFY2(ok.code == 0, qPrintable(ok.err));
        }
        const CommandOutput refused = transcribeLocal({speech, "--model", speech, "--no-vad"});
        QCOMPARE(refused.code, 1);
        QVERIFY2(refused.err.startsWith("Не получилось загрузить модель: "), qPrintable(refused.err));
    }

    // The bundled sample through the model's engine, once per model and backend; a model that
    // fails says why and is tried again only when asked.
    void selfTestMeasuresOncePerBackendAndSaysWhyItFailed() {
        if (const QString why = missing({"for-tests-ggml-parakeet-tdt.bin"}, true); !why.isEmpty())
            QSKIP(qPrintable(why));
        QTemporaryDir data;
        const QString junk = data.filePath("junk.bin");
        QVERIFY(writeFile(junk, QByteArray(4096, 'x')));
        LocalWhisperEngineCache cache([&](WhisperModel m) {
            return m == WhisperModel::parakeetV3Q4 ? testData("for-tests-ggml-parakeet-tdt.bin") : junk;
        });
        const QString record = data.filePath("model-speeds.json");
        WallClock clock;
        std::optional<ModelSpeed> measured;
        {
            ModelSelfTest selfTest(cache, ModelSpeedRecord(record), clock, "CPU");
            QSignalSpy finished(&selfTest, &ModelSelfTest::finished);
            // A load that fails at once may end the measurement inside request(): count endings only.
            selfTest.request(WhisperModel::parakeetV3Q4);
            selfTest.request(WhisperModel::baseQ5_1);
            selfTest.request(WhisperModel::parakeetV3Q4); // queued or kept: not measured twice
            QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 2, 60000);
            measured = selfTest.speed(WhisperModel::parakeetV3Q4);
            QVERIFY(measured && measured->elapsedSeconds > 0.0);
            QVERIFY2(std::abs(measured->speechSeconds - 10.56) < 0.05, qPrintable(QString::number(measured->speechSeconds)));
            QVERIFY(!selfTest.speed(WhisperModel::baseQ5_1));
            QVERIFY2(selfTest.failure(WhisperModel::baseQ5_1).startsWith("Не получилось загрузить модель"),
                     qPrintable(selfTest.failure(WhisperModel::baseQ5_1)));
            selfTest.request(WhisperModel::baseQ5_1);
            QVERIFY(!selfTest.isPending(WhisperModel::baseQ5_1));
            QCOMPARE(finished.size(), 2);
            selfTest.request(WhisperModel::baseQ5_1, true);
            QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 3, 60000);
            QCOMPARE(finished.at(2).at(0).value<WhisperModel>(), WhisperModel::baseQ5_1);
            QVERIFY(!selfTest.failure(WhisperModel::baseQ5_1).isEmpty());
        }
        // The next run finds the speed kept and measures nothing; a graphics device measures anew.
        ModelSelfTest next(cache, ModelSpeedRecord(record), clock, "CPU");
        QCOMPARE(next.speed(WhisperModel::parakeetV3Q4), measured);
        next.request(WhisperModel::parakeetV3Q4);
        QVERIFY(!next.isPending(WhisperModel::parakeetV3Q4));
        ModelSelfTest gpu(cache, ModelSpeedRecord(record), clock, "Vulkan0 (Radeon)");
        QSignalSpy gpuFinished(&gpu, &ModelSelfTest::finished);
        gpu.request(WhisperModel::parakeetV3Q4);
        QTRY_COMPARE_WITH_TIMEOUT(gpuFinished.size(), 1, 60000);
        QVERIFY(ModelSpeedRecord(record).speed(WhisperModel::parakeetV3Q4, "Vulkan0 (Radeon)"));

        // The same from the terminal: measured once, then the kept figure; a missing model says how to get it.
        ModelDownloader downloader(Paths::under(data.filePath("cli")), clock);
        QVERIFY(QDir().mkpath(downloader.modelsDirectory()));
        QVERIFY(QFile::copy(testData("for-tests-ggml-parakeet-tdt.bin"), downloader.localURL(WhisperModel::parakeetV3Q4)));
        auto speed = [&](const QStringList& args) {
            return captureCommand([&](QTextStream& out, QTextStream& err) { return runModelCommand(args, out, err, downloader); });
        };
        for (const bool measuredNow : {true, false}) {
            const CommandOutput run = speed({"speed", "ggml-parakeet-tdt-0.6b-v3-q4_0", "--json"});
            QVERIFY2(run.code == 0, qPrintable(run.err));
            const QJsonObject o = QJsonDocument::fromJson(run.out.toUtf8()).object();
            QCOMPARE(o.value("measured_now").toBool(), measuredNow);
            QVERIFY(o.value("finishes_within_limit").toBool() && o.value("elapsed_s").toDouble() > 0.0);
        }
        const CommandOutput missingModel = speed({"speed", "ggml-base-q5_1"});
        QCOMPARE(missingModel.code, 1);
        QVERIFY2(missingModel.err.endsWith("Сначала: tamvex model download ggml-base-q5_1\n"), qPrintable(missingModel.err));
        QCOMPARE(speed({"status", "--again"}).code, 2);
    }

    void silenceAndNoiseNeverReachTheRecogniser() {
        if (const QString why = missing({"for-tests-ggml-parakeet-tdt.bin", "ggml-silero-v6.2.0.bin", "jfk.wav"}, true);
            !why.isEmpty())
            QSKIP(qPrintable(why));
        const QString model = testData("for-tests-ggml-parakeet-tdt.bin");
        LocalWhisperEngineCache cache([&](WhisperModel) { return model; }, testData("ggml-silero-v6.2.0.bin"));
        LocalWhisperPipeline pipeline(WhisperModel::largeV3TurboQ5, cache);
        LogCapture log;
        for (const QString& audio : {silence, noise}) {
            const SpeechResult result = syncWait(pipeline.process(audio), 60000);
            QCOMPARE(result.text, QString());
            QVERIFY(!result.usage);
        }
        QCOMPARE(countLines(log, "Speech detector: no speech in 10.00s"), 2);
        QVERIFY(log.hasPrefix("Parakeet: read 160000 samples (~10.00s @ 16kHz), peak=0.0000"));
        QCOMPARE(countLines(log, "Parakeet: parakeet_full"), 0);

        // Speech goes through, cut to its segments.
        syncWait(pipeline.process(testData("jfk.wav")), 60000);
        QCOMPARE(countLines(log, "Parakeet: parakeet_full ok in "), 1);
        QVERIFY(log.hasPrefix("Speech detector: "));
        QCOMPARE(countLines(log, "Speech detector loaded from "), 1);

        // A dictation given up on stops the recogniser.
        Cancellation gaveUp;
        gaveUp.cancel();
        const auto stopped =
            thrown<ParakeetEngineError>([&] { syncWait(pipeline.process(testData("jfk.wav"), gaveUp), 60000); });
        QVERIFY(stopped && stopped->kind() == ParakeetEngineError::Kind::cancelled);
        QCOMPARE(countLines(log, "Parakeet: parakeet_full ok in "), 1);

        // Turned off, the whole recording is recognised.
        LocalWhisperPipeline unfiltered(WhisperModel::largeV3TurboQ5, cache, false);
        syncWait(unfiltered.process(silence), 60000);
        QCOMPARE(countLines(log, "Parakeet: parakeet_full ok in "), 2);

        // Without the detector's file the road runs as before, and says so once.
        LocalWhisperEngineCache bare([&](WhisperModel) { return model; }, dir.filePath("no-detector.bin"));
        LocalWhisperPipeline plain(WhisperModel::largeV3TurboQ5, bare);
        syncWait(plain.process(silence), 60000);
        syncWait(plain.process(noise), 60000);
        QCOMPARE(countLines(log, "Parakeet: parakeet_full ok in "), 4);
        QCOMPARE(countLines(log, "Speech detector: no file at "), 1);

        // The command line uses the detector it is given.
        const CommandOutput quiet =
            transcribeLocal({silence, "--model", model, "--vad", testData("ggml-silero-v6.2.0.bin")});
        QCOMPARE(quiet.code, 0);
        QCOMPARE(quiet.out, QString("\n"));
        QCOMPARE(countLines(log, "Parakeet: parakeet_full ok in "), 4);
    }
};

TAMVEX_TEST_CLASS(LocalRoadTest)
#include "LocalRoadTest.moc"
