#pragma once

#include "platform/Error.h"

#include <QString>

#include <memory>

namespace tamvex {

/// The encoder or the file refused; the description is FFmpeg's own words with context.
class AudioEncodeError : public TamvexError {
public:
    using TamvexError::TamvexError;
};

/// Writes mono float samples at 44.1 kHz as AAC-LC, 64 kbit/s, into an .m4a file, as they
/// arrive: only the last partial frame and the file's index are left for finish().
class AudioFileEncoder {
public:
    static constexpr int sampleRate = 44100;
    static constexpr int bitRate = 64000;

    /// Creates the file and writes its header. Throws AudioEncodeError.
    explicit AudioFileEncoder(const QString& path);
    /// Closes the file; without finish() it stays incomplete.
    ~AudioFileEncoder();
    AudioFileEncoder(const AudioFileEncoder&) = delete;
    AudioFileEncoder& operator=(const AudioFileEncoder&) = delete;

    /// Encodes `count` mono samples at 44.1 kHz. Throws AudioEncodeError.
    void write(const float* samples, qsizetype count);
    /// Encodes what is buffered, writes the trailer and closes the file. Throws AudioEncodeError.
    void finish();
    /// Samples given to write() so far.
    qint64 samplesWritten() const;
    /// True once finish() has completed.
    bool isFinished() const;

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};

} // namespace tamvex
