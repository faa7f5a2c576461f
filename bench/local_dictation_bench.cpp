// A dictation on the local preset from the key's release to the paste chord: the recorder's
// file finished, decoded to 16 kHz, recognised by whisper.cpp and pasted. The microphone plays
// speech on a manual clock, so the recording takes no real time; what is measured is what the
// user waits for after letting go.
//
// TAMVEX_BENCH_MODEL names the model file, whisper or Parakeet (any size or type; random
// weights of the real layout measure the real compute). The first dictation loads the model
// and the second reuses it: both are reported, for a 5 s and a 20 s recording, each with the
// speech detector before the engine and without it.
#include "BenchSupport.h"
#include "core/RecordingCoordinator.h"
#include "desktop/AudioInputFile.h"
#include "desktop/AudioTestSupport.h"
#include "desktop/TextInjector.h"
#include "pipelines/local/AudioSamples.h"
#include "pipelines/PipelinePreset.h"
#include "pipelines/local/WhisperEngine.h"
#include "shell/SettingsStore.h"
#include "support/AppFixture.h"
#include "support/PlatformFakes.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <vector>

using namespace tamvex;
using namespace tamvex::bench;

namespace {

// The file the local preset takes when nothing is chosen, linked to the model under test in
// `dataDir`, with the speech detector beside it.
void linkModel(const QString& model, const QString& dataDir) {
    const QString models = dataDir + "/models";
    QDir().mkpath(models);
    for (const auto& [source, name] :
         {std::pair{QFileInfo(model).absoluteFilePath(), QStringLiteral("ggml-large-v3-turbo-q5_0.bin")},
          {QStringLiteral(TAMVEX_TESTDATA_DIR "/ggml-silero-v6.2.0.bin"), QStringLiteral("ggml-silero-v6.2.0.bin")}}) {
        QFile::remove(models + "/" + name);
        QFile::link(source, models + "/" + name);
    }
}

struct Rig {
    explicit Rig(double seconds)
        : fixture([this] { return std::make_unique<FileAudioInput>(fixture.clock, speechPath, 1.0); }) {
        // jfk.wav repeated: speech for as long as the recording lasts.
        const std::vector<float> once = readAudioSamples(TAMVEX_TESTDATA_DIR "/jfk.wav");
        std::vector<float> speech;
        while (double(speech.size()) < (seconds + 1.0) * 16000.0)
            speech.insert(speech.end(), once.begin(), once.end());
        speechPath = fixture.env.root.filePath("speech.wav");
        test::writeWav(speechPath, speech, 16000, 1);
        fixture.state->settings().setPreset(PipelinePreset::local);
        coordinator = std::make_unique<RecordingCoordinator>(
            *fixture.state, std::make_unique<TextInjector>(fixture.clock, clipboard, keys, access));
        keys.clock.start();
    }

    /// One dictation of `seconds`; the wait from the release to the paste, or a negative on failure.
    double dictate(double seconds) {
        coordinator->handleKeyDown();
        fixture.clock.advance(seconds);
        keys.sentAt = -1;
        const qint64 releasedAt = keys.clock.nsecsElapsed();
        coordinator->handleKeyUp();
        QDeadlineTimer deadline(600000);
        while (keys.sentAt < 0 && !deadline.hasExpired())
            QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 1);
        fixture.clock.advance(1.0); // the clipboard comes back, the next press finds idle
        return keys.sentAt < 0 ? -1.0 : double(keys.sentAt - releasedAt) / 1e9;
    }

    QString speechPath;
    test::AppFixture fixture;
    test::FakeClipboard clipboard;
    TimedKeys keys;
    test::FakeAccess access;
    std::unique_ptr<RecordingCoordinator> coordinator;
};

void BM_LocalDictation(benchmark::State& state) {
    const QString model = qEnvironmentVariable("TAMVEX_BENCH_MODEL");
    if (!WhisperEngine::isAvailable() || model.isEmpty() || !QFile::exists(model)) {
        state.SkipWithError("needs a build with whisper.cpp and TAMVEX_BENCH_MODEL=<model file>");
        return;
    }
    const double seconds = double(state.range(0));
    Rig rig(seconds);
    rig.fixture.state->settings().setLocalSpeechDetection(state.range(1) != 0);
    // Where the dictation looks for the file, and where the process-wide engine cache does.
    linkModel(model, rig.fixture.env.paths.dataDir);
    linkModel(model, qEnvironmentVariable("XDG_DATA_HOME") + "/Tamv");
    // Each recording length runs in a sandbox of its own; the cache keeps the engine of the
    // first, which is what a second dictation finds.
    static bool loaded = false;
    const bool cold = !loaded;
    double first = -1.0;
    for (auto _ : state) {
        const double waited = rig.dictate(seconds);
        if (waited < 0) {
            state.SkipWithError("the dictation did not reach the paste");
            return;
        }
        if (first < 0)
            first = waited;
        state.SetIterationTime(waited);
    }
    loaded = true;
    state.counters["first_s"] = first;
    state.counters["first_loads_model"] = cold ? 1 : 0;
}
// Dictations per case: 3, or TAMVEX_BENCH_DICTATIONS (1 for large-v3-turbo on a processor,
// where one takes over a minute).
benchmark::IterationCount dictationsPerCase() {
    const int n = qEnvironmentVariableIntValue("TAMVEX_BENCH_DICTATIONS");
    return n > 0 ? n : 3;
}

BENCHMARK(BM_LocalDictation)
    ->ArgNames({"seconds", "detector"})
    ->ArgsProduct({{5, 20}, {0, 1}})
    ->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(dictationsPerCase());

} // namespace

int main(int argc, char** argv) {
    // Before the engine cache is made: it reads the data folder once.
    static QTemporaryDir data;
    qputenv("XDG_DATA_HOME", data.path().toUtf8());
    return runMemoryAwareBenchmarks(argc, argv);
}
