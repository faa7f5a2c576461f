#include "cli/CommandLine.h"
#include "core/AppDelegate.h"
#include "desktop/ControlService.h"
#include "platform/TerminationSignals.h"

#include <QApplication>
#include <QCoreApplication>
#include <QQuickWindow>

#include <memory>

int main(int argc, char** argv) {
    QStringList args;
    for (int i = 1; i < argc; ++i)
        args.append(QString::fromLocal8Bit(argv[i]));
    tamvex::CommandLineRequest request;
    {
        // Subcommands need no windows: a core application keeps them headless.
        std::unique_ptr<QCoreApplication> cli;
        if (!args.isEmpty() && !args[0].startsWith("--") && !args[0].startsWith("tamvex://"))
            cli = std::make_unique<QCoreApplication>(argc, argv);
        const int code = tamvex::runCommandLine(args, request);
        if (!request.startApplication)
            return code;
    }
    // Wayland lets no client place a window or keep it above others, and an unfocused native
    // client may not touch the clipboard: the HUD and the paste need XWayland. A session
    // without Xwayland still gets native windows rather than no start at all.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") &&
        (qEnvironmentVariable("XDG_SESSION_TYPE") == "wayland" || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")))
        qputenv("QT_QPA_PLATFORM", qEnvironmentVariableIsEmpty("DISPLAY") ? "wayland" : "xcb");
    // The HUD is small and always on screen: Qt Quick's software renderer draws it with a
    // fraction of the memory and CPU of OpenGL, which is often llvmpipe on desktops without
    // a GPU driver. QT_QUICK_BACKEND set by the user still wins.
    if (qEnvironmentVariableIsEmpty("QT_QUICK_BACKEND"))
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    QApplication app(argc, argv);
    // A second start (a sign-in link, say) hands its arguments to the running one.
    if (tamvex::forwardToRunningInstance(args))
        return 0;
    QApplication::setApplicationName("Tamvex");
    QApplication::setQuitOnLastWindowClosed(false);
    // An ending session or Ctrl+C leaves through the normal quit, without the quit question.
    tamvex::onTerminationSignals([] { QCoreApplication::quit(); });
    tamvex::AppDelegate delegate(request.audioInputFile);
    delegate.applicationDidFinishLaunching();
    return QApplication::exec();
}
