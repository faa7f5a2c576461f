#include "KeyboardShortcuts/KeyCodes.h"
#include "KeyboardShortcuts/Recorder.h"
#include "KeyboardShortcuts/ShortcutRegistry.h"
#include "support/TestSupport.h"

#include <QSignalSpy>
#include <QTest>

#include <linux/input-event-codes.h>

using namespace tamvex;
using namespace tamvex::KeyboardShortcuts;
using Outcome = Recorder::Outcome;

// The recorder as the QML field drives it: native scan codes (evdev + 8) and Qt's modifiers,
// which on X11 do not yet include a modifier key's own press.
class RecorderModifiersTest : public QObject {
    Q_OBJECT
private slots:
    void modifierPressesOnlyChangeTheShownModifiers() {
        test::TestEnv env;
        ShortcutRegistry registry(*env.defaults);
        Recorder recorder(registry, sorvelRecordAlternative);
        recorder.setActive(true);
        QSignalSpy stored(&recorder, &Recorder::changed);
        const int ctrl = int(Qt::ControlModifier), alt = int(Qt::AltModifier);

        struct Step {
            int evdevKey;
            int qtModifiers;
            bool press;
            QString shown;
        } steps[] = {
            {KEY_LEFTCTRL, 0, true, "Ctrl+"},
            {KEY_LEFTALT, ctrl, true, "Ctrl+Alt+"}, // the old fault: Alt was taken as the key
            {KEY_RIGHTSHIFT, ctrl | alt, true, "Ctrl+Alt+Shift+"},
            {KEY_RIGHTSHIFT, ctrl | alt | int(Qt::ShiftModifier), false, "Ctrl+Alt+"},
            {KEY_LEFTMETA, ctrl | alt, true, "Ctrl+Alt+Super+"},
            {KEY_LEFTMETA, ctrl | alt | int(Qt::MetaModifier), false, "Ctrl+Alt+"},
        };
        for (const Step& s : steps) {
            if (s.press)
                QCOMPARE(Outcome(recorder.handleQtKey(s.evdevKey + 8, s.qtModifiers)), Outcome::modifierHeld);
            else
                recorder.handleQtKeyRelease(s.evdevKey + 8, s.qtModifiers);
            QCOMPARE(recorder.heldModifiersText(), s.shown);
            QVERIFY(stored.isEmpty());
            QVERIFY(recorder.isActive());
        }
        // The first other key takes the shortcut.
        QCOMPARE(Outcome(recorder.handleQtKey(KEY_M + 8, ctrl | alt)), Outcome::stored);
        const auto shortcut = registry.storedShortcut(sorvelRecordAlternative);
        QVERIFY(shortcut);
        QCOMPARE(shortcut->carbonModifiers, CarbonModifier::control | CarbonModifier::option);
        QCOMPARE(keyCodeFromEvdev(KEY_M), std::optional<int>(shortcut->carbonKeyCode));
        QCOMPARE(recorder.heldModifiersText(), QString());

        // A modifier alone, then released, stores nothing; FN's own press is a modifier too.
        recorder.setActive(true);
        QCOMPARE(Outcome(recorder.handleKeyDown(KeyCode::function, 0)), Outcome::modifierHeld);
        QCOMPARE(recorder.heldModifiersText(), QString("Fn+"));
        recorder.handleKeyUp(KeyCode::function, EventFlag::function);
        QCOMPARE(recorder.heldModifiersText(), QString());
        recorder.setActive(false);
        QCOMPARE(stored.size(), 1);
    }

    // What the field shows is the Linux form: modifiers in one order whatever the order of
    // the flags, keys by their place on the keyboard (so a Russian layout still shows "D"
    // for the key that types "в"), and Linux key names instead of the Mac glyphs.
    void fieldShowsTheLinuxForm() {
        test::TestEnv env;
        ShortcutRegistry registry(*env.defaults);
        Recorder recorder(registry, sorvelRecordAlternative);
        QSignalSpy stored(&recorder, &Recorder::changed);
        recorder.setSystemShortcuts({});
        const int ctrl = int(Qt::ControlModifier), alt = int(Qt::AltModifier), shift = int(Qt::ShiftModifier);
        const int meta = int(Qt::MetaModifier), keypad = int(Qt::KeypadModifier);
        const struct {
            int evdevKey;
            int qtModifiers;
            QString shown;
        } rows[] = {
            {KEY_D, alt | ctrl, "Ctrl+Alt+D"}, // "в" on the Russian layout
            {KEY_SEMICOLON, ctrl, "Ctrl+;"},   // "ж"
            {KEY_M, meta | shift | alt | ctrl, "Ctrl+Alt+Shift+Super+M"},
            {KEY_SPACE, ctrl | shift, "Ctrl+Shift+Space"},
            {KEY_ENTER, ctrl, "Ctrl+Enter"},
            {KEY_TAB, ctrl | shift, "Ctrl+Shift+Tab"},
            {KEY_PAGEUP, alt, "Alt+PgUp"},
            {KEY_LEFT, meta, "Super+Left"},
            {KEY_KP5, ctrl | keypad, "Ctrl+Num 5"},
            {KEY_F5, 0, "F5"},
        };
        for (const auto& row : rows) {
            recorder.setActive(true);
            QCOMPARE(Outcome(recorder.handleQtKey(row.evdevKey + 8, row.qtModifiers)), Outcome::stored);
            QCOMPARE(recorder.text(), row.shown);
            QCOMPARE(stored.last().at(0).toString(), row.shown);
        }
        // FN never comes from Qt's modifiers; with a keyboard that sends it, it shows as "Fn+".
        recorder.setActive(true);
        QCOMPARE(recorder.handleKeyDown(KeyCode::v, EventFlag::control | EventFlag::function), Outcome::stored);
        QCOMPARE(recorder.text(), QString("Ctrl+Fn+V"));
        recorder.clear();
        QCOMPARE(recorder.text(), QString());
    }
};

QTEST_GUILESS_MAIN(RecorderModifiersTest)
#include "RecorderModifiersTest.moc"
