// The local speech path's costs: decoding a recorder-style 60 s m4a to 16 kHz float, the
// model digest over a large file (with the memory it takes), and, with whisper.cpp, the
// model's load (paid by the first local dictation) and a transcription on the loaded engine
// (paid by every one).
//
// TAMVEX_BENCH_SHA_MB sets the digest file's size (500 by default); TAMVEX_BENCH_MODEL and
// TAMVEX_BENCH_AUDIO choose the model and audio of the transcription.
#include "BenchSupport.h"
#include "pipelines/local/AudioSamples.h"
#include "pipelines/local/ModelDownloader.h"
#include "pipelines/local/WhisperEngine.h"
#include "platform/AudioEncoder.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>

#include <benchmark/benchmark.h>

#include <sys/resource.h>

#include <cmath>
#include <memory>
#include <optional>
#include <vector>

using namespace tamvex;

namespace {

long peakRssKb() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

QString envOr(const char* name, const QString& fallback) {
    const QString value = qEnvironmentVariable(name);
    return value.isEmpty() ? fallback : value;
}

/// 60 s of a voice-like signal at 44.1 kHz mono, encoded as the recorder encodes it.
QString makeRecording(const QTemporaryDir& dir) {
    const QString path = dir.filePath("recording.m4a");
    AudioFileEncoder encoder(path);
    std::vector<float> block(4410);
    qint64 n = 0;
    for (int b = 0; b < 600; ++b) {
        for (float& s : block) {
            const double t = double(n++) / 44100.0;
            const double envelope = 0.5 + 0.5 * std::sin(2 * M_PI * 3.0 * t);
            s = float(envelope * (0.3 * std::sin(2 * M_PI * 180.0 * t) + 0.1 * std::sin(2 * M_PI * 720.0 * t)));
        }
        encoder.write(block.data(), qsizetype(block.size()));
    }
    encoder.finish();
    return path;
}

void BM_ReadAudioSamples_m4a60s(benchmark::State& state) {
    QTemporaryDir dir;
    const QString path = makeRecording(dir);
    size_t samples = 0;
    for (auto _ : state) {
        const std::vector<float> read = readAudioSamples(path);
        samples = read.size();
        benchmark::DoNotOptimize(read.data());
    }
    state.counters["samples"] = double(samples);
}
BENCHMARK(BM_ReadAudioSamples_m4a60s)->Unit(benchmark::kMillisecond);

void BM_Sha256Hex_largeFile(benchmark::State& state) {
    const qint64 megabytes = envOr("TAMVEX_BENCH_SHA_MB", "500").toLongLong();
    QTemporaryDir dir;
    const QString path = dir.filePath("model.bin");
    {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly)) {
            state.SkipWithError("cannot write the test file");
            return;
        }
        QByteArray chunk(1 << 20, Qt::Uninitialized);
        for (int i = 0; i < chunk.size(); ++i)
            chunk[i] = char(i * 31 + 7);
        for (qint64 i = 0; i < megabytes; ++i)
            file.write(chunk);
    }
    const long before = peakRssKb();
    for (auto _ : state)
        benchmark::DoNotOptimize(ModelDownloader::sha256HexOfFile(path));
    state.SetBytesProcessed(state.iterations() * megabytes * (1 << 20));
    // Growth of the peak resident size while hashing: flat means a few blocks, not the file.
    state.counters["peak_growth_MB"] = double(peakRssKb() - before) / 1024.0;
}
BENCHMARK(BM_Sha256Hex_largeFile)->Unit(benchmark::kMillisecond)->UseRealTime();

// The model and audio of the engine's runs, or none (with the reason given to `state`).
std::optional<std::pair<QString, QString>> engineInputs(benchmark::State& state) {
    if (!WhisperEngine::isAvailable()) {
        state.SkipWithError("this build has no whisper.cpp");
        return std::nullopt;
    }
    const QString model = envOr("TAMVEX_BENCH_MODEL", TAMVEX_TESTDATA_DIR "/for-tests-ggml-tiny.bin");
    const QString audio = envOr("TAMVEX_BENCH_AUDIO", TAMVEX_TESTDATA_DIR "/jfk.wav");
    if (!QFile::exists(model) || !QFile::exists(audio)) {
        state.SkipWithError("model or audio file missing");
        return std::nullopt;
    }
    return std::pair{model, audio};
}

// What the first local dictation of a run pays once: loading the model.
void BM_EngineLoad(benchmark::State& state) {
    const auto inputs = engineInputs(state);
    if (!inputs)
        return;
    for (auto _ : state)
        benchmark::DoNotOptimize(std::make_unique<WhisperEngine>(inputs->first));
}
BENCHMARK(BM_EngineLoad)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

// What every later dictation pays: reading the file and recognising it on the loaded engine.
void BM_WarmTranscribe(benchmark::State& state) {
    const auto inputs = engineInputs(state);
    if (!inputs)
        return;
    WhisperEngine engine(inputs->first);
    for (auto _ : state)
        benchmark::DoNotOptimize(engine.transcribe(readAudioSamples(inputs->second)));
    state.counters["threads"] = whisperThreadCount(QThread::idealThreadCount());
}
BENCHMARK(BM_WarmTranscribe)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

} // namespace

int main(int argc, char** argv) {
    return tamvex::bench::runBenchmarks(argc, argv);
}
