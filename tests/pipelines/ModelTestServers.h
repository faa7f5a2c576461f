#pragma once

// HTTP peers for the model downloader's tests: a real QHttpServer for whole answers, and a
// raw socket peer for what QHttpServer cannot do (stalls, drops, no Content-Length).

#include <QByteArray>
#include <QHostAddress>
#include <QHttpServer>
#include <QHttpServerResponse>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>

#include <functional>

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

/// A QHttpServer serving the good file, a 404 page, and counting requests.
struct ModelServer {
    ModelServer() {
        server.route("/models/<arg>", [this](const QString& name) {
            ++requests;
            if (name == "small.bin")
                return QHttpServerResponse("application/octet-stream", body);
            return QHttpServerResponse("text/html", "<html><body>404 Not Found</body></html>",
                                       QHttpServerResponse::StatusCode::NotFound);
        });
        port = server.listen(QHostAddress::LocalHost, 0);
    }
    QString base() const { return QStringLiteral("http://127.0.0.1:%1").arg(port); }
    QHttpServer server;
    QByteArray body = patternBytes(kPatternSize);
    int requests = 0;
    quint16 port = 0;
};

} // namespace tamvex::test
