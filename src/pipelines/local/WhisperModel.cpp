#include "pipelines/local/WhisperModel.h"

#include "pipelines/ServiceHosts.h"

#include <array>

namespace tamvex::whisperModels {

namespace {

struct Row {
    WhisperModel model;
    const char* rawValue;
    qint64 expectedBytes;
    const char* expectedSHA256;
};

// One row per model, in declared order.
constexpr std::array<Row, 2> kRows{{
    {WhisperModel::largeV3TurboQ5, "ggml-large-v3-turbo-q5_0", 574041195,
     "394221709cd5ad1f40c46e6031ca61bce88931e6e088c188294c6d5a55ffa7e2"},
    {WhisperModel::mediumQ5, "ggml-medium-q5_0", 539212467,
     "19fea4b380c3a618ec4723c3eef2eb785ffba0d0538cf43f8f235e7b3b34220f"},
}};

const Row& row(WhisperModel model) {
    for (const Row& r : kRows)
        if (r.model == model)
            return r;
    return kRows[0];
}

} // namespace

QList<WhisperModel> all() {
    QList<WhisperModel> models;
    for (const Row& r : kRows)
        models.append(r.model);
    return models;
}

QString rawValue(WhisperModel model) {
    return QString::fromLatin1(row(model).rawValue);
}

std::optional<WhisperModel> fromRawValue(const QString& raw) {
    for (const Row& r : kRows)
        if (raw == QLatin1String(r.rawValue))
            return r.model;
    return std::nullopt;
}

QString fileName(WhisperModel model) {
    return rawValue(model) + QStringLiteral(".bin");
}

qint64 expectedBytes(WhisperModel model) {
    return row(model).expectedBytes;
}

QString expectedSHA256(WhisperModel model) {
    return QString::fromLatin1(row(model).expectedSHA256);
}

QUrl downloadURL(WhisperModel model) {
    return ServiceHosts::join(ServiceHosts::configured().main, QStringLiteral("/models/") + fileName(model));
}

QUrl mirrorURL(WhisperModel model) {
    return ServiceHosts::join(ServiceHosts::configured().modelMirror, QStringLiteral("/") + fileName(model));
}

QUrl mirrorOf(const QString& fileName, const QString& publicBase) {
    const QUrl base = qEnvironmentVariableIsEmpty("TAMVEX_MODEL_MIRROR_URL") ? QUrl(publicBase)
                                                                             : ServiceHosts::configured().modelMirror;
    return ServiceHosts::join(base, QStringLiteral("/") + fileName);
}

ModelDescriptor descriptor(WhisperModel model) {
    return {fileName(model), expectedBytes(model), expectedSHA256(model), downloadURL(model), mirrorURL(model)};
}

} // namespace tamvex::whisperModels
