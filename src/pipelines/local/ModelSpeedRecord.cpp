#include "pipelines/local/ModelSpeedRecord.h"

#include "platform/Log.h"

#include <QFile>
#include <QFileInfo>
#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

namespace tamvex {

namespace {

// {"models": {"<model>": {"<backend>": {"speech_s": 10.6, "elapsed_s": 1.4}}}}
QJsonObject readModels(const QString& path) {
    QFile file(path);
    if (!file.exists())
        return {};
    if (!file.open(QIODevice::ReadOnly)) {
        logError(QStringLiteral("Model speeds: can't read %1: %2").arg(path, file.errorString()));
        return {};
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &error);
    if (!document.isObject()) {
        logError(QStringLiteral("Model speeds: ignoring %1, measured again: %2").arg(path, error.errorString()));
        return {};
    }
    return document.object().value(QStringLiteral("models")).toObject();
}

std::optional<ModelSpeed> speedOf(const QJsonValue& value) {
    const QJsonObject o = value.toObject();
    const ModelSpeed speed{o.value(QStringLiteral("speech_s")).toDouble(-1.0),
                           o.value(QStringLiteral("elapsed_s")).toDouble(-1.0)};
    return speed.isValid() ? std::optional(speed) : std::nullopt;
}

} // namespace

ModelSpeedRecord::ModelSpeedRecord(QString path) : m_path(std::move(path)) {}

std::optional<ModelSpeed> ModelSpeedRecord::speed(WhisperModel model, const QString& backend) const {
    return speedOf(readModels(m_path).value(whisperModels::rawValue(model)).toObject().value(backend));
}

QMap<WhisperModel, ModelSpeed> ModelSpeedRecord::speeds(const QString& backend) const {
    const QJsonObject models = readModels(m_path);
    QMap<WhisperModel, ModelSpeed> result;
    for (WhisperModel model : whisperModels::all())
        if (auto speed = speedOf(models.value(whisperModels::rawValue(model)).toObject().value(backend)))
            result.insert(model, *speed);
    return result;
}

bool ModelSpeedRecord::store(WhisperModel model, const QString& backend, const ModelSpeed& speed) {
    QJsonObject models = readModels(m_path);
    QJsonObject backends = models.value(whisperModels::rawValue(model)).toObject();
    backends.insert(backend, QJsonObject{{QStringLiteral("speech_s"), speed.speechSeconds},
                                         {QStringLiteral("elapsed_s"), speed.elapsedSeconds}});
    models.insert(whisperModels::rawValue(model), backends);
    QDir().mkpath(QFileInfo(m_path).absolutePath());
    QSaveFile file(m_path);
    if (!file.open(QIODevice::WriteOnly) ||
        file.write(QJsonDocument(QJsonObject{{QStringLiteral("models"), models}}).toJson()) < 0 || !file.commit()) {
        logError(QStringLiteral("Model speeds: can't keep the speed of %1 in %2: %3")
                     .arg(whisperModels::rawValue(model), m_path, file.errorString()));
        return false;
    }
    return true;
}

} // namespace tamvex
