#include "platform/TerminationSignals.h"

#include "platform/Log.h"

#include <QCoreApplication>
#include <QPointer>
#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

namespace tamvex {

namespace {
// A signal handler may do almost nothing: it writes the signal's number as one byte, and the
// event loop reads it.
int g_pipe[2] = {-1, -1};

void writeByte(int signal) {
    const int saved = errno;
    const char byte = char(signal);
    [[maybe_unused]] const ssize_t n = ::write(g_pipe[0], &byte, 1);
    errno = saved;
}
} // namespace

bool onTerminationSignals(std::function<void()> onSignal) {
    static QPointer<QSocketNotifier> notifier;
    static std::function<void()> callback;
    callback = std::move(onSignal);
    if (notifier)
        return true;
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, g_pipe) != 0) {
        logError(QStringLiteral("Cannot listen for termination signals: ") +
                 QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    notifier = new QSocketNotifier(g_pipe[1], QSocketNotifier::Read, QCoreApplication::instance());
    QObject::connect(notifier, &QSocketNotifier::activated, [] {
        char bytes[16];
        ssize_t n = 0;
        while ((n = ::read(g_pipe[1], bytes, sizeof bytes)) > 0)
            for (ssize_t i = 0; i < n; ++i)
                logInfo(QStringLiteral("Received SIG") + QString::fromLatin1(sigabbrev_np(bytes[i])));
        if (callback)
            callback();
    });
    struct sigaction action = {};
    action.sa_handler = writeByte;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
        ::sigaction(signal, &action, nullptr);
    return true;
}

} // namespace tamvex
