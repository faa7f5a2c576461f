#include "DevServer.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QRandomGenerator>
#include <QUrlQuery>
#include <QUuid>

namespace tamvex::devserver {

namespace {

constexpr double kTokensPerUSD = 250000.0;

Answer json(const QJsonObject& object, int status = 200) {
    return {status, QJsonDocument(object).toJson(QJsonDocument::Compact), "application/json", {}};
}

Answer error(int status, const QString& message) {
    return json({{"error", message}}, status);
}

std::optional<QJsonObject> bodyObject(const Received& r) {
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(r.body, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    return document.object();
}

QString queryValue(const Received& r, const QString& key) {
    return QUrlQuery(r.query).queryItemValue(key, QUrl::FullyDecoded);
}

} // namespace

void DevServer::route(const Received& r, const Respond& respond) {
    const QString& p = r.path;
    const bool get = r.method == QLatin1String("GET");
    const bool post = r.method == QLatin1String("POST");
    if (get && p == QLatin1String("/api/health"))
        return respond(health());
    if (get && p == QLatin1String("/api/router/recommend"))
        return respond(recommend(r));
    if (post && p == QLatin1String("/api/openrouter/v1/chat/completions"))
        return chatCompletions(r, respond);
    if (post && p == QLatin1String("/api/v1/chat/completions"))
        return openRouterChat(r, respond);
    if (get && p == QLatin1String("/api/me"))
        return respond(me(r));
    if (post && p == QLatin1String("/api/auth/request-code"))
        return respond(requestCode(r));
    if (get && p == QLatin1String("/api/auth/check-activation"))
        return respond(checkActivation(r));
    if (post && p == QLatin1String("/api/auth/verify"))
        return respond(verify(r));
    if (post && p == QLatin1String("/api/oauth/yandex/exchange"))
        return respond(yandexExchange(r));
    if (get && p == QLatin1String("/authorize"))
        return respond(yandexAuthorize(r));
    if (post && p == QLatin1String("/api/analytics/event"))
        return respond(analyticsEvent(r));
    if (get && p.startsWith(QLatin1String("/models/")))
        return respond(modelFile(r));
    if (get && p == QLatin1String("/appcast.xml"))
        return respond(appcast());
    respond(error(404, QStringLiteral("not found")));
}

Answer DevServer::health() const {
    return json({{"status", "ok"}});
}

Answer DevServer::recommend(const Received& r) const {
    const QString preset = queryValue(r, QStringLiteral("preset"));
    const auto it = m_recommend.constFind(preset);
    if (it == m_recommend.constEnd())
        return error(404, QStringLiteral("unknown preset: ") + preset);
    return json(*it);
}

std::optional<QString> DevServer::bearerPhone(const Received& r) const {
    const QByteArray header = r.header("authorization");
    if (!header.startsWith("Bearer "))
        return std::nullopt;
    const auto it = m_tokens.constFind(QString::fromUtf8(header.mid(7)));
    if (it == m_tokens.constEnd() || !m_users.contains(*it))
        return std::nullopt;
    return *it;
}

QString DevServer::issueToken(const QString& phone) {
    const QString token = QStringLiteral("dev-") + QUuid::createUuid().toString(QUuid::Id128);
    m_tokens.insert(token, phone);
    save();
    return token;
}

DevUser& DevServer::ensureUser(const QString& phone, bool* created) {
    auto it = m_users.find(phone);
    if (created)
        *created = (it == m_users.end());
    if (it == m_users.end())
        it = m_users.insert(phone,
                            DevUser{m_nextUserId++, phone, m_startingBalance, QDateTime::currentSecsSinceEpoch()});
    return *it;
}

QString DevServer::addUser(const QString& phone, double balanceTokens) {
    ensureUser(phone).balanceTokens = balanceTokens;
    return issueToken(phone);
}

std::optional<DevUser> DevServer::user(const QString& phone) const {
    const auto it = m_users.constFind(phone);
    return it == m_users.constEnd() ? std::nullopt : std::optional<DevUser>(*it);
}

void DevServer::charge(const QString& phone, double costUSD) {
    auto it = m_users.find(phone);
    if (it == m_users.end())
        return;
    it->balanceTokens = std::max(0.0, it->balanceTokens - costUSD * kTokensPerUSD);
    save();
}

Answer DevServer::me(const Received& r) const {
    const auto phone = bearerPhone(r);
    if (!phone)
        return error(401, QStringLiteral("unauthorized"));
    return json({{"user", m_users.value(*phone).toJson()}});
}

Answer DevServer::requestCode(const Received& r) {
    const auto body = bodyObject(r);
    const QString phone = body ? body->value("phone").toString() : QString();
    if (phone.isEmpty())
        return error(400, QStringLiteral("phone required"));
    if (m_activationRequired && !m_activated.contains(phone)) {
        // The bot has not seen this phone yet: no code until the user starts it.
        return json({{"ok", true},
                     {"phone", phone},
                     {"bot_username", "tamvex_dev_bot"},
                     {"bot_link", "https://t.me/tamvex_dev_bot"},
                     {"status", "activation_required"}});
    }
    const QString code = QString::number(100000 + QRandomGenerator::global()->bounded(900000));
    m_codes.insert(phone, code);
    return json({{"ok", true},
                 {"phone", phone},
                 {"bot_username", "tamvex_dev_bot"},
                 {"bot_link", "https://t.me/tamvex_dev_bot"},
                 {"status", "code_sent"},
                 {"dev_code", code}});
}

Answer DevServer::checkActivation(const Received& r) const {
    const QString phone = queryValue(r, QStringLiteral("phone"));
    const bool codeReady = m_codes.contains(phone);
    const bool activated = m_activationRequired ? m_activated.contains(phone) : codeReady;
    return json({{"activated", activated}, {"code_ready", activated && codeReady}});
}

QString DevServer::activate(const QString& phone) {
    m_activated.insert(phone);
    const QString code = QString::number(100000 + QRandomGenerator::global()->bounded(900000));
    m_codes.insert(phone, code);
    return code;
}

Answer DevServer::yandexAuthorize(const Received& r) const {
    // Stands in for Yandex ID's consent page: it agrees at once and sends the browser back.
    if (queryValue(r, QStringLiteral("response_type")) != QLatin1String("code") ||
        queryValue(r, QStringLiteral("client_id")).isEmpty())
        return error(400, QStringLiteral("unsupported authorize request"));
    const QString redirect = queryValue(r, QStringLiteral("redirect_uri"));
    if (!redirect.startsWith(QLatin1String("tamvex://")))
        return error(400, QStringLiteral("redirect_uri must be tamvex://"));
    QUrl target(redirect);
    target.setQuery(QStringLiteral("code=dev-") + QString::number(QRandomGenerator::global()->bounded(1000000)));
    Answer answer{302, {}, "text/plain", {}};
    answer.location = target.toEncoded();
    return answer;
}

Answer DevServer::verify(const Received& r) {
    const auto body = bodyObject(r);
    if (!body)
        return error(400, QStringLiteral("bad body"));
    const QString phone = body->value("phone").toString();
    const QString code = body->value("code").toString();
    if (phone.isEmpty() || code.isEmpty() || m_codes.value(phone) != code)
        return error(400, QStringLiteral("invalid code"));
    m_codes.remove(phone);
    const DevUser user = ensureUser(phone);
    return json({{"access_token", issueToken(phone)}, {"user", user.toJson()}});
}

Answer DevServer::yandexExchange(const Received& r) {
    const auto body = bodyObject(r);
    const QString code = body ? body->value("code").toString() : QString();
    if (code.isEmpty())
        return error(400, QStringLiteral("code required"));
    bool created = false;
    const DevUser user = ensureUser(QStringLiteral("+79990000000"), &created);
    return json({{"access_token", issueToken(user.phone)}, {"user", user.toJson()}, {"is_new", created}});
}

Answer DevServer::analyticsEvent(const Received& r) {
    const auto body = bodyObject(r);
    if (!body)
        return error(400, QStringLiteral("bad body"));
    m_analytics.append(*body);
    if (!m_dataDir.isEmpty()) {
        QFile file(QDir(m_dataDir).filePath("analytics.jsonl"));
        if (file.open(QIODevice::Append))
            file.write(QJsonDocument(*body).toJson(QJsonDocument::Compact) + '\n');
    }
    return json({{"ok", true}});
}

Answer DevServer::appcast() const {
    // The feed a self-hoster puts in the data folder, or one with no release in it.
    const QString path = m_dataDir.isEmpty() ? QString() : QDir(m_dataDir).filePath("appcast.xml");
    if (!path.isEmpty() && QFileInfo(path).isFile())
        return {200, {}, "application/rss+xml", path};
    return {200,
            "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<rss version=\"2.0\" "
            "xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><channel><title>Tamvex</title>"
            "</channel></rss>\n",
            "application/rss+xml",
            {}};
}

Answer DevServer::modelFile(const Received& r) const {
    const QString name = r.path.mid(QStringLiteral("/models/").size());
    if (m_dataDir.isEmpty() || name.isEmpty() || name.contains('/') || name.startsWith('.'))
        return error(404, QStringLiteral("no such model"));
    const QString path = QDir(m_dataDir).filePath(QStringLiteral("models/") + name);
    if (!QFileInfo(path).isFile())
        return error(404, QStringLiteral("no such model"));
    return {200, {}, "application/octet-stream", path};
}

std::optional<QString> DevServer::concreteModel(const QString& model) const {
    if (!model.startsWith(QLatin1String("preset:")))
        return model;
    const auto it = m_recommend.constFind(model.mid(7));
    if (it == m_recommend.constEnd())
        return std::nullopt;
    return it->value("model").toString();
}

void DevServer::chatCompletions(const Received& r, const Respond& respond) {
    const auto phone = bearerPhone(r);
    if (!phone)
        return respond(error(401, QStringLiteral("unauthorized")));
    auto request = bodyObject(r);
    if (!request || !request->value("model").isString() || !request->value("messages").isArray())
        return respond(error(400, QStringLiteral("model and messages required")));
    const double balance = m_users.value(*phone).balanceTokens;
    if (balance <= 0.0)
        return respond(json({{"error", "insufficient_balance"}, {"balance", balance}}, 402));
    const QString label = request->value("model").toString();
    const auto model = concreteModel(label);
    if (!model)
        return respond(error(400, QStringLiteral("invalid model: ") + label));
    request->insert("model", *model);

    // The proxy prices its answers in both units and charges the user.
    const QString payer = *phone;
    QPointer<DevServer> self(this);
    answerChat(*request, respond, [self, payer](QJsonObject& usage) {
        const double costUSD = usage.value("cost").toDouble(0.0);
        usage.insert("cost_usd", costUSD);
        usage.insert("cost_tokens", costUSD * kTokensPerUSD);
        if (self)
            self->charge(payer, costUSD);
    });
}

void DevServer::openRouterChat(const Received& r, const Respond& respond) {
    // OpenRouter's error body: {"error":{"message":...,"code":...}}.
    auto refuse = [&respond](int status, const QString& message) {
        respond(json({{"error", QJsonObject{{"message", message}, {"code", status}}}}, status));
    };
    const QByteArray header = r.header("authorization");
    if (!header.startsWith("Bearer "))
        return refuse(401, QStringLiteral("No auth credentials found"));
    if (!m_openRouterKeys.contains(QString::fromUtf8(header.mid(7).trimmed())))
        return refuse(401, QStringLiteral("User not found."));
    auto request = bodyObject(r);
    const QString label = request ? request->value("model").toString() : QString();
    if (label.isEmpty() || !request->value("messages").isArray())
        return refuse(400, QStringLiteral("Input required: specify \"model\" and \"messages\""));
    const auto model = concreteModel(label);
    if (!model)
        return refuse(400, label + QStringLiteral(" is not a valid model ID"));
    request->insert("model", *model);
    answerChat(*request, respond, {});
}

void DevServer::answerChat(const QJsonObject& request, const Respond& respond,
                           const std::function<void(QJsonObject& usage)>& price) {
    if (m_upstream.isEmpty()) {
        QJsonObject usage{
            {"prompt_tokens", 120}, {"completion_tokens", 12}, {"total_tokens", 132}, {"cost", m_chatCostUSD}};
        if (price)
            price(usage);
        const QJsonObject message{{"role", "assistant"}, {"content", m_chatText}};
        return respond(
            json({{"id", "dev-" + QUuid::createUuid().toString(QUuid::Id128)},
                  {"object", "chat.completion"},
                  {"model", request.value("model")},
                  {"choices", QJsonArray{QJsonObject{{"index", 0}, {"message", message}, {"finish_reason", "stop"}}}},
                  {"usage", usage}}));
    }

    QNetworkRequest upstream(m_upstream);
    upstream.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    upstream.setRawHeader("Authorization", "Bearer " + m_upstreamKey.toUtf8());
    upstream.setRawHeader("X-Title", "Tamvex dev server");
    // Owned from the start; the single-shot connection drops the last owner once it has run,
    // or when the server goes first.
    std::shared_ptr<QNetworkReply> reply(
        m_network->post(upstream, QJsonDocument(request).toJson(QJsonDocument::Compact)),
        [](QNetworkReply* r) { r->deleteLater(); });
    QPointer<DevServer> self(this);
    QNetworkReply* sender = reply.get();
    connect(
        sender, &QNetworkReply::finished, this,
        [self, reply, respond, price] {
            const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
            if (!self)
                return;
            if (!status.isValid())
                return respond(error(502, QStringLiteral("upstream unreachable: ") + reply->errorString()));
            const QByteArray body = reply->readAll();
            QJsonDocument document = QJsonDocument::fromJson(body);
            if (!price || status.toInt() / 100 != 2 || !document.isObject())
                return respond(Answer{status.toInt(), body, "application/json", {}});
            QJsonObject answer = document.object();
            QJsonObject usage = answer.value("usage").toObject();
            price(usage);
            answer.insert("usage", usage);
            respond(json(answer));
        },
        Qt::SingleShotConnection);
}

} // namespace tamvex::devserver
