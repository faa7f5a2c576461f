#pragma once

#include <QThreadPool>
#include <QtConcurrent/QtConcurrentRun>

#include <qcoro/qcorofuture.h>
#include <qcoro/qcorotask.h>

#include <exception>
#include <optional>
#include <type_traits>
#include <utility>

namespace tamvex {

/// A serial executor with one thread of its own: calls are queued, run one at a time in
/// order, and awaited by the caller without blocking its thread. Errors reach the caller.
class WhisperActor {
public:
    WhisperActor() {
        m_pool.setMaxThreadCount(1);
        m_pool.setExpiryTimeout(-1);
    }
    /// Waits for the call that is running.
    ~WhisperActor() { m_pool.waitForDone(); }
    WhisperActor(const WhisperActor&) = delete;
    WhisperActor& operator=(const WhisperActor&) = delete;

    /// Runs `work` on the actor's thread after the calls queued before it; gives its result.
    template <class F> QCoro::Task<std::invoke_result_t<F>> call(F work) {
        using R = std::invoke_result_t<F>;
        struct Outcome {
            std::optional<R> value;
            std::exception_ptr error;
        };
        // QFuture hands over only QException subclasses; carry any error across by hand.
        QFuture<Outcome> future = QtConcurrent::run(&m_pool, [work = std::move(work)]() mutable {
            Outcome outcome;
            try {
                outcome.value.emplace(work());
            } catch (...) {
                outcome.error = std::current_exception();
            }
            return outcome;
        });
        Outcome outcome = co_await future;
        if (outcome.error)
            std::rethrow_exception(outcome.error);
        co_return std::move(*outcome.value);
    }

    /// Blocks until every queued call has run.
    void waitForIdle() { m_pool.waitForDone(); }

private:
    QThreadPool m_pool;
};

} // namespace tamvex
