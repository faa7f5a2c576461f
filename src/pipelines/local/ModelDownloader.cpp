#include "pipelines/local/ModelDownloader.h"

#include "pipelines/local/SpeechDetectorModel.h"
#include "platform/Log.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QPointer>
#include <QStorageInfo>
#include <QtConcurrent/QtConcurrentRun>

#include <qcoro/qcorofuture.h>

#ifdef TAMVEX_HAVE_OPENSSL
#include <openssl/evp.h>
#endif

#include <algorithm>

namespace tamvex {

namespace {

constexpr qint64 digestBlockBytes = 0x100000;

// A byte count in megabytes as a file manager shows it: decimal units.
QString megabytes(qint64 bytes) {
    const double mb = double(bytes) / 1e6;
    return QString::number(mb, 'f', mb < 10.0 ? 1 : 0) + QStringLiteral(" MB");
}

/// Streaming SHA-256. OpenSSL's uses the processor's SHA instructions and is about ten
/// times faster than Qt's portable code, which a half-gigabyte model makes worth having.
class Sha256Stream {
public:
#ifdef TAMVEX_HAVE_OPENSSL
    Sha256Stream() : m_ctx(EVP_MD_CTX_new()) {
        m_ok = m_ctx && EVP_DigestInit_ex(m_ctx, EVP_sha256(), nullptr) == 1;
    }
    ~Sha256Stream() {
        EVP_MD_CTX_free(m_ctx);
    }
    void add(const char* data, qint64 size) {
        m_ok = m_ok && EVP_DigestUpdate(m_ctx, data, size_t(size)) == 1;
    }
    std::optional<QByteArray> result() {
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned int length = 0;
        if (!m_ok || EVP_DigestFinal_ex(m_ctx, digest, &length) != 1)
            return std::nullopt;
        return QByteArray(reinterpret_cast<const char*>(digest), int(length));
    }

private:
    EVP_MD_CTX* m_ctx;
    bool m_ok = false;
#else
    void add(const char* data, qint64 size) {
        m_hash.addData(QByteArrayView(data, size));
    }
    std::optional<QByteArray> result() {
        return m_hash.result();
    }

private:
    QCryptographicHash m_hash{QCryptographicHash::Sha256};
#endif
};

} // namespace

ModelDownloader::ModelDownloader(Paths paths, Clock& clock, QNetworkAccessManager* network, DescriptorProvider describe,
                                 TransferLimits limits, QObject* parent)
    : QObject(parent), m_paths(std::move(paths)), m_clock(clock), m_network(network), m_describe(std::move(describe)),
      m_limits(limits) {
    if (!m_network) {
        m_ownNetwork = std::make_unique<QNetworkAccessManager>();
        m_network = m_ownNetwork.get();
    }
}

ModelDownloader::~ModelDownloader() = default;

ModelDownloader& ModelDownloader::shared() {
    // Never destroyed: it may be busy when the process ends, and nothing needs flushing.
    static ModelDownloader* instance = [] {
        auto* downloader = new ModelDownloader(Paths::standard(), *new WallClock);
        // The local road leaves silence out before the engine with this small file.
        downloader->setCompanions({speechDetectorModel()});
        return downloader;
    }();
    return *instance;
}

QString ModelDownloader::speedRecordPath() const {
    return m_paths.dataFile(QStringLiteral("model-speeds.json"));
}

ModelDescriptor ModelDownloader::descriptor(WhisperModel model) const {
    return m_describe ? m_describe(model) : whisperModels::descriptor(model);
}

QString ModelDownloader::corruptedText() {
    return QStringLiteral("Файл повреждён при загрузке. Попробуй ещё раз.");
}

void ModelDownloader::setState(const ModelDownloadState& state) {
    if (m_state == state)
        return;
    m_state = state;
    emit stateChanged(m_state);
}

void ModelDownloader::download(WhisperModel model) {
    m_model = model;
    m_snapshot.setValue(model);
    if (!QFileInfo::exists(localURL(model))) {
        startDownload(model);
        return;
    }
    setState(ModelDownloadState::verifying());
    verifyExisting(model);
}

void ModelDownloader::startDownload(WhisperModel model) {
    // Called directly, it still has to know at the end which model the file belongs to.
    m_model = model;
    m_snapshot.setValue(model);
    setState(ModelDownloadState::downloading(0.0));
    const ModelDescriptor d = descriptor(model);
    m_sources.clear();
    for (const QUrl& url : {d.downloadURL, d.mirrorURL})
        if (url.isValid() && !url.isEmpty() && !m_sources.contains(url))
            m_sources.append(url);
    logInfo("Whisper model download started: " + d.fileName + " (~" + megabytes(d.expectedBytes) + ")");
    // Half a gigabyte that can't fit is better refused now than after an hour of transfer.
    const qint64 need = d.expectedBytes;
    const QStorageInfo disk(modelsDirectory());
    if (disk.isValid() && need > 0 && disk.bytesAvailable() >= 0 && disk.bytesAvailable() < need) {
        const QString reason = QStringLiteral("На диске не хватает места: нужно ~%1, свободно %2.")
                                   .arg(megabytes(need), megabytes(disk.bytesAvailable()));
        logError("Whisper model download failed: " + reason);
        setState(ModelDownloadState::failed(reason));
        return;
    }
    startTransfer(0);
}

void ModelDownloader::startTransfer(int sourceIndex) {
    const ModelDescriptor d = descriptor(*m_model);
    const QUrl url = m_sources.value(sourceIndex);
    m_sourceIndex = sourceIndex;
    // A transfer still running is replaced: two would write the same partial file.
    m_transfer.reset();
    // Every host but the last may give way to the next; the last one's answer is judged by
    // its digest, whatever it is.
    const bool mayGiveWay = sourceIndex + 1 < m_sources.size();
    m_transfer =
        std::make_unique<ModelTransfer>(*m_network, m_clock, url, partPath(*m_model), m_limits, mayGiveWay);
    connect(m_transfer.get(), &ModelTransfer::progressed, this, [this, url](qint64 received, qint64 total) {
        // Named once bytes flow: a host that refused is not where they came from.
        setSource(url.host());
        // A body can outgrow its announced length; the bar stops at full.
        setState(ModelDownloadState::downloading(total >= 1 ? std::min(1.0, double(received) / double(total)) : 0.0));
    });
    connect(m_transfer.get(), &ModelTransfer::downloaded, this, &ModelDownloader::onDownloaded);
    ModelTransfer* transfer = m_transfer.get();
    connect(transfer, &ModelTransfer::unavailable, this, [this, transfer](const QString& reason) {
        logError("Whisper model source unavailable: " + reason);
        // Later, not inside the signal of the transfer that the next one replaces; a cancel in
        // between wins.
        QMetaObject::invokeMethod(
            this,
            [this, transfer] {
                if (m_transfer.get() == transfer)
                    startTransfer(m_sourceIndex + 1);
            },
            Qt::QueuedConnection);
    });
    connect(m_transfer.get(), &ModelTransfer::failed, this, [this](const QString& reason) {
        logError("Whisper model download failed: " + reason);
        setSource({});
        setState(ModelDownloadState::failed(reason));
    });
    m_transfer->start();
    logInfo("Whisper model source: " + url.toString());
}

void ModelDownloader::setSource(const QString& host) {
    if (m_source == host)
        return;
    m_source = host;
    emit sourceChanged(m_source);
}

QString ModelDownloader::partPath(WhisperModel model) const {
    return localURL(model) + QStringLiteral(".part");
}

void ModelDownloader::onDownloaded(const QString& partPath) {
    const std::optional<WhisperModel> model = m_snapshot.value();
    if (!model)
        return;
    const QString target = localURL(*model);
    QFile existing(target);
    QString error;
    if (existing.exists() && !existing.remove())
        error = existing.errorString();
    QFile part(partPath);
    if (error.isEmpty() && !part.rename(target))
        error = part.errorString();
    if (!error.isEmpty()) {
        logError("Failed to move whisper model to destination: " + error);
        QFile::remove(partPath);
        setState(ModelDownloadState::failed(ModelTransfer::saveFailedText(error)));
        return;
    }
    setSource({});
    logInfo("Whisper model written: " + target);
    verifyDownloaded(*model);
}

QCoro::Task<bool> ModelDownloader::fileIsGood(WhisperModel model) const {
    const QString path = localURL(model);
    const QString expected = descriptor(model).expectedSHA256.toLower();
    // Named, not a temporary inside co_await: g++ 12 destroys such temporaries twice.
    QFuture<std::optional<QString>> future = QtConcurrent::run([path] { return sha256HexOfFile(path); });
    const std::optional<QString> digest = co_await future;
    co_return digest && digest->toLower() == expected;
}

// Detached tasks: they catch nothing because nothing in them throws, and they hold the
// downloader weakly since a dictation-length digest can outlive it.
QCoro::Task<void> ModelDownloader::verifyDownloaded(WhisperModel model) {
    QPointer<ModelDownloader> self(this);
    setState(ModelDownloadState::verifying());
    const bool good = co_await fileIsGood(model);
    if (!self)
        co_return;
    const QString name = descriptor(model).fileName;
    if (good) {
        setState(ModelDownloadState::completed());
        logInfo("Whisper model verified: " + name);
        fetchCompanions();
        co_return;
    }
    logError(QStringLiteral("Whisper model SHA-256 mismatch — file deleted"));
    deleteModel(model);
    setState(ModelDownloadState::failed(corruptedText()));
}

QCoro::Task<void> ModelDownloader::verifyExisting(WhisperModel model) {
    QPointer<ModelDownloader> self(this);
    const bool good = co_await fileIsGood(model);
    if (!self)
        co_return;
    if (good) {
        setState(ModelDownloadState::completed());
        fetchCompanions();
        co_return;
    }
    logError("Whisper model present but SHA mismatch: " + descriptor(model).fileName + " — re-downloading");
    deleteModel(model);
    startDownload(model);
}

void ModelDownloader::setCompanions(QList<ModelDescriptor> companions) {
    m_companions = std::move(companions);
}

QString ModelDownloader::companionPath(const ModelDescriptor& companion) const {
    return modelsDirectory() + "/" + companion.fileName;
}

// One companion at a time, the first missing one from `from` on.
void ModelDownloader::fetchCompanions(int from) {
    for (int i = from; i < m_companions.size(); ++i) {
        if (!QFileInfo::exists(companionPath(m_companions[i]))) {
            fetchCompanion(i, 0);
            return;
        }
    }
    m_companionTransfer.reset();
}

void ModelDownloader::fetchCompanion(int index, int sourceIndex) {
    const ModelDescriptor c = m_companions.value(index);
    QList<QUrl> sources;
    for (const QUrl& url : {c.downloadURL, c.mirrorURL})
        if (url.isValid() && !url.isEmpty() && !sources.contains(url))
            sources.append(url);
    if (sourceIndex >= sources.size())
        return fetchCompanions(index + 1);
    m_companionTransfer.reset();
    m_companionTransfer =
        std::make_unique<ModelTransfer>(*m_network, m_clock, sources[sourceIndex], companionPath(c) + ".part",
                                        m_limits, sourceIndex + 1 < sources.size());
    ModelTransfer* transfer = m_companionTransfer.get();
    // Each step later, not inside the signal of the transfer that the next one replaces.
    auto later = [this, transfer](auto step) {
        QMetaObject::invokeMethod(
            this,
            [this, transfer, step] {
                if (m_companionTransfer.get() == transfer)
                    step();
            },
            Qt::QueuedConnection);
    };
    connect(transfer, &ModelTransfer::unavailable, this, [=, this](const QString& reason) {
        logError("Companion file source unavailable: " + reason);
        later([=, this] { fetchCompanion(index, sourceIndex + 1); });
    });
    connect(transfer, &ModelTransfer::failed, this, [=, this](const QString& reason) {
        logError("Companion file download failed: " + c.fileName + ": " + reason);
        later([=, this] { fetchCompanions(index + 1); });
    });
    connect(transfer, &ModelTransfer::downloaded, this, [=, this](const QString& partPath) {
        later([=, this] { companionArrived(index, partPath); });
    });
    m_companionTransfer->start();
}

// A file of under a megabyte: its digest is computed here, at once.
void ModelDownloader::companionArrived(int index, const QString& partPath) {
    const ModelDescriptor c = m_companions.value(index);
    const std::optional<QString> digest = sha256HexOfFile(partPath);
    QFile part(partPath);
    if (!digest || digest->toLower() != c.expectedSHA256.toLower()) {
        logError("Companion file SHA-256 mismatch — file deleted: " + c.fileName);
        part.remove();
    } else if (!part.rename(companionPath(c))) {
        logError("Failed to move companion file to destination: " + part.errorString());
        part.remove();
    } else {
        logInfo("Companion file verified: " + c.fileName);
        emit companionReady(c.fileName);
    }
    fetchCompanions(index + 1);
}

void ModelDownloader::cancel() {
    m_transfer.reset();
    m_companionTransfer.reset();
    setSource({});
    setState(ModelDownloadState::idle());
}

bool ModelDownloader::deleteModel(WhisperModel model) {
    QFile file(localURL(model));
    if (!file.exists())
        return false;
    const QString name = descriptor(model).fileName;
    if (!file.remove()) {
        logError("Failed to delete " + name + ": " + file.errorString());
        return false;
    }
    logInfo("Whisper model deleted: " + name);
    return true;
}

std::optional<qint64> ModelDownloader::fileSize(WhisperModel model) const {
    const QFileInfo info(localURL(model));
    if (!info.exists() || !info.isFile())
        return std::nullopt;
    return info.size();
}

QString ModelDownloader::modelsDirectory() const {
    const QString dir = m_paths.dataFile(QStringLiteral("models"));
    QDir().mkpath(dir);
    return dir;
}

QString ModelDownloader::localURL(WhisperModel model) const {
    return modelsDirectory() + "/" + descriptor(model).fileName;
}

std::optional<QString> ModelDownloader::sha256Hex(WhisperModel model) const {
    return sha256HexOfFile(localURL(model));
}

std::optional<QString> ModelDownloader::sha256HexOfFile(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    Sha256Stream hash;
    QByteArray block(digestBlockBytes, Qt::Uninitialized);
    for (;;) {
        const qint64 n = file.read(block.data(), digestBlockBytes);
        if (n < 0)
            return std::nullopt;
        if (n == 0)
            break;
        hash.add(block.constData(), n);
    }
    const std::optional<QByteArray> digest = hash.result();
    if (!digest)
        return std::nullopt;
    return QString::fromLatin1(digest->toHex());
}

} // namespace tamvex
