#pragma once

#include <QString>

#include <optional>

namespace tamvex::KeyboardShortcuts {

/// Platform-neutral virtual key codes: the positions of the ANSI layout, as stored in a
/// shortcut's "carbonKeyCode". Only the codes the rest of the module names are listed.
namespace KeyCode {
constexpr int a = 0x00;
constexpr int v = 0x09;
constexpr int returnKey = 0x24;
constexpr int tab = 0x30;
constexpr int space = 0x31;
constexpr int deleteKey = 0x33;
constexpr int escape = 0x35;
constexpr int function = 0x3F;
constexpr int f12 = 0x6F;
constexpr int deleteForward = 0x75;
} // namespace KeyCode

/// The keys that have no character of their own.
enum class SpecialKey {
    returnKey, deleteKey, deleteForward, end, escape, help, home, space, tab, pageUp, pageDown,
    upArrow, rightArrow, downArrow, leftArrow,
    f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20,
    keypad0, keypad1, keypad2, keypad3, keypad4, keypad5, keypad6, keypad7, keypad8, keypad9,
    keypadClear, keypadDecimal, keypadDivide, keypadEnter, keypadEquals, keypadMinus,
    keypadMultiply, keypadPlus,
};

/// Every special key, in declaration order.
const QList<SpecialKey>& allSpecialKeys();
/// The special key at a virtual key code, if the code is one.
std::optional<SpecialKey> specialKeyForCode(int keyCode);
/// The virtual key code of a special key.
int codeOfSpecialKey(SpecialKey key);
/// The symbol shown for a special key ("↩", "F5", ...).
QString symbolOfSpecialKey(SpecialKey key);
/// The name a Linux desktop gives a special key ("Enter", "Tab", "PgUp", "Num 5").
QString screenNameOfSpecialKey(SpecialKey key);
/// True for F1 to F20.
bool isFunctionKey(int keyCode);

/// The evdev key code (KEY_*) of a virtual key code, if the key exists on Linux keyboards.
std::optional<int> evdevFromKeyCode(int keyCode);
/// The virtual key code of an evdev key code, if the ANSI layout has that key.
std::optional<int> keyCodeFromEvdev(int evdevCode);
/// The character the key types on the ANSI layout without modifiers ("a", "1", "["), or empty.
QString ansiCharacter(int keyCode);

} // namespace tamvex::KeyboardShortcuts
