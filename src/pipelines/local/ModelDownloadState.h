#pragma once

#include "pipelines/local/WhisperModel.h"

#include <QMetaType>
#include <QMutex>
#include <QObject>
#include <QString>

#include <optional>

namespace tamvex {

/// What the model downloader is doing, as the settings pane shows it.
class ModelDownloadState {
    Q_GADGET
    Q_PROPERTY(Kind kind READ kind CONSTANT)
    Q_PROPERTY(double progress READ progress CONSTANT)
    Q_PROPERTY(QString reason READ reason CONSTANT)
public:
    enum class Kind { downloading, failed, idle, verifying, completed };
    Q_ENUM(Kind)

    /// The idle state.
    ModelDownloadState() = default;
    /// A transfer is running; `progress` is 0 to 1.
    static ModelDownloadState downloading(double progress) { return {Kind::downloading, progress, {}}; }
    /// It went wrong; `reason` is shown to the user as it stands.
    static ModelDownloadState failed(const QString& reason) { return {Kind::failed, 0.0, reason}; }
    /// Nothing is going on.
    static ModelDownloadState idle() { return {}; }
    /// The digest is being computed.
    static ModelDownloadState verifying() { return {Kind::verifying, 0.0, {}}; }
    /// The file on disk is proved good.
    static ModelDownloadState completed() { return {Kind::completed, 0.0, {}}; }

    /// Which case this is.
    Kind kind() const { return m_kind; }
    /// The payload of `downloading`, else 0.
    double progress() const { return m_progress; }
    /// The payload of `failed`, else empty.
    QString reason() const { return m_reason; }
    /// "downloading(0.25)", "failed(...)", "idle", ... for logs and tests.
    QString toString() const;

    bool operator==(const ModelDownloadState&) const = default;

private:
    ModelDownloadState(Kind kind, double progress, QString reason)
        : m_kind(kind), m_progress(progress), m_reason(std::move(reason)) {}
    Kind m_kind = Kind::idle;
    double m_progress = 0.0;
    QString m_reason;
};

/// The model being fetched, readable and writable from any thread.
class ModelSnapshot {
public:
    /// The current value.
    std::optional<WhisperModel> value() const {
        QMutexLocker lock(&m_mutex);
        return m_value;
    }
    /// Replaces the value.
    void setValue(std::optional<WhisperModel> model) {
        QMutexLocker lock(&m_mutex);
        m_value = model;
    }

private:
    mutable QMutex m_mutex;
    std::optional<WhisperModel> m_value;
};

} // namespace tamvex

Q_DECLARE_METATYPE(tamvex::ModelDownloadState)
