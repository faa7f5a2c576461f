#pragma once

#include "platform/Clock.h"
#include "platform/Error.h"

#include <QByteArray>
#include <QNetworkReply>
#include <QNetworkRequest>

#include <qcoro/qcorotask.h>

#include <memory>

class QNetworkAccessManager;

namespace tamvex {

/// The one QNetworkAccessManager of the process (main thread); loopback goes without proxy.
QNetworkAccessManager& sharedNetworkManager();
/// Makes `manager` skip any proxy for loopback hosts (tests and the dev server live there).
void bypassProxyForLoopback(QNetworkAccessManager& manager);

/// Drops a reply: it is cut off from every receiver (a dropped request's handlers and awaiters
/// may be gone with their owner), aborted, and deleted through the event loop, so a holder may
/// drop it inside its own signal.
struct ReplyDeleter {
    void operator()(QNetworkReply* reply) const {
        if (reply) {
            reply->disconnect();
            reply->abort();
            reply->deleteLater();
        }
    }
};
/// Owner of a QNetworkReply from the moment it exists.
using ReplyPtr = std::unique_ptr<QNetworkReply, ReplyDeleter>;

/// A request that never became an HTTP answer: no network, refused, timed out or cancelled.
class NetworkError : public TamvexError {
public:
    enum class Kind { Transport, TimedOut, Cancelled };
    NetworkError(Kind kind, QNetworkReply::NetworkError code, const QString& detail);
    Kind kind() const { return m_kind; }
    QNetworkReply::NetworkError code() const { return m_code; }

private:
    Kind m_kind;
    QNetworkReply::NetworkError m_code;
};

/// Time limits of one request, read from the Clock. Zero means no limit.
struct RequestLimits {
    double idleSec = 60.0; ///< longest wait with no bytes moving either way
    double totalSec = 0.0; ///< longest wait for the whole exchange
};

/// What came back: an HTTP status with its body.
struct HttpAnswer {
    int status = -1;
    QByteArray body;
    QNetworkReply::NetworkError qtError = QNetworkReply::NoError;
};

/// Sends `request` with `verb` and `body`; gives the HTTP answer whatever its status.
/// Throws NetworkError when no HTTP answer arrived, including the limits and `cancel`,
/// which aborts the reply at once.
QCoro::Task<HttpAnswer> sendRequest(QNetworkAccessManager& manager, Clock& clock, QNetworkRequest request,
                                    QByteArray verb, QByteArray body = {}, RequestLimits limits = {},
                                    Cancellation cancel = {});

/// The body as UTF-8 text, or the empty text when it is not valid UTF-8.
QString utf8OrEmpty(const QByteArray& body);

} // namespace tamvex
