#pragma once

#include <QString>
#include <QtGlobal>

#include <optional>

namespace tamvex::KeyboardShortcuts {

/// Modifier bits as stored in a shortcut ("carbonModifiers").
namespace CarbonModifier {
constexpr int command = 0x100;
constexpr int shift = 0x200;
constexpr int option = 0x800;
constexpr int control = 0x1000;
/// The function (FN / 🌐) modifier.
constexpr int function = 0x20000;
constexpr int all = command | shift | option | control | function;
} // namespace CarbonModifier

/// Modifier flags of a key event, the bits the key monitors and the recorder test.
/// On Linux ⌘ is the Super key, ⌥ is Alt.
namespace EventFlag {
constexpr quint64 capsLock = 0x10000;
constexpr quint64 shift = 0x20000;
constexpr quint64 control = 0x40000;
constexpr quint64 option = 0x80000;
constexpr quint64 command = 0x100000;
constexpr quint64 numericPad = 0x200000;
constexpr quint64 help = 0x400000;
constexpr quint64 function = 0x800000;
} // namespace EventFlag

/// A key with its modifiers, as stored under a shortcut name.
struct Shortcut {
    int carbonKeyCode = 0;
    int carbonModifiers = 0;

    bool operator==(const Shortcut&) const = default;

    /// The shortcut of a key event: its virtual key code and its event flags.
    static Shortcut fromEvent(int keyCode, quint64 eventFlags);
    /// The event flags of the shortcut's modifiers.
    quint64 eventFlags() const;
    /// The JSON text stored in the settings: {"carbonKeyCode":…,"carbonModifiers":…}.
    QString toJson() const;
    /// Reads a stored JSON text; anything but an object with both integer keys is none.
    static std::optional<Shortcut> fromJson(const QString& json);
    /// "⌃⌥⇧⌘", then "🌐︎" for FN, then the key's symbol or upper-case character.
    QString displayText() const;
    /// The form shown on a Linux screen: "Ctrl+", "Alt+", "Shift+", "Super+", "Fn+", then the key.
    QString screenText() const;
};

/// A named shortcut slot.
struct Name {
    QString rawValue;
    std::optional<Shortcut> defaultShortcut;
    bool operator==(const Name&) const = default;
};

/// The system's one shortcut name: the alternative record hotkey, with no default.
inline const Name sorvelRecordAlternative{QStringLiteral("sorvelRecordAlternative"), std::nullopt};

/// The settings key of a name: "KeyboardShortcuts_" followed by the raw name.
QString storageKey(const Name& name);

} // namespace tamvex::KeyboardShortcuts
