#include "KeyboardShortcuts/KeyCodes.h"

#include <QHash>
#include <QList>

#include <linux/input-event-codes.h>

namespace tamvex::KeyboardShortcuts {

namespace {

struct KeyRow {
    int keyCode;
    int evdev;
    const char* character; // what the key types on the ANSI layout, or nullptr
};

// The one table between the stored virtual key codes and the kernel's key codes. The
// first row of an evdev code wins when mapping back.
const KeyRow kKeys[] = {
    {0x00, KEY_A, "a"}, {0x01, KEY_S, "s"}, {0x02, KEY_D, "d"}, {0x03, KEY_F, "f"},
    {0x04, KEY_H, "h"}, {0x05, KEY_G, "g"}, {0x06, KEY_Z, "z"}, {0x07, KEY_X, "x"},
    {0x08, KEY_C, "c"}, {0x09, KEY_V, "v"}, {0x0A, KEY_102ND, "§"}, {0x0B, KEY_B, "b"},
    {0x0C, KEY_Q, "q"}, {0x0D, KEY_W, "w"}, {0x0E, KEY_E, "e"}, {0x0F, KEY_R, "r"},
    {0x10, KEY_Y, "y"}, {0x11, KEY_T, "t"}, {0x12, KEY_1, "1"}, {0x13, KEY_2, "2"},
    {0x14, KEY_3, "3"}, {0x15, KEY_4, "4"}, {0x16, KEY_6, "6"}, {0x17, KEY_5, "5"},
    {0x18, KEY_EQUAL, "="}, {0x19, KEY_9, "9"}, {0x1A, KEY_7, "7"}, {0x1B, KEY_MINUS, "-"},
    {0x1C, KEY_8, "8"}, {0x1D, KEY_0, "0"}, {0x1E, KEY_RIGHTBRACE, "]"}, {0x1F, KEY_O, "o"},
    {0x20, KEY_U, "u"}, {0x21, KEY_LEFTBRACE, "["}, {0x22, KEY_I, "i"}, {0x23, KEY_P, "p"},
    {0x24, KEY_ENTER, nullptr}, {0x25, KEY_L, "l"}, {0x26, KEY_J, "j"}, {0x27, KEY_APOSTROPHE, "'"},
    {0x28, KEY_K, "k"}, {0x29, KEY_SEMICOLON, ";"}, {0x2A, KEY_BACKSLASH, "\\"}, {0x2B, KEY_COMMA, ","},
    {0x2C, KEY_SLASH, "/"}, {0x2D, KEY_N, "n"}, {0x2E, KEY_M, "m"}, {0x2F, KEY_DOT, "."},
    {0x30, KEY_TAB, nullptr}, {0x31, KEY_SPACE, nullptr}, {0x32, KEY_GRAVE, "`"},
    {0x33, KEY_BACKSPACE, nullptr}, {0x35, KEY_ESC, nullptr},
    {0x36, KEY_RIGHTMETA, nullptr}, {0x37, KEY_LEFTMETA, nullptr}, {0x38, KEY_LEFTSHIFT, nullptr},
    {0x39, KEY_CAPSLOCK, nullptr}, {0x3A, KEY_LEFTALT, nullptr}, {0x3B, KEY_LEFTCTRL, nullptr},
    {0x3C, KEY_RIGHTSHIFT, nullptr}, {0x3D, KEY_RIGHTALT, nullptr}, {0x3E, KEY_RIGHTCTRL, nullptr},
    {0x3F, KEY_FN, nullptr}, {0x40, KEY_F17, nullptr}, {0x41, KEY_KPDOT, nullptr},
    {0x43, KEY_KPASTERISK, nullptr}, {0x45, KEY_KPPLUS, nullptr}, {0x47, KEY_NUMLOCK, nullptr},
    {0x48, KEY_VOLUMEUP, nullptr}, {0x49, KEY_VOLUMEDOWN, nullptr}, {0x4A, KEY_MUTE, nullptr},
    {0x4B, KEY_KPSLASH, nullptr}, {0x4C, KEY_KPENTER, nullptr}, {0x4E, KEY_KPMINUS, nullptr},
    {0x4F, KEY_F18, nullptr}, {0x50, KEY_F19, nullptr}, {0x51, KEY_KPEQUAL, nullptr},
    {0x52, KEY_KP0, nullptr}, {0x53, KEY_KP1, nullptr}, {0x54, KEY_KP2, nullptr}, {0x55, KEY_KP3, nullptr},
    {0x56, KEY_KP4, nullptr}, {0x57, KEY_KP5, nullptr}, {0x58, KEY_KP6, nullptr}, {0x59, KEY_KP7, nullptr},
    {0x5A, KEY_F20, nullptr}, {0x5B, KEY_KP8, nullptr}, {0x5C, KEY_KP9, nullptr},
    {0x60, KEY_F5, nullptr}, {0x61, KEY_F6, nullptr}, {0x62, KEY_F7, nullptr}, {0x63, KEY_F3, nullptr},
    {0x64, KEY_F8, nullptr}, {0x65, KEY_F9, nullptr}, {0x67, KEY_F11, nullptr}, {0x69, KEY_F13, nullptr},
    {0x6A, KEY_F16, nullptr}, {0x6B, KEY_F14, nullptr}, {0x6D, KEY_F10, nullptr}, {0x6F, KEY_F12, nullptr},
    {0x71, KEY_F15, nullptr}, {0x72, KEY_HELP, nullptr}, {0x72, KEY_INSERT, nullptr},
    {0x73, KEY_HOME, nullptr}, {0x74, KEY_PAGEUP, nullptr}, {0x75, KEY_DELETE, nullptr},
    {0x76, KEY_F4, nullptr}, {0x77, KEY_END, nullptr}, {0x78, KEY_F2, nullptr}, {0x79, KEY_PAGEDOWN, nullptr},
    {0x7A, KEY_F1, nullptr}, {0x7B, KEY_LEFT, nullptr}, {0x7C, KEY_RIGHT, nullptr},
    {0x7D, KEY_DOWN, nullptr}, {0x7E, KEY_UP, nullptr},
};

struct SpecialRow {
    SpecialKey key;
    int keyCode;
    const char* symbol;     // the Mac glyph of the display text
    const char* screenName; // what a Linux desktop writes
};

const SpecialRow kSpecial[] = {
    {SpecialKey::returnKey, 0x24, "↩", "Enter"}, {SpecialKey::deleteKey, 0x33, "⌫", "Backspace"},
    {SpecialKey::deleteForward, 0x75, "⌦", "Delete"}, {SpecialKey::end, 0x77, "↘", "End"},
    {SpecialKey::escape, 0x35, "⎋", "Esc"}, {SpecialKey::help, 0x72, "?⃝", "Help"},
    {SpecialKey::home, 0x73, "↖", "Home"}, {SpecialKey::space, 0x31, "Пробел", "Space"},
    {SpecialKey::tab, 0x30, "⇥", "Tab"}, {SpecialKey::pageUp, 0x74, "⇞", "PgUp"},
    {SpecialKey::pageDown, 0x79, "⇟", "PgDown"}, {SpecialKey::upArrow, 0x7E, "↑", "Up"},
    {SpecialKey::rightArrow, 0x7C, "→", "Right"}, {SpecialKey::downArrow, 0x7D, "↓", "Down"},
    {SpecialKey::leftArrow, 0x7B, "←", "Left"},
    {SpecialKey::f1, 0x7A, "F1", "F1"}, {SpecialKey::f2, 0x78, "F2", "F2"}, {SpecialKey::f3, 0x63, "F3", "F3"},
    {SpecialKey::f4, 0x76, "F4", "F4"}, {SpecialKey::f5, 0x60, "F5", "F5"}, {SpecialKey::f6, 0x61, "F6", "F6"},
    {SpecialKey::f7, 0x62, "F7", "F7"}, {SpecialKey::f8, 0x64, "F8", "F8"}, {SpecialKey::f9, 0x65, "F9", "F9"},
    {SpecialKey::f10, 0x6D, "F10", "F10"}, {SpecialKey::f11, 0x67, "F11", "F11"}, {SpecialKey::f12, 0x6F, "F12", "F12"},
    {SpecialKey::f13, 0x69, "F13", "F13"}, {SpecialKey::f14, 0x6B, "F14", "F14"}, {SpecialKey::f15, 0x71, "F15", "F15"},
    {SpecialKey::f16, 0x6A, "F16", "F16"}, {SpecialKey::f17, 0x40, "F17", "F17"}, {SpecialKey::f18, 0x4F, "F18", "F18"},
    {SpecialKey::f19, 0x50, "F19", "F19"}, {SpecialKey::f20, 0x5A, "F20", "F20"},
    // Keypad keys carry a ring so they read apart from the main row's digits and signs.
    {SpecialKey::keypad0, 0x52, "⌨0", "Num 0"}, {SpecialKey::keypad1, 0x53, "⌨1", "Num 1"}, {SpecialKey::keypad2, 0x54, "⌨2", "Num 2"},
    {SpecialKey::keypad3, 0x55, "⌨3", "Num 3"}, {SpecialKey::keypad4, 0x56, "⌨4", "Num 4"}, {SpecialKey::keypad5, 0x57, "⌨5", "Num 5"},
    {SpecialKey::keypad6, 0x58, "⌨6", "Num 6"}, {SpecialKey::keypad7, 0x59, "⌨7", "Num 7"}, {SpecialKey::keypad8, 0x5B, "⌨8", "Num 8"},
    {SpecialKey::keypad9, 0x5C, "⌨9", "Num 9"}, {SpecialKey::keypadClear, 0x47, "⌧", "Clear"},
    {SpecialKey::keypadDecimal, 0x41, "⌨.", "Num ."}, {SpecialKey::keypadDivide, 0x4B, "⌨/", "Num /"},
    {SpecialKey::keypadEnter, 0x4C, "⌤", "Num Enter"}, {SpecialKey::keypadEquals, 0x51, "⌨=", "Num ="},
    {SpecialKey::keypadMinus, 0x4E, "⌨-", "Num -"}, {SpecialKey::keypadMultiply, 0x43, "⌨*", "Num *"},
    {SpecialKey::keypadPlus, 0x45, "⌨+", "Num +"},
};

struct Tables {
    QHash<int, const KeyRow*> byKeyCode;
    QHash<int, int> byEvdev;
    QHash<int, const SpecialRow*> specialByCode;
    QList<SpecialKey> specialKeys;
    Tables() {
        for (const KeyRow& row : kKeys) {
            if (!byKeyCode.contains(row.keyCode))
                byKeyCode.insert(row.keyCode, &row);
            if (!byEvdev.contains(row.evdev))
                byEvdev.insert(row.evdev, row.keyCode);
        }
        for (const SpecialRow& row : kSpecial) {
            specialByCode.insert(row.keyCode, &row);
            specialKeys.append(row.key);
        }
    }
};

const Tables& tables() {
    static const Tables instance;
    return instance;
}

} // namespace

const QList<SpecialKey>& allSpecialKeys() { return tables().specialKeys; }

std::optional<SpecialKey> specialKeyForCode(int keyCode) {
    const SpecialRow* row = tables().specialByCode.value(keyCode);
    return row ? std::optional<SpecialKey>(row->key) : std::nullopt;
}

int codeOfSpecialKey(SpecialKey key) { return kSpecial[int(key)].keyCode; }

QString symbolOfSpecialKey(SpecialKey key) { return QString::fromUtf8(kSpecial[int(key)].symbol); }

QString screenNameOfSpecialKey(SpecialKey key) { return QString::fromUtf8(kSpecial[int(key)].screenName); }

bool isFunctionKey(int keyCode) {
    const auto special = specialKeyForCode(keyCode);
    return special && *special >= SpecialKey::f1 && *special <= SpecialKey::f20;
}

std::optional<int> evdevFromKeyCode(int keyCode) {
    const KeyRow* row = tables().byKeyCode.value(keyCode);
    return row ? std::optional<int>(row->evdev) : std::nullopt;
}

std::optional<int> keyCodeFromEvdev(int evdevCode) {
    const auto it = tables().byEvdev.constFind(evdevCode);
    return it == tables().byEvdev.constEnd() ? std::nullopt : std::optional<int>(*it);
}

QString ansiCharacter(int keyCode) {
    const KeyRow* row = tables().byKeyCode.value(keyCode);
    return row && row->character ? QString::fromUtf8(row->character) : QString();
}

} // namespace tamvex::KeyboardShortcuts
