#pragma once

#include <QByteArray>
#include <QStandardPaths>
#include <QString>

#include <csignal>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tamvex::test {

/// A private X server for one test process. Xvfb picks a free display itself
/// (-displayfd), so parallel tests never race for a number. Without Xvfb, `reason` says why.
class XvfbSession {
public:
    XvfbSession() {
        const QString xvfb = QStandardPaths::findExecutable("Xvfb");
        if (xvfb.isEmpty()) {
            reason = "Xvfb is not installed (package xvfb)";
            return;
        }
        int fds[2];
        if (pipe(fds) != 0) {
            reason = "pipe() failed";
            return;
        }
        m_pid = fork();
        if (m_pid == 0) {
            ::close(fds[0]);
            const QByteArray path = xvfb.toLocal8Bit();
            const QByteArray fd = QByteArray::number(fds[1]);
            execl(path.constData(), "Xvfb", "-displayfd", fd.constData(), "-screen", "0", "1024x768x24", "-nolisten",
                  "tcp", "-noreset", static_cast<char*>(nullptr));
            _exit(127);
        }
        ::close(fds[1]);
        QByteArray number;
        pollfd poller{fds[0], POLLIN, 0};
        // Only a bound for a server that never comes up: a loaded machine may take a while.
        while (!number.endsWith('\n') && poll(&poller, 1, 60000) > 0) {
            char c = 0;
            if (::read(fds[0], &c, 1) != 1)
                break;
            number.append(c);
        }
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

} // namespace tamvex::test
