#pragma once

#include "KeyboardShortcuts/Shortcut.h"
#include "desktop/KeySource.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QHash>
#include <QString>
#include <QVariantMap>

namespace tamvex {

namespace KeyboardShortcuts {
class ShortcutRegistry;
}

/// The desktop's GlobalShortcuts portal (KDE Plasma, GNOME 48+, Hyprland): the desktop binds
/// the named shortcuts itself, and its Activated / Deactivated signals are their presses and
/// releases. The key source of a Wayland session where /dev/input is not readable.
///
/// The shortcut list goes both in CreateSession's options (Plasma 5.27 reads only those) and
/// in BindShortcuts (newer portals). Only an answer that lists our shortcuts counts as bound.
class PortalShortcuts final : public KeySource {
    Q_OBJECT
public:
    /// Binds the names of `shortcuts` that have handlers, over `bus` (the session bus by default).
    explicit PortalShortcuts(KeyboardShortcuts::ShortcutRegistry& shortcuts,
                             QDBusConnection bus = QDBusConnection::sessionBus(), QObject* parent = nullptr);
    ~PortalShortcuts() override;

    /// Opens a portal session and binds; the answer comes later (isPending until then).
    bool start() override;
    /// Closes the portal session, so the desktop lets go of the shortcuts.
    void stop() override;
    bool isAvailable() const override { return m_state == State::bound; }
    bool isPending() const override { return m_state == State::binding; }
    QString name() const override { return QStringLiteral("GlobalShortcuts portal"); }
    /// FN gives no key event a desktop could bind.
    bool seesFunctionKey() const override { return false; }
    QString unavailableReason() const override { return m_reason; }

    /// The portal session's object path, once created.
    QString sessionHandle() const { return m_session; }
    /// The trigger the desktop assigned to each bound name, as the desktop words it ("Ctrl+Alt+D").
    QHash<QString, QString> triggers() const { return m_triggers; }

    /// A stored shortcut in the portal's trigger syntax ("CTRL+ALT+D"), or empty when the key
    /// has no name there.
    static QString preferredTrigger(const std::optional<KeyboardShortcuts::Shortcut>& shortcut);

signals:
    /// The desktop assigned other triggers (a new binding, or the user changed them there).
    void triggersChanged();

private slots:
    void onShortcutSignal(const QDBusMessage& message);
    void onShortcutsChanged(const QDBusMessage& message);
    void onSessionClosed();

private:
    enum class State { idle, binding, bound, failed };

    void onCreateSessionResponse(uint response, const QVariantMap& results, const QString& error);
    void onBindResponse(uint response, const QVariantMap& results, const QString& error);
    QVariant shortcutList() const;
    void bind();
    void takeTriggers(const QVariant& list);
    void closeSession();
    void fail(const QString& reason);

    KeyboardShortcuts::ShortcutRegistry& m_shortcuts;
    QDBusConnection m_bus;
    State m_state = State::idle;
    QString m_session;
    QString m_reason;
    QHash<QString, QString> m_triggers;
    bool m_rebindQueued = false;
};

} // namespace tamvex
