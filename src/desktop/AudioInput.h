#pragma once

#include "platform/Error.h"

#include <QtGlobal>

#include <functional>

namespace tamvex {

/// An input that cannot be opened or started; the text is Russian or the library's own.
class AudioInputError : public TamvexError {
public:
    using TamvexError::TamvexError;
};

/// A live source of float samples at its own rate and channel count: the microphone, a
/// file played as if spoken, or a stand-in in tests. Lives on the thread that uses it.
class AudioInput {
public:
    /// Receives `frames` interleaved frames (frames × channels() values) in [-1, 1].
    using Sink = std::function<void(const float* samples, qsizetype frames)>;

    virtual ~AudioInput() = default;

    /// Opens the device or file and settles the format. Throws AudioInputError.
    virtual void open() = 0;
    /// Starts handing samples to `sink` (possibly before it returns). Throws AudioInputError.
    virtual void start(Sink sink) = 0;
    /// Hands over at once whatever has arrived and not yet been delivered.
    virtual void poll() = 0;
    /// Hands over the rest and stops; the sink is not called after it returns.
    virtual void stop() = 0;
    /// Frames per second of the delivered samples (valid after open()).
    virtual int sampleRate() const = 0;
    /// Channels per frame of the delivered samples (valid after open()).
    virtual int channels() const = 0;
};

} // namespace tamvex
