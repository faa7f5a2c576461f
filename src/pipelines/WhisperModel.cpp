#include "pipelines/WhisperModel.h"

#include "pipelines/ServiceHosts.h"

namespace tamvex::whisperModels {

QList<WhisperModel> all() {
    return {WhisperModel::largeV3TurboQ5, WhisperModel::mediumQ5};
}

QString rawValue(WhisperModel model) {
    switch (model) {
    case WhisperModel::largeV3TurboQ5:
        return QStringLiteral("ggml-large-v3-turbo-q5_0");
    case WhisperModel::mediumQ5:
        return QStringLiteral("ggml-medium-q5_0");
    }
    return {};
}

std::optional<WhisperModel> fromRawValue(const QString& raw) {
    for (WhisperModel m : all())
        if (rawValue(m) == raw)
            return m;
    return std::nullopt;
}

QString fileName(WhisperModel model) {
    return rawValue(model) + QStringLiteral(".bin");
}

qint64 expectedBytes(WhisperModel model) {
    switch (model) {
    case WhisperModel::largeV3TurboQ5:
        return 574041195;
    case WhisperModel::mediumQ5:
        return 539212467;
    }
    return 0;
}

QString expectedSHA256(WhisperModel model) {
    switch (model) {
    case WhisperModel::largeV3TurboQ5:
        return QStringLiteral("394221709cd5ad1f40c46e6031ca61bce88931e6e088c188294c6d5a55ffa7e2");
    case WhisperModel::mediumQ5:
        return QStringLiteral("19fea4b380c3a618ec4723c3eef2eb785ffba0d0538cf43f8f235e7b3b34220f");
    }
    return {};
}

QUrl downloadURL(WhisperModel model) {
    return ServiceHosts::join(ServiceHosts::configured().main, QStringLiteral("/models/") + fileName(model));
}

ModelDescriptor descriptor(WhisperModel model) {
    return {fileName(model), expectedBytes(model), expectedSHA256(model), downloadURL(model)};
}

} // namespace tamvex::whisperModels
