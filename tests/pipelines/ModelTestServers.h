#pragma once

// HTTP peers for the model downloader's tests: the development server for whole answers, and
// a raw socket peer for what it cannot do (stalls, drops, no Content-Length).

#include "DevServer.h"
#include "pipelines/ModelDownloader.h"
#include "support/TestSupport.h"

#include <QByteArray>
#include <QHostAddress>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>

#include <functional>
#include <memory>

namespace tamvex::test {

/// Deterministic bytes standing in for a model file.
inline QByteArray patternBytes(qint64 size) {
    QByteArray bytes(size, Qt::Uninitialized);
    for (qint64 i = 0; i < size; ++i)
        bytes[i] = char(((quint64(i) * 2654435761ULL) >> 13) & 0xff);
    return bytes;
}

/// Size and SHA-256 of patternBytes used as the good model file; computed by another tool,
/// so the digest code under test is checked against an outside answer.
inline constexpr qint64 kPatternSize = 2 * 1048576 + 12345;
inline const char* const kPatternSha256 = "a59d310887a52a0015468e9b8aea9c3955bfd9b39c2c23219371461c465df0d2";

/// A peer that reads one request per connection and lets the test write the answer by hand.
class RawHttpPeer : public QObject {
public:
    /// Called with the connection once the request headers are in.
    std::function<void(QTcpSocket*)> onRequest;
    int requests = 0;
    QPointer<QTcpSocket> last;

    RawHttpPeer() {
        QObject::connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = m_server.nextPendingConnection()) {
                auto* buffer = new QByteArray;
                QObject::connect(socket, &QObject::destroyed, [buffer] { delete buffer; });
                QObject::connect(socket, &QTcpSocket::readyRead, this, [this, socket, buffer] {
                    const bool wasComplete = buffer->contains("\r\n\r\n");
                    buffer->append(socket->readAll());
                    if (!wasComplete && buffer->contains("\r\n\r\n")) {
                        ++requests;
                        last = socket;
                        if (onRequest)
                            onRequest(socket);
                    }
                });
            }
        });
        m_server.listen(QHostAddress::LocalHost, 0);
    }
    /// Base URL of the peer.
    QString base() const { return QStringLiteral("http://127.0.0.1:%1").arg(m_server.serverPort()); }
    QString url() const { return base() + "/models/small.bin"; }

private:
    QTcpServer m_server;
};

/// Status line and headers of a 200 answer; a negative length leaves Content-Length out.
inline QByteArray okHeaders(qint64 contentLength) {
    QByteArray head = "HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\nConnection: close\r\n";
    if (contentLength >= 0)
        head += "Content-Length: " + QByteArray::number(contentLength) + "\r\n";
    return head + "\r\n";
}

/// The development server with the good file as its model "small.bin" (any other name is a 404).
struct ModelServer {
    ModelServer() {
        writeFile(dir.filePath("models/small.bin"), body);
        server.start();
    }
    QString base() const { return server.baseUrl().toString(); }
    QString url() const { return base() + "/models/small.bin"; }
    int requests() const { return int(server.received().size()); }

    QTemporaryDir dir;
    QByteArray body = patternBytes(kPatternSize);
    devserver::DevServer server{dir.path()};
};

/// One downloader under a sandbox, fetching its model (any WhisperModel) from `url`; every state
/// it passes through is noted.
struct DownloaderRig {
    explicit DownloaderRig(const QString& url, const QString& digest = kPatternSha256, Clock* clock = nullptr)
        : clock(clock ? clock : &wall) {
        network.setProxy(QNetworkProxy::NoProxy);
        downloader = std::make_unique<ModelDownloader>(env.paths, *this->clock, &network, [url, digest](WhisperModel) {
            return ModelDescriptor{"small.bin", kPatternSize, digest, QUrl(url)};
        });
        QObject::connect(downloader.get(), &ModelDownloader::stateChanged,
                         [this](const ModelDownloadState& s) { states.append(s); });
    }
    bool waitForEnd(int ms = 15000) {
        return spinUntil(
            [this] {
                const auto k = downloader->state().kind();
                return k == ModelDownloadState::Kind::completed || k == ModelDownloadState::Kind::failed;
            },
            ms);
    }
    QString target() const { return downloader->localURL(WhisperModel::largeV3TurboQ5); }

    TestEnv env;
    WallClock wall;
    Clock* clock;
    QNetworkAccessManager network;
    std::unique_ptr<ModelDownloader> downloader;
    QList<ModelDownloadState> states;
};

} // namespace tamvex::test
