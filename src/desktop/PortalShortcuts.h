#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QObject>
#include <QString>
#include <QVariantMap>

namespace tamvex {

namespace KeyboardShortcuts {
class ShortcutRegistry;
}

/// The desktop's GlobalShortcuts portal (KDE, GNOME 48+, Hyprland): the custom shortcuts
/// are bound by the desktop itself, and its Activated / Deactivated signals are the
/// shortcut's press and release. Serves Wayland sessions where /dev/input is not readable.
class PortalShortcuts : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool bound READ isBound NOTIFY boundChanged)
public:
    /// Drives the edges of `shortcuts`' names, over `bus` (the session bus by default).
    explicit PortalShortcuts(KeyboardShortcuts::ShortcutRegistry& shortcuts,
                             QDBusConnection bus = QDBusConnection::sessionBus(), QObject* parent = nullptr);

    /// Opens a portal session and binds every name that has handlers; answers arrive later.
    void start();
    /// True once the desktop has bound the shortcuts.
    bool isBound() const { return m_bound; }
    /// The portal session's object path, once created.
    QString sessionHandle() const { return m_session; }

signals:
    void boundChanged();
    /// The portal refused or is missing: why, for the log and the settings pane.
    void failed(const QString& reason);

private slots:
    void onCreateSessionResponse(uint response, const QVariantMap& results);
    void onBindResponse(uint response, const QVariantMap& results);
    void onShortcutSignal(const QDBusMessage& message);

private:
    QString requestPath(const QString& token) const;
    void call(const QString& method, const QVariantList& args, const char* responseSlot, const QString& token);
    void fail(const QString& reason);

    KeyboardShortcuts::ShortcutRegistry& m_shortcuts;
    QDBusConnection m_bus;
    QString m_session;
    bool m_started = false;
    bool m_bound = false;
    int m_tokenCounter = 0;
};

} // namespace tamvex
