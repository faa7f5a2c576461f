// The recorder's costs: encoding a minute of speech, stopping a minute-long recording,
// and the time from a key-down to a running recording.
#include "desktop/AudioInputFile.h"
#include "desktop/AudioInputMicrophone.h"
#include "desktop/AudioRecorder.h"
#include "platform/AudioDecoder.h"
#include "platform/AudioEncoder.h"
#include "platform/Clock.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <cmath>
#include <numbers>
#include <random>
#include <vector>

using namespace tamvex;

namespace {

constexpr int rate = 44100;
constexpr double minuteSec = 60.0;

/// A minute of speech: the shared recording looped, or, without it, voiced syllables
/// (a 140 Hz buzz with formant-like harmonics, 4 syllables a second) over a little noise.
const std::vector<float>& speechMinute() {
    static const std::vector<float> samples = [] {
        std::vector<float> out;
        const QString shared = QStringLiteral(TAMVEX_TESTDATA_DIR "/speech-en-16k.wav");
        if (QFile::exists(shared)) {
            const auto once = AudioFileDecoder(shared, rate).readAll();
            while (!once.empty() && out.size() < size_t(minuteSec * rate))
                out.insert(out.end(), once.begin(), once.end());
            out.resize(size_t(minuteSec * rate));
            return out;
        }
        std::mt19937 noise(7);
        std::normal_distribution<float> hiss(0.0f, 0.003f);
        out.resize(size_t(minuteSec * rate));
        for (size_t i = 0; i < out.size(); ++i) {
            const double t = double(i) / rate;
            const double envelope = std::max(0.0, std::sin(2 * std::numbers::pi * 4.0 * t));
            double voice = 0;
            for (int h = 1; h <= 12; ++h)
                voice += std::sin(2 * std::numbers::pi * 140.0 * h * t) / (1.0 + std::abs(h - 5));
            out[i] = float(0.08 * envelope * voice) + hiss(noise);
        }
        return out;
    }();
    return samples;
}

QTemporaryDir& scratch() {
    static QTemporaryDir dir;
    return dir;
}

/// The minute of speech as a WAV file, for the file input.
QString speechWav() {
    static const QString path = [] {
        const QString file = scratch().filePath("speech-minute.wav");
        const auto& samples = speechMinute();
        QFile out(file);
        out.open(QIODevice::WriteOnly);
        auto u32 = [&](quint32 v) { out.write(reinterpret_cast<const char*>(&v), 4); };
        auto u16 = [&](quint16 v) { out.write(reinterpret_cast<const char*>(&v), 2); };
        out.write("RIFF");
        u32(36 + quint32(samples.size() * 4));
        out.write("WAVEfmt ");
        u32(16);
        u16(3);
        u16(1);
        u32(rate);
        u32(rate * 4);
        u16(4);
        u16(32);
        out.write("data");
        u32(quint32(samples.size() * 4));
        out.write(reinterpret_cast<const char*>(samples.data()), qint64(samples.size() * 4));
        return file;
    }();
    return path;
}

/// Encoding 60 s of speech in the pieces a sound server delivers (20 ms).
void BM_EncodeMinuteOfSpeech(benchmark::State& state) {
    const auto& samples = speechMinute();
    const QString file = scratch().filePath("encode.m4a");
    for (auto _ : state) {
        AudioFileEncoder encoder(file);
        for (size_t at = 0; at < samples.size(); at += 882)
            encoder.write(samples.data() + at, qsizetype(std::min<size_t>(882, samples.size() - at)));
        encoder.finish();
    }
    state.counters["audio_sec"] = minuteSec;
}
BENCHMARK(BM_EncodeMinuteOfSpeech)->Unit(benchmark::kMillisecond)->Iterations(5);

/// stop() of a recording that has received a minute of audio: flush, trailer, close.
void BM_StopMinuteRecording(benchmark::State& state) {
    ManualClock clock;
    const QString wav = speechWav();
    AudioRecorder recorder(clock, [&] { return std::make_unique<FileAudioInput>(clock, wav, FileAudioInput::allAtOnce); },
                           scratch().path());
    for (auto _ : state) {
        state.PauseTiming();
        recorder.start(); // the whole minute is encoded inside start()
        clock.advance(minuteSec);
        state.ResumeTiming();
        const auto result = recorder.stop();
        state.PauseTiming();
        const double seconds = AudioFileDecoder(result.url, 0).durationSeconds();
        if (std::abs(seconds - 2 * minuteSec) > 0.1) // the file, then the held key's silence
            state.SkipWithError("the stopped file is not the recording");
        QFile::remove(result.url);
        state.ResumeTiming();
    }
}
BENCHMARK(BM_StopMinuteRecording)->Unit(benchmark::kMillisecond)->Iterations(5);

/// Key-down to recording with the file input: making the file, opening the input, starting.
void BM_StartFileInput(benchmark::State& state) {
    ManualClock clock;
    const QString wav = speechWav();
    AudioRecorder recorder(clock, [&] { return std::make_unique<FileAudioInput>(clock, wav, 1.0); }, scratch().path());
    for (auto _ : state) {
        recorder.start();
        state.PauseTiming();
        QFile::remove(recorder.stop().url);
        state.ResumeTiming();
    }
}
BENCHMARK(BM_StartFileInput)->Unit(benchmark::kMillisecond)->Iterations(20);

/// Key-down to recording with the microphone (TAMVEX_AUDIO_DEVICE picks one); skipped
/// where there is no sound server.
void BM_StartMicrophone(benchmark::State& state) {
    WallClock clock;
    AudioRecorder recorder(clock, [] { return std::make_unique<MicrophoneInput>(); }, scratch().path());
    for (auto _ : state) {
        try {
            recorder.start();
        } catch (const AudioRecorderError& e) {
            state.SkipWithError(e.what());
            break;
        }
        state.PauseTiming();
        QFile::remove(recorder.stop().url);
        state.ResumeTiming();
    }
}
BENCHMARK(BM_StartMicrophone)->Unit(benchmark::kMillisecond)->Iterations(10);

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv); // the microphone needs Qt's application object
    QLoggingCategory::setFilterRules(QStringLiteral("com.dovra.tamv.Tamvex.info=false"));
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
