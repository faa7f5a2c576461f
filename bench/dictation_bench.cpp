// The client's share of a dictation against the dev server on loopback: from the key's
// release to the last byte of a 60 s recording's request on the wire, from the answer to
// the paste chord, and the peak extra memory while that request is built and sent.
#include "BenchSupport.h"
#include "DevServer.h"
#include "account/AccountStore.h"
#include "account/Network.h"
#include "core/RecordingCoordinator.h"
#include "desktop/AudioInputFile.h"
#include "desktop/AudioTestSupport.h"
#include "pipelines/BackendSelector.h"
#include "pipelines/CloudPipelines.h"
#include "support/AppFixture.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

#include <benchmark/benchmark.h>

#include <malloc.h>

using namespace tamvex;
using namespace tamvex::bench;

namespace {

const QString kProxyPath = "/api/openrouter/v1/chat/completions";

// A signed-in application on a manual clock whose microphone plays a 60 s tone, talking to
// a dev server in this process that answers every chat at once.
struct Rig {
    Rig() : fixture([this] { return std::make_unique<FileAudioInput>(fixture.clock, tonePath, 1.0); }) {
        tonePath = fixture.env.root.filePath("tone.wav");
        test::writeWav(tonePath, test::sine(220.0, 0.5, 61.0, 16000), 16000, 1);
        server.start();
        const QString words = "Раз два три четыре пять шесть семь восемь девять десять.";
        const QJsonObject message{{"content", words}};
        server.script(kProxyPath, devserver::Script{200,
                                                   QJsonDocument(QJsonObject{{"choices", QJsonArray{QJsonObject{
                                                                                             {"message", message}}}}})
                                                       .toJson(QJsonDocument::Compact)});
        selector = std::make_unique<BackendSelector>(*fixture.env.defaults, fixture.clock, sharedNetworkManager(),
                                                     ServiceHosts::allAt(server.baseUrl()));
        selector->setLatencyMeasurer([](QUrl) -> QCoro::Task<double> { co_return -1.0; });
        BackendSelector::setShared(selector.get());
        const QString token = server.addUser("+70000000000", 1e12);
        fixture.state->account().setSession(token, UserDTO{1, "+70000000000", 1e12, 0});
        coordinator = std::make_unique<RecordingCoordinator>(
            *fixture.state, std::make_unique<TextInjector>(fixture.clock, clipboard, keys, access));
        keys.clock.start();
        QObject::connect(&server, &devserver::DevServer::requestReceived, [this](const QString& path) {
            if (path == kProxyPath && requestAt < 0)
                requestAt = keys.clock.nsecsElapsed();
        });
    }
    ~Rig() { BackendSelector::setShared(nullptr); }

    QString tonePath;
    test::AppFixture fixture;
    devserver::DevServer server;
    test::FakeClipboard clipboard;
    TimedKeys keys;
    test::FakeAccess access;
    std::unique_ptr<BackendSelector> selector;
    std::unique_ptr<RecordingCoordinator> coordinator;
    qint64 requestAt = -1;
};

void BM_SixtySecondDictation(benchmark::State& state) {
    Rig rig;
    double answerToPasteMs = 0.0;
    double answerToPasteSum = 0.0;
    for (auto _ : state) {
        rig.coordinator->handleKeyDown();
        rig.fixture.clock.advance(60.0); // the tone is encoded as the virtual minute passes
        rig.requestAt = rig.keys.sentAt = -1;
        const qint64 releasedAt = rig.keys.clock.nsecsElapsed();
        rig.coordinator->handleKeyUp();
        QDeadlineTimer deadline(10000);
        while (rig.keys.sentAt < 0 && !deadline.hasExpired())
            QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 1);
        if (rig.keys.sentAt < 0 || rig.requestAt < 0) {
            state.SkipWithError("the dictation did not reach the paste");
            return;
        }
        state.SetIterationTime(double(rig.requestAt - releasedAt) / 1e9);
        const double toPaste = double(rig.keys.sentAt - rig.requestAt) / 1e6;
        answerToPasteMs = std::max(answerToPasteMs, toPaste);
        answerToPasteSum += toPaste;
        rig.fixture.clock.advance(1.0); // the clipboard comes back, the next press finds idle
        while (rig.coordinator->pendingClassifications() > 0 && !deadline.hasExpired())
            QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 1);
    }
    state.counters["answer_to_paste_ms"] = answerToPasteSum / double(state.iterations());
    state.counters["worst_answer_to_paste_ms"] = answerToPasteMs;
}

void BM_RequestPeakMemory60s(benchmark::State& state) {
    Rig rig;
    // One real 60 s recording from the recorder, sent again and again through the pipeline.
    rig.coordinator->recorder().start();
    rig.fixture.clock.advance(60.0);
    const QString file = rig.coordinator->recorder().stop().url;
    const double fileBytes = double(QFile(file).size());
    auto service = std::make_shared<OpenRouterService>(
        OpenRouterService::Mode::proxy(*rig.fixture.state->account().accessToken()), *rig.selector);
    SinglePassPipeline pipeline(service, "preset:fast-audio", prompts::cleanupPrompt);
    double worst = 0.0;
    for (auto _ : state) {
        const qint64 before = statusBytes("VmRSS:");
        resetPeak();
        benchmark::DoNotOptimize(wait(pipeline.process(file)).text.size());
        worst = std::max(worst, double(statusBytes("VmHWM:") - before));
    }
    state.counters["file_kb"] = fileBytes / 1024.0;
    state.counters["peak_extra_x_file"] = worst / fileBytes;
}

} // namespace

BENCHMARK(BM_SixtySecondDictation)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);
BENCHMARK(BM_RequestPeakMemory60s)->Unit(benchmark::kMillisecond)->Iterations(20);

int main(int argc, char** argv) {
    return tamvex::bench::runMemoryAwareBenchmarks(argc, argv);
}
