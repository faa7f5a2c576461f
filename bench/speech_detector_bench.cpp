// The speech detector's cost per minute of audio: whisper.cpp's Silero detector over 60 s
// of real speech (jfk.wav repeated) and over 60 s of silence, as the local road runs it
// before every dictation. The model loads once, outside the timing, as in the application.
//
// TAMVEX_BENCH_DETECTOR names the detector file (default: the test data's Silero v6.2.0).
#include "BenchSupport.h"
#include "pipelines/local/AudioSamples.h"
#include "pipelines/local/SpeechDetector.h"

#include <QCoreApplication>

#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

using namespace tamvex;

namespace {

QString detectorPath() {
    const QString named = qEnvironmentVariable("TAMVEX_BENCH_DETECTOR");
    return named.isEmpty() ? QStringLiteral(TAMVEX_TESTDATA_DIR "/ggml-silero-v6.2.0.bin") : named;
}

std::vector<float> oneMinute(bool speech) {
    std::vector<float> minute;
    minute.reserve(size_t(60 * whisperSampleRate));
    if (!speech)
        return std::vector<float>(size_t(60 * whisperSampleRate), 0.0f);
    const std::vector<float> jfk = readAudioSamples(QStringLiteral(TAMVEX_TESTDATA_DIR "/jfk.wav"));
    while (minute.size() < size_t(60 * whisperSampleRate))
        minute.insert(minute.end(), jfk.begin(), jfk.end());
    minute.resize(size_t(60 * whisperSampleRate));
    return minute;
}

void BM_SpeechDetector_OneMinute(benchmark::State& state) {
    if (!SpeechDetector::isAvailable()) {
        state.SkipWithError("this build has no whisper.cpp");
        return;
    }
    SpeechDetector detector(detectorPath());
    const std::vector<float> audio = oneMinute(state.range(0) != 0);
    size_t spans = 0;
    for (auto _ : state)
        spans = detector.detect(audio).size();
    state.counters["segments"] = double(spans);
}
BENCHMARK(BM_SpeechDetector_OneMinute)
    ->Arg(1)
    ->Arg(0)
    ->ArgName("speech")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(3)
    ->Repetitions(5)
    ->ReportAggregatesOnly(false);

} // namespace

int main(int argc, char** argv) {
    return tamvex::bench::runBenchmarks(argc, argv);
}
