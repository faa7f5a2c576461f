#include "account/SorvelAPI.h"

#include "account/JsonFields.h"

#include <QNetworkAccessManager>
#include <QUrlQuery>

namespace tamvex {

namespace {
constexpr double kRequestTimeoutSec = 60.0;
const QString kDeviceIdKey = QStringLiteral("sorvel_device_id");
} // namespace

APIError APIError::http(int status, const QString& responseText) {
    APIError e(Kind::http, QString("Сервер вернул %1: %2").arg(status).arg(responseText.left(200)));
    e.m_status = status;
    e.m_text = responseText;
    return e;
}

APIError APIError::insufficientBalance(double balance) {
    APIError e(Kind::insufficientBalance, QString::asprintf("Баланс %.4f ø — пополни счёт.", balance));
    e.m_balance = balance;
    return e;
}

APIError APIError::other(const QString& text) {
    APIError e(Kind::other, text);
    e.m_text = text;
    return e;
}

APIError APIError::decode() {
    return APIError(Kind::decode, QStringLiteral("Не удалось разобрать ответ сервера."));
}

APIError APIError::unauthorized() {
    return APIError(Kind::unauthorized, QStringLiteral("Сессия истекла. Войди заново."));
}

QJsonObject sorvelParseForDecode(const QByteArray& body) {
    return json::parseObject(body);
}

SorvelAPI::SorvelAPI(QNetworkAccessManager& network, Clock& clock, Defaults& defaults, QUrl baseURL)
    : m_network(network), m_clock(clock), m_defaults(defaults), m_baseURL(std::move(baseURL)) {}

std::optional<QString> SorvelAPI::storedDeviceId() const {
    return m_defaults.readString(kDeviceIdKey).optional();
}

QNetworkRequest SorvelAPI::makeRequest(const QString& path, const std::optional<QString>& token) const {
    QNetworkRequest request(ServiceHosts::join(m_baseURL, path));
    if (token)
        request.setRawHeader("Authorization", "Bearer " + token->toUtf8());
    return request;
}

void SorvelAPI::checkAnswer(const HttpAnswer& answer) {
    if (answer.status < 0)
        throw APIError::other(QStringLiteral("no response"));
    if (answer.status == 401)
        throw APIError::unauthorized();
    if (answer.status == 402) {
        double balance = 0.0;
        try {
            balance = InsufficientResp::fromJson(json::parseObject(answer.body)).balance.value_or(0.0);
        } catch (const std::runtime_error&) {
        }
        throw APIError::insufficientBalance(balance);
    }
    if (answer.status < 200 || answer.status > 299)
        throw APIError::http(answer.status, utf8OrEmpty(answer.body));
}

QCoro::Task<QByteArray> SorvelAPI::perform(QNetworkRequest request, QByteArray verb, QByteArray body) {
    // Transport failures (NetworkError) pass through unmapped.
    const HttpAnswer answer =
        co_await sendRequest(m_network, m_clock, request, verb, body, RequestLimits{kRequestTimeoutSec, 0.0});
    checkAnswer(answer);
    co_return answer.body;
}

QCoro::Task<MeResponse> SorvelAPI::me(QString token) {
    return getJSON<MeResponse>("/api/me", token);
}

QCoro::Task<RequestCodeResponse> SorvelAPI::requestCode(QString phone) {
    const PhoneBody body{phone, storedDeviceId(), QStringLiteral("tamv")};
    return postJSON<RequestCodeResponse>("/api/auth/request-code", body.encode());
}

QCoro::Task<VerifyResponse> SorvelAPI::verify(QString phone, QString code) {
    return postJSON<VerifyResponse>("/api/auth/verify", PhoneCodeBody{phone, code}.encode());
}

QCoro::Task<AppleExchangeResponse> SorvelAPI::exchangeYandex(QString code) {
    const YandexExchangeBody body{code, QStringLiteral("tamvex://oauth/yandex"), storedDeviceId()};
    return postJSON<AppleExchangeResponse>("/api/oauth/yandex/exchange", body.encode());
}

QCoro::Task<ActivationStatusResponse> SorvelAPI::checkActivation(QString phone) {
    QUrl url = ServiceHosts::join(m_baseURL, "/api/auth/check-activation");
    // QUrlQuery escapes what must be escaped and leaves "+" as it is; no hand escaping.
    QUrlQuery query;
    query.addQueryItem(QStringLiteral("phone"), phone);
    url.setQuery(query);
    const HttpAnswer answer = co_await sendRequest(m_network, m_clock, QNetworkRequest(url), "GET", {},
                                                   RequestLimits{kRequestTimeoutSec, 0.0});
    // The status is deliberately not looked at: an error page fails as a decoding error.
    try {
        co_return ActivationStatusResponse::fromJson(json::parseObject(answer.body));
    } catch (const json::DecodeFailure&) {
        throw DecodingError();
    }
}

} // namespace tamvex
