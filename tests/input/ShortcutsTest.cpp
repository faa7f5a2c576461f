#include "InputTestSupport.h"
#include "KeyboardShortcuts/KeyCodes.h"
#include "KeyboardShortcuts/Recorder.h"
#include "support/TestMain.h"

#include <QSignalSpy>
#include <QTest>

#include <linux/input-event-codes.h>

using namespace tamvex;
using namespace tamvex::KeyboardShortcuts;
using Outcome = Recorder::Outcome;

namespace {
constexpr quint64 kCtrl = EventFlag::control, kAlt = EventFlag::option, kShift = EventFlag::shift;
constexpr quint64 kFn = EventFlag::function;
const QString kKey = QStringLiteral("KeyboardShortcuts_sorvelRecordAlternative");
} // namespace

class ShortcutsTest : public QObject {
    Q_OBJECT
private slots:
    void storageRoundTripAndInvalidValues() {
        test::TestEnv env;
        ShortcutRegistry registry(*env.defaults);
        QSignalSpy changed(&registry, &ShortcutRegistry::shortcutByNameDidChange);
        const Shortcut shortcut{0x31, CarbonModifier::control | CarbonModifier::option};
        registry.storeShortcut(sorvelRecordAlternative, shortcut);
        QCOMPARE(env.defaults->readString(kKey).value,
                 QStringLiteral(R"({"carbonKeyCode":49,"carbonModifiers":6144})"));
        // A second reader of the same file, as the next start would be; `registry` keeps its own.
        Defaults restarted(env.paths.settingsFile());
        ShortcutRegistry reopened(restarted);
        QCOMPARE(reopened.storedShortcut(sorvelRecordAlternative), std::optional<Shortcut>(shortcut));

        registry.storeShortcut(sorvelRecordAlternative, std::nullopt);
        QVERIFY(!env.defaults->contains(kKey));
        QCOMPARE(changed, (QList<QVariantList>{{"sorvelRecordAlternative"}, {"sorvelRecordAlternative"}}));

        // Anything but an object with two whole numbers counts as no shortcut.
        for (const QString& bad : {QStringLiteral("[1,2]"), QStringLiteral(R"({"carbonKeyCode":9})"),
                                   QStringLiteral(R"({"carbonKeyCode":9.5,"carbonModifiers":256})")}) {
            env.defaults->setString(kKey, bad);
            QVERIFY2(!registry.storedShortcut(sorvelRecordAlternative), qPrintable(bad));
        }
        env.defaults->setInt(kKey, 5); // a value of the wrong type
        QVERIFY(!registry.storedShortcut(sorvelRecordAlternative));
    }

    void registryFiresOnTheShortcutsEdges() {
        test::ShortcutRig rig;
        auto& [env, clock, registry, calls] = rig;
        Q_UNUSED(clock);
        registry.storeShortcut(sorvelRecordAlternative,
                               Shortcut{0x31, CarbonModifier::control | CarbonModifier::option});
        registry.handleKeyEvent(KEY_SPACE, 1, kCtrl);                 // too few modifiers
        registry.handleKeyEvent(KEY_SPACE, 1, kCtrl | kAlt | kShift); // too many
        QVERIFY(calls.isEmpty());

        registry.handleKeyEvent(KEY_SPACE, 1, kCtrl | kAlt | EventFlag::capsLock);
        registry.handleKeyEvent(KEY_SPACE, 2, kCtrl | kAlt); // repeats are no edges
        registry.handleKeyEvent(KEY_SPACE, 1, kCtrl | kAlt);
        registry.handleKeyEvent(KEY_LEFTALT, 0, kCtrl); // a modifier let go first: still held
        registry.handleKeyEvent(KEY_SPACE, 0, kCtrl);
        QCOMPARE(calls, (QStringList{"down", "up"}));

        // Changing the shortcut while it is held ends it; the old key no longer fires.
        calls.clear();
        registry.handleKeyEvent(KEY_SPACE, 1, kCtrl | kAlt);
        registry.storeShortcut(sorvelRecordAlternative, Shortcut{0x60, 0});
        registry.handleKeyEvent(KEY_SPACE, 0, kCtrl | kAlt);
        registry.handleKeyEvent(KEY_F5, 1, 0);
        registry.releaseAll();
        QCOMPARE(calls, (QStringList{"down", "up", "down", "up"}));

        // Paused (a recorder editing), neither keys nor portal edges fire; nor does a name never
        // bound. Portal edges otherwise: ControlTest.portalShortcutsDriveTheCustomShortcut.
        calls.clear();
        registry.setPaused(true);
        registry.handleKeyEvent(KEY_F5, 1, 0);
        registry.handleExternalEdge("sorvelRecordAlternative", EventType::keyDown);
        registry.setPaused(false);
        registry.handleExternalEdge("unknownName", EventType::keyDown);
        QVERIFY(calls.isEmpty());
    }

    void recorderRules() {
        test::ShortcutRig rig;
        ShortcutRegistry& registry = rig.registry;
        Recorder recorder{registry, sorvelRecordAlternative};
        QSignalSpy beeps(&recorder, &Recorder::beep);
        QSignalSpy alerts(&recorder, &Recorder::alertRequested);
        registry.storeShortcut(sorvelRecordAlternative, Shortcut{0x60, 0});

        QCOMPARE(recorder.handleKeyDown(0x00, kCtrl), Outcome::ignored); // not editing
        recorder.setActive(true);
        QVERIFY(registry.isPaused());

        // Escape alone ends editing and keeps the old value; with a modifier it is a shortcut.
        QCOMPARE(recorder.handleKeyDown(KeyCode::escape, EventFlag::capsLock), Outcome::cancelled);
        QVERIFY(!recorder.isActive() && !registry.isPaused());
        QCOMPARE(recorder.text(), QStringLiteral("F5"));

        // A deleting key alone clears; Shift or FN alone is no real modifier.
        recorder.setActive(true);
        QCOMPARE(recorder.handleKeyDown(KeyCode::deleteKey, 0), Outcome::cleared);
        QVERIFY(!recorder.hasShortcut());
        for (auto [key, flags] : {std::pair{0x00, kFn | kShift}, {0x34, kCtrl}})
            QCOMPARE(recorder.handleKeyDown(key, flags), Outcome::beeped); // 0x34: no such key
        QCOMPARE(beeps.count(), 2);

        // A system shortcut asks first; "ok" gives up, "force" takes it anyway.
        QCOMPARE(recorder.handleKeyDown(0x30, kAlt), Outcome::usedBySystem);
        QCOMPARE(alerts.size(), 1);
        recorder.dismissPending();
        recorder.forceUsePending();
        QVERIFY(!recorder.hasShortcut());
        QCOMPARE(recorder.handleKeyDown(0x30, kAlt), Outcome::usedBySystem);
        recorder.forceUsePending();
        QCOMPARE(recorder.text(), QStringLiteral("Alt+Tab"));
        QVERIFY(!recorder.isActive());

        // A plain F12 skips the system test even when the desktop lists it.
        recorder.setSystemShortcuts({Shortcut{KeyCode::f12, 0}, Shortcut{0x7A, 0}});
        recorder.setActive(true);
        QCOMPARE(recorder.handleKeyDown(0x7A, 0), Outcome::usedBySystem);
        QCOMPARE(recorder.handleKeyDown(KeyCode::f12, 0), Outcome::stored);
        QCOMPARE(recorder.text(), QStringLiteral("F12"));
    }

    void modifierPressesAndTheFieldsLinuxForm() {
        // As the QML field drives it: native scan codes (evdev + 8) and Qt's modifiers, which on
        // X11 do not yet include a modifier key's own press.
        test::ShortcutRig rig;
        Recorder recorder{rig.registry, sorvelRecordAlternative};
        recorder.setActive(true);
        const int ctrl = int(Qt::ControlModifier), alt = int(Qt::AltModifier);

        struct Step {
            int evdevKey;
            int qtModifiers;
            bool press;
            QString shown;
        } steps[] = {
            {KEY_LEFTCTRL, 0, true, "Ctrl+"},
            {KEY_LEFTALT, ctrl, true, "Ctrl+Alt+"},     // the old fault: Alt was taken as the key
            {KEY_FN, ctrl | alt, true, "Ctrl+Alt+Fn+"}, // FN's own press is a modifier too
            {KEY_FN, ctrl | alt, false, "Ctrl+Alt+"},
        };
        for (const Step& s : steps) {
            if (s.press)
                QCOMPARE(Outcome(recorder.handleQtKey(s.evdevKey + 8, s.qtModifiers)), Outcome::modifierHeld);
            else
                recorder.handleQtKeyRelease(s.evdevKey + 8, s.qtModifiers);
            QCOMPARE(recorder.heldModifiersText(), s.shown);
        }
        // The first other key takes the shortcut. What the field shows is the Linux form: modifiers
        // in one order whatever the order of the flags, keys by their place on the keyboard (so a
        // Russian layout still shows ";" for the key that types "ж"), and Linux key names.
        const int shift = int(Qt::ShiftModifier), meta = int(Qt::MetaModifier), keypad = int(Qt::KeypadModifier);
        const struct {
            int evdevKey;
            int qtModifiers;
            QString shown;
        } rows[] = {
            {KEY_SEMICOLON, meta | shift | alt | ctrl, "Ctrl+Alt+Shift+Super+;"}, // "ж" on the Russian layout
            {KEY_KP5, ctrl | keypad, "Ctrl+Num 5"},
            {KEY_F5, 0, "F5"},
        };
        for (const auto& row : rows) {
            recorder.setActive(true);
            QCOMPARE(Outcome(recorder.handleQtKey(row.evdevKey + 8, row.qtModifiers)), Outcome::stored);
            QCOMPARE(recorder.text(), row.shown);
            QCOMPARE(recorder.heldModifiersText(), QString());
        }
    }
};

TAMVEX_TEST_CLASS(ShortcutsTest)
#include "ShortcutsTest.moc"
