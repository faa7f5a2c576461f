#include "KeyboardShortcuts/ShortcutRegistry.h"

#include "KeyboardShortcuts/KeyCodes.h"
#include "platform/Defaults.h"
#include "platform/Log.h"

namespace tamvex::KeyboardShortcuts {

namespace {
// Lock keys and the keypad flag never take part in matching.
constexpr quint64 kMatchedFlags =
    EventFlag::shift | EventFlag::control | EventFlag::option | EventFlag::command | EventFlag::function;
} // namespace

ShortcutRegistry::ShortcutRegistry(Defaults& defaults, QObject* parent) : QObject(parent), m_defaults(defaults) {}

void ShortcutRegistry::ensureDefault(const Name& name) {
    if (name.defaultShortcut && !m_defaults.contains(storageKey(name)))
        m_defaults.setString(storageKey(name), name.defaultShortcut->toJson());
}

std::optional<Shortcut> ShortcutRegistry::storedShortcut(const Name& name) const {
    const auto text = m_defaults.readString(storageKey(name));
    if (!text.present())
        return std::nullopt;
    return Shortcut::fromJson(text.value);
}

void ShortcutRegistry::storeShortcut(const Name& name, const std::optional<Shortcut>& shortcut) {
    if (shortcut)
        m_defaults.setString(storageKey(name), shortcut->toJson());
    else
        m_defaults.remove(storageKey(name));
    if (m_handlers.contains(name.rawValue))
        registerName(name.rawValue);
    emit shortcutByNameDidChange(name.rawValue);
}

void ShortcutRegistry::onKeyDown(const Name& name, std::function<void()> action) {
    addHandler(name, EventType::keyDown, std::move(action));
}

void ShortcutRegistry::onKeyUp(const Name& name, std::function<void()> action) {
    addHandler(name, EventType::keyUp, std::move(action));
}

QStringList ShortcutRegistry::namesWithHandlers() const { return m_handlers.keys(); }

void ShortcutRegistry::addHandler(const Name& name, EventType type, std::function<void()> action) {
    Handlers& handlers = m_handlers[name.rawValue];
    handlers.name = name;
    (type == EventType::keyDown ? handlers.down : handlers.up).push_back(std::move(action));
    registerName(name.rawValue);
}

void ShortcutRegistry::registerName(const QString& rawName) {
    const auto shortcut = storedShortcut(m_handlers.value(rawName).name);
    const auto current = m_registered.contains(rawName) ? std::optional<Shortcut>(m_registered.value(rawName))
                                                        : std::nullopt;
    if (current == shortcut)
        return;
    // A changed shortcut that is down must not leave its key-up behind.
    if (m_down.contains(rawName))
        fire(rawName, EventType::keyUp);
    m_registered.remove(rawName);
    if (!shortcut)
        return;
    if (!evdevFromKeyCode(shortcut->carbonKeyCode)) {
        logError("Error registering hotkey " + shortcut->displayText() + ": no such key on this keyboard");
        return;
    }
    m_registered.insert(rawName, *shortcut);
}

void ShortcutRegistry::setPaused(bool paused) {
    if (paused == m_paused)
        return;
    m_paused = paused;
    if (paused)
        releaseAll();
}

void ShortcutRegistry::handleKeyEvent(int evdevCode, int value, quint64 modifierFlags) {
    if (m_paused || value == 2)
        return;
    const auto keyCode = keyCodeFromEvdev(evdevCode);
    if (!keyCode)
        return;
    // Decide first, fire after: a handler may store a new shortcut and change the table.
    QList<std::pair<QString, EventType>> edges;
    for (auto it = m_registered.cbegin(); it != m_registered.cend(); ++it) {
        if (it->carbonKeyCode != *keyCode)
            continue;
        if (value == 1 && !m_down.contains(it.key()) && (modifierFlags & kMatchedFlags) == it->eventFlags())
            edges.append({it.key(), EventType::keyDown});
        else if (value == 0 && m_down.contains(it.key()))
            edges.append({it.key(), EventType::keyUp});
    }
    for (const auto& [rawName, type] : edges)
        fire(rawName, type);
}

void ShortcutRegistry::handleExternalEdge(const QString& rawName, EventType type) {
    if (!m_paused && m_handlers.contains(rawName))
        fire(rawName, type);
}

void ShortcutRegistry::releaseAll() {
    const QSet<QString> down = m_down;
    for (const QString& rawName : down)
        fire(rawName, EventType::keyUp);
}

void ShortcutRegistry::setDelivery(Delivery delivery, const QHash<QString, QString>& desktopTriggers) {
    if (delivery == m_delivery && desktopTriggers == m_desktopTriggers)
        return;
    m_delivery = delivery;
    m_desktopTriggers = desktopTriggers;
    emit deliveryChanged();
}

void ShortcutRegistry::fire(const QString& rawName, EventType type) {
    if ((type == EventType::keyDown) == m_down.contains(rawName))
        return; // one edge per real change
    if (type == EventType::keyDown)
        m_down.insert(rawName);
    else
        m_down.remove(rawName);
    // Copy: a handler may add handlers.
    const Handlers handlers = m_handlers.value(rawName);
    for (const auto& action : type == EventType::keyDown ? handlers.down : handlers.up)
        action();
}

} // namespace tamvex::KeyboardShortcuts
