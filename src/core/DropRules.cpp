#include "core/DropRules.h"

#include "core/RecordingConstants.h"
#include "history/Words.h"

#include <QStringList>

namespace tamvex {

DropVerdict judgeRecording(double duration, float peakDb) {
    DropVerdict v;
    v.isShort = duration < RecordingConstants::minDurationSec;
    v.isQuiet = peakDb < RecordingConstants::minPeakDbThreshold;
    v.isSuspicious =
        peakDb < RecordingConstants::suspiciousPeakDbThreshold && duration < RecordingConstants::suspiciousDurationSec;
    return v;
}

QString DropVerdict::message() const {
    if (!dropped())
        return {};
    if (isShort && isQuiet)
        return QStringLiteral("Слишком коротко и тихо — попробуй ещё раз");
    if (isShort)
        return QStringLiteral("Слишком коротко — подержи FN дольше");
    if (isQuiet)
        return QStringLiteral("Слишком тихо — говори ближе к микрофону");
    return QStringLiteral("Похоже на тишину — запись отброшена");
}

QString DropVerdict::reasons() const {
    QStringList names;
    if (isShort)
        names << "short";
    if (isQuiet)
        names << "quiet";
    if (isSuspicious)
        names << "suspicious";
    return names.join(", ");
}

SpeedVerdict judgeSpeed(QStringView text, double duration) {
    SpeedVerdict verdict;
    verdict.words = countLetterDigitRuns(text);
    if (duration > 0 && verdict.words > 0) {
        verdict.wpm = double(verdict.words) * 60.0 / duration;
        verdict.hallucinated = verdict.wpm > RecordingConstants::maxRealisticWordsPerMinute;
    }
    return verdict;
}

} // namespace tamvex
