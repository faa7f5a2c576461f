// What holds with or without whisper.cpp: what it is fed (any audio file as 16 kHz mono float),
// the thread rule, the model file check, and the refusal of a build that has no engine. The
// decoder's formats, rates, channel mixing and untouched float mono are tested with it
// (audio_codec_test); here, real speech and what the whisper reader adds.
#include "desktop/AudioTestSupport.h"
#include "support/TestMain.h"
#include "support/TestSupport.h"

#include "pipelines/AudioSamples.h"
#include "pipelines/LocalWhisperEngineCache.h"
#include "pipelines/LocalWhisperPipeline.h"
#include "pipelines/WhisperEngine.h"
#include "pipelines/WhisperEngineError.h"

#include <QTest>

using namespace tamvex;
using namespace tamvex::test;

namespace {

/// The best normalised correlation of `b` against `a` over shifts of up to `maxLag` samples,
/// measured on a window of speech.
double bestCorrelation(const std::vector<float>& a, const std::vector<float>& b, int maxLag) {
    const size_t from = 16000, count = 48000;
    double best = -1.0;
    for (int lag = -maxLag; lag <= maxLag; lag += 1) {
        double ab = 0, aa = 0, bb = 0;
        for (size_t i = from; i < from + count; ++i) {
            const long j = long(i) + lag;
            if (j < 0 || size_t(j) >= b.size() || i >= a.size())
                continue;
            ab += double(a[i]) * b[size_t(j)];
            aa += double(a[i]) * a[i];
            bb += double(b[size_t(j)]) * b[size_t(j)];
        }
        if (aa > 0 && bb > 0)
            best = std::max(best, ab / std::sqrt(aa * bb));
    }
    return best;
}

} // namespace

class WhisperRulesTest : public QObject {
    Q_OBJECT
private slots:
    void speechFilesBecomeSixteenKilohertzMono() {
        const QString wav = testData("jfk.wav");
        const QString mp3 = testData("jfk.mp3");
        if (wav.isEmpty() || mp3.isEmpty())
            QSKIP("jfk.wav or jfk.mp3 is missing from ../shared/testdata");
        const std::vector<float> fromWav = readAudioSamples(wav);
        QVERIFY2(std::abs(qint64(fromWav.size()) - 176000) <= 4, qPrintable(QString::number(fromWav.size())));
        QVERIFY(rms(fromWav) > 0.01);

        // The MP3 carries the same speech: same length within a frame, same waveform.
        const std::vector<float> fromMp3 = readAudioSamples(mp3);
        QVERIFY2(std::abs(qint64(fromMp3.size()) - 176000) <= 1200, qPrintable(QString::number(fromMp3.size())));
        QVERIFY(bestCorrelation(fromWav, fromMp3, 1200) > 0.9);
    }

    void unreadableFilesFailWithTheDecodersWords() {
        QTemporaryDir dir;
        QVERIFY(writeFile(dir.filePath("notes.wav"), "This is a shopping list, not a recording.\n"));
        const auto e = thrown<WhisperEngineError>([&] { readAudioSamples(dir.filePath("notes.wav")); });
        QVERIFY(e && e->kind() == WhisperEngineError::Kind::audioReadFailed);
        QVERIFY2(e->description().contains("Invalid data found"), qPrintable(e->description()));
        QCOMPARE(e->description(), "Не получилось прочитать аудио: " + e->detail());
    }

    void threadsLeaveTwoProcessorsAndStopAtEight() {
        for (const auto& [processors, threads] : {std::pair{1, 1}, {3, 1}, {5, 3}, {10, 8}, {32, 8}})
            QCOMPARE(whisperThreadCount(processors), threads);
    }

    void onlyFilesWithTheGgmlMagicPassAsModels() {
        QTemporaryDir dir;
        QString why;
        QVERIFY(!looksLikeWhisperModel(dir.filePath("missing.bin"), &why));
        QVERIFY2(why.contains("No such file"), qPrintable(why));
        QVERIFY(writeFile(dir.filePath("be.bin"), "ggml-but-big-endian"));
        QVERIFY(!looksLikeWhisperModel(dir.filePath("be.bin"), &why));
        QVERIFY2(why.contains("не является моделью whisper.cpp"), qPrintable(why));
        if (const QString model = testData("for-tests-ggml-tiny.bin"); !model.isEmpty())
            QVERIFY(looksLikeWhisperModel(model));
    }

    void withoutTheLibraryTheLocalPipelineSaysSoInRussian() {
#ifdef TAMVEX_HAVE_WHISPER
        QSKIP("this build has whisper.cpp; the refusal belongs to builds without it");
#else
        QVERIFY(!WhisperEngine::isAvailable());
        QTemporaryDir dir;
        LocalWhisperEngineCache cache([&](WhisperModel) { return dir.filePath("absent.bin"); });
        LocalWhisperPipeline pipeline(WhisperModel::largeV3TurboQ5, cache);
        const auto e = thrown<WhisperEngineError>([&] { syncWait(pipeline.process(dir.filePath("audio.m4a"))); });
        QVERIFY(e.has_value());
        QCOMPARE(e->kind(), WhisperEngineError::Kind::engineUnavailable);
        QVERIFY(e->description().contains("нет локального распознавания"));
#endif
    }
};

TAMVEX_TEST_CLASS(WhisperRulesTest)
#include "WhisperRulesTest.moc"
