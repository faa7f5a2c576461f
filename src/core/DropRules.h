#pragma once

#include <QString>

namespace tamvex {

/// The judgement of a finished recording on its numbers alone, before anything is sent.
struct DropVerdict {
    bool isShort = false;      ///< duration < 1.2 s
    bool isQuiet = false;      ///< peak < -40 dB
    bool isSuspicious = false; ///< peak < -20 dB and duration < 3.0 s
    bool dropped() const { return isShort || isQuiet || isSuspicious; }
    /// The message shown for a dropped recording; empty when it is kept.
    QString message() const;
    /// The rule names that fired, e.g. "short, quiet"; empty when kept.
    QString reasons() const;
};

/// Applies the drop rules to a recording of `duration` seconds and peak `peakDb`.
DropVerdict judgeRecording(double duration, float peakDb);

/// The judgement of a finished text against the time it took to say.
struct SpeedVerdict {
    qint64 words = 0;          ///< runs of letters and digits
    double wpm = 0.0;          ///< 0 when there are no words or no duration
    bool hallucinated = false; ///< faster than 300 words a minute
};

/// Applies the speed rule to `text` said in `duration` seconds.
SpeedVerdict judgeSpeed(QStringView text, double duration);

} // namespace tamvex
