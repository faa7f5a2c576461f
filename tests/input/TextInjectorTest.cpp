#include "desktop/TextInjector.h"
#include "desktop/TerminalApps.h"
#include "support/PlatformFakes.h"
#include "support/TestMain.h"
#include "support/TestSupport.h"

#include <QSignalSpy>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;

namespace {

// A free function, not a lambda: a coroutine lambda's captures die with the closure.
QCoro::Task<void> injectThenMark(TextInjector& injector, QString text, bool& done, Cancellation cancel = {}) {
    co_await injector.inject(text, cancel);
    done = true;
}

struct Rig {
    ManualClock clock;
    FakeClipboard clipboard;
    FakeKeys keys;
    FakeAccess access;
    TextInjector injector{clock, clipboard, keys, access};
};

const ClipboardSnapshot kRich{
    {{"text/html", "<b>x</b>"}, {"text/plain", "x"}, {"application/x-custom", QByteArray("\0\1\2", 3)}},
    {{"image/png", QByteArray(1000, 'p')}}};

} // namespace

class TextInjectorTest : public QObject {
    Q_OBJECT
private slots:
    void restoresTheClipboardExactlyAtAQuarterSecond() {
        // An empty clipboard has nothing to restore: it keeps the text.
        for (const ClipboardSnapshot& before : {kRich, ClipboardSnapshot{}}) {
            Rig rig;
            rig.clipboard.items = before;
            bool done = false;
            auto task = injectThenMark(rig.injector, "Привет", done);
            // The text is on the clipboard and the chord was sent before the wait.
            QCOMPARE(rig.clipboard.log, (QStringList{"clear", "text:Привет"}));
            QCOMPARE(rig.keys.chords, QList<PasteChord>{PasteChord::ctrlV});
            rig.clock.advance(0.249);
            QVERIFY(!done);
            rig.clock.advance(0.001);
            QVERIFY(done);
            const QStringList restore = before.isEmpty() ? QStringList() : QStringList{"clear", "restore"};
            QCOMPARE(rig.clipboard.log, QStringList({"clear", "text:Привет"}) + restore);
            QCOMPARE(rig.clipboard.items,
                     (before.isEmpty() ? ClipboardSnapshot{{{"text/plain", QByteArray("Привет")}}} : kRich));
        }
    }

    void deniedAccessFailedKeysAndAKeptClipboardThrowAndCancelledWaitsReturn() {
        Rig rig;
        rig.access.trusted = false;
        rig.clipboard.items = kRich;
        QSignalSpy prompts(&rig.access, &InputAccess::promptRequested);
        auto error = failureOf<TextInjectorError>(rig.injector.inject("x"));
        QVERIFY(error && error->kind() == TextInjectorError::Kind::accessibilityNotGranted);
        QCOMPARE(prompts.count(), 1);
        QVERIFY(rig.clipboard.log.isEmpty());
        QVERIFY(rig.keys.chords.isEmpty());

        // Failed keys or a kept clipboard throw; a cancelled wait returns.
        rig.access.trusted = true;
        rig.keys.works = false;
        error = failureOf<TextInjectorError>(rig.injector.inject("x"));
        QVERIFY(error && error->kind() == TextInjectorError::Kind::eventSourceFailed);
        QCOMPARE(rig.clipboard.items, (ClipboardSnapshot{{{"text/plain", QByteArray("x")}}}));

        // A clipboard another program kept: the chord would paste its contents, so none goes out.
        rig.keys.chords.clear();
        rig.clipboard.kept = true;
        error = failureOf<TextInjectorError>(rig.injector.inject("z"));
        QVERIFY(error && error->kind() == TextInjectorError::Kind::clipboardNotOwned);
        QVERIFY(rig.keys.chords.isEmpty());

        rig.clipboard.kept = false;
        rig.keys.works = true;
        rig.clipboard.items = kRich;
        Cancellation cancel;
        bool done = false;
        auto task = injectThenMark(rig.injector, "y", done, cancel);
        rig.clock.advance(0.1);
        cancel.cancel();
        QVERIFY(done);
        rig.clock.advance(1.0);
        QCOMPARE(rig.clipboard.items, (ClipboardSnapshot{{{"text/plain", QByteArray("y")}}}));
    }

    // On Wayland XTest reaches X11 windows only: with a native window in front the paste is
    // refused before the clipboard is touched (the run then leaves the text there); an X11
    // window, or another sender, gets the chord.
    void waylandXTestPastesIntoX11WindowsOnly() {
        const struct {
            QString sender;
            std::optional<FocusedWindow> front;
            bool wayland;
            bool pasted;
        } rows[] = {
            {"XTest", std::nullopt, true, false},
            {"XTest", FocusedWindow{"kate", "kate"}, true, true},
            {"uinput", std::nullopt, true, true},
            {"XTest", std::nullopt, false, true},
        };
        for (const auto& row : rows) {
            Rig rig;
            rig.keys.senderName = row.sender;
            FakeFront front;
            front.window = row.front;
            TextInjector injector{rig.clock, rig.clipboard, rig.keys, rig.access, &front};
            injector.setWaylandSession(row.wayland);
            if (row.pasted) {
                bool done = false;
                auto task = injectThenMark(injector, "x", done);
                rig.clock.advance(TextInjector::restoreDelaySec);
                QVERIFY(done);
                QCOMPARE(rig.keys.chords.size(), 1);
                continue;
            }
            const auto error = failureOf<TextInjectorError>(injector.inject("x"));
            QVERIFY(error && error->kind() == TextInjectorError::Kind::focusedWindowNotX11);
            QVERIFY(rig.keys.chords.isEmpty() && rig.clipboard.log.isEmpty());
        }
    }

    void terminalsGetCtrlShiftV() {
        // The injector asking the focused window is seen by the real paste into a terminal.
        const QList<std::pair<std::optional<FocusedWindow>, PasteChord>> cases{
            {FocusedWindow{"gnome-terminal-server", "Gnome-terminal"}, PasteChord::ctrlShiftV}, // by the instance
            {FocusedWindow{"main", "XTerm"}, PasteChord::ctrlShiftV},      // by the class, any case
            {FocusedWindow{"terminal-notes", "Notes"}, PasteChord::ctrlV}, // a name only like a terminal's
            {std::nullopt, PasteChord::ctrlV},
        };
        for (const auto& [window, chord] : cases)
            QCOMPARE(pasteChordFor(window), chord);
    }
};

TAMVEX_TEST_CLASS(TextInjectorTest)
#include "TextInjectorTest.moc"
