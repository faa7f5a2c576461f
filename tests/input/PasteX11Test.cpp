// The real paste under a private X server: XTest keys, the X11 clipboard between two
// processes, and the focused window's WM_CLASS.
#include "InputTestSupport.h"
#include "KeyboardShortcuts/ShortcutRegistry.h"
#include "PasteTargetProcess.h"
#include "XvfbSession.h"
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
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>

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

class DeniedAccess final : public InputAccess {
public:
    bool isTrusted() const override { return false; }
};

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

        ManualClock clock;
        SystemClipboard clipboard;
        X11KeySender keys;
        QVERIFY(keys.isAvailable());
        SystemInputAccess access(keys);
        X11FrontmostApp front;
        QCOMPARE(front.focusedWindow()->instanceName, QStringLiteral("input_paste_target"));
        TextInjector injector(clock, clipboard, keys, access, &front);
        // Virtual time: the restore waits until the target has pasted, however slow the machine.
        auto inject = injector.inject("Привет, мир");
        QVERIFY(test::spinUntil([&] { return target.text() == "Привет, мир"; }, 5000));
        QCOMPARE(target.keys(), QStringLiteral("ctrl+V"));
        clock.advance(TextInjector::restoreDelaySec);
        test::syncWait(std::move(inject));
        // What another process now reads is the original, type by type, byte for byte.
        const Types after = target.clipboard();
        QCOMPARE(after, before);
    }

    void emptyClipboardKeepsTheTextAndTerminalsGetCtrlShiftV() {
        Target target("xterm");
        QVERIFY(target.ready);
        target.ask("clear-clipboard", "ok");
        QVERIFY(target.clipboard().isEmpty());

        ManualClock clock;
        SystemClipboard clipboard;
        X11KeySender keys;
        SystemInputAccess access(keys);
        X11FrontmostApp front;
        TextInjector injector(clock, clipboard, keys, access, &front);
        auto inject = injector.inject("echo диктовка");
        QVERIFY(test::spinUntil([&] { return target.keys() == "ctrl+shift+V"; }, 5000));
        clock.advance(TextInjector::restoreDelaySec);
        test::syncWait(std::move(inject));
        QCOMPARE(target.clipboard().value("text/plain"), QByteArray("echo диктовка"));
    }

    void deniedAccessLeavesTheClipboardAlone() {
        Target target;
        QVERIFY(target.ready);
        target.setClipboard(kOriginal);
        const Types before = target.clipboard();
        WallClock clock;
        SystemClipboard clipboard;
        X11KeySender keys;
        DeniedAccess access;
        TextInjector injector(clock, clipboard, keys, access);
        QVERIFY_THROWS_EXCEPTION(TextInjectorError, test::syncWait(injector.inject("не вставится")));
        QCOMPARE(access.promptCount(), 1);
        QCOMPARE(target.clipboard(), before);
        QCOMPARE(target.text(), QString());
        QCOMPARE(target.keys(), QString());
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
        test::LogCapture log;
        manager.start();
        QCOMPARE(input.activeSource(), KeyInput::Source::x11);
        QVERIFY(!input.functionKeyAvailable());
        QVERIFY(log.hasPrefix("No keyboard found under"));
        QVERIFY(log.hasPrefix("Key source: X11"));

        // Real key events through the X server: Ctrl+V pressed and released by XTest.
        X11KeySender keys;
        QVERIFY(keys.sendPaste(PasteChord::ctrlV));
        QVERIFY(test::spinUntil([&] { return rig.recording(); }, 5000));
        QVERIFY(test::spinUntil([&] { return rig.coordinator->currentMode() ==
                                                 std::optional(RecordingCoordinator::Mode::awaitingDoubleTap); },
                                5000));
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
