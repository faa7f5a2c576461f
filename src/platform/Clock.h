#pragma once

#include <QDateTime>
#include <QObject>

#include <coroutine>
#include <functional>
#include <map>
#include <memory>
#include <vector>

class QTimer;

namespace tamvex {

/// Shared cancellation flag for one task; copies share the same state.
class Cancellation {
public:
    Cancellation();

    /// Marks the task cancelled and runs the registered callbacks once.
    void cancel() const;
    /// True once cancel() has been called on any copy.
    bool isCancelled() const;
    /// Registers a callback run at cancellation; returns an id for removeCallback.
    quint64 onCancel(std::function<void()> callback) const;
    /// Forgets a callback registered by onCancel.
    void removeCallback(quint64 id) const;

private:
    struct State {
        bool cancelled = false;
        quint64 nextId = 1;
        std::map<quint64, std::function<void()>> callbacks;
    };
    std::shared_ptr<State> m_state;
};

/// Source of the current time and of timers. Every wait in the system goes through it,
/// so tests can drive time by hand.
class Clock : public QObject {
    Q_OBJECT
public:
    using TimerId = quint64;

    /// Monotonic seconds since the clock was made; durations and timers use this.
    virtual double now() const = 0;
    /// The current calendar date and time.
    virtual QDateTime currentDateTime() const = 0;
    /// Seconds elapsed since `since` (a value of now()).
    double secondsSince(double since) const { return now() - since; }

    /// Runs `callback` once after `seconds` (negative counts as zero); returns its id.
    virtual TimerId schedule(double seconds, std::function<void()> callback) = 0;
    /// Drops a scheduled callback that has not yet run; unknown ids are ignored.
    virtual void cancelTimer(TimerId id) = 0;

    class SleepAwaiter;
    /// Awaitable sleep: resumes with true when the time has passed, false when
    /// `cancellation` fired first (then it resumes at once, inside cancel()).
    SleepAwaiter sleep(double seconds, Cancellation cancellation = {});
};

class Clock::SleepAwaiter {
public:
    SleepAwaiter(Clock& clock, double seconds, Cancellation cancellation);
    bool await_ready() const noexcept;
    void await_suspend(std::coroutine_handle<> handle);
    bool await_resume() const noexcept;

private:
    struct Shared {
        std::coroutine_handle<> handle;
        bool finished = false;
        bool completed = false;
    };
    Clock& m_clock;
    double m_seconds;
    Cancellation m_cancellation;
    std::shared_ptr<Shared> m_shared = std::make_shared<Shared>();
};

/// Production clock: system time and Qt timers on the calling thread's event loop.
class WallClock final : public Clock {
    Q_OBJECT
public:
    explicit WallClock(QObject* parent = nullptr);
    ~WallClock() override;
    double now() const override;
    QDateTime currentDateTime() const override;
    TimerId schedule(double seconds, std::function<void()> callback) override;
    void cancelTimer(TimerId id) override;

private:
    qint64 m_startNs;
    TimerId m_nextId = 1;
    std::map<TimerId, QTimer*> m_timers;
};

/// Virtual clock for tests: time moves only through advance(), which runs every timer
/// that falls due, in order of due time (ties in order of scheduling).
class ManualClock final : public Clock {
    Q_OBJECT
public:
    /// Starts at monotonic time 0 and at the date `start` (default 2026-03-02 09:00:00 UTC).
    explicit ManualClock(QDateTime start = {}, QObject* parent = nullptr);
    double now() const override { return m_now; }
    QDateTime currentDateTime() const override;
    /// Moves the calendar date without moving monotonic time (a clock change by the user).
    void setDate(const QDateTime& date);
    TimerId schedule(double seconds, std::function<void()> callback) override;
    void cancelTimer(TimerId id) override;

    /// Moves time forward by `seconds`, firing due timers at their own due times.
    void advance(double seconds);
    /// Number of timers waiting to fire.
    int pendingTimers() const { return int(m_queue.size()); }

private:
    struct Entry {
        double due;
        TimerId id;
        std::function<void()> callback;
    };
    double m_now = 0.0;
    QDateTime m_startDate;
    TimerId m_nextId = 1;
    std::vector<Entry> m_queue;
};

} // namespace tamvex
