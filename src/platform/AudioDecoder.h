#pragma once

#include "platform/Error.h"

#include <QString>

#include <memory>
#include <vector>

namespace tamvex {

/// A file that cannot be opened or decoded; the description is FFmpeg's own words with
/// context, and the caller adds its Russian prefix.
class AudioDecodeError : public TamvexError {
public:
    using TamvexError::TamvexError;
};

/// Streams any audio file FFmpeg reads (m4a/AAC, WAV of any rate and channel count, MP3, ...)
/// as mono float samples at a chosen rate, a block at a time.
class AudioFileDecoder {
public:
    /// Opens `path`; `outputRate` 0 keeps the file's own rate. Throws AudioDecodeError.
    AudioFileDecoder(const QString& path, int outputRate);
    ~AudioFileDecoder();
    AudioFileDecoder(const AudioFileDecoder&) = delete;
    AudioFileDecoder& operator=(const AudioFileDecoder&) = delete;

    /// Sample rate of the audio stream in the file.
    int inputSampleRate() const;
    /// Channel count of the audio stream in the file.
    int inputChannels() const;
    /// FFmpeg's short name of the stream's codec, e.g. "aac", "pcm_s16le", "mp3".
    QString codecName() const;
    /// True when the file already holds mono float samples at `rate` (nothing to convert).
    bool inputIsFloatMono(int rate) const;
    /// Rate of the samples that read() gives.
    int outputRate() const;
    /// The container's duration in seconds, or -1 when it does not say.
    double durationSeconds() const;

    /// Appends up to `maxFrames` mono samples to `out`; returns how many, 0 at the end.
    qsizetype read(std::vector<float>& out, qsizetype maxFrames);
    /// Decodes everything that is left.
    std::vector<float> readAll();

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};

/// Converts interleaved float audio of any rate and channel count to mono float at another
/// rate, averaging the channels.
class AudioResampler {
public:
    /// Throws AudioDecodeError when libswresample refuses the formats.
    AudioResampler(int inputRate, int inputChannels, int outputRate);
    ~AudioResampler();
    AudioResampler(const AudioResampler&) = delete;
    AudioResampler& operator=(const AudioResampler&) = delete;

    /// Converts `frames` interleaved frames and appends the mono result to `out`.
    void convert(const float* interleaved, qsizetype frames, std::vector<float>& out);
    /// Appends the samples still held back by the filter (call once at the end).
    void flush(std::vector<float>& out);

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};

} // namespace tamvex
