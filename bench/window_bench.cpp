// The main window's costs, as a timed run (each figure is one moment of one process).
// Run under a display, e.g. `xvfb-run -a build/bench/window_bench`:
//   - the main window first shown, from the open action to its first frame, with 10 000
//     entries in the history (the home pane is the one shown);
//   - shown again after closing, to its next frame;
//   - the settings pane's first frame (each pane is built when first shown), and the home
//     pane's when the user comes back to it;
//   - scrolling the history to its end a screenful at a time: pages load on the way, and
//     the slowest frame is what a user would feel as a stutter;
//   - resident memory with the window open.
// BENCH_TRACE=1 prints every frame over 25 ms with the rows loaded by then.
#include "BenchSupport.h"
#include "history/HistoryDB.h"
#include "shell/WindowFixture.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QQuickItem>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <functional>

using namespace tamvex;

namespace {
constexpr int kEntries = 10000;

// Milliseconds from `action` to the next frame of the window `window` gives once the
// action has run (the first show makes the window); -1 when none came within 5 s. The
// software scene graph renders on this thread, so no frame can slip past before the wait.
double msToNextFrame(const std::function<void()>& action, const std::function<QQuickWindow*()>& window) {
    QElapsedTimer timer;
    timer.start();
    action();
    QQuickWindow* target = window();
    if (!target)
        return -1.0;
    QEventLoop loop;
    bool framed = false;
    QObject::connect(target, &QQuickWindow::frameSwapped, &loop, [&] {
        framed = true;
        loop.quit();
    });
    QTimer::singleShot(5000, &loop, &QEventLoop::quit);
    loop.exec();
    return framed ? double(timer.nsecsElapsed()) / 1e6 : -1.0;
}

// A week of dictations, newest first, three lines each, written in one transaction.
void seed(const Paths& paths, const QDateTime& now) {
    HistoryDB db(paths.dataFile("history.db"));
    db.exec("BEGIN;");
    for (int i = 0; i < kEntries; ++i) {
        HistoryEntry e;
        e.id = QUuid::createUuid();
        e.createdAt = now.addSecs(-60 * i);
        e.durationSec = 5 + i % 20;
        e.text = QStringLiteral("Запись номер %1: созвон с командой в четверг\n- повестка\n- итоги недели").arg(i);
        e.category = allTextCategories[size_t(i) % allTextCategories.size()];
        e.costUSD = 0.0003;
        db.upsert(e);
    }
    db.exec("COMMIT;");
}
} // namespace

int main(int argc, char** argv) {
    // As the application does (src/app/main.cpp), unless QT_QUICK_BACKEND says otherwise.
    if (qEnvironmentVariableIsEmpty("QT_QUICK_BACKEND"))
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    QApplication app(argc, argv);
    test::WindowFixture fx;
    seed(fx.app.state->environment().paths, fx.app.clock.currentDateTime());
    fx.app.state->history().init(); // a fresh start over the seeded file: the first page only

    ShellWindows& windows = fx.windows;
    const auto mainWindow = [&] { return windows.mainWindow().window(); };

    const double firstShown = msToNextFrame([&] { windows.openHomeAction(); }, mainWindow);
    QQuickWindow* window = mainWindow();
    if (firstShown < 0 || !window) {
        std::fprintf(stderr, "the main window showed no frame\n");
        return 1;
    }
    window->close();
    QCoreApplication::processEvents();
    const double shownAgain = msToNextFrame([&] { windows.openMainWindow(); }, mainWindow);
    const double settingsFirst = msToNextFrame([&] { windows.openSettingsAction(); }, mainWindow);
    const double homeAgain = msToNextFrame([&] { windows.openHomeAction(); }, mainWindow);

    // Scroll a screenful at a time until every entry is loaded and the end is in view.
    QQuickItem* list = test::findItem(window->contentItem(), "history");
    if (!list) {
        std::fprintf(stderr, "no history list in the home pane\n");
        return 1;
    }
    QAbstractItemModel* rows = windows.mainWindow().model()->history();
    double slowest = 0.0, total = 0.0;
    int frames = 0;
    while (frames < 5000) {
        const bool atEnd = list->property("atYEnd").toBool();
        if (atEnd && rows->rowCount() >= kEntries)
            break;
        const double frame = msToNextFrame(
            [&] {
                const double bottom = list->property("originY").toDouble() +
                                      list->property("contentHeight").toDouble() - list->height();
                const double y = list->property("contentY").toDouble() + list->height();
                list->setProperty("contentY", std::min(y, bottom));
            },
            mainWindow);
        if (frame < 0) {
            std::fprintf(stderr, "stuck: contentY %.0f contentHeight %.0f originY %.0f rows %d atYEnd %d more %d\n",
                         list->property("contentY").toDouble(), list->property("contentHeight").toDouble(),
                         list->property("originY").toDouble(), rows->rowCount(), list->property("atYEnd").toBool(),
                         rows->canFetchMore({}));
            break;
        }
        if (getenv("BENCH_TRACE") && frame > 25)
            std::fprintf(stderr, "slow frame %.1f ms at %d rows\n", frame, rows->rowCount());
        slowest = std::max(slowest, frame);
        total += frame;
        ++frames;
    }
    const qint64 loaded = rows->rowCount();
    const double rssMB = bench::statusBytes("VmRSS:") / 1048576.0;

    std::printf("platform: %s, %d entries in the history\n", qPrintable(QGuiApplication::platformName()), kEntries);
    std::printf("main window first shown, action to first frame: %.1f ms\n", firstShown);
    std::printf("main window shown again: %.1f ms\n", shownAgain);
    std::printf("settings pane first shown (built on first use), to its frame: %.1f ms\n", settingsFirst);
    std::printf("home pane again from the settings pane, to its frame: %.1f ms\n", homeAgain);
    std::printf("scrolled to the end in %d frames, %lld rows loaded: slowest frame %.1f ms, mean %.1f ms\n", frames,
                static_cast<long long>(loaded), slowest, frames ? total / frames : 0.0);
    std::printf("resident memory with the main window open: %.1f MB\n", rssMB);
    return loaded >= kEntries ? 0 : 1;
}
