#include "desktop/AudioTestSupport.h"
#include "support/TestMain.h"
#include "support/TestSupport.h"

#include "platform/AudioDecoder.h"
#include "platform/AudioEncoder.h"

#include <QTemporaryDir>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;

namespace {
constexpr int kAacRate = 44100;

/// Encodes `samples` in uneven pieces, as a microphone would hand them over.
void encodeFile(const QString& path, const std::vector<float>& samples) {
    AudioFileEncoder encoder(path);
    size_t at = 0;
    for (size_t piece = 1; at < samples.size(); piece = piece * 3 % 2000 + 1) {
        const size_t n = std::min(piece, samples.size() - at);
        encoder.write(samples.data() + at, qsizetype(n));
        at += n;
    }
    QCOMPARE(encoder.samplesWritten(), qint64(samples.size()));
    encoder.finish();
    QVERIFY(encoder.isFinished());
}
} // namespace

class AudioCodecTest : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;

    QString path(const QString& name) const { return m_dir.filePath(name); }

private slots:
    void encodedFileIsMonoAacAtItsLengthAndLevel() {
        const auto tone = sine(440, 0.1, 2.0, kAacRate);
        encodeFile(path("tone.m4a"), tone);

        // The file's format is checked on the recorder's own files (audio_recorder_test).
        AudioFileDecoder decoder(path("tone.m4a"), kAacRate);
        QVERIFY2(std::abs(decoder.durationSeconds() - 2.0) < 0.05,
                 qPrintable(QString::number(decoder.durationSeconds())));
        const auto decoded = decoder.readAll();
        // The codec's trailing padding is cut off: the sample count matches what went in.
        QVERIFY2(std::abs(double(decoded.size()) - double(tone.size())) < 0.05 * kAacRate,
                 qPrintable(QString::number(decoded.size())));
        QVERIFY(std::abs(toDb(rms(decoded)) - toDb(rms(tone))) < 0.5);

        // The same file at whisper's rate: a third of the samples, the same level.
        AudioFileDecoder at16k(path("tone.m4a"), 16000);
        QCOMPARE(at16k.outputRate(), 16000);
        const auto low = at16k.readAll();
        QVERIFY2(std::abs(double(low.size()) - 32000.0) < 800, qPrintable(QString::number(low.size())));
        QVERIFY(std::abs(toDb(rms(low)) - toDb(rms(tone))) < 0.5);
    }

    void wavOfOtherRatesAndChannelsBecomesMonoAtTheAskedRate() {
        // 48 kHz stereo, the same tone on both sides: the mono mix keeps its level
        // (a sum of the channels would be 6 dB louder, the default -3 dB mix 3 dB louder).
        const auto tone = sine(1000, 0.25, 1.5, 48000);
        std::vector<float> stereo, opposite;
        for (float s : tone) {
            stereo.insert(stereo.end(), {s, s});
            opposite.insert(opposite.end(), {s, -s});
        }
        QVERIFY(writeWav(path("stereo48.wav"), stereo, 48000, 2));
        AudioFileDecoder decoder(path("stereo48.wav"), 16000);
        QCOMPARE(decoder.inputSampleRate(), 48000);
        QCOMPARE(decoder.inputChannels(), 2);
        QCOMPARE(decoder.codecName(), QStringLiteral("pcm_s16le"));
        QVERIFY(!decoder.inputIsFloatMono(16000));
        QCOMPARE(decoder.durationSeconds(), 1.5);
        // Read in small blocks, as the whisper reader does: nothing lost or doubled.
        std::vector<float> blocks;
        qsizetype got = 0;
        while ((got = decoder.read(blocks, 1000)) > 0)
            QVERIFY(got <= 1000);
        QVERIFY2(std::abs(double(blocks.size()) - 24000.0) <= 16, qPrintable(QString::number(blocks.size())));
        QVERIFY(std::abs(toDb(rms(blocks)) - toDb(rms(tone))) < 0.2);
        QCOMPARE(decoder.read(blocks, 1000), qsizetype(0));

        // Opposite channels cancel in a true average.
        QVERIFY(writeWav(path("opposite.wav"), opposite, 48000, 2, true));
        QVERIFY(toDb(rms(AudioFileDecoder(path("opposite.wav"), 48000).readAll())) < -80);

        // 8 kHz float mono up to 44.1 kHz; at its own rate it passes through untouched, even
        // past full scale, where a converter would be free to clip or dither.
        auto low = sine(300, 0.5, 1.0, 8000);
        low[10] = 1.5f;
        low[11] = -2.25f;
        QVERIFY(writeWav(path("mono8k.wav"), low, 8000, 1, true));
        AudioFileDecoder same(path("mono8k.wav"), 0);
        QCOMPARE(same.outputRate(), 8000);
        QVERIFY(same.inputIsFloatMono(8000));
        QVERIFY(same.readAll() == low);
        const auto up = AudioFileDecoder(path("mono8k.wav"), kAacRate).readAll();
        QVERIFY2(std::abs(double(up.size()) - kAacRate) <= 8, qPrintable(QString::number(up.size())));
        QVERIFY(std::abs(toDb(rms(up)) - toDb(rms(low))) < 0.2);
    }

    void badFilesGiveClearErrors() {
        QByteArray junk;
        for (int i = 0; i < 5000; ++i)
            junk.append(QByteArray::number(i * 7919 % 251));
        QVERIFY(writeFile(path("junk.m4a"), junk));
        // A recording cut short before its index was written.
        encodeFile(path("whole.m4a"), sine(440, 0.1, 1.0, kAacRate));
        const QByteArray whole = fileBytes(path("whole.m4a"));
        QVERIFY(writeFile(path("cut.m4a"), whole.left(whole.size() / 2)));

        for (const QString name : {"junk.m4a", "cut.m4a", "missing.wav"}) {
            const auto e = thrown<AudioDecodeError>([&] { AudioFileDecoder(path(name), 16000).readAll(); });
            QVERIFY2(e, qPrintable(name + " decoded without an error"));
            QVERIFY2(e->description().contains(path(name) + ": "), qPrintable(e->description()));
        }
        const auto e = thrown<AudioEncodeError>([&] { AudioFileEncoder encoder(path("no/such/folder/x.m4a")); });
        QVERIFY2(e && e->description().contains("No such file or directory"),
                 "an encoder opened a file in a missing folder");
    }

    void emptyFilesDecodeToNothing() {
        QVERIFY(writeWav(path("empty.wav"), {}, 16000, 1));
        encodeFile(path("empty.m4a"), {});
        for (const QString name : {"empty.wav", "empty.m4a"})
            QVERIFY2(AudioFileDecoder(path(name), 16000).readAll().empty(), qPrintable(name));
    }
};

TAMVEX_TEST_CLASS(AudioCodecTest)
#include "AudioCodecTest.moc"
