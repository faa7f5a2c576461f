// The HUD's costs, as a timed run (not Google Benchmark: each figure is one process's life).
// Run under a display, e.g. `xvfb-run -a build/bench/hud_bench`:
//   - start of main to the HUD's first frame on screen (state, stores, tray menus, HUD);
//   - resident memory after 3 s idle with the HUD and the menus and no window open;
//   - CPU share of the process while recording, the level changing at 16 Hz for 10 s.
#include "BenchSupport.h"
#include "core/AppState.h"
#include "shell/MenuBarController.h"
#include "shell/hud/RecordingHUDController.h"
#include "support/AppFixture.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QQuickWindow>
#include <QTimer>

#include <sys/resource.h>

#include <cstdio>

using namespace tamvex;

namespace {
double cpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// An event loop that sleeps between events, so the figure is the HUD's and not the loop's.
void spin(int ms) {
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}
} // namespace

int main(int argc, char** argv) {
    QElapsedTimer sinceMain;
    sinceMain.start();
    // As the application does (src/app/main.cpp), unless QT_QUICK_BACKEND says otherwise.
    if (qEnvironmentVariableIsEmpty("QT_QUICK_BACKEND"))
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    QApplication app(argc, argv);
    test::AppFixture fixture;
    MenuBarController menus(*fixture.state, {});
    RecordingHUDController hud(*fixture.state, nullptr, [&] { menus.popUpPointerMenu(); });
    bool framed = false;
    hud.show();
    if (!hud.window()) {
        std::fprintf(stderr, "the HUD could not be built\n");
        return 1;
    }
    QEventLoop firstFrame;
    QObject::connect(hud.window(), &QQuickWindow::frameSwapped, &firstFrame, [&] {
        framed = true;
        firstFrame.quit();
    });
    QTimer::singleShot(10000, &firstFrame, &QEventLoop::quit);
    firstFrame.exec();
    const qint64 firstFrameMs = sinceMain.elapsed();

    spin(3000);
    const double rssMB = bench::statusBytes("VmRSS:") / 1048576.0;

    fixture.state->setRecordingState(RecordingState::recording());
    QTimer ticks;
    int tick = 0;
    QObject::connect(&ticks, &QTimer::timeout, &app, [&] { hud.setLevel(-60.0f + float((tick++ * 7) % 60)); });
    ticks.start(60);
    const double cpuBefore = cpuSeconds();
    QElapsedTimer wall;
    wall.start();
    spin(10000);
    const double cpuShare = (cpuSeconds() - cpuBefore) / (wall.elapsed() / 1000.0);
    ticks.stop();

    std::printf("platform: %s\n", qPrintable(QGuiApplication::platformName()));
    std::printf("start of main to the HUD's first frame: %lld ms%s\n", static_cast<long long>(firstFrameMs),
                framed ? "" : " (no frame within 10 s)");
    std::printf("resident memory idle (HUD and menus, no window): %.1f MB\n", rssMB);
    std::printf("CPU while recording, 16 Hz level updates: %.1f%% of one core\n", cpuShare * 100.0);
    return framed ? 0 : 1;
}
