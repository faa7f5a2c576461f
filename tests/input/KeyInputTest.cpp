#include "InputTestSupport.h"
#include "desktop/HotkeyManager.h"
#include "desktop/HotkeyNotes.h"
#include "shell/SettingsStore.h"
#include "support/TestMain.h"

#ifdef TAMVEX_HAVE_EVDEV
#include "desktop/EvdevKeySource.h"

#include <libevdev/libevdev.h>
#include <unistd.h>
#endif

#include <QSignalSpy>
#include <QTest>

using namespace tamvex;
using namespace tamvex::KeyboardShortcuts;

namespace {

constexpr quint64 kCtrl = EventFlag::control, kFn = EventFlag::function;

#ifdef TAMVEX_HAVE_EVDEV
/// Hands `source` an in-memory evdev device with the given keys, a pipe end standing in for its node.
bool adopt(EvdevKeySource& source, const QString& path, const char* name, std::initializer_list<unsigned> keys) {
    int fds[2];
    if (::pipe(fds) != 0)
        return false;
    ::close(fds[1]);
    libevdev* dev = libevdev_new();
    libevdev_set_name(dev, name);
    libevdev_enable_event_type(dev, EV_KEY);
    for (unsigned key : keys)
        libevdev_enable_event_code(dev, EV_KEY, key, nullptr);
    return source.adoptDevice(path, fds[0], dev);
}
#endif

} // namespace

class KeyInputTest : public QObject {
    Q_OBJECT
private slots:
    void keyboardsMergeIntoOneEdgePerChange() {
        test::ShortcutRig rig;
        test::FakeKeySource* source = nullptr;
        const auto input = test::keyInput(rig.registry, rig.clock, false, test::fakeSource(source));
        FunctionKeyMonitor monitor(*input);
        QStringList edges;
        monitor.onKeyDown = [&] { edges << "down"; };
        monitor.onKeyUp = [&] { edges << "up"; };
        input->start();
        monitor.start();
        using Key = std::tuple<int, int, quint64>;
        QList<Key> keys;
        connect(input.get(), &KeyInput::keyEvent, this, [&](int code, int value, quint64 flags) {
            keys.append({code, value, flags});
        });

        // Two keyboards, each giving frames as the kernel writes them: scan code, key, report.
        const struct {
            int device, code, value;
        } steps[] = {
            {1, KEY_A, 2},         // a repeat of a key that is not down: nothing
            {1, KEY_LEFTCTRL, 1},  // Ctrl down
            {1, KEY_LEFTCTRL, 1},  // the same edge twice: nothing
            {2, KEY_RIGHTCTRL, 1}, // the other Ctrl, on the second keyboard
            {1, KEY_LEFTCTRL, 0},  // Ctrl stays while either key of the pair is down
            {1, KEY_FN, 1},        // FN down with Ctrl held
            {2, KEY_FN, 1},        // FN on the second keyboard too: nothing
            {2, KEY_FN, 2},        // a repeat of a held key
            {2, KEY_RIGHTCTRL, 0}, // Ctrl up while FN is held: no FN edge
            {1, KEY_FN, 0},        // keyboard 2 still holds FN: nothing
        };
        for (const auto& step : steps) {
            source->event(step.device, EV_MSC, MSC_SCAN, 0x70000 + step.code);
            source->event(step.device, EV_KEY, step.code, step.value);
            source->event(step.device, EV_SYN, SYN_REPORT, 0);
        }
        source->event(1, EV_SYN, SYN_DROPPED, 0);
        QCOMPARE(edges, QStringList{"down"});
        source->unplug(2);         // lets go of its FN
        source->key(2, KEY_FN, 0); // a late release of the gone keyboard
        // A press carries the flags held before it, a release those after.
        const QList<Key> expected{{KEY_LEFTCTRL, 1, 0}, {KEY_RIGHTCTRL, 1, kCtrl}, {KEY_LEFTCTRL, 0, kCtrl},
                                  {KEY_FN, 1, kCtrl},   {KEY_FN, 2, kCtrl | kFn},  {KEY_RIGHTCTRL, 0, kFn},
                                  {KEY_FN, 0, 0}};
        QCOMPARE(keys, expected);
        QCOMPARE(edges, (QStringList{"down", "up"}));

        // A source going away lets go of FN too.
        source->key(4, KEY_FN, 1);
        source->setAvailable(false);
        QCOMPARE(edges.mid(2), (QStringList{"down", "up"}));
        QCOMPARE(input->activeSource(), KeyInput::Source::none);
        QVERIFY(!input->customShortcutAvailable());
    }

    void sourceChoiceIsExposed() {
        test::ShortcutRig rig;
        test::FakeKeySource *evdevRaw = nullptr, *x11Raw = nullptr;
        const auto input = test::keyInput(rig.registry, rig.clock, false, test::fakeSource(evdevRaw, "evdev", false),
                                          test::fakeSource(x11Raw, "X11", true, false));
        input->start();
        QCOMPARE(input->activeSource(), KeyInput::Source::x11);
        QVERIFY(!input->functionKeyAvailable());

        // The custom shortcut works through X11; events of the idle source are ignored.
        rig.registry.storeShortcut(sorvelRecordAlternative, Shortcut{0x60, CarbonModifier::control});
        evdevRaw->key(1, KEY_LEFTCTRL, 1);
        evdevRaw->key(1, KEY_F5, 1);
        x11Raw->key(0, KEY_LEFTCTRL, 1);
        x11Raw->key(0, KEY_F5, 1);
        QCOMPARE(rig.edges, QStringList{"down"});
        // A keyboard becomes readable: evdev takes over, and what X11 held is let go.
        evdevRaw->setAvailable(true);
        QCOMPARE(input->activeSource(), KeyInput::Source::evdev);
        QVERIFY(input->functionKeyAvailable());
        QCOMPARE(rig.edges, (QStringList{"down", "up"}));
    }

    // On Wayland: evdev, then the portal, then X11 through Xwayland. The choice waits for the
    // portal's answer up to the grace, one source alone feeds the shortcuts, and a source that
    // fails hands over to the next with what it held let go.
    void waylandChoiceWaitsForThePortalAndHandsOver() {
        using D = KeyboardShortcuts::Delivery;
        using S = KeyInput::Source;
        for (const bool portalAnswersInTime : {true, false}) {
            test::ShortcutRig rig;
            rig.registry.storeShortcut(sorvelRecordAlternative, Shortcut{0x60, CarbonModifier::control});
            test::FakeKeySource *evdev = nullptr, *portal = nullptr, *x11 = nullptr;
            auto portalSource = test::fakeSource(portal, "GlobalShortcuts portal", false, false);
            portal->setPending();
            const auto input = test::keyInput(rig.registry, rig.clock, true, test::fakeSource(evdev, "evdev", false),
                                              std::move(portalSource), test::fakeSource(x11, "X11", true, false));
            QSignalSpy changes(input.get(), &KeyInput::activeSourceChanged);
            input->start();
            rig.clock.advance(KeyInput::pendingGraceSec - 0.01);
            QVERIFY(!input->isDecided());
            QCOMPARE(rig.registry.delivery(), D::unknown);
            if (!portalAnswersInTime) {
                // X11 serves from the grace's end, and only while an X11 window has the focus.
                rig.clock.advance(0.01);
                QCOMPARE(input->activeSource(), S::x11);
                QVERIFY(input->onlyFocusedX11Windows());
                QCOMPARE(rig.registry.delivery(), D::focusedX11Only);
                x11->key(0, KEY_LEFTCTRL, 1);
                x11->key(0, KEY_F5, 1);
            }
            portal->setAvailable(true); // bound, in time or late: it takes over
            QCOMPARE(input->activeSource(), S::portal);
            QCOMPARE(rig.registry.delivery(), D::desktop);
            QVERIFY(!input->functionKeyAvailable());
            QCOMPARE(changes.count(), portalAnswersInTime ? 1 : 2);

            // Keys through the idle X11 source no longer count; the portal's edges do.
            x11->key(0, KEY_F5, 0);
            x11->key(0, KEY_F5, 1);
            portal->edge("sorvelRecordAlternative", true);
            portal->edge("sorvelRecordAlternative", false);
            portal->edge("sorvelRecordAlternative", true);
            const QStringList before = portalAnswersInTime ? QStringList() : QStringList{"down", "up"};
            QCOMPARE(rig.edges, before + QStringList({"down", "up", "down"}));

            // The desktop closes the session while the shortcut is held: it is let go, X11 takes over.
            portal->setAvailable(false);
            QCOMPARE(rig.edges, before + QStringList({"down", "up", "down", "up"}));
            QCOMPARE(input->activeSource(), S::x11);
            portal->edge("sorvelRecordAlternative", true);
            QCOMPARE(rig.edges.size(), before.size() + 4);

            // A keyboard becomes readable: evdev takes over from everything.
            evdev->setAvailable(true);
            QCOMPARE(input->activeSource(), S::evdev);
            QCOMPARE(rig.registry.delivery(), D::keys);
        }
    }

    // What the user is told at launch and in the settings pane, by session and mode.
    void hotkeyNotesFollowTheSession() {
        using D = KeyboardShortcuts::Delivery;
        const struct {
            D delivery;
            bool useFn, fnHeard;
            QString card;    // the launch card's title, empty for none
            QString pane;    // a word of the settings pane's note, empty for none
            QString fnNote;  // a word of the FN choice's note, empty for none
        } rows[] = {
            {D::keys, true, true, "", "", ""},
            {D::keys, true, false, "Клавиша FN здесь не работает", "", "обрабатывают FN сами"},
            {D::keys, false, false, "", "", ""},
            {D::desktop, true, false, "Клавиша FN здесь не работает", "", "портал GlobalShortcuts"},
            {D::desktop, false, false, "", "", ""},
            {D::focusedX11Only, false, false, "Горячая клавиша слышна не везде", "окно X11", ""},
            {D::none, true, false, "Горячая клавиша не слышна", "tamvex ctl toggle", "X11 не передаёт"},
            {D::unknown, true, false, "", "", ""}, // not decided yet: nothing said
        };
        for (const auto& row : rows) {
            const hotkeyNotes::Situation situation{row.delivery, row.useFn, row.fnHeard};
            const auto card = hotkeyNotes::launchCard(situation, "Ctrl+Alt+D");
            QCOMPARE(card ? card->title : QString(), row.card);
            const QString pane = hotkeyNotes::sessionNote(situation), fn = hotkeyNotes::functionKeyNote(situation);
            QVERIFY2(row.pane.isEmpty() ? pane.isEmpty() : pane.contains(row.pane), qPrintable(pane));
            QVERIFY2(row.fnNote.isEmpty() ? fn.isEmpty() : fn.contains(row.fnNote), qPrintable(fn));
            if (!row.pane.isEmpty()) // both ways out, with the exact command
                QVERIFY(pane.contains("usermod -aG input") && pane.contains("«tamvex ctl toggle»"));
        }
    }

    // FN held across a switch to the custom shortcut: its release is no key-up, and the hold
    // stays pending until the custom shortcut's own key-up.
    void fnHeldAcrossAModeSwitch() {
        test::CoordinatorRig rig;
        ShortcutRegistry registry(*rig.fixture.env.defaults);
        test::FakeKeySource* source = nullptr;
        const auto input = test::keyInput(registry, rig.fixture.clock, false, test::fakeSource(source));
        SettingsStore& settings = rig.fixture.state->settings();
        HotkeyManager manager(*rig.coordinator, settings, *input, registry);
        manager.start();
        registry.storeShortcut(sorvelRecordAlternative, Shortcut{0x60, 0});
        source->key(1, KEY_FN, 1);
        settings.setUseFnHotkey(false);
        QCoreApplication::processEvents(); // the switch is queued
        source->key(1, KEY_FN, 0);
        QCOMPARE(rig.coordinator->currentMode(), std::optional(RecordingCoordinator::Mode::holdPending));
        rig.fixture.clock.advance(2.0);
        source->key(1, KEY_F5, 1);
        source->key(1, KEY_F5, 0);
        QVERIFY(!rig.coordinator->currentMode());
    }

#ifdef TAMVEX_HAVE_EVDEV
    // Our own virtual keyboard is never read back as a keyboard, though it has FN; a folder of
    // non-devices is read without a crash; a keyboard with FN plugged in later is announced.
    void ownVirtualKeyboardIsNotReadBack() {
        QTemporaryDir dir;
        QVERIFY(test::writeFile(dir.filePath("event0"), "not a device"));
        EvdevKeySource source(dir.path());
        QVERIFY(!source.start());
        QSignalSpy fnChanged(&source, &KeySource::functionKeyChanged);
        QVERIFY(!adopt(source, "/dev/input/event3", "Tamvex virtual keyboard", {KEY_A, KEY_Z, KEY_FN}));
        QVERIFY(!source.seesFunctionKey());
        QVERIFY(adopt(source, "/dev/input/event4", "Laptop keyboard", {KEY_A, KEY_Z, KEY_FN}));
        QVERIFY(source.seesFunctionKey());
        QCOMPARE(fnChanged.count(), 1);
    }
#endif
};

TAMVEX_TEST_CLASS(KeyInputTest)
#include "KeyInputTest.moc"
