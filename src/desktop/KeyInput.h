#pragma once

#include "desktop/KeyboardState.h"
#include "desktop/KeySource.h"
#include "platform/Clock.h"

#include <QObject>
#include <QSet>
#include <QString>

#include <memory>
#include <vector>

namespace tamvex {

namespace KeyboardShortcuts {
class ShortcutRegistry;
}

/// The desktop's key input: uses the first source of this session that can deliver keys
/// (evdev keyboards; on Wayland the desktop's GlobalShortcuts portal, then X11 through
/// Xwayland; on X11 the X server's raw key events), hands over to the next one when it
/// fails, and feeds the coordinator from that one source alone. FN's modifier changes go to
/// the function-key monitor, key edges and portal edges to the custom shortcuts. Says which
/// source is active in the log, and publishes it on the shortcut registry for the views.
class KeyInput : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString activeSourceName READ activeSourceName NOTIFY activeSourceChanged)
    Q_PROPERTY(bool functionKeyAvailable READ functionKeyAvailable NOTIFY functionKeyChanged)
    Q_PROPERTY(bool customShortcutAvailable READ customShortcutAvailable NOTIFY activeSourceChanged)
public:
    /// The kind of source in use.
    enum class Source { none, evdev, x11, portal };
    Q_ENUM(Source)

    /// How long a better source that is still asking the desktop (the portal) is waited for
    /// before a worse one serves in the meantime.
    static constexpr double pendingGraceSec = 3.0;

    /// Key sources in order of preference; `waylandSession` says X11 is heard only through Xwayland.
    KeyInput(KeyboardShortcuts::ShortcutRegistry& shortcuts, Clock& clock,
             std::vector<std::unique_ptr<KeySource>> sources, bool waylandSession = false,
             QObject* parent = nullptr);
    ~KeyInput() override;

    /// The sources of this session: on Wayland (WAYLAND_DISPLAY or XDG_SESSION_TYPE=wayland)
    /// evdev, the portal, then X11 when DISPLAY is set; on X11 evdev, then X11.
    static std::unique_ptr<KeyInput> createForSession(KeyboardShortcuts::ShortcutRegistry& shortcuts, Clock& clock);
    /// True on a Wayland session.
    static bool isWaylandSession();

    /// Starts the sources and picks one; logs the choice. Running twice does nothing.
    void start();
    /// Stops every source (the portal's session is closed).
    void stop();
    /// The source in use.
    Source activeSource() const { return m_active; }
    /// "evdev", "X11", "GlobalShortcuts portal" or "none".
    QString activeSourceName() const;
    /// True once a source was chosen, or none could be: the choice no longer waits on the desktop.
    bool isDecided() const { return m_chosen; }
    /// True when keys are heard only while an X11 window has the focus (X11 through Xwayland).
    bool onlyFocusedX11Windows() const { return m_active == Source::x11 && m_wayland; }
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
    void logChoice() const;
    void publish();

    KeyboardShortcuts::ShortcutRegistry& m_shortcuts;
    Clock& m_clock;
    std::vector<std::unique_ptr<KeySource>> m_sources;
    bool m_wayland;
    KeySource* m_current = nullptr;
    Source m_active = Source::none;
    KeyboardState m_state;
    bool m_started = false;
    bool m_chosen = false; // the first choice is logged even when it is "none"
    bool m_graceOver = false;
    Clock::TimerId m_graceTimer = 0;
    QSet<QString> m_reasonsLogged;
};

} // namespace tamvex
