#pragma once

#include <QList>
#include <QString>
#include <QUrl>

#include <optional>

namespace tamvex {

/// The model files the local engines can use; rawValue() is the printed form.
enum class WhisperModel { largeV3TurboQ5, mediumQ5, parakeetV3Q4, parakeetV3Q8, baseQ5_1 };

/// Which engine runs a model.
enum class LocalEngineKind { whisper, parakeet };

/// What to fetch for one model and how to recognise the right file.
struct ModelDescriptor {
    QString fileName;
    qint64 expectedBytes = 0; ///< nominal size, for display and the log only
    QString expectedSHA256;   ///< lowercase hexadecimal
    QUrl downloadURL; ///< the main service host: asked first
    QUrl mirrorURL;   ///< the same file on the public mirror: asked when the main host can't serve it
};

namespace whisperModels {

/// Every model in declared order.
QList<WhisperModel> all();
/// "ggml-large-v3-turbo-q5_0", "ggml-medium-q5_0".
QString rawValue(WhisperModel model);
/// The model of a raw text, or none for an unknown text.
std::optional<WhisperModel> fromRawValue(const QString& raw);
/// The raw value + ".bin".
QString fileName(WhisperModel model);
/// Nominal size in bytes.
qint64 expectedBytes(WhisperModel model);
/// SHA-256 of the good file, lowercase hexadecimal.
QString expectedSHA256(WhisperModel model);
/// The main service host + "/models/" + file name.
QUrl downloadURL(WhisperModel model);
/// The public whisper.cpp model mirror + "/" + file name; TAMVEX_MODEL_MIRROR_URL replaces the base.
QUrl mirrorURL(WhisperModel model);
/// Which engine runs the model.
LocalEngineKind kind(WhisperModel model);
/// "Whisper Large V3 Turbo (Q5)", "Parakeet TDT 0.6B v3 (Q4)", ...
QString displayName(WhisperModel model);
/// The languages it recognises, as the settings card says it.
QString languages(WhisperModel model);
/// `fileName` under the mirror: TAMVEX_MODEL_MIRROR_URL when set, else `publicBase`.
QUrl mirrorOf(const QString& fileName, const QString& publicBase);
/// All of the above in one record.
ModelDescriptor descriptor(WhisperModel model);

} // namespace whisperModels

} // namespace tamvex
