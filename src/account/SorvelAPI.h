#pragma once

#include "account/Network.h"
#include "account/SorvelDTO.h"
#include "pipelines/ServiceHosts.h"
#include "platform/Clock.h"
#include "platform/Defaults.h"
#include "platform/Error.h"

#include <QUrl>

#include <qcoro/qcorotask.h>

#include <optional>

class QNetworkAccessManager;

namespace tamvex {

/// A refusal of the main service, with the text the user sees.
class APIError : public TamvexError {
public:
    enum class Kind { http, insufficientBalance, other, decode, unauthorized };

    /// Any status the mapping does not name; the text holds the first 200 characters.
    static APIError http(int status, const QString& responseText);
    /// A 402 with the balance the service reported (0 when it said nothing usable).
    static APIError insufficientBalance(double balance);
    /// A failure described by `text` as it stands.
    static APIError other(const QString& text);
    /// An answer that did not decode.
    static APIError decode();
    /// A 401: the session is over.
    static APIError unauthorized();

    Kind kind() const { return m_kind; }
    int status() const { return m_status; }
    /// The whole response text of an `http` error.
    const QString& responseText() const { return m_text; }
    double balance() const { return m_balance; }

private:
    APIError(Kind kind, QString description) : TamvexError(std::move(description)), m_kind(kind) {}
    Kind m_kind;
    int m_status = 0;
    QString m_text;
    double m_balance = 0.0;
};

/// A body that is not what was expected, where no service error mapping applies.
class DecodingError : public TamvexError {
public:
    DecodingError() : TamvexError(QStringLiteral("Данные не удалось прочитать: неверный формат ответа.")) {}
};

/// Client of the main service's account endpoints. It holds no token: callers pass one.
class SorvelAPI {
public:
    /// Talks to `baseURL` (scheme and host) through `network`; reads the device id from `defaults`.
    SorvelAPI(QNetworkAccessManager& network, Clock& clock, Defaults& defaults, QUrl baseURL);

    /// The user behind `token`.
    QCoro::Task<MeResponse> me(QString token);
    /// Asks the service to send a code to `phone`.
    QCoro::Task<RequestCodeResponse> requestCode(QString phone);
    /// Whether the bot was started and the code is ready; throws on anything undecodable.
    QCoro::Task<ActivationStatusResponse> checkActivation(QString phone);
    /// Trades the phone and its code for a session.
    QCoro::Task<VerifyResponse> verify(QString phone, QString code);
    /// Trades a Yandex authorization code for a session.
    QCoro::Task<AppleExchangeResponse> exchangeYandex(QString code);

    /// GET `path` and decode the answer as T.
    template <class T> QCoro::Task<T> getJSON(QString path, std::optional<QString> token = std::nullopt);
    /// POST the encoded `body` to `path` and decode the answer as T.
    template <class T>
    QCoro::Task<T> postJSON(QString path, QByteArray body, std::optional<QString> token = std::nullopt);

    /// Sends `request` and gives the body of a successful answer, or throws the mapped APIError.
    QCoro::Task<QByteArray> perform(QNetworkRequest request, QByteArray verb, QByteArray body = {});
    /// The mapping of an answer: throws the APIError of a failed one.
    static void checkAnswer(const HttpAnswer& answer);
    /// Decodes a successful body as T; throws APIError::decode().
    template <class T> static T decodeAnswer(const QByteArray& body);

    /// The base URL of every call.
    const QUrl& baseURL() const { return m_baseURL; }
    /// The device id stored by analytics, if any yet.
    std::optional<QString> storedDeviceId() const;

private:
    QNetworkRequest makeRequest(const QString& path, const std::optional<QString>& token) const;

    QNetworkAccessManager& m_network;
    Clock& m_clock;
    Defaults& m_defaults;
    QUrl m_baseURL;
};

// Deferred so the templates see the full class.
QJsonObject sorvelParseForDecode(const QByteArray& body);

template <class T> T SorvelAPI::decodeAnswer(const QByteArray& body) {
    try {
        return T::fromJson(sorvelParseForDecode(body));
    } catch (const std::runtime_error&) {
        throw APIError::decode();
    }
}

template <class T> QCoro::Task<T> SorvelAPI::getJSON(QString path, std::optional<QString> token) {
    const QByteArray body = co_await perform(makeRequest(path, token), "GET");
    co_return decodeAnswer<T>(body);
}

template <class T> QCoro::Task<T> SorvelAPI::postJSON(QString path, QByteArray body, std::optional<QString> token) {
    QNetworkRequest request = makeRequest(path, token);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    const QByteArray answer = co_await perform(request, "POST", body);
    co_return decodeAnswer<T>(answer);
}

} // namespace tamvex
