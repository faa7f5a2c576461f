#pragma once

// Programs a test starts for itself: a private X server, a private session bus, and the
// development server's executable. Each picks its own display, address or port, so tests
// that run in parallel never take one twice.

#include "support/TestSupport.h"

#include <QDBusConnection>
#include <QDeadlineTimer>
#include <QDBusConnectionInterface>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QProcess>
#include <QStandardPaths>
#include <QUrl>

#include <csignal>
#include <memory>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tamvex::test {

/// Ends a process politely, then for good.
inline void endProcess(QProcess& process) {
    if (process.state() == QProcess::NotRunning)
        return;
    process.terminate();
    if (!process.waitForFinished(5000)) {
        process.kill();
        process.waitForFinished(5000);
    }
}

/// Waits, serving the event loop, until `process` prints a line; gives it trimmed, or empty.
inline QString firstLine(QProcess& process, int ms = 15000) {
    const auto printed = [&] { return process.canReadLine() || process.state() == QProcess::NotRunning; };
    if (QCoreApplication::instance()) {
        spinUntil(printed, ms);
    } else {
        // Before the application object there is no event loop to serve: block on the pipe.
        QDeadlineTimer deadline(ms);
        while (!printed() && !deadline.hasExpired())
            process.waitForReadyRead(100);
    }
    return QString::fromUtf8(process.readLine()).trimmed();
}

/// A private X server for one test process; DISPLAY points at it. Xvfb picks a free display
/// itself (-displayfd). Without Xvfb, `reason` says why.
class XvfbSession {
public:
    XvfbSession() {
        const QString xvfb = QStandardPaths::findExecutable("Xvfb");
        int fds[2];
        if (xvfb.isEmpty() || pipe(fds) != 0) {
            reason = "Xvfb is not installed (package xvfb)";
            return;
        }
        // fork and exec rather than QProcess: the display number comes on a descriptor of ours.
        m_pid = fork();
        if (m_pid == 0) {
            ::close(fds[0]);
            const QByteArray path = xvfb.toLocal8Bit(), fd = QByteArray::number(fds[1]);
            execl(path.constData(), "Xvfb", "-displayfd", fd.constData(), "-screen", "0", "1024x768x24", "-nolisten",
                  "tcp", "-noreset", static_cast<char*>(nullptr));
            _exit(127);
        }
        ::close(fds[1]);
        QByteArray number;
        pollfd poller{fds[0], POLLIN, 0};
        // Only a bound for a server that never comes up: a loaded machine may take a while.
        for (char c = 0; !number.endsWith('\n') && poll(&poller, 1, 60000) > 0 && ::read(fds[0], &c, 1) == 1;)
            number.append(c);
        ::close(fds[0]);
        if (!number.endsWith('\n')) {
            reason = "Xvfb did not start";
            return;
        }
        display = ":" + QString::fromLatin1(number.trimmed());
        qputenv("DISPLAY", display.toLatin1());
    }
    ~XvfbSession() {
        if (m_pid > 0) {
            kill(m_pid, SIGTERM);
            waitpid(m_pid, nullptr, 0);
        }
    }
    XvfbSession(const XvfbSession&) = delete;
    XvfbSession& operator=(const XvfbSession&) = delete;
    bool ok() const { return !display.isEmpty(); }

    QString display;
    QString reason;

private:
    pid_t m_pid = -1;
};

/// A session bus of our own; `address` is for the programs we start.
class SessionBus {
public:
    SessionBus() {
        const QString daemon = QStandardPaths::findExecutable("dbus-daemon");
        if (daemon.isEmpty()) {
            reason = "dbus-daemon is not installed (package dbus-daemon)";
            return;
        }
        m_process.start(daemon, {"--session", "--nofork", "--nopidfile", "--print-address=1"});
        address = firstLine(m_process);
        if (address.isEmpty())
            reason = "dbus-daemon did not start: " + QString::fromUtf8(m_process.readAllStandardError());
    }
    ~SessionBus() {
        QDBusConnection::disconnectFromBus("test-session-bus");
        endProcess(m_process);
    }
    bool ok() const { return !address.isEmpty(); }
    bool hasOwner(const QString& name) const {
        QDBusConnection bus = QDBusConnection::connectToBus(address, "test-session-bus");
        return bus.isConnected() && bus.interface()->isServiceRegistered(name).value();
    }

    QString address;
    QString reason;

private:
    QProcess m_process;
};

/// A control call to a development server (its /__dev/ routes and the rest): the answer's
/// JSON, or null when the call failed.
inline QJsonDocument devCall(const QUrl& base, const QByteArray& method, const QString& path,
                             const QJsonObject& body = {}) {
    static QNetworkAccessManager* network = [] {
        auto* n = new QNetworkAccessManager;
        n->setProxy(QNetworkProxy::NoProxy);
        return n;
    }();
    QNetworkRequest request(QUrl(base.toString() + path));
    request.setHeader(QNetworkRequest::ContentTypeHeader, "application/json");
    std::unique_ptr<QNetworkReply> reply(network->sendCustomRequest(
        request, method, body.isEmpty() ? QByteArray() : QJsonDocument(body).toJson(QJsonDocument::Compact)));
    spinUntil([&] { return reply->isFinished(); }, 10000);
    if (!reply->isFinished() || reply->error() != QNetworkReply::NoError)
        return {};
    return QJsonDocument::fromJson(reply->readAll());
}

/// tamvex-devserver started as a user starts it, on a port of its choosing, its request log
/// in the data folder.
class DevServerProcess {
public:
    DevServerProcess(const QString& program, const QString& dataDir, const QStringList& options = {}) {
        m_process.setStandardErrorFile(dataDir + "/requests.log");
        m_process.start(program, QStringList{"--port", "0", "--data", dataDir} + options);
        base = QUrl(firstLine(m_process));
    }
    ~DevServerProcess() { endProcess(m_process); }
    bool ok() const { return base.isValid() && base.port() > 0; }

    QUrl base;

private:
    QProcess m_process;
};

} // namespace tamvex::test
