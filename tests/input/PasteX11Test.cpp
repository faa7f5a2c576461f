// The real paste under a private X server: XTest keys and the X11 clipboard between two
// processes; the X11 key source hearing real keys.
#include "InputTestSupport.h"
#include "PasteTargetProcess.h"
#include "XkbLayout.h"
#include "desktop/TextInjector.h"
#include "desktop/X11KeySource.h"
#include "desktop/X11Session.h"
#include "platform/Clipboard.h"
#include "platform/InputAccess.h"
#include "support/ProcessFixtures.h"

#include <QApplication>
#include <QDeadlineTimer>
#include <QScopeGuard>
#include <QTest>

#include <X11/Xatom.h>
#include <X11/Xlib.h>

using namespace tamvex;

namespace {

test::XvfbSession* gXvfb = nullptr;

using Types = test::PasteTargetProcess::Types;

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

// Binary bytes with a NUL and the high half, which no text conversion would keep.
const Types kOriginal{{"text/plain", "оригинал"},
                      {"text/html", "<b>оригинал</b>"},
                      {"application/x-tamvex-test", QByteArray("\0\x01\x7f\x80\xfe\xff", 6)}};

} // namespace

class PasteX11Test : public QObject {
    Q_OBJECT
private slots:
    void init() {
        if (!gXvfb->ok())
            QSKIP(qPrintable("no X server for the real paste: " + gXvfb->reason));
    }

    void pastesIntoAnotherProcessUnderARussianLayoutRestoresTheClipboardAndOutlivesALaterClaim() {
        // us,ru switched to Russian: no key of the active layout types a Latin "v".
        auto usLayoutAgain = qScopeGuard([] { test::useKeyboardLayout({"us"}, 0); });
        QCOMPARE(test::useKeyboardLayout({"-layout", "us,ru"}, 1), 1);
        test::PasteTargetProcess target;
        QVERIFY(target.ready);
        target.setClipboard(kOriginal);
        const Types before = target.clipboard();
        QCOMPARE(before.value("application/x-tamvex-test"), kOriginal.value("application/x-tamvex-test"));

        SessionInjector session;
        QVERIFY(session.paste("Привет, мир", [&] { return target.text() == "Привет, мир"; }));
        // What another process now reads is the original, type by type, byte for byte.
        QCOMPARE(target.clipboard(), before);

        // Another program empties the clipboard strictly after anything our process has seen:
        // its later claim must not win over the next paste.
        Display* display = XOpenDisplay(nullptr);
        QVERIFY(display);
        auto closeDisplay = qScopeGuard([&] { XCloseDisplay(display); });
        const Window window = XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 1, 1, 0, 0, 0);
        XSelectInput(display, window, PropertyChangeMask);
        const Time seen = serverTime(display, window);
        Time later = seen;
        while (later <= seen)
            later = serverTime(display, window);
        const Atom clipboard = XInternAtom(display, "CLIPBOARD", False);
        XSetSelectionOwner(display, clipboard, None, later);
        QCOMPARE(XGetSelectionOwner(display, clipboard), Window(None));

        // No turn of our event loop in between: the news of that claim is still unread.
        QVERIFY(session.paste("два", [&] { return target.text() == "Привет, мирдва"; }));
    }

    // The fallback key source (chosen when no keyboard is readable; see KeyInputTest) hears real
    // keys through the X server.
    void theX11SourceCarriesTheShortcut() {
        test::ShortcutRig rig;
        const auto input = test::keyInput(rig.registry, rig.clock, false, std::make_unique<X11KeySource>());
        rig.registry.storeShortcut(KeyboardShortcuts::sorvelRecordAlternative,
                                   KeyboardShortcuts::Shortcut{0x09, KeyboardShortcuts::CarbonModifier::control});
        input->start();

        // The source's event selection travels on its own connection and may reach the server
        // after keys sent on ours: probe with a chord that is not the shortcut until one is heard.
        X11KeySender keys;
        int heard = 0;
        connect(input.get(), &KeyInput::keyEvent, this, [&] { ++heard; });
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
        // The probe holds Shift as well, so it is no Ctrl+V: a chord sent without its Shift fires here.
        QVERIFY(rig.edges.isEmpty());
        // Real key events through the X server: Ctrl+V pressed and released by XTest.
        QVERIFY(keys.sendPaste(PasteChord::ctrlV));
        QVERIFY(test::spinUntil([&] { return rig.edges == QStringList{"down", "up"}; }, 20000));
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
