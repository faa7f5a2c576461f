// The real paste under a private X server: XTest keys, the X11 clipboard between two
// processes, and the focused window's WM_CLASS.
#include "InputTestSupport.h"
#include "PasteTargetProcess.h"
#include "KeyboardShortcuts/ShortcutRegistry.h"
#include "XkbLayout.h"
#include "support/ProcessFixtures.h"
#include "desktop/EvdevKeySource.h"
#include "desktop/HotkeyManager.h"
#include "desktop/KeyInput.h"
#include "desktop/X11KeySource.h"
#include "shell/SettingsStore.h"
#include "desktop/TextInjector.h"
#include "desktop/X11Session.h"
#include "platform/Clipboard.h"
#include "platform/InputAccess.h"
#include "support/TestSupport.h"

#include <QApplication>
#include <QDeadlineTimer>
#include <QProcess>
#include <QScopeGuard>
#include <QTest>

#include <X11/Xatom.h>
#include <X11/Xlib.h>

#include <functional>
#include <memory>
#include <optional>

using namespace tamvex;

namespace {

test::XvfbSession* gXvfb = nullptr;

using Types = test::PasteTargetProcess::Types;

/// The other application: a focused line edit in its own process.
class Target : public test::PasteTargetProcess {
public:
    explicit Target(const QString& resourceName = {})
        : PasteTargetProcess(QCoreApplication::applicationDirPath() + "/input_paste_target", resourceName) {}
};

/// The injector as the application has it: the system clipboard, XTest keys, the focused window.
struct SessionInjector {
    ManualClock clock;
    SystemClipboard clipboard;
    X11KeySender keys;
    SystemInputAccess access{keys};
    X11FrontmostApp front;
    TextInjector injector{clock, clipboard, keys, access, &front};

    /// Injects `text` and waits until `landed` holds; then the clipboard restore runs, in
    /// virtual time, so it waits for the target however slow the machine.
    bool paste(const QString& text, const std::function<bool()>& landed) {
        auto inject = injector.inject(text);
        const bool ok = test::spinUntil(landed, 20000);
        clock.advance(TextInjector::restoreDelaySec);
        test::syncWait(std::move(inject));
        return ok;
    }
};

/// The X server's current time, read as any client reads it: a property change on its own window.
Time serverTime(Display* display, Window window) {
    const Atom stamp = XInternAtom(display, "_TEST_SERVER_TIME", False);
    XChangeProperty(display, window, stamp, XA_INTEGER, 32, PropModeReplace, nullptr, 0);
    XEvent event;
    XWindowEvent(display, window, PropertyChangeMask, &event);
    return event.xproperty.time;
}

const Types kOriginal{
    {"text/plain", "оригинал"},
    {"text/html", "<b>оригинал</b>"},
    {"application/x-tamvex-test", [] {
         QByteArray bytes;
         for (int i = 0; i < 256; ++i)
             bytes.append(char(i));
         return bytes;
     }()},
};

} // namespace

class PasteX11Test : public QObject {
    Q_OBJECT
private slots:
    void init() {
        if (!gXvfb->ok())
            QSKIP(qPrintable("no X server for the real paste: " + gXvfb->reason));
    }

    void pastesIntoAnotherProcessAndRestoresTheClipboard() {
        Target target;
        QVERIFY(target.ready);
        target.setClipboard(kOriginal);
        const Types before = target.clipboard();
        for (auto it = kOriginal.begin(); it != kOriginal.end(); ++it)
            QCOMPARE(before.value(it.key()), it.value());

        SessionInjector session;
        QVERIFY(session.keys.isAvailable());
        QCOMPARE(session.front.focusedWindow()->instanceName, QStringLiteral("input_paste_target"));
        QVERIFY(session.paste("Привет, мир", [&] { return target.text() == "Привет, мир"; }));
        QCOMPARE(target.keys(), QStringLiteral("ctrl+V"));
        // What another process now reads is the original, type by type, byte for byte.
        const Types after = target.clipboard();
        QCOMPARE(after, before);
    }

    void anotherProgramsLaterClaimDoesNotWinOverThePaste() {
        Target target;
        QVERIFY(target.ready);
        SessionInjector session;
        // Our first claim sets Qt's notion of the time; a background tool hears of little after.
        QVERIFY(session.paste("раз", [&] { return target.text() == "раз"; }));

        Display* display = XOpenDisplay(nullptr);
        QVERIFY(display);
        auto closeDisplay = qScopeGuard([&] { XCloseDisplay(display); });
        const Window window = XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 1, 1, 0, 0, 0);
        XSelectInput(display, window, PropertyChangeMask);
        // Another program empties the clipboard strictly after anything our process has seen.
        const Time seen = serverTime(display, window);
        Time later = seen;
        while (later <= seen)
            later = serverTime(display, window);
        const Atom clipboard = XInternAtom(display, "CLIPBOARD", False);
        XSetSelectionOwner(display, clipboard, None, later);
        QCOMPARE(XGetSelectionOwner(display, clipboard), Window(None));

        // No turn of our event loop in between: the news of that claim is still unread.
        QVERIFY(session.paste("два", [&] { return target.text() == "раздва"; }));
    }

    void pasteLandsWhateverTheLayout() {
        struct Row {
            const char* name;
            QStringList layouts; // setxkbmap's arguments
            int group;           // the layout switched to
            QString resource;    // the target's WM_CLASS instance
            QString chord;
        };
        const QList<Row> rows{
            {"us,ru switched to Russian", {"-layout", "us,ru"}, 1, {}, "ctrl+V"},
            {"Russian only, a terminal", {"ru"}, 0, "xterm", "ctrl+shift+V"},
        };
        auto usLayoutAgain = qScopeGuard([] { test::useKeyboardLayout({"us"}, 0); });
        const QString text = "Вставка при русской раскладке";
        for (const Row& row : rows) {
            QCOMPARE(test::useKeyboardLayout(row.layouts, row.group), row.group);
            Target target(row.resource);
            QVERIFY2(target.ready, row.name);
            if (!row.resource.isEmpty()) { // the terminal: an empty clipboard, which then keeps the text
                target.ask("clear-clipboard", "ok");
                QVERIFY(target.clipboard().isEmpty());
            }
            SessionInjector session;
            QVERIFY2(session.paste(text, [&] { return target.keys() == row.chord; }), row.name);
            if (row.resource.isEmpty()) // a line edit takes only Ctrl+V as paste
                QCOMPARE(target.text(), text);
            else
                QCOMPARE(target.clipboard().value("text/plain"), text.toUtf8());
        }
    }

    void withoutKeyboardAccessTheX11SourceDrivesTheCoordinator() {
        test::CoordinatorRig rig;
        KeyboardShortcuts::ShortcutRegistry registry(*rig.fixture.env.defaults);
        QTemporaryDir noKeyboards;
        std::vector<std::unique_ptr<KeySource>> sources;
        sources.push_back(std::make_unique<EvdevKeySource>(noKeyboards.path()));
        sources.push_back(std::make_unique<X11KeySource>());
        KeyInput input(registry, std::move(sources));
        HotkeyManager manager(*rig.coordinator, rig.fixture.state->settings(), input, registry);
        rig.fixture.state->settings().setUseFnHotkey(false);
        registry.storeShortcut(KeyboardShortcuts::sorvelRecordAlternative,
                               KeyboardShortcuts::Shortcut{0x09, KeyboardShortcuts::CarbonModifier::control});
        manager.start();
        QCOMPARE(input.activeSource(), KeyInput::Source::x11);
        QVERIFY(!input.functionKeyAvailable());

        // The source's event selection travels on its own connection and may reach the server
        // after keys sent on ours: probe with a chord that is not the shortcut until one is heard.
        X11KeySender keys;
        int heard = 0;
        connect(&input, &KeyInput::keyEvent, this, [&] { ++heard; });
        QDeadlineTimer nextProbe(0);
        QVERIFY(test::spinUntil(
            [&] {
                if (heard == 0 && nextProbe.hasExpired()) {
                    keys.sendPaste(PasteChord::ctrlShiftV);
                    nextProbe.setRemainingTime(200);
                }
                return heard > 0;
            },
            20000));
        QVERIFY(!rig.recording());
        // Real key events through the X server: Ctrl+V pressed and released by XTest.
        QVERIFY(keys.sendPaste(PasteChord::ctrlV));
        QVERIFY(test::spinUntil([&] { return rig.recording(); }, 20000));
        QVERIFY(test::spinUntil([&] { return rig.coordinator->currentMode() ==
                                                 std::optional(RecordingCoordinator::Mode::awaitingDoubleTap); },
                                20000));
    }
};

int main(int argc, char** argv) {
    test::XvfbSession xvfb;
    gXvfb = &xvfb;
    qputenv("QT_QPA_PLATFORM", xvfb.ok() ? "xcb" : "offscreen");
    QApplication app(argc, argv);
    PasteX11Test test;
    return QTest::qExec(&test, argc, argv);
}

#include "PasteX11Test.moc"
