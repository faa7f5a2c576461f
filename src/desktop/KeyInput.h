#pragma once

#include "desktop/KeyboardState.h"
#include "desktop/KeySource.h"
#include "desktop/PortalShortcuts.h"

#include <QObject>
#include <QString>

#include <memory>
#include <vector>

namespace tamvex {

namespace KeyboardShortcuts {
class ShortcutRegistry;
}

/// The desktop's key input: picks the best source this session offers (evdev keyboards,
/// else the X server's raw key events, else the desktop's GlobalShortcuts portal), merges
/// its events, and hands FN's modifier changes to the function-key monitor and key edges
/// to the custom shortcuts. Says which source is active, in the log and to the settings pane.
class KeyInput : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString activeSourceName READ activeSourceName NOTIFY activeSourceChanged)
    Q_PROPERTY(bool functionKeyAvailable READ functionKeyAvailable NOTIFY functionKeyChanged)
    Q_PROPERTY(bool customShortcutAvailable READ customShortcutAvailable NOTIFY activeSourceChanged)
public:
    /// The kind of source in use.
    enum class Source { none, evdev, x11, portal };
    Q_ENUM(Source)

    /// Key sources in order of preference; `portal` (may be null) serves when none of them can.
    KeyInput(KeyboardShortcuts::ShortcutRegistry& shortcuts, std::vector<std::unique_ptr<KeySource>> sources,
             std::unique_ptr<PortalShortcuts> portal = nullptr, QObject* parent = nullptr);
    ~KeyInput() override;

    /// The sources of this session: evdev, X11 when $DISPLAY is set, the portal on Wayland.
    static std::unique_ptr<KeyInput> createForSession(KeyboardShortcuts::ShortcutRegistry& shortcuts);

    /// Starts the sources and picks one; logs the choice. Running twice does nothing.
    void start();
    /// The source in use.
    Source activeSource() const { return m_active; }
    /// "evdev", "X11", "GlobalShortcuts portal" or "none".
    QString activeSourceName() const;
    /// True when holding FN can reach the coordinator in this session.
    bool functionKeyAvailable() const;
    /// True when the custom shortcut can reach the coordinator in this session.
    bool customShortcutAvailable() const { return m_active != Source::none; }
    /// The current modifier flags of the merged keyboards.
    quint64 flags() const { return m_state.flags(); }

signals:
    /// The modifier flags changed (the monitor's "flagsChanged" event).
    void flagsChanged(quint64 flags);
    /// A key went down (1), repeated (2) or came up (0), with the modifiers held apart from it.
    void keyEvent(int evdevCode, int value, quint64 modifierFlags);
    void activeSourceChanged();
    /// functionKeyAvailable() may have changed: another source, or a keyboard with FN came or went.
    void functionKeyChanged();

private:
    void choose();
    void deliver(const std::vector<KeyChange>& changes);

    KeyboardShortcuts::ShortcutRegistry& m_shortcuts;
    std::vector<std::unique_ptr<KeySource>> m_sources;
    std::unique_ptr<PortalShortcuts> m_portal;
    KeySource* m_current = nullptr;
    Source m_active = Source::none;
    KeyboardState m_state;
    bool m_started = false;
    bool m_chosen = false; // the first choice is logged even when it is "none"
    bool m_noKeysLogged = false;
};

} // namespace tamvex
