#pragma once

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDeadlineTimer>
#include <QProcess>
#include <QStandardPaths>
#include <QString>

namespace tamvex::test {

/// A D-Bus session daemon of the test's own, so that names taken in the test never meet
/// the desktop's. Without dbus-daemon, `reason` says why.
class SessionBus {
public:
    SessionBus() {
        const QString daemon = QStandardPaths::findExecutable("dbus-daemon");
        if (daemon.isEmpty()) {
            reason = "dbus-daemon is not installed (package dbus-daemon)";
            return;
        }
        m_process.start(daemon, {"--session", "--nofork", "--nopidfile", "--print-address=1"});
        QDeadlineTimer deadline(15000);
        while (!m_process.canReadLine() && !deadline.hasExpired() && m_process.state() != QProcess::NotRunning)
            m_process.waitForReadyRead(200);
        address = QString::fromUtf8(m_process.readLine()).trimmed();
        if (address.isEmpty())
            reason = "dbus-daemon did not start: " + QString::fromUtf8(m_process.readAllStandardError());
    }
    ~SessionBus() {
        QDBusConnection::disconnectFromBus("test-bus");
        m_process.terminate();
        if (!m_process.waitForFinished(5000))
            m_process.kill();
    }
    SessionBus(const SessionBus&) = delete;
    SessionBus& operator=(const SessionBus&) = delete;

    bool ok() const { return !address.isEmpty(); }
    /// Makes this bus the process's session bus; before the application object exists.
    void becomeSessionBus() const { qputenv("DBUS_SESSION_BUS_ADDRESS", address.toUtf8()); }
    /// Whether `name` has an owner on the bus.
    bool hasOwner(const QString& name) const {
        QDBusConnection bus = QDBusConnection::connectToBus(address, "test-bus");
        return bus.isConnected() && bus.interface()->isServiceRegistered(name).value();
    }

    QString address;
    QString reason;

private:
    QProcess m_process;
};

} // namespace tamvex::test
