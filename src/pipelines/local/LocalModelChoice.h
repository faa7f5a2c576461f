#pragma once

#include "pipelines/local/ModelSpeed.h"
#include "pipelines/local/WhisperModel.h"

#include <QMap>

#include <QString>

#include <functional>
#include <optional>

namespace tamvex {

/// What the machine offers the local road: the device whisper.cpp runs on ("CPU" or a graphics
/// device's name) and whether this build has Parakeet.
struct LocalHardware {
    QString backend;
    bool parakeetAvailable = false;
    /// This build's, found once.
    static LocalHardware current();
};

/// The model the local road uses: the one the user chose; with no choice, a model already on
/// disk (in declared order, so an earlier user's large model keeps working); with none, the one
/// this machine runs best: whisper large-v3-turbo on a graphics device, Parakeet q4_0 on a
/// processor. `present` says whether a model's file is in the models folder.
WhisperModel chooseLocalModel(std::optional<WhisperModel> chosen, const std::function<bool(WhisperModel)>& present,
                              const LocalHardware& hardware);

/// `proposal` corrected by what this machine measured: when it was measured too slow for a
/// `dictationSeconds` dictation within `limitSeconds`, the fastest measured model that is fast
/// enough, if there is one.
WhisperModel correctedBySpeed(WhisperModel proposal, const QMap<WhisperModel, ModelSpeed>& speeds,
                              double dictationSeconds, double limitSeconds);

/// The same, looking for the files in `modelsDirectory` on this build's hardware.
WhisperModel chooseLocalModelIn(std::optional<WhisperModel> chosen, const QString& modelsDirectory);

} // namespace tamvex
