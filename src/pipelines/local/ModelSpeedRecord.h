#pragma once

#include "pipelines/local/ModelSpeed.h"
#include "pipelines/local/WhisperModel.h"

#include <QMap>
#include <QString>

#include <optional>

namespace tamvex {

/// The self-tests kept between runs, one per model and whisper.cpp backend (a graphics card
/// changes every figure), in a small JSON file. A file that can't be read counts as empty:
/// what it held is measured again.
class ModelSpeedRecord {
public:
    explicit ModelSpeedRecord(QString path);

    /// The file, e.g. ".../model-speeds.json".
    const QString& path() const { return m_path; }
    /// The kept speed of `model` on `backend`, if any.
    std::optional<ModelSpeed> speed(WhisperModel model, const QString& backend) const;
    /// Every kept speed on `backend`.
    QMap<WhisperModel, ModelSpeed> speeds(const QString& backend) const;
    /// Keeps a speed, replacing an earlier one; false (and logged) when the file can't be written.
    bool store(WhisperModel model, const QString& backend, const ModelSpeed& speed);

private:
    QString m_path;
};

} // namespace tamvex
