#pragma once

#include "platform/Clock.h"
#include "platform/Defaults.h"
#include "platform/Paths.h"
#include "platform/Sounds.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QProcessEnvironment>
#include <QStringList>
#include <QTemporaryDir>
#include <QTextStream>

#include <qcoro/qcorotask.h>

#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

namespace tamvex::test {

/// Collects the lines written to the system's log category while it lives.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    /// Every info and error line, in order, as "info: text" / "error: text".
    QStringList lines() const;
    /// True when some line equals `line` exactly (without the level prefix).
    bool has(const QString& line) const;
    /// True when some line starts with `prefix`.
    bool hasPrefix(const QString& prefix) const;
    void clear();
};

/// Sounds that are only noted, in order of playing, as "Name@volume".
class RecordingSounds final : public SoundPlayer {
public:
    void play(const QString& name, float volume) override;
    QStringList played;
};

/// A sandbox: a temporary root with its own Paths and settings file.
struct TestEnv {
    TestEnv();
    QTemporaryDir root;
    Paths paths;
    std::unique_ptr<Defaults> defaults;
    /// Reopens the settings file, as a restart would.
    void reopenDefaults();
};

/// Runs the event loop until `task` is done or `timeoutMs` passes; rethrows its error.
/// Throws std::runtime_error on the deadline rather than hanging.
template <class T> T syncWait(QCoro::Task<T>&& task, int timeoutMs = 20000) {
    std::optional<T> result;
    std::exception_ptr error;
    bool done = false;
    auto runner = [&]() -> QCoro::Task<void> {
        try {
            result.emplace(co_await std::move(task));
        } catch (...) {
            error = std::current_exception();
        }
        done = true;
    };
    auto keep = runner();
    QDeadlineTimer deadline(timeoutMs);
    while (!done && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 20);
    if (!done)
        throw std::runtime_error("syncWait: task did not finish in time");
    if (error)
        std::rethrow_exception(error);
    return std::move(*result);
}

/// The error of type E that `f` throws, or none when it returns.
template <class E, class F> std::optional<E> thrown(F&& f) {
    try {
        f();
    } catch (const E& e) {
        return e;
    }
    return std::nullopt;
}

/// How a task that a test lets run (while it moves the clock) ended: `done`, and the error of
/// type E it failed with, if any.
template <class E> struct Watched {
    bool done = false;
    std::optional<E> error;
};

/// Runs `task` to its end, noting the end in `watched`; keep the returned task alive meanwhile.
template <class E, class T> QCoro::Task<void> watch(QCoro::Task<T> task, Watched<E>& watched) {
    try {
        co_await std::move(task);
    } catch (const E& e) {
        watched.error = e;
    }
    watched.done = true;
}

/// syncWait for a task without a value.
void syncWait(QCoro::Task<void>&& task, int timeoutMs = 20000);

/// Runs `task` and gives the error of type E it failed with, or none if it succeeded.
/// Errors of other types propagate and fail the test.
template <class E, class T> std::optional<E> failureOf(QCoro::Task<T>&& task, int timeoutMs = 10000) {
    try {
        syncWait(std::move(task), timeoutMs);
    } catch (const E& e) {
        return e;
    } catch (const std::exception& other) {
        qWarning("failureOf: unexpected error: %s", other.what());
        throw;
    }
    return std::nullopt;
}

/// Runs the event loop for `ms` milliseconds, or until `until` is true.
bool spinUntil(const std::function<bool()>& until, int ms = 5000);

/// Path of a file in the shared test data folder; empty when it is not there.
QString testData(const QString& name);

/// The whole content of a file; empty when it can't be read.
QByteArray fileBytes(const QString& path);
/// Writes `data` to `path`, making its folder first.
bool writeFile(const QString& path, const QByteArray& data);

/// What a command said and how it ended.
struct CommandOutput {
    int code = -1; ///< the exit code; -2 for a crash, -3 for a process that did not finish
    QString out;
    QString err;
};

/// Runs an in-process command entry point `command(out, err)` and keeps what it wrote.
template <class F> CommandOutput captureCommand(F&& command) {
    CommandOutput o;
    QTextStream out(&o.out), err(&o.err);
    o.code = command(out, err);
    out.flush();
    err.flush();
    return o;
}

/// Runs `program` to its end while this process's event loop keeps serving (a bus, a server),
/// with `input` on its standard input. A process that outlives `timeoutMs` is killed.
CommandOutput runProcess(const QString& program, const QStringList& args, const QProcessEnvironment& env,
                         const QByteArray& input = {}, int timeoutMs = 60000);

} // namespace tamvex::test
