#pragma once

#include "platform/Clock.h"

#include <QString>

#include <qcoro/qcorotask.h>

#include <optional>

namespace tamvex {

/// What the requests of one dictation cost, as the service reported it.
struct UsageInfo {
    qint64 promptTokens = 0;
    qint64 completionTokens = 0;
    qint64 totalTokens = 0; ///< as reported, not summed here
    double costUSD = 0.0;
    bool operator==(const UsageInfo&) const = default;
};

/// The text of one dictation and what it cost.
struct SpeechResult {
    QString text; ///< trimmed by the pipeline; may be empty
    std::optional<UsageInfo> usage;
};

/// Turns one finished audio file into text.
class SpeechPipeline {
public:
    virtual ~SpeechPipeline() = default;
    /// Transcribes the audio file at `audioPath`; throws a typed error on failure.
    /// `cancel` aborts the work in flight where it can be aborted (a request on the wire).
    virtual QCoro::Task<SpeechResult> process(QString audioPath, Cancellation cancel = {}) = 0;
};

} // namespace tamvex
