// Desktop input and output: the time from a key event to the coordinator's call, and the
// whole paste (snapshot, set, chord, 0.25 s wait, restore) with a 1 MB clipboard.
#include "KeyboardShortcuts/ShortcutRegistry.h"
#include "desktop/FunctionKeyMonitor.h"
#include "desktop/KeyInput.h"
#include "desktop/TextInjector.h"
#include "platform/Clipboard.h"
#include "platform/Clock.h"
#include "platform/Defaults.h"
#include "platform/InputAccess.h"
#include "platform/KeySender.h"

#include <QClipboard>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QMimeData>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <linux/input-event-codes.h>

using namespace tamvex;

namespace {

class BenchKeySource final : public KeySource {
public:
    bool start() override { return true; }
    void stop() override {}
    bool isAvailable() const override { return true; }
    QString name() const override { return QStringLiteral("evdev"); }
    bool seesFunctionKey() const override { return true; }
    void key(int code, int value) { emit inputEvent(1, EV_KEY, code, value); }
};

class NoKeys final : public KeySender {
public:
    bool isAvailable() const override { return true; }
    bool sendPaste(PasteChord) override { return true; }
    QString name() const override { return QStringLiteral("bench"); }
};

class Trusted final : public InputAccess {
public:
    bool isTrusted() const override { return true; }
};

void BM_KeyEdgeToCoordinatorCall(benchmark::State& state) {
    QTemporaryDir dir;
    Defaults defaults(dir.filePath("settings.json"));
    KeyboardShortcuts::ShortcutRegistry registry(defaults);
    auto source = std::make_unique<BenchKeySource>();
    BenchKeySource* raw = source.get();
    std::vector<std::unique_ptr<KeySource>> sources;
    sources.push_back(std::move(source));
    WallClock clock;
    KeyInput input(registry, clock, std::move(sources));
    input.start();
    FunctionKeyMonitor monitor(input);
    qint64 calls = 0;
    monitor.onKeyDown = [&] { ++calls; };
    monitor.onKeyUp = [&] { ++calls; };
    monitor.start();
    // Shift is held throughout, as a busy hand would, so the merging does real work.
    raw->key(KEY_LEFTSHIFT, 1);
    for (auto _ : state) {
        raw->key(KEY_FN, 1);
        raw->key(KEY_FN, 0);
    }
    state.SetItemsProcessed(calls);
    state.counters["edges"] = double(calls);
}
BENCHMARK(BM_KeyEdgeToCoordinatorCall);

void BM_Inject1MBClipboard(benchmark::State& state) {
    QByteArray megabyte(1 << 20, 'x');
    for (int i = 0; i < megabyte.size(); i += 97)
        megabyte[i] = char('a' + i % 26);
    WallClock clock;
    SystemClipboard clipboard;
    NoKeys keys;
    Trusted access;
    TextInjector injector(clock, clipboard, keys, access);
    for (auto _ : state) {
        auto* data = new QMimeData;
        data->setData("text/plain", megabyte);
        data->setData("application/octet-stream", megabyte);
        QGuiApplication::clipboard()->setMimeData(data);
        QElapsedTimer timer;
        timer.start();
        bool done = false;
        auto run = [](TextInjector& target, bool& flag) -> QCoro::Task<void> {
            co_await target.inject(QStringLiteral("Диктовка"));
            flag = true;
        };
        auto task = run(injector, done);
        while (!done)
            QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 5);
        state.SetIterationTime(double(timer.nsecsElapsed()) / 1e9);
        if (clipboard.snapshot().value(0).size() != 2)
            state.SkipWithError("the clipboard was not restored");
    }
}
BENCHMARK(BM_Inject1MBClipboard)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(8);

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
