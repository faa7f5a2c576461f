#include "pipelines/local/LocalModelChoice.h"

#include "pipelines/local/ParakeetEngine.h"
#include "pipelines/local/WhisperEngine.h"

#include <QFileInfo>

namespace tamvex {

LocalHardware LocalHardware::current() {
    static const LocalHardware hardware{WhisperEngine::backendName(), ParakeetEngine::isAvailable()};
    return hardware;
}

WhisperModel chooseLocalModel(std::optional<WhisperModel> chosen, const std::function<bool(WhisperModel)>& present,
                              const LocalHardware& hardware) {
    if (chosen)
        return *chosen;
    for (WhisperModel model : whisperModels::all())
        if (present(model))
            return model;
    const bool onProcessor = hardware.backend.isEmpty() || hardware.backend == QLatin1String("CPU");
    return onProcessor && hardware.parakeetAvailable ? WhisperModel::parakeetV3Q4 : WhisperModel::largeV3TurboQ5;
}

WhisperModel correctedBySpeed(WhisperModel proposal, const QMap<WhisperModel, ModelSpeed>& speeds,
                              double dictationSeconds, double limitSeconds) {
    const auto measured = speeds.constFind(proposal);
    if (measured == speeds.cend() || measured->canFinish(dictationSeconds, limitSeconds))
        return proposal;
    return fastestModelThatCanFinish(speeds, dictationSeconds, limitSeconds).value_or(proposal);
}

WhisperModel chooseLocalModelIn(std::optional<WhisperModel> chosen, const QString& modelsDirectory) {
    return chooseLocalModel(
        chosen,
        [&](WhisperModel m) { return QFileInfo::exists(modelsDirectory + QLatin1Char('/') + whisperModels::fileName(m)); },
        LocalHardware::current());
}

} // namespace tamvex
