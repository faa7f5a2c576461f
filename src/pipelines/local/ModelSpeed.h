#pragma once

#include "pipelines/local/WhisperModel.h"

#include <QMap>
#include <QString>

#include <optional>

namespace tamvex {

/// The dictation the speed rule asks about: 20 s of speech must be recognised within the
/// limit every dictation runs under.
inline constexpr double speedRuleDictationSeconds = 20.0;

/// One self-test of a model on this machine: how long its engine took, the model already
/// loaded, to recognise a sample of speech.
struct ModelSpeed {
    double speechSeconds = 0.0;  ///< length of the sample
    double elapsedSeconds = 0.0; ///< time the recognition took

    bool operator==(const ModelSpeed&) const = default;

    /// A sample of some speech, measured in a time that is a number.
    bool isValid() const;
    /// Seconds of work for `seconds` of speech at the measured rate. Whisper pays for whole
    /// 30 s windows, so for it this overestimates a short dictation: the rule errs towards
    /// warning.
    double secondsFor(double seconds) const;
    /// Whether a dictation of `dictationSeconds` is recognised within `limitSeconds`.
    bool canFinish(double dictationSeconds, double limitSeconds) const;
    /// "10 с речи — за 1,4 с": the work for ten seconds of speech.
    QString text() const;
};

/// The model of `speeds` that recognises speech fastest among those finishing a
/// `dictationSeconds` dictation within `limitSeconds`; none when none does.
std::optional<WhisperModel> fastestModelThatCanFinish(const QMap<WhisperModel, ModelSpeed>& speeds,
                                                      double dictationSeconds, double limitSeconds);

} // namespace tamvex
