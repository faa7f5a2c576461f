// Renders every pane of the main window, every onboarding step, the input access window and
// every HUD state to PNG files with sample data, offscreen:
//     render_panes WINDOWS_DIR HUD_DIR
// The README's pictures come from here (the `screenshots` target), and a test keeps them
// as fresh as the QML they show.
#include "WindowFixture.h"
#include "core/Nudges.h"
#include "shell/hud/RecordingHUDController.h"

#include <QDir>
#include <QFile>
#include <QApplication>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;

namespace {

bool g_failed = false;

// Waits for the window's animations to settle, then writes it as `dir`/`name`.png.
void save(QQuickWindow* window, const QString& dir, const QString& name, int settleMs = 450) {
    QTest::qWait(settleMs);
    const QString path = QDir(dir).filePath(name + ".png");
    if (!window || !window->grabWindow().save(path)) {
        qWarning("could not write %s", qPrintable(path));
        g_failed = true;
    }
}

// Three models on disk (sparse files of their real size) with speeds as a 2-core processor
// measures them, and the large one chosen: the card then shows its warning.
void seedLocalModels(WindowFixture& fx) {
    using M = WhisperModel;
    ModelSpeedRecord record(fx.models.speedRecordPath());
    for (const auto& [model, seconds] : {std::pair{M::largeV3TurboQ5, 80.3}, {M::parakeetV3Q4, 1.4}, {M::baseQ5_1, 3.5}}) {
        QDir().mkpath(fx.models.modelsDirectory());
        QFile file(fx.models.localURL(model));
        if (!file.open(QIODevice::WriteOnly) || !file.resize(whisperModels::expectedBytes(model)) ||
            !record.store(model, QStringLiteral("CPU"), {10.56, seconds})) {
            qWarning("could not seed %s", qPrintable(file.fileName()));
            g_failed = true;
        }
    }
    fx.app.state->settings().setLocalModel(M::largeV3TurboQ5);
}

void renderWindows(WindowFixture& fx, const QString& out) {
    seedLocalModels(fx);
    const struct {
        void (ShellWindows::*open)();
        const char* name;
    } panes[] = {{&ShellWindows::openHomeAction, "main-home"},
                 {&ShellWindows::openInsightsAction, "main-insights"},
                 {&ShellWindows::openAccountAction, "main-account"},
                 {&ShellWindows::openSettingsAction, "main-settings"}};
    fx.input.trusted = false; // so the pictures show the commands that grant it
    for (const auto& pane : panes) {
        (fx.windows.*pane.open)();
        QQuickWindow* window = fx.windows.mainWindow().window();
        if (pane.open != &ShellWindows::openSettingsAction) {
            save(window, out, pane.name);
            continue;
        }
        // The settings pane is taller than the window: the picture shows all of it.
        fx.windows.mainWindow().model()->settingsPane()->input()->request();
        const QSize size = window->size();
        window->resize(size.width(), 1740);
        save(window, out, pane.name);
        window->resize(size);
    }
    fx.windows.mainWindow().window()->hide();

    // The onboarding of a new user on a keyboard without FN, signed out, with no key.
    fx.app.state->setFunctionKeyAvailable(false);
    fx.windows.openWelcomeAction();
    WelcomeFlow* flow = fx.windows.welcomeWindow().flow();
    flow->toggleUseCase("ai");
    flow->toggleUseCase("messengers");
    for (int step = 0; step < flow->totalSteps(); ++step) {
        flow->setStep(step);
        if (step == 4)
            fx.app.clock.advance(0.5); // the step asks for input access by itself
        save(fx.windows.welcomeWindow().window(), out, QStringLiteral("welcome-%1").arg(step));
    }
    fx.windows.welcomeWindow().close();

    fx.input.prompt();
    if (QQuickWindow* prompt = fx.windows.inputAccessPrompt().window()) {
        save(prompt, out, QStringLiteral("input-access"));
        prompt->hide();
    } else {
        qWarning("the input access window did not show");
        g_failed = true;
    }
}

void renderHud(WindowFixture& fx, const QString& out) {
    AppState& state = *fx.app.state;
    RecordingHUDController hud(state, nullptr, [] {});
    hud.show();
    QQuickWindow* window = hud.window();
    if (!window || !QTest::qWaitForWindowExposed(window, 30000)) {
        qWarning("the HUD did not show");
        g_failed = true;
        return;
    }
    // The panel is see-through and the offscreen grab has no alpha: a desktop-grey backdrop
    // shows it as it floats over other windows, its shadows included.
    window->setColor(QColor(0x4a, 0x50, 0x5e));
    save(window, out, QStringLiteral("hud-idle"));
    // The pointer over the handle.
    QTest::mouseMove(window, QPoint(window->width() / 2, window->height() / 2));
    save(window, out, QStringLiteral("hud-hovered"));
    QTest::mouseMove(window, QPoint(-50, -50));

    state.setRecordingState(RecordingState::recording());
    hud.setLevel(-50);
    save(window, out, QStringLiteral("hud-recording-low"));
    hud.setLevel(-6);
    save(window, out, QStringLiteral("hud-recording-high"));
    state.setRecordingState(RecordingState::processing());
    save(window, out, QStringLiteral("hud-processing"));
    state.setSlowProcessing(true);
    save(window, out, QStringLiteral("hud-slow"));
    state.setSlowProcessing(false);
    state.setRecordingState(RecordingState::error(
        QStringLiteral("Сервер не ответил за 25 секунд. Запись сохранена — попробуй ещё раз.")));
    save(window, out, QStringLiteral("hud-error"));
    state.setRecordingState(RecordingState::idle());
    state.showNudge(nudges::longHoldCard(QStringLiteral("Ctrl+Alt+D")), 600);
    save(window, out, QStringLiteral("hud-nudge"));
}

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", qgetenv("QT_QPA_PLATFORM").isEmpty() ? "offscreen" : qgetenv("QT_QPA_PLATFORM"));
    // QTest's mouse helpers reach qApp as a QApplication whenever Qt Widgets is linked.
    QApplication app(argc, argv);
    if (argc < 3) {
        qWarning("usage: render_panes WINDOWS_DIR HUD_DIR");
        return 2;
    }
    const QString windows = QString::fromLocal8Bit(argv[1]);
    const QString hud = QString::fromLocal8Bit(argv[2]);
    QDir().mkpath(windows);
    QDir().mkpath(hud);
    WindowFixture fx;
    fx.seedSampleData();
    renderWindows(fx, windows);
    renderHud(fx, hud);
    return g_failed ? 1 : 0;
}
