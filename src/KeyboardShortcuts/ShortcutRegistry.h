#pragma once

#include "KeyboardShortcuts/Shortcut.h"

#include <QHash>
#include <QObject>
#include <QSet>

#include <functional>
#include <optional>
#include <vector>

namespace tamvex {
class Defaults;
}

namespace tamvex::KeyboardShortcuts {

/// Which edge of a shortcut a handler wants.
enum class EventType { keyDown, keyUp };

/// How the shortcuts reach the application in this session.
enum class Delivery {
    unknown,        ///< the key input has not decided yet
    keys,           ///< every key is heard (evdev, or X11 on an X11 session)
    desktop,        ///< the desktop binds them and signals their edges (GlobalShortcuts portal)
    focusedX11Only, ///< X11 through Xwayland: heard only while an X11 window has the focus
    none,           ///< no way in: only `tamvex ctl` from a desktop shortcut
};

/// The named shortcuts: their storage in the settings, the handlers on their edges, and
/// the matching of key events against them. A shortcut "registers" when it has handlers
/// and a stored value; key events come from whatever source the desktop has (evdev, X11),
/// and a desktop portal can drive a name's edges directly.
class ShortcutRegistry : public QObject {
    Q_OBJECT
public:
    /// Reads and writes shortcuts in `defaults`.
    explicit ShortcutRegistry(Defaults& defaults, QObject* parent = nullptr);

    /// Stores the name's default shortcut when nothing is stored under it yet.
    void ensureDefault(const Name& name);
    /// The stored shortcut, or none (also when the stored text is not a valid shortcut).
    std::optional<Shortcut> storedShortcut(const Name& name) const;
    /// Stores the shortcut, or removes it when none, and announces the change.
    void storeShortcut(const Name& name, const std::optional<Shortcut>& shortcut);

    /// Adds a handler called when the name's shortcut goes down.
    void onKeyDown(const Name& name, std::function<void()> action);
    /// Adds a handler called when the name's shortcut comes up.
    void onKeyUp(const Name& name, std::function<void()> action);
    /// The names that have handlers, which a desktop portal is asked to bind.
    QStringList namesWithHandlers() const;

    /// Stops (true) or resumes (false) every shortcut, as while a recorder is editing.
    void setPaused(bool paused);
    bool isPaused() const { return m_paused; }

    /// One key event: evdev code, value (0 up, 1 down, 2 repeat) and the modifier flags
    /// held apart from this key.
    void handleKeyEvent(int evdevCode, int value, quint64 modifierFlags);
    /// An edge of a name's shortcut given by the desktop itself (GlobalShortcuts portal).
    void handleExternalEdge(const QString& rawName, EventType type);
    /// Ends every shortcut that is down, as when the key source went away.
    void releaseAll();

    /// Told by the key input: how the shortcuts reach us, and with `desktop`, the trigger the
    /// desktop assigned to each name, as it words it ("Ctrl+Alt+D").
    void setDelivery(Delivery delivery, const QHash<QString, QString>& desktopTriggers = {});
    Delivery delivery() const { return m_delivery; }
    /// The trigger the desktop assigned to the name, or empty.
    QString desktopTrigger(const Name& name) const { return m_desktopTriggers.value(name.rawValue); }

signals:
    /// A name's shortcut was stored or removed ("KeyboardShortcuts_shortcutByNameDidChange").
    void shortcutByNameDidChange(const QString& rawName);
    /// A recorder gained or lost the editing focus ("KeyboardShortcuts_recorderActiveStatusDidChange").
    void recorderActiveStatusDidChange(bool active);
    /// delivery() or a desktop trigger changed.
    void deliveryChanged();

private:
    struct Handlers {
        Name name;
        std::vector<std::function<void()>> down;
        std::vector<std::function<void()>> up;
    };
    void addHandler(const Name& name, EventType type, std::function<void()> action);
    void registerName(const QString& rawName);
    void fire(const QString& rawName, EventType type);

    Defaults& m_defaults;
    QHash<QString, Handlers> m_handlers;
    // The registered shortcut of each name with handlers, matched against key events.
    QHash<QString, Shortcut> m_registered;
    QSet<QString> m_down;
    bool m_paused = false;
    Delivery m_delivery = Delivery::unknown;
    QHash<QString, QString> m_desktopTriggers;
};

} // namespace tamvex::KeyboardShortcuts
