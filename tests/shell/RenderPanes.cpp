// Renders every pane of the main window and every onboarding step to PNG files with sample
// data, offscreen: render_panes OUTPUT_DIR. The README's pictures come from here.
#include "WindowFixture.h"

#include <QDir>
#include <QGuiApplication>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", qgetenv("QT_QPA_PLATFORM").isEmpty() ? "offscreen" : qgetenv("QT_QPA_PLATFORM"));
    QGuiApplication app(argc, argv);
    const QString out = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral(".");
    QDir().mkpath(out);
    WindowFixture fx;
    fx.seedSampleData();
    const auto save = [&](QQuickWindow* window, const QString& name) {
        QTest::qWait(300);
        const QString path = QDir(out).filePath(name + ".png");
        if (!window->grabWindow().save(path))
            qWarning("could not write %s", qPrintable(path));
    };
    const struct {
        void (ShellWindows::*open)();
        const char* name;
    } panes[] = {{&ShellWindows::openHomeAction, "main-home"},
                 {&ShellWindows::openInsightsAction, "main-insights"},
                 {&ShellWindows::openAccountAction, "main-account"},
                 {&ShellWindows::openSettingsAction, "main-settings"}};
    fx.input.trusted = false; // so the settings picture shows the commands that grant it
    for (const auto& pane : panes) {
        (fx.windows.*pane.open)();
        QQuickWindow* window = fx.windows.mainWindow().window();
        if (pane.open != &ShellWindows::openSettingsAction) {
            save(window, pane.name);
            continue;
        }
        // The settings pane is taller than the window: the picture shows all of it.
        fx.windows.mainWindow().model()->settingsPane()->input()->request();
        const QSize size = window->size();
        window->resize(size.width(), 1740);
        save(window, pane.name);
        window->resize(size);
    }
    fx.windows.openWelcomeAction();
    WelcomeFlow* flow = fx.windows.welcomeWindow().flow();
    flow->toggleUseCase("ai");
    flow->toggleUseCase("messengers");
    for (int step = 0; step < flow->totalSteps(); ++step) {
        flow->setStep(step);
        save(fx.windows.welcomeWindow().window(), QStringLiteral("welcome-%1").arg(step));
    }
    return 0;
}
