#pragma once

#include "pipelines/local/ModelDownloadState.h"
#include "pipelines/local/ModelTransfer.h"
#include "pipelines/local/WhisperModel.h"
#include "platform/Clock.h"
#include "platform/Paths.h"

#include <QObject>
#include <QString>

#include <qcoro/qcorotask.h>

#include <functional>
#include <memory>
#include <optional>

class QNetworkAccessManager;

namespace tamvex {

/// Fetches a whisper model file from the main service host, or from the public mirror when
/// that host can't serve it, proves it by SHA-256 and publishes what it is doing. Lives on the
/// main thread; digests are computed off it.
class ModelDownloader : public QObject {
    Q_OBJECT
    Q_PROPERTY(tamvex::ModelDownloadState state READ state NOTIFY stateChanged)
    Q_PROPERTY(QString source READ source NOTIFY sourceChanged)
public:
    /// Says what to fetch for a model; tests hand in small files with known digests.
    using DescriptorProvider = std::function<ModelDescriptor(WhisperModel)>;

    /// A downloader keeping its files under `paths`. `network` may be null (one is made);
    /// an empty `describe` means the real models.
    ModelDownloader(Paths paths, Clock& clock, QNetworkAccessManager* network = nullptr,
                    DescriptorProvider describe = {}, TransferLimits limits = {}, QObject* parent = nullptr);
    ~ModelDownloader() override;

    /// The process-wide instance, made on first use on the main thread.
    static ModelDownloader& shared();

    /// What the settings pane shows.
    ModelDownloadState state() const { return m_state; }
    /// The host the bytes of the running transfer come from; empty when none runs.
    QString source() const { return m_source; }
    /// The model of the last download() call, if any.
    std::optional<WhisperModel> model() const { return m_model; }
    /// The descriptor used for `model`.
    ModelDescriptor descriptor(WhisperModel model) const;

    /// Starts a transfer when there is no file, or proves the file that is there.
    void download(WhisperModel model);
    /// Stops a transfer and returns to idle.
    void cancel();
    /// Removes the model file; true when a file was removed.
    bool deleteModel(WhisperModel model);
    /// Size of the model file on disk, none when there is no file.
    std::optional<qint64> fileSize(WhisperModel model) const;
    /// The folder of model files, created when missing (a failure shows later).
    QString modelsDirectory() const;
    /// Where the models' measured speeds are kept (ModelSpeedRecord).
    QString speedRecordPath() const;
    /// Where the model's file lives.
    QString localURL(WhisperModel model) const;
    /// Where a transfer keeps what it received until the file is whole.
    QString partPath(WhisperModel model) const;
    /// Lowercase hex SHA-256 of the model file, none when it can't be read. Blocks: call it
    /// off the main thread.
    std::optional<QString> sha256Hex(WhisperModel model) const;
    /// Lowercase hex SHA-256 of any file, read in 1 MiB blocks; none when it can't be read.
    static std::optional<QString> sha256HexOfFile(const QString& path);

    /// Starts a fresh transfer; a running one is dropped first.
    void startDownload(WhisperModel model);
    /// Proves a file found at download(); a bad one is deleted and fetched again.
    QCoro::Task<void> verifyExisting(WhisperModel model);
    /// Proves a file just written; a bad one is deleted and the state says so.
    QCoro::Task<void> verifyDownloaded(WhisperModel model);

    /// Small files the local road uses beside a model (the speech detector). Once a model is
    /// proved good, those missing are fetched and proved quietly, each from its `downloadURL`
    /// and then its `mirrorURL`; a failure is logged and leaves the model's state alone.
    void setCompanions(QList<ModelDescriptor> companions);
    /// Where a companion file lives: in the models folder, under its own name.
    QString companionPath(const ModelDescriptor& companion) const;

    /// The reason shown when a fetched file has the wrong digest.
    static QString corruptedText();

signals:
    /// The state changed.
    void stateChanged(const tamvex::ModelDownloadState& state);
    /// The host of the running transfer changed.
    void sourceChanged(const QString& host);
    /// A companion file was fetched and proved.
    void companionReady(const QString& fileName);

private:
    void setState(const ModelDownloadState& state);
    void setSource(const QString& host);
    void startTransfer(int sourceIndex);
    void fetchCompanions(int from = 0);
    void fetchCompanion(int index, int sourceIndex);
    void companionArrived(int index, const QString& partPath);
    void onDownloaded(const QString& partPath);
    QCoro::Task<bool> fileIsGood(WhisperModel model) const;

    Paths m_paths;
    Clock& m_clock;
    QNetworkAccessManager* m_network;
    std::unique_ptr<QNetworkAccessManager> m_ownNetwork;
    DescriptorProvider m_describe;
    TransferLimits m_limits;
    ModelDownloadState m_state;
    std::unique_ptr<ModelTransfer> m_transfer;
    std::optional<WhisperModel> m_model;
    ModelSnapshot m_snapshot;
    QList<QUrl> m_sources;
    int m_sourceIndex = 0;
    QString m_source;
    QList<ModelDescriptor> m_companions;
    std::unique_ptr<ModelTransfer> m_companionTransfer;
};

} // namespace tamvex
