#include "InputTestSupport.h"
#include "KeyboardShortcuts/KeyCodes.h"
#include "KeyboardShortcuts/Recorder.h"
#include "KeyboardShortcuts/ShortcutRegistry.h"
#include "support/TestMain.h"
#include "support/TestSupport.h"

#include <QSignalSpy>
#include <QTest>

#include <linux/input-event-codes.h>

using namespace tamvex;
using namespace tamvex::KeyboardShortcuts;
using Outcome = Recorder::Outcome;

namespace {
constexpr quint64 kCtrl = EventFlag::control, kAlt = EventFlag::option, kShift = EventFlag::shift;
constexpr quint64 kCmd = EventFlag::command, kFn = EventFlag::function;
const QString kKey = QStringLiteral("KeyboardShortcuts_sorvelRecordAlternative");

/// A recorder of the alternative shortcut over a sandboxed registry.
struct RecorderRig {
    test::TestEnv env;
    ShortcutRegistry registry{*env.defaults};
    Recorder recorder{registry, sorvelRecordAlternative};
};
} // namespace

class ShortcutsTest : public QObject {
    Q_OBJECT
private slots:
    void storageRoundTripAndInvalidValues() {
        test::TestEnv env;
        ShortcutRegistry registry(*env.defaults);
        QSignalSpy changed(&registry, &ShortcutRegistry::shortcutByNameDidChange);
        QVERIFY(!registry.storedShortcut(sorvelRecordAlternative));

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
        for (const QString& bad :
             {QStringLiteral("not json"), QStringLiteral("[1,2]"), QStringLiteral(R"({"carbonKeyCode":9})"),
              QStringLiteral(R"({"carbonKeyCode":"9","carbonModifiers":256})"),
              QStringLiteral(R"({"carbonKeyCode":9.5,"carbonModifiers":256})"),
              QStringLiteral(R"({"carbonKeyCode":-1,"carbonModifiers":256})")}) {
            env.defaults->setString(kKey, bad);
            QVERIFY2(!registry.storedShortcut(sorvelRecordAlternative), qPrintable(bad));
        }
        env.defaults->setInt(kKey, 5); // a value of the wrong type
        QVERIFY(!registry.storedShortcut(sorvelRecordAlternative));

        // A default is stored only where nothing is.
        const Name withDefault{"other", Shortcut{0x7A, 0}};
        registry.ensureDefault(withDefault);
        QCOMPARE(registry.storedShortcut(withDefault), std::optional<Shortcut>(Shortcut{0x7A, 0}));
        registry.storeShortcut(withDefault, Shortcut{0x78, 0});
        registry.ensureDefault(withDefault);
        QCOMPARE(registry.storedShortcut(withDefault), std::optional<Shortcut>(Shortcut{0x78, 0}));
    }

    void keyTablesAgree() {
        // Every special key has a symbol, sits on its own code and maps to a Linux key.
        QSet<int> codes;
        for (SpecialKey key : allSpecialKeys()) {
            const int code = codeOfSpecialKey(key);
            QVERIFY(!symbolOfSpecialKey(key).isEmpty());
            QCOMPARE(specialKeyForCode(code), std::optional<SpecialKey>(key));
            QVERIFY2(evdevFromKeyCode(code), qPrintable(symbolOfSpecialKey(key)));
            codes.insert(code);
        }
        QCOMPARE(codes.size(), allSpecialKeys().size());
        // Round trips through evdev for every virtual code of the ANSI layout.
        for (int code = 0; code < 0x80; ++code) {
            if (const auto evdev = evdevFromKeyCode(code))
                QCOMPARE(keyCodeFromEvdev(*evdev), std::optional<int>(code));
        }
        QCOMPARE(evdevFromKeyCode(KeyCode::v), std::optional<int>(KEY_V));
        QCOMPARE(keyCodeFromEvdev(KEY_FN), std::optional<int>(KeyCode::function));
        QCOMPARE(keyCodeFromEvdev(KEY_INSERT), std::optional<int>(0x72)); // Insert sits where Help is
        QVERIFY(!keyCodeFromEvdev(KEY_PROG1));
        QVERIFY(isFunctionKey(0x6F) && isFunctionKey(0x5A) && !isFunctionKey(0x24));
        // The glyph form is only written to the log.
        QCOMPARE((Shortcut{0x09, CarbonModifier::all}.displayText()), QStringLiteral("⌃⌥⇧⌘🌐︎V"));
        // Flags and stored modifiers convert both ways.
        const Shortcut made = Shortcut::fromEvent(0x09, kCtrl | kShift | EventFlag::capsLock);
        QCOMPARE(made.carbonModifiers, CarbonModifier::control | CarbonModifier::shift);
        QCOMPARE(made.eventFlags(), kCtrl | kShift);
    }

    void registryFiresOnTheShortcutsEdges() {
        test::ShortcutRig rig;
        auto& [env, registry, calls] = rig;
        registry.handleKeyEvent(KEY_SPACE, 1, kCtrl | kAlt);
        QVERIFY(calls.isEmpty()); // nothing stored yet

        registry.storeShortcut(sorvelRecordAlternative,
                               Shortcut{0x31, CarbonModifier::control | CarbonModifier::option});
        registry.handleKeyEvent(KEY_SPACE, 1, kCtrl); // too few modifiers
        registry.handleKeyEvent(KEY_SPACE, 0, kCtrl);
        registry.handleKeyEvent(KEY_SPACE, 1, kCtrl | kAlt | kShift); // too many
        registry.handleKeyEvent(KEY_SPACE, 0, kCtrl | kAlt | kShift);
        QVERIFY(calls.isEmpty());

        registry.handleKeyEvent(KEY_SPACE, 1, kCtrl | kAlt | EventFlag::capsLock);
        registry.handleKeyEvent(KEY_SPACE, 2, kCtrl | kAlt); // repeats are no edges
        registry.handleKeyEvent(KEY_SPACE, 1, kCtrl | kAlt);
        registry.handleKeyEvent(KEY_LEFTALT, 0, kCtrl); // a modifier let go first: still held
        registry.handleKeyEvent(KEY_SPACE, 0, kCtrl);
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

        // Paused (a recorder editing) and portal edges: one edge per change.
        calls.clear();
        registry.setPaused(true);
        registry.handleKeyEvent(KEY_F5, 1, 0);
        registry.handleExternalEdge("sorvelRecordAlternative", EventType::keyDown);
        registry.setPaused(false);
        registry.handleExternalEdge("sorvelRecordAlternative", EventType::keyDown);
        registry.handleExternalEdge("sorvelRecordAlternative", EventType::keyDown);
        registry.handleExternalEdge("unknownName", EventType::keyDown);
        registry.handleExternalEdge("sorvelRecordAlternative", EventType::keyUp);
        QCOMPARE(calls, (QStringList{"down", "up"}));
    }

    void recorderRules() {
        RecorderRig rig;
        auto& [env, registry, recorder] = rig;
        QSignalSpy beeps(&recorder, &Recorder::beep);
        QSignalSpy alerts(&recorder, &Recorder::alertRequested);
        registry.storeShortcut(sorvelRecordAlternative, Shortcut{0x60, 0});

        QCOMPARE(recorder.placeholder(), QStringLiteral("Записать сочетание"));
        QCOMPARE(recorder.handleKeyDown(0x00, kCtrl), Outcome::ignored); // not editing
        recorder.setActive(true);
        QVERIFY(registry.isPaused());
        QCOMPARE(recorder.placeholder(), QStringLiteral("Нажми сочетание"));

        // Escape alone ends editing and keeps the old value; with a modifier it is a shortcut.
        QCOMPARE(recorder.handleKeyDown(KeyCode::escape, EventFlag::capsLock), Outcome::cancelled);
        QVERIFY(!recorder.isActive() && !registry.isPaused());
        QCOMPARE(recorder.displayText(), QStringLiteral("F5"));

        // A deleting key alone clears; Shift or FN alone is no real modifier.
        recorder.setActive(true);
        QCOMPARE(recorder.handleKeyDown(KeyCode::deleteForward, 0), Outcome::cleared);
        QVERIFY(!recorder.hasShortcut());
        QCOMPARE(recorder.handleKeyDown(KeyCode::deleteKey, 0), Outcome::cleared);
        for (auto [key, flags] : {std::pair{0x00, kShift}, {0x00, kFn | kShift}, {0x00, quint64(0)}, {0x34, kCtrl}})
            QCOMPARE(recorder.handleKeyDown(key, flags), Outcome::beeped); // 0x34: no such key
        QCOMPARE(beeps.count(), 4);
        QVERIFY(!recorder.hasShortcut());

        // A menu item with the same shortcut is named, and nothing is taken.
        recorder.setMenuLookup([](const Shortcut& s) {
            return s == Shortcut{0x0C, CarbonModifier::control} ? std::optional<QString>("Выйти") : std::nullopt;
        });
        QCOMPARE(recorder.handleKeyDown(0x0C, kCtrl), Outcome::usedByMenuItem);
        QCOMPARE(alerts.last().at(0).toString(),
                 QStringLiteral("Это сочетание нельзя использовать: его уже занимает пункт меню «Выйти»."));
        QVERIFY(!recorder.hasShortcut());

        // A system shortcut asks first; "ok" gives up, "force" takes it anyway.
        QCOMPARE(recorder.handleKeyDown(0x30, kAlt), Outcome::usedBySystem);
        QCOMPARE(alerts.last().at(2).toStringList(), (QStringList{"ОК", "Всё равно использовать"}));
        QVERIFY(!alerts.last().at(1).toString().isEmpty());
        recorder.dismissPending();
        recorder.forceUsePending();
        QVERIFY(!recorder.hasShortcut());
        QCOMPARE(recorder.handleKeyDown(0x30, kAlt), Outcome::usedBySystem);
        recorder.forceUsePending();
        QCOMPARE(recorder.displayText(), QStringLiteral("⌥⇥"));
        QVERIFY(!recorder.isActive());

        // A plain F12 skips the system test even when the desktop lists it.
        recorder.setSystemShortcuts({Shortcut{KeyCode::f12, 0}, Shortcut{0x7A, 0}});
        recorder.setActive(true);
        QCOMPARE(recorder.handleKeyDown(0x7A, 0), Outcome::usedBySystem);
        QCOMPARE(recorder.handleKeyDown(KeyCode::f12, 0), Outcome::stored);
        QCOMPARE(recorder.displayText(), QStringLiteral("F12"));
        QCOMPARE(recorderText("unknown_key"), QStringLiteral("unknown_key"));
    }

    void modifierPressesAndTheFieldsLinuxForm() {
        // As the QML field drives it: native scan codes (evdev + 8) and Qt's modifiers, which on
        // X11 do not yet include a modifier key's own press.
        RecorderRig rig;
        Recorder& recorder = rig.recorder;
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
        QCOMPARE(recorder.text(), QStringLiteral("Ctrl+Alt+M"));
        QCOMPARE(recorder.heldModifiersText(), QString());

        // A modifier alone, then released, stores nothing; FN's own press is a modifier too.
        recorder.setActive(true);
        QCOMPARE(Outcome(recorder.handleKeyDown(KeyCode::function, 0)), Outcome::modifierHeld);
        QCOMPARE(recorder.heldModifiersText(), QString("Fn+"));
        recorder.handleKeyUp(KeyCode::function, EventFlag::function);
        QCOMPARE(recorder.heldModifiersText(), QString());
        recorder.setActive(false);
        QCOMPARE(stored.size(), 1);

        // What the field shows is the Linux form: modifiers in one order whatever the order of
        // the flags, keys by their place on the keyboard (so a Russian layout still shows "D"
        // for the key that types "в"), and Linux key names instead of the Mac glyphs.
        recorder.setSystemShortcuts({});
        const int shift = int(Qt::ShiftModifier), meta = int(Qt::MetaModifier), keypad = int(Qt::KeypadModifier);
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

TAMVEX_TEST_CLASS(ShortcutsTest)
#include "ShortcutsTest.moc"
