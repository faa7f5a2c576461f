#include "desktop/KeyboardState.h"

#include "KeyboardShortcuts/Shortcut.h"

#include <linux/input-event-codes.h>

namespace tamvex {

namespace Flag = KeyboardShortcuts::EventFlag;

quint64 KeyboardState::flagOfKey(int code) {
    switch (code) {
    case KEY_LEFTSHIFT:
    case KEY_RIGHTSHIFT:
        return Flag::shift;
    case KEY_LEFTCTRL:
    case KEY_RIGHTCTRL:
        return Flag::control;
    case KEY_LEFTALT:
    case KEY_RIGHTALT:
        return Flag::option;
    case KEY_LEFTMETA:
    case KEY_RIGHTMETA:
        return Flag::command;
    case KEY_FN:
        return Flag::function;
    default:
        return 0;
    }
}

namespace {
// Flags of the keys held now: a flag stays while either key of its pair is down.
quint64 flagsOf(const QHash<int, int>& holders) {
    quint64 flags = 0;
    for (auto it = holders.cbegin(); it != holders.cend(); ++it)
        if (it.value() > 0)
            flags |= KeyboardState::flagOfKey(it.key());
    return flags;
}
} // namespace

std::vector<KeyChange> KeyboardState::apply(int device, int type, int code, int value) {
    if (type != EV_KEY || code < 0 || code > KEY_MAX)
        return {};
    QSet<int>& held = m_deviceKeys[device];
    if (value == 2)
        return held.contains(code) ? std::vector<KeyChange>{{code, 2, m_flags, m_flags}} : std::vector<KeyChange>{};
    if (value == 1) {
        if (held.contains(code))
            return {};
        held.insert(code);
        if (m_holders[code]++ > 0)
            return {}; // another keyboard holds it already
        const quint64 before = m_flags;
        m_flags = flagsOf(m_holders);
        return {{code, 1, before, m_flags}};
    }
    if (value == 0) {
        if (!held.remove(code))
            return {};
        if (--m_holders[code] > 0)
            return {};
        return {release(code)};
    }
    return {};
}

KeyChange KeyboardState::release(int code) {
    m_holders.remove(code);
    const quint64 before = m_flags;
    m_flags = flagsOf(m_holders);
    return {code, 0, before, m_flags};
}

std::vector<KeyChange> KeyboardState::removeDevice(int device) {
    std::vector<KeyChange> changes;
    const QSet<int> held = m_deviceKeys.take(device);
    for (int code : held) {
        if (--m_holders[code] <= 0)
            changes.push_back(release(code));
    }
    return changes;
}

std::vector<KeyChange> KeyboardState::clear() {
    std::vector<KeyChange> changes;
    const QList<int> devices = m_deviceKeys.keys();
    for (int device : devices) {
        auto some = removeDevice(device);
        changes.insert(changes.end(), some.begin(), some.end());
    }
    return changes;
}

} // namespace tamvex
