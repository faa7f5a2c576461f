#include "shell/main/PermissionPoll.h"

#include <QPointer>

namespace tamvex {

PermissionPoll::PermissionPoll(Clock& clock, std::function<int()> read, int granted, QObject* parent)
    : QObject(parent), m_clock(clock), m_read(std::move(read)), m_granted(granted), m_status(m_read()) {}

PermissionPoll::~PermissionPoll() {
    if (m_running)
        m_running->cancel();
}

void PermissionPoll::refresh() {
    store(m_read());
}

void PermissionPoll::start() {
    cancel();
    m_running = Cancellation();
    m_rounds = 0;
    emit runningChanged();
    loop(*m_running);
}

void PermissionPoll::cancel() {
    if (!m_running)
        return;
    // Reset first: the cancelled sleep resumes the loop inside cancel().
    const Cancellation running = *std::exchange(m_running, std::nullopt);
    running.cancel();
    emit runningChanged();
}

void PermissionPoll::store(int status) {
    if (status == m_status)
        return;
    m_status = status;
    emit statusChanged(status);
}

QCoro::Task<void> PermissionPoll::loop(Cancellation cancellation) {
    QPointer<PermissionPoll> self(this);
    for (int round = 1; round <= maxRounds; ++round) {
        if (cancellation.isCancelled() || !self)
            co_return;
        m_rounds = round;
        const int before = m_status;
        store(m_read());
        if (m_status != before && m_status == m_granted)
            break;
        if (round == maxRounds)
            break;
        const bool slept = co_await m_clock.sleep(intervalSec, cancellation);
        if (!slept)
            co_return;
    }
    if (self && !cancellation.isCancelled()) {
        m_running.reset();
        emit runningChanged();
    }
}

} // namespace tamvex
