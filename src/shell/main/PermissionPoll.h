#pragma once

#include "platform/Clock.h"

#include <QObject>

#include <qcoro/qcorotask.h>

#include <functional>
#include <optional>

namespace tamvex {

/// A permission row's poll: reads a status once a second, at most 60 times, storing each
/// change, and ends early once the status turns to the granted value. Cancelled by a new
/// start, by cancel() and by its destruction (the row going away).
class PermissionPoll : public QObject {
    Q_OBJECT
public:
    static constexpr int maxRounds = 60;
    static constexpr double intervalSec = 1.0;

    /// Polls `read` on `clock`; `granted` is the status that ends the poll.
    PermissionPoll(Clock& clock, std::function<int()> read, int granted, QObject* parent = nullptr);
    ~PermissionPoll() override;

    /// The last status read.
    int status() const { return m_status; }
    /// Reads the status once (a row appearing).
    void refresh();
    /// Cancels an earlier poll and starts a new one; its first round reads at once.
    void start();
    /// Ends the poll, if one runs.
    void cancel();
    /// True while a poll runs.
    bool isRunning() const { return m_running.has_value(); }
    /// Rounds the current or last poll has run.
    int rounds() const { return m_rounds; }

signals:
    void statusChanged(int status);
    void runningChanged();

private:
    QCoro::Task<void> loop(Cancellation cancellation);
    void store(int status);

    Clock& m_clock;
    std::function<int()> m_read;
    int m_granted;
    int m_status;
    int m_rounds = 0;
    std::optional<Cancellation> m_running;
};

} // namespace tamvex
