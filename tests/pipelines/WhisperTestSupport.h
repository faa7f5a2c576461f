#pragma once

#include "support/TestSupport.h"

#include "pipelines/WhisperEngineError.h"

#include <optional>

namespace tamvex::test {

/// The engine error of a task that should fail, or none when it did not.
template <class T> std::optional<WhisperEngineError> engineFailure(QCoro::Task<T>&& task) {
    try {
        syncWait(std::move(task), 60000);
    } catch (const WhisperEngineError& e) {
        return e;
    }
    return std::nullopt;
}

} // namespace tamvex::test
