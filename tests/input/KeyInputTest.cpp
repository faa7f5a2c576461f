#include "InputTestSupport.h"
#include "desktop/HotkeyManager.h"
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

constexpr quint64 kFn = EventFlag::function;

/// Key input over one fake source, started, with the FN monitor's edges noted.
struct InputRig {
    InputRig() : registry(*env.defaults), input(test::keyInput(registry, test::fakeSource(source))) {
        monitor = std::make_unique<FunctionKeyMonitor>(*input);
        monitor->onKeyDown = [this] { edges << "down"; };
        monitor->onKeyUp = [this] { edges << "up"; };
        input->start();
        monitor->start();
    }
    test::TestEnv env;
    ShortcutRegistry registry;
    test::FakeKeySource* source = nullptr;
    std::unique_ptr<KeyInput> input;
    std::unique_ptr<FunctionKeyMonitor> monitor;
    QStringList edges;
};

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
    void mergedStateOfSeveralKeyboards() {
        KeyboardState state;
        // Non-key events and repeats of keys that are not down change nothing.
        QVERIFY(state.apply(1, EV_SYN, SYN_REPORT, 0).empty());
        QVERIFY(state.apply(1, EV_KEY, KEY_A, 2).empty());
        QCOMPARE(state.apply(1, EV_KEY, KEY_LEFTCTRL, 1),
                 (std::vector<KeyChange>{{KEY_LEFTCTRL, 1, 0, EventFlag::control}}));
        QVERIFY(state.apply(1, EV_KEY, KEY_LEFTCTRL, 1).empty()); // the same edge twice
        // The right Ctrl on another keyboard: a key edge, no flag change.
        QCOMPARE(state.apply(2, EV_KEY, KEY_RIGHTCTRL, 1),
                 (std::vector<KeyChange>{{KEY_RIGHTCTRL, 1, EventFlag::control, EventFlag::control}}));
        QCOMPARE(state.apply(1, EV_KEY, KEY_LEFTCTRL, 0),
                 (std::vector<KeyChange>{{KEY_LEFTCTRL, 0, EventFlag::control, EventFlag::control}}));
        QCOMPARE(state.flags(), EventFlag::control);
        // FN held on two keyboards comes up only when both let go.
        QCOMPARE(state.apply(1, EV_KEY, KEY_FN, 1).size(), size_t(1));
        QVERIFY(state.apply(2, EV_KEY, KEY_FN, 1).empty());
        QCOMPARE(state.apply(2, EV_KEY, KEY_FN, 2).size(), size_t(1)); // a repeat of a held key
        QVERIFY(state.apply(1, EV_KEY, KEY_FN, 0).empty());
        QVERIFY(state.isDown(KEY_FN));
        // Unplugging keyboard 2 lets go of its FN and right Ctrl.
        const auto changes = state.removeDevice(2);
        QCOMPARE(changes.size(), size_t(2));
        QCOMPARE(state.flags(), quint64(0));
        QVERIFY(!state.isDown(KEY_FN) && !state.isDown(KEY_RIGHTCTRL));
        QVERIFY(state.apply(2, EV_KEY, KEY_FN, 0).empty()); // a late release of a gone device
        QVERIFY(state.removeDevice(7).empty());
    }

    void kernelEventSequencesGiveOneEdgeEach() {
        // What a keyboard's node gives: scan code, key, report; FN pressed amid Ctrl and
        // with autorepeat, as the kernel writes struct input_event.
        InputRig rig;
        rig.monitor->start(); // a second start adds no second monitor
        // Ctrl down, FN down with Ctrl held, two repeats, Ctrl up with FN held, FN up: each with
        // the flags held before it.
        using Key = std::tuple<int, int, quint64>;
        const QList<Key> expected{{KEY_LEFTCTRL, 1, 0},
                                  {KEY_FN, 1, EventFlag::control},
                                  {KEY_FN, 2, EventFlag::control | kFn},
                                  {KEY_FN, 2, EventFlag::control | kFn},
                                  {KEY_LEFTCTRL, 0, kFn},
                                  {KEY_FN, 0, 0}};
        QList<Key> keys;
        connect(rig.input.get(), &KeyInput::keyEvent, this, [&](int code, int value, quint64 flags) {
            keys.append({code, value, flags});
        });
        for (const auto& [code, value, flags] : expected) {
            rig.source->event(1, EV_MSC, MSC_SCAN, 0x70000 + code);
            rig.source->event(1, EV_KEY, code, value);
            rig.source->event(1, EV_SYN, SYN_REPORT, 0);
        }
        rig.source->event(1, EV_SYN, SYN_DROPPED, 0);
        QCOMPARE(rig.edges, (QStringList{"down", "up"}));
        QCOMPARE(keys, expected);
        // A second release, and the same flags twice, give no further edge.
        rig.source->key(1, KEY_FN, 0);
        rig.monitor->handleFlagsChanged(kFn);
        rig.monitor->handleFlagsChanged(kFn | EventFlag::control);
        QCOMPARE(rig.edges, (QStringList{"down", "up", "down"}));
        QVERIFY(rig.monitor->isPressed());

        // An unplugged keyboard lets go of its FN; so does a source going away, and the choice is logged.
        rig.monitor->handleFlagsChanged(0);
        rig.source->key(3, KEY_FN, 1);
        rig.source->unplug(3);
        QCOMPARE(rig.edges.mid(4), (QStringList{"down", "up"}));
        test::LogCapture log;
        rig.source->key(4, KEY_FN, 1);
        rig.source->setAvailable(false);
        QCOMPARE(rig.edges.mid(6), (QStringList{"down", "up"}));
        QCOMPARE(rig.input->activeSource(), KeyInput::Source::none);
        QVERIFY(!rig.input->customShortcutAvailable());
        QVERIFY(log.has("No keyboard (test)"));
        rig.source->setAvailable(true);
        rig.source->setAvailable(false);
        QCOMPARE(log.lines().filter("No keyboard (test)").size(), 1); // said once
    }

    void sourceChoiceIsExposed() {
        test::ShortcutRig rig;
        test::FakeKeySource *evdevRaw = nullptr, *x11Raw = nullptr;
        const auto input = test::keyInput(rig.registry, test::fakeSource(evdevRaw, "evdev", false),
                                          test::fakeSource(x11Raw, "X11", true, false));
        input->start();
        QCOMPARE(input->activeSource(), KeyInput::Source::x11);
        QVERIFY(!input->functionKeyAvailable());
        QVERIFY(input->customShortcutAvailable());

        // The custom shortcut works through X11; events of the idle source are ignored.
        rig.registry.storeShortcut(sorvelRecordAlternative, Shortcut{0x60, CarbonModifier::control});
        evdevRaw->key(1, KEY_LEFTCTRL, 1);
        evdevRaw->key(1, KEY_F5, 1);
        x11Raw->key(0, KEY_LEFTCTRL, 1);
        x11Raw->key(0, KEY_F5, 1);
        QCOMPARE(rig.edges, QStringList{"down"});
        // A keyboard becomes readable: evdev takes over, and what X11 held is let go.
        QSignalSpy fnChanged(input.get(), &KeyInput::functionKeyChanged);
        evdevRaw->setAvailable(true);
        QCOMPARE(input->activeSource(), KeyInput::Source::evdev);
        QCOMPARE(input->activeSourceName(), QStringLiteral("evdev"));
        QVERIFY(input->functionKeyAvailable());
        QCOMPARE(rig.edges, (QStringList{"down", "up"}));
        // The FN keyboard is pulled from the source in use, then one comes to the idle one.
        evdevRaw->setSeesFunctionKey(false);
        QVERIFY(!input->functionKeyAvailable());
        x11Raw->setSeesFunctionKey(true);
        QCOMPARE(fnChanged.size(), 2);
    }

    void hotkeyManagerSwitchesModes() {
        test::CoordinatorRig rig;
        ShortcutRegistry registry(*rig.fixture.env.defaults);
        test::FakeKeySource* source = nullptr;
        const auto input = test::keyInput(registry, test::fakeSource(source));
        SettingsStore& settings = rig.fixture.state->settings();
        HotkeyManager manager(*rig.coordinator, settings, *input, registry);
        manager.start();
        manager.start(); // the shortcut's handlers are registered once
        QVERIFY(manager.fnMonitor().isEnabled());
        QVERIFY(manager.alternativeWired());
        QCOMPARE(registry.namesWithHandlers(), QStringList{"sorvelRecordAlternative"});

        registry.storeShortcut(sorvelRecordAlternative, Shortcut{0x60, 0});
        // FN mode: the custom shortcut is muted, FN drives the coordinator.
        source->key(1, KEY_F5, 1);
        QVERIFY(!rig.recording());
        source->key(1, KEY_F5, 0);
        source->key(1, KEY_FN, 1);
        QVERIFY(rig.recording());
        QCOMPARE(rig.coordinator->currentMode(), std::optional(RecordingCoordinator::Mode::holdPending));

        // Switching to custom mode while FN is held: no key-up, the hold stays pending.
        settings.setUseFnHotkey(false);
        QVERIFY(manager.fnMonitor().isEnabled()); // one event-loop turn later
        rig.settle();
        QVERIFY(!manager.fnMonitor().isEnabled());
        QVERIFY(!manager.fnMonitor().isPressed());
        source->key(1, KEY_FN, 0);
        QCOMPARE(rig.coordinator->currentMode(), std::optional(RecordingCoordinator::Mode::holdPending));
        QVERIFY(rig.recording());
        // The custom shortcut's key-up ends the hold.
        rig.fixture.clock.advance(2.0);
        source->key(1, KEY_F5, 1);
        source->key(1, KEY_F5, 0);
        QVERIFY(!rig.coordinator->currentMode());

        // Back to FN, assigned twice, re-arms once.
        settings.setUseFnHotkey(true);
        settings.setUseFnHotkey(true);
        rig.settle();
        QVERIFY(manager.fnMonitor().isEnabled());
        int downs = 0;
        manager.fnMonitor().onKeyDown = [&] { ++downs; };
        source->key(1, KEY_FN, 1);
        QCOMPARE(downs, 1); // one monitor, not two
    }

#ifdef TAMVEX_HAVE_EVDEV
    void functionKeyIsSeenOnlyWhenAKeyboardReportsIt() {
        // No real keyboards here: a folder of non-devices is read without a crash, and reported.
        QTemporaryDir dir;
        QVERIFY(test::writeFile(dir.filePath("event0"), "not a device"));
        EvdevKeySource source(dir.path());
        QSignalSpy fnChanged(&source, &KeySource::functionKeyChanged);
        QVERIFY(!source.start());
        QCOMPARE(source.keyboardCount(), 0);
        QVERIFY(source.unavailableReason().contains(dir.path()));
        QVERIFY(!source.seesFunctionKey()); // no keyboard at all

        QVERIFY(adopt(source, "/dev/input/event1", "PC keyboard", {KEY_A, KEY_Z, KEY_LEFTCTRL}));
        QVERIFY(source.isAvailable());
        QVERIFY(!source.seesFunctionKey()); // FN handled in the keyboard's firmware
        QVERIFY(!adopt(source, "/dev/input/event2", "Mouse", {BTN_LEFT}));
        QVERIFY(!adopt(source, "/dev/input/event3", "Tamvex virtual keyboard", {KEY_A, KEY_Z, KEY_FN}));
        QVERIFY(!source.seesFunctionKey());
        QVERIFY(fnChanged.isEmpty());
        QVERIFY(adopt(source, "/dev/input/event4", "Laptop keyboard", {KEY_A, KEY_Z, KEY_FN}));
        QVERIFY(source.seesFunctionKey());
        QCOMPARE(fnChanged.size(), 1); // plugged in while running: the settings pane hears of it
        QCOMPARE(source.keyboardCount(), 2);
        source.stop(); // every device let go
        QVERIFY(!source.seesFunctionKey());
        QCOMPARE(fnChanged.size(), 2);
    }
#endif
};

TAMVEX_TEST_CLASS(KeyInputTest)
#include "KeyInputTest.moc"
