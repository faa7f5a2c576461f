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
        const auto input = test::keyInput(rig.registry, test::fakeSource(source));
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
        const auto input = test::keyInput(rig.registry, test::fakeSource(evdevRaw, "evdev", false),
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

    // FN held across a switch to the custom shortcut: its release is no key-up, and the hold
    // stays pending until the custom shortcut's own key-up.
    void fnHeldAcrossAModeSwitch() {
        test::CoordinatorRig rig;
        ShortcutRegistry registry(*rig.fixture.env.defaults);
        test::FakeKeySource* source = nullptr;
        const auto input = test::keyInput(registry, test::fakeSource(source));
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
