#pragma once

#include <QtGlobal>

namespace tamvex::RecordingConstants {

inline constexpr double minDurationSec = 1.2;
inline constexpr float minPeakDbThreshold = -40.0f;
inline constexpr double suspiciousDurationSec = 3.0;
inline constexpr float suspiciousPeakDbThreshold = -20.0f;
inline constexpr double maxRealisticWordsPerMinute = 300.0;
inline constexpr double transcribeTimeoutSec = 25.0;
inline constexpr double slowProcessingThresholdSec = 5.0;
inline constexpr double shortClickThresholdSec = 0.5;
inline constexpr double doubleTapWindowSec = 0.5;
inline constexpr double longHoldTipThresholdSec = 60.0;
inline constexpr double longHoldTipCooldownSec = 86400.0;
inline constexpr double shortTapTipCooldownSec = 21600.0;
/// How much of a thrown-away text the log shows, in characters.
inline constexpr qsizetype hallucinationPreviewCharacters = 80;
inline constexpr double errorClearSec = 3.0;
/// How often the level reader samples the recorder while recording.
inline constexpr double levelReadIntervalSec = 0.06;

} // namespace tamvex::RecordingConstants
