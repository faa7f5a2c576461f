#pragma once

#include "platform/Error.h"

#include <QString>

#include <mutex>
#include <vector>

struct whisper_vad_context;

namespace tamvex {

/// A stretch of speech in 16 kHz samples: [begin, end).
struct SpeechSpan {
    qint64 begin = 0;
    qint64 end = 0;
    bool operator==(const SpeechSpan&) const = default;
};

/// The detector could not be loaded or run. Never shown as a dictation's failure: the local
/// road then runs on the whole recording.
class SpeechDetectorError : public TamvexError {
public:
    using TamvexError::TamvexError;
};

/// whisper.cpp's Silero voice activity detector: finds where a recording holds speech, so
/// that silence and noise never reach a recogniser that would invent text for them.
class SpeechDetector {
public:
    /// Loads the detector's model file. Throws SpeechDetectorError.
    explicit SpeechDetector(const QString& modelPath);
    ~SpeechDetector();
    SpeechDetector(const SpeechDetector&) = delete;
    SpeechDetector& operator=(const SpeechDetector&) = delete;

    /// True when this build has whisper.cpp; without it no detector loads.
    static bool isAvailable();

    /// The file the detector was loaded from.
    const QString& modelPath() const { return m_modelPath; }

    /// The speech in 16 kHz mono samples, in order; empty for silence or noise. Blocks the
    /// calling thread; calls from several threads take turns. Throws SpeechDetectorError.
    std::vector<SpeechSpan> detect(const std::vector<float>& samples);

    /// The spans cut out of `samples` and joined with a tenth of a second of silence between
    /// them, so that words of two spans do not run together. Spans are clamped to the samples.
    static std::vector<float> keepSpeech(const std::vector<float>& samples, const std::vector<SpeechSpan>& spans);

private:
    whisper_vad_context* m_context = nullptr;
    QString m_modelPath;
    std::mutex m_mutex;
};

} // namespace tamvex
