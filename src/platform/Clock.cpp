#include "platform/Clock.h"

#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>

namespace tamvex {

Cancellation::Cancellation() : m_state(std::make_shared<State>()) {}

void Cancellation::cancel() const {
    if (m_state->cancelled)
        return;
    m_state->cancelled = true;
    // Callbacks may resume coroutines that register or remove callbacks: run a copy.
    auto callbacks = std::move(m_state->callbacks);
    m_state->callbacks.clear();
    for (auto& [id, callback] : callbacks)
        callback();
}

bool Cancellation::isCancelled() const {
    return m_state->cancelled;
}

quint64 Cancellation::onCancel(std::function<void()> callback) const {
    const quint64 id = m_state->nextId++;
    m_state->callbacks.emplace(id, std::move(callback));
    return id;
}

void Cancellation::removeCallback(quint64 id) const {
    m_state->callbacks.erase(id);
}

Clock::SleepAwaiter Clock::sleep(double seconds, Cancellation cancellation) {
    return SleepAwaiter(*this, seconds, std::move(cancellation));
}

Clock::SleepAwaiter::SleepAwaiter(Clock& clock, double seconds, Cancellation cancellation)
    : m_clock(clock), m_seconds(seconds), m_cancellation(std::move(cancellation)) {}

bool Clock::SleepAwaiter::await_ready() const noexcept {
    return m_cancellation.isCancelled();
}

void Clock::SleepAwaiter::await_suspend(std::coroutine_handle<> handle) {
    m_shared->handle = handle;
    auto shared = m_shared;
    auto cancellation = m_cancellation;
    auto callbackId = std::make_shared<quint64>(0);
    const TimerId timer = m_clock.schedule(m_seconds, [shared, cancellation, callbackId] {
        if (shared->finished)
            return;
        shared->finished = true;
        shared->completed = true;
        cancellation.removeCallback(*callbackId);
        shared->handle.resume();
    });
    Clock* clock = &m_clock;
    *callbackId = m_cancellation.onCancel([shared, clock, timer] {
        if (shared->finished)
            return;
        shared->finished = true;
        clock->cancelTimer(timer);
        shared->handle.resume();
    });
}

bool Clock::SleepAwaiter::await_resume() const noexcept {
    return m_shared->completed;
}

static qint64 steadyNs() {
    using namespace std::chrono;
    return duration_cast<nanoseconds>(steady_clock::now().time_since_epoch()).count();
}

WallClock::WallClock(QObject* parent) : m_startNs(steadyNs()) {
    setParent(parent);
}

WallClock::~WallClock() {
    for (auto& [id, timer] : m_timers)
        delete timer;
}

double WallClock::now() const {
    return double(steadyNs() - m_startNs) / 1e9;
}

QDateTime WallClock::currentDateTime() const {
    return QDateTime::currentDateTime();
}

Clock::TimerId WallClock::schedule(double seconds, std::function<void()> callback) {
    const TimerId id = m_nextId++;
    auto* timer = new QTimer(this);
    timer->setSingleShot(true);
    timer->setTimerType(Qt::PreciseTimer);
    const double ms = std::max(0.0, seconds) * 1000.0;
    timer->setInterval(int(std::min(ms, double(std::numeric_limits<int>::max()))));
    connect(timer, &QTimer::timeout, this, [this, id, callback = std::move(callback)] {
        auto it = m_timers.find(id);
        if (it == m_timers.end())
            return;
        it->second->deleteLater();
        m_timers.erase(it);
        callback();
    });
    m_timers.emplace(id, timer);
    timer->start();
    return id;
}

void WallClock::cancelTimer(TimerId id) {
    auto it = m_timers.find(id);
    if (it == m_timers.end())
        return;
    it->second->stop();
    it->second->deleteLater();
    m_timers.erase(it);
}

ManualClock::ManualClock(QDateTime start, QObject* parent)
    : m_startDate(start.isValid() ? start : QDateTime(QDate(2026, 3, 2), QTime(9, 0), Qt::UTC)) {
    setParent(parent);
}

QDateTime ManualClock::currentDateTime() const {
    return m_startDate.addMSecs(qint64(std::floor(m_now * 1000.0))).toLocalTime();
}

void ManualClock::setDate(const QDateTime& date) {
    m_startDate = date.addMSecs(-qint64(std::floor(m_now * 1000.0)));
}

Clock::TimerId ManualClock::schedule(double seconds, std::function<void()> callback) {
    const TimerId id = m_nextId++;
    m_queue.push_back({m_now + std::max(0.0, seconds), id, std::move(callback)});
    return id;
}

void ManualClock::cancelTimer(TimerId id) {
    std::erase_if(m_queue, [id](const Entry& e) { return e.id == id; });
}

void ManualClock::advance(double seconds) {
    const double target = m_now + std::max(0.0, seconds);
    for (;;) {
        // Callbacks may schedule or cancel timers, so look for the next one afresh each time.
        auto next = std::min_element(m_queue.begin(), m_queue.end(), [](const Entry& a, const Entry& b) {
            return a.due < b.due || (a.due == b.due && a.id < b.id);
        });
        if (next == m_queue.end() || next->due > target)
            break;
        Entry entry = std::move(*next);
        m_queue.erase(next);
        m_now = std::max(m_now, entry.due);
        entry.callback();
    }
    m_now = target;
}

} // namespace tamvex
