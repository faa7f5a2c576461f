#include "support/TestSupport.h"

#include "pipelines/AudioSamples.h"
#include "pipelines/WhisperEngineError.h"
#include "platform/AudioDecoder.h"
#include "platform/AudioEncoder.h"

#include <QDataStream>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>

#include <cmath>
#include <cstring>
#include <functional>

using namespace tamvex;
using namespace tamvex::test;

namespace {

/// A RIFF WAV file of little-endian samples; `format` 1 is PCM, 3 is IEEE float.
QByteArray wavFile(quint16 format, quint16 channels, quint32 rate, quint16 bits, const QByteArray& data) {
    QByteArray out;
    QDataStream s(&out, QIODevice::WriteOnly);
    s.setByteOrder(QDataStream::LittleEndian);
    s.writeRawData("RIFF", 4);
    s << quint32(36 + data.size());
    s.writeRawData("WAVEfmt ", 8);
    s << quint32(16) << format << channels << rate << quint32(rate * channels * bits / 8)
      << quint16(channels * bits / 8) << bits;
    s.writeRawData("data", 4);
    s << quint32(data.size());
    s.writeRawData(data.constData(), int(data.size()));
    return out;
}

QString write(const QTemporaryDir& dir, const QString& name, const QByteArray& bytes) {
    const QString path = dir.filePath(name);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        return {};
    return path;
}

double rms(const std::vector<float>& s, size_t from, size_t count) {
    double sum = 0;
    for (size_t i = from; i < from + count && i < s.size(); ++i)
        sum += double(s[i]) * s[i];
    return std::sqrt(sum / double(count));
}

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

WhisperEngineError readError(const QString& path) {
    try {
        readAudioSamples(path);
    } catch (const WhisperEngineError& e) {
        return e;
    }
    return WhisperEngineError::transcriptionFailed(); // a read that did not fail
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
        QVERIFY(rms(fromWav, 0, fromWav.size()) > 0.01);

        // The MP3 carries the same speech: same length within a frame, same waveform.
        const std::vector<float> fromMp3 = readAudioSamples(mp3);
        QVERIFY2(std::abs(qint64(fromMp3.size()) - 176000) <= 1200, qPrintable(QString::number(fromMp3.size())));
        QVERIFY(bestCorrelation(fromWav, fromMp3, 1200) > 0.9);
    }

    void recorderStyleStereoM4aIsResampledAndMixedDown() {
        const QString wav = testData("jfk.wav");
        const QString ffmpeg = QStandardPaths::findExecutable("ffmpeg");
        if (wav.isEmpty() || ffmpeg.isEmpty())
            QSKIP("needs ../shared/testdata/jfk.wav and the ffmpeg program to make the m4a");
        QTemporaryDir dir;
        const QString m4a = dir.filePath("stereo.m4a");
        // -nostdin: ffmpeg otherwise reads the terminal for its keys, and a background job that
        // does so is stopped by the shell until the test times out.
        QCOMPARE(QProcess::execute(ffmpeg, {"-nostdin", "-v", "error", "-y", "-i", wav, "-ar", "44100", "-af",
                                            "pan=stereo|c0=c0|c1=c0", "-c:a", "aac", "-b:a", "128k", m4a}),
                 0);
        const std::vector<float> original = readAudioSamples(wav);
        const std::vector<float> samples = readAudioSamples(m4a);
        // 16000 × 11.0 s, give or take what the AAC frames and the resampler hold back.
        QVERIFY2(std::abs(qint64(samples.size()) - 176000) <= 1100, qPrintable(QString::number(samples.size())));
        QVERIFY(bestCorrelation(original, samples, 1100) > 0.9);
        // Two equal channels are averaged, not summed: the level stays.
        const double ratio = rms(samples, 0, samples.size()) / rms(original, 0, original.size());
        QVERIFY2(ratio > 0.8 && ratio < 1.25, qPrintable(QString::number(ratio)));
    }

    void recordingsInTheRecordersOwnFormatAreRead() {
        const QString wav = testData("jfk.wav");
        if (wav.isEmpty())
            QSKIP("jfk.wav is missing from ../shared/testdata");
        // 44.1 kHz mono AAC in .m4a, written by the encoder the recorder uses.
        QTemporaryDir dir;
        const QString m4a = dir.filePath("recording.m4a");
        const std::vector<float> at44k = AudioFileDecoder(wav, AudioFileEncoder::sampleRate).readAll();
        AudioFileEncoder encoder(m4a);
        encoder.write(at44k.data(), qsizetype(at44k.size()));
        encoder.finish();
        const std::vector<float> original = readAudioSamples(wav);
        const std::vector<float> samples = readAudioSamples(m4a);
        QVERIFY2(std::abs(qint64(samples.size()) - 176000) <= 1100, qPrintable(QString::number(samples.size())));
        QVERIFY(bestCorrelation(original, samples, 1100) > 0.9);
    }

    void sixteenKilohertzMonoFloatIsReadBitForBit() {
        QTemporaryDir dir;
        std::vector<float> written;
        for (int i = 0; i < 40000; ++i)
            written.push_back(float(std::sin(i * 0.01) * 0.7 + (i % 7) * 1e-7));
        written[10] = 1.5f; // past full scale: a converter would be free to clip or dither it
        written[11] = -2.25f;
        const QByteArray data(reinterpret_cast<const char*>(written.data()), qsizetype(written.size() * 4));
        const QString path = write(dir, "float.wav", wavFile(3, 1, 16000, 32, data));
        const std::vector<float> read = readAudioSamples(path);
        QCOMPARE(read.size(), written.size());
        QVERIFY(std::memcmp(read.data(), written.data(), written.size() * 4) == 0);
    }

    void filesWithNoFramesGiveNoSamples() {
        QTemporaryDir dir;
        QVERIFY(readAudioSamples(write(dir, "empty-float.wav", wavFile(3, 1, 16000, 32, {}))).empty());
        QVERIFY(readAudioSamples(write(dir, "empty-pcm.wav", wavFile(1, 2, 44100, 16, {}))).empty());
    }

    void unreadableFilesFailWithTheDecodersWords() {
        QTemporaryDir dir;
        const QString prefix = "Не получилось прочитать аудио: ";
        struct Case {
            QString path;
            QString words;
        };
        const QList<Case> cases{
            {write(dir, "zero.m4a", {}), "Invalid data found when processing input"},
            {write(dir, "notes.wav", "This is a shopping list, not a recording.\n"), "Invalid data found"},
            {dir.filePath("missing.m4a"), "No such file or directory"},
        };
        for (const Case& c : cases) {
            const WhisperEngineError e = readError(c.path);
            QCOMPARE(e.kind(), WhisperEngineError::Kind::audioReadFailed);
            QVERIFY2(e.description().startsWith(prefix) && e.description().contains(c.words),
                     qPrintable(e.description()));
            QCOMPARE(e.description(), prefix + e.detail());
        }
    }
};

QTEST_GUILESS_MAIN(AudioSamplesTest)
#include "AudioSamplesTest.moc"
