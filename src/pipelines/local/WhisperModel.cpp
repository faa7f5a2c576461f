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
    LocalEngineKind kind;
    const char* displayName;
    const char* mirrorBase; ///< null: whisper.cpp's model mirror
};

constexpr const char* kParakeetMirror = "https://huggingface.co/ggml-org/parakeet-GGUF/resolve/main";

// One row per model, in declared order. Parakeet q8_0's size is the file of its layout, until
// a download's Content-Length says better; sizes are for display only.
constexpr std::array<Row, 5> kRows{{
    {WhisperModel::largeV3TurboQ5, "ggml-large-v3-turbo-q5_0", 574041195,
     "394221709cd5ad1f40c46e6031ca61bce88931e6e088c188294c6d5a55ffa7e2", LocalEngineKind::whisper,
     "Whisper Large V3 Turbo (Q5)", nullptr},
    {WhisperModel::mediumQ5, "ggml-medium-q5_0", 539212467,
     "19fea4b380c3a618ec4723c3eef2eb785ffba0d0538cf43f8f235e7b3b34220f", LocalEngineKind::whisper,
     "Whisper Medium (Q5)", nullptr},
    {WhisperModel::parakeetV3Q4, "ggml-parakeet-tdt-0.6b-v3-q4_0", 355615679,
     "aa7fe2f5fb47d863ca23e8b1d490632d63a2599f515268b6d6bd656158dad45e", LocalEngineKind::parakeet,
     "Parakeet TDT 0.6B v3 (Q4)", kParakeetMirror},
    {WhisperModel::parakeetV3Q8, "ggml-parakeet-tdt-0.6b-v3-q8_0", 668770870,
     "4d64e9e96c2792186d072fde0034df0ad670cf680a2f53069052ead827fd600e", LocalEngineKind::parakeet,
     "Parakeet TDT 0.6B v3 (Q8)", kParakeetMirror},
    {WhisperModel::baseQ5_1, "ggml-base-q5_1", 59707625,
     "422f1ae452ade6f30a004d7e5c6a43195e4433bc370bf23fac9cc591f01a8898", LocalEngineKind::whisper,
     "Whisper Base (Q5_1)", nullptr},
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
    if (const char* base = row(model).mirrorBase)
        return mirrorOf(fileName(model), QString::fromLatin1(base));
    return ServiceHosts::join(ServiceHosts::configured().modelMirror, QStringLiteral("/") + fileName(model));
}

LocalEngineKind kind(WhisperModel model) {
    return row(model).kind;
}

QString displayName(WhisperModel model) {
    return QString::fromUtf8(row(model).displayName);
}

QString languages(WhisperModel model) {
    return kind(model) == LocalEngineKind::parakeet ? QStringLiteral("25 европейских языков")
                                                    : QStringLiteral("99 языков");
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
