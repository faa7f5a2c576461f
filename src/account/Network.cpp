#include "account/Network.h"

#include <QHostAddress>
#include <QNetworkAccessManager>
#include <QNetworkProxyFactory>
#include <QPointer>
#include <QStringDecoder>

#include <qcoro/qcoronetworkreply.h>

namespace tamvex {

namespace {

class LoopbackAwareProxyFactory final : public QNetworkProxyFactory {
public:
    QList<QNetworkProxy> queryProxy(const QNetworkProxyQuery& query) override {
        const QString host = query.peerHostName();
        const QHostAddress address(host);
        if (host == QLatin1String("localhost") || (!address.isNull() && address.isLoopback()))
            return {QNetworkProxy(QNetworkProxy::NoProxy)};
        return systemProxyForQuery(query);
    }
};

QString describe(NetworkError::Kind kind, QNetworkReply::NetworkError code, const QString& detail) {
    switch (kind) {
    case NetworkError::Kind::TimedOut:
        return QStringLiteral("Сервер не ответил вовремя.");
    case NetworkError::Kind::Cancelled:
        return QStringLiteral("Запрос отменён.");
    case NetworkError::Kind::Transport:
        break;
    }
    switch (code) {
    case QNetworkReply::ConnectionRefusedError:
        return QStringLiteral("Сервер отклонил соединение.");
    case QNetworkReply::HostNotFoundError:
        return QStringLiteral("Сервер не найден. Проверь подключение к интернету.");
    case QNetworkReply::TimeoutError:
        return QStringLiteral("Сервер не ответил вовремя.");
    case QNetworkReply::RemoteHostClosedError:
        return QStringLiteral("Сервер закрыл соединение.");
    case QNetworkReply::SslHandshakeFailedError:
        return QStringLiteral("Не удалось установить защищённое соединение.");
    case QNetworkReply::NetworkSessionFailedError:
    case QNetworkReply::TemporaryNetworkFailureError:
        return QStringLiteral("Нет подключения к интернету.");
    default:
        return QStringLiteral("Нет связи с сервером: ") + detail;
    }
}

} // namespace

NetworkError::NetworkError(Kind kind, QNetworkReply::NetworkError code, const QString& detail)
    : TamvexError(describe(kind, code, detail)), m_kind(kind), m_code(code) {}

void bypassProxyForLoopback(QNetworkAccessManager& manager) {
    manager.setProxyFactory(new LoopbackAwareProxyFactory);
}

QNetworkAccessManager& sharedNetworkManager() {
    static QNetworkAccessManager* manager = [] {
        auto* created = new QNetworkAccessManager;
        bypassProxyForLoopback(*created);
        return created;
    }();
    return *manager;
}

QString utf8OrEmpty(const QByteArray& body) {
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(body);
    return decoder.hasError() ? QString() : text;
}

QCoro::Task<HttpAnswer> sendRequest(QNetworkAccessManager& manager, Clock& clock, QNetworkRequest request,
                                    QByteArray verb, QByteArray body, RequestLimits limits, Cancellation cancel) {
    if (cancel.isCancelled())
        throw NetworkError(NetworkError::Kind::Cancelled, QNetworkReply::OperationCanceledError, {});

    ReplyPtr reply(manager.sendCustomRequest(request, verb, body));
    QPointer<QNetworkReply> guard(reply.get());

    // Shared with the timers and the cancel callback, which may outlive this frame.
    struct Stop {
        bool timedOut = false;
        bool cancelled = false;
        Clock::TimerId idleTimer = 0;
        Clock::TimerId totalTimer = 0;
    };
    auto stop = std::make_shared<Stop>();

    auto armIdle = [&clock, stop, guard, idle = limits.idleSec] {
        if (idle <= 0.0)
            return;
        if (stop->idleTimer)
            clock.cancelTimer(stop->idleTimer);
        stop->idleTimer = clock.schedule(idle, [stop, guard] {
            stop->idleTimer = 0;
            stop->timedOut = true;
            if (guard)
                guard->abort();
        });
    };
    armIdle();
    if (limits.totalSec > 0.0) {
        stop->totalTimer = clock.schedule(limits.totalSec, [stop, guard] {
            stop->totalTimer = 0;
            stop->timedOut = true;
            if (guard)
                guard->abort();
        });
    }
    QObject::connect(reply.get(), &QNetworkReply::uploadProgress, reply.get(),
                     [armIdle](qint64, qint64) { armIdle(); });
    QObject::connect(reply.get(), &QNetworkReply::downloadProgress, reply.get(),
                     [armIdle](qint64, qint64) { armIdle(); });
    const quint64 cancelId = cancel.onCancel([stop, guard] {
        stop->cancelled = true;
        if (guard)
            guard->abort();
    });

    if (!reply->isFinished())
        co_await reply.get();

    cancel.removeCallback(cancelId);
    if (stop->idleTimer)
        clock.cancelTimer(stop->idleTimer);
    if (stop->totalTimer)
        clock.cancelTimer(stop->totalTimer);
    QObject::disconnect(reply.get(), nullptr, nullptr, nullptr);

    const auto error = reply->error();
    if (stop->cancelled)
        throw NetworkError(NetworkError::Kind::Cancelled, error, reply->errorString());
    if (stop->timedOut)
        throw NetworkError(NetworkError::Kind::TimedOut, error, reply->errorString());

    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    // Errors 1-199 are the transport's (connection, proxy); the rest carry an HTTP status.
    const bool transportFailure = (error > QNetworkReply::NoError && error < QNetworkReply::ContentAccessDenied);
    if (!status.isValid() || transportFailure)
        throw NetworkError(NetworkError::Kind::Transport, error, reply->errorString());

    HttpAnswer answer;
    answer.status = status.toInt();
    answer.body = reply->readAll();
    answer.qtError = error;
    co_return answer;
}

} // namespace tamvex
