// What whisper is fed: any audio file as 16 kHz mono float. The decoder's formats, rates, channel
// mixing and untouched float mono are tested with it (audio_codec_test); here, real speech and
// what the whisper reader adds.
#include "support/TestMain.h"
#include "desktop/AudioTestSupport.h"
#include "support/TestSupport.h"

#include "pipelines/AudioSamples.h"
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

class AudioSamplesTest : public QObject {
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
        const QString prefix = "Не получилось прочитать аудио: ";
        const auto e = thrown<WhisperEngineError>([&] { readAudioSamples(dir.filePath("notes.wav")); });
        QVERIFY(e && e->kind() == WhisperEngineError::Kind::audioReadFailed);
        QVERIFY2(e->description().contains("Invalid data found"), qPrintable(e->description()));
        QCOMPARE(e->description(), prefix + e->detail());
    }
};

TAMVEX_TEST_CLASS(AudioSamplesTest)
#include "AudioSamplesTest.moc"
