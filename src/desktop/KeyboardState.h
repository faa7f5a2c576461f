#pragma once

#include <QHash>
#include <QSet>
#include <QtGlobal>

#include <vector>

namespace tamvex {

/// One change of the merged key state of all keyboards.
struct KeyChange {
    int code = 0;             ///< evdev key code (KEY_*)
    int value = 0;            ///< 0 up, 1 down, 2 repeat
    quint64 flagsBefore = 0;  ///< modifier flags before this event
    quint64 flagsAfter = 0;   ///< modifier flags after it
    bool operator==(const KeyChange&) const = default;
};

/// Merges the key events of several keyboards into one state, the way a single keyboard
/// would look: a key is down while any keyboard holds it, each real change gives one
/// change, repeats pass only for a held key, and an unplugged keyboard lets go of its
/// keys. The modifier flags use the event-flag bits of the shortcut module (FN = 0x800000).
class KeyboardState {
public:
    /// Applies one input event of `device` (type, code, value as in struct input_event);
    /// returns the changes it makes, none for events that change nothing.
    std::vector<KeyChange> apply(int device, int type, int code, int value);
    /// The device went away: every key it held comes up.
    std::vector<KeyChange> removeDevice(int device);
    /// Every device went away.
    std::vector<KeyChange> clear();
    /// The current modifier flags.
    quint64 flags() const { return m_flags; }
    /// True while any keyboard holds the key.
    bool isDown(int code) const { return m_holders.value(code) > 0; }

    /// The event-flag bit of an evdev modifier key, or 0.
    static quint64 flagOfKey(int code);

private:
    KeyChange release(int code);

    QHash<int, QSet<int>> m_deviceKeys; // device → keys it holds
    QHash<int, int> m_holders;          // key → how many devices hold it
    quint64 m_flags = 0;
};

} // namespace tamvex
