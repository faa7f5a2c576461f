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
    FakeFront front;
    TextInjector injector{clock, clipboard, keys, access, &front};
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
            const ClipboardSnapshot pasted{{{"text/plain", QByteArray("Привет")}}};
            QCOMPARE(rig.clipboard.items, pasted);
            rig.clock.advance(0.001);
            QVERIFY(done);
            const QStringList restore = before.isEmpty() ? QStringList() : QStringList{"clear", "restore"};
            QCOMPARE(rig.clipboard.log, QStringList({"clear", "text:Привет"}) + restore);
            QCOMPARE(rig.clipboard.items, before.isEmpty() ? pasted : kRich);
        }
    }

    void deniedAccessFailedKeysAndAKeptClipboardThrowAndCancelledWaitsReturn() {
        Rig rig;
        rig.access.trusted = false;
        rig.clipboard.items = kRich;
        QSignalSpy prompts(&rig.access, &InputAccess::promptRequested);
        for (int attempt = 0; attempt < 2; ++attempt) {
            const auto error = failureOf<TextInjectorError>(rig.injector.inject("x"));
            QVERIFY(error && error->kind() == TextInjectorError::Kind::accessibilityNotGranted);
            QVERIFY(error->description().contains("input") && error->description().contains("/dev/uinput"));
        }
        QCOMPARE(prompts.count(), 2);
        QVERIFY(prompts.at(0).at(0).toString().contains("usermod -aG input"));
        QVERIFY(rig.clipboard.log.isEmpty());
        QCOMPARE(rig.clipboard.items, kRich);
        QVERIFY(rig.keys.chords.isEmpty());

        // Failed keys or a kept clipboard throw; a cancelled wait returns.
        rig.access.trusted = true;
        rig.keys.works = false;
        auto error = failureOf<TextInjectorError>(rig.injector.inject("x"));
        QVERIFY(error && error->kind() == TextInjectorError::Kind::eventSourceFailed);
        QCOMPARE(error->description(), TextInjectorError::describe(TextInjectorError::Kind::eventSourceFailed));
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

    void terminalsGetCtrlShiftV() {
        Rig rig;
        const QList<std::pair<FocusedWindow, PasteChord>> cases{
            {{"gnome-terminal-server", "Gnome-terminal"}, PasteChord::ctrlShiftV}, // by the instance
            {{"main", "XTerm"}, PasteChord::ctrlShiftV},                           // by the class, any case
            {{"navigator", "firefox"}, PasteChord::ctrlV},
            {{"terminal-notes", "Notes"}, PasteChord::ctrlV}, // a name only like a terminal's
        };
        for (const auto& [window, chord] : cases) {
            rig.front.window = window;
            rig.keys.chords.clear();
            auto task = rig.injector.inject("ls");
            rig.clock.advance(0.25);
            QCOMPARE(rig.keys.chords, QList<PasteChord>{chord});
        }
        QCOMPARE(pasteChordFor(std::nullopt), PasteChord::ctrlV);
    }
};

TAMVEX_TEST_CLASS(TextInjectorTest)
#include "TextInjectorTest.moc"
