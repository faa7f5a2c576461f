#include "DevServer.h"

#include <QDir>
#include <QFile>
#include <QHttpServerRequest>
#include <QHttpServerResponder>
#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QSaveFile>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace tamvex::devserver {

namespace {

QString methodName(QHttpServerRequest::Method method) {
    switch (method) {
    case QHttpServerRequest::Method::Get:
        return QStringLiteral("GET");
    case QHttpServerRequest::Method::Post:
        return QStringLiteral("POST");
    case QHttpServerRequest::Method::Put:
        return QStringLiteral("PUT");
    case QHttpServerRequest::Method::Delete:
        return QStringLiteral("DELETE");
    case QHttpServerRequest::Method::Head:
        return QStringLiteral("HEAD");
    case QHttpServerRequest::Method::Patch:
        return QStringLiteral("PATCH");
    case QHttpServerRequest::Method::Options:
        return QStringLiteral("OPTIONS");
    default:
        return QStringLiteral("OTHER");
    }
}

// Writes one answer unless the client has gone; a write to a closed socket crashes Qt 6.4.
void writeAnswer(const QPointer<QTcpSocket>& socket, QHttpServerResponder& responder, const Answer& answer) {
    if (!socket || socket->state() != QAbstractSocket::ConnectedState)
        return;
    const auto status = static_cast<QHttpServerResponder::StatusCode>(answer.status);
    if (!answer.filePath.isEmpty()) {
        auto* file = new QFile(answer.filePath);
        if (file->open(QIODevice::ReadOnly)) {
            responder.write(file, {{"Content-Type", "application/octet-stream"}}, status);
            return;
        }
        delete file;
        responder.write(QByteArray(R"({"error":"unreadable file"})"), "application/json",
                        QHttpServerResponder::StatusCode::InternalServerError);
        return;
    }
    if (!answer.location.isEmpty()) {
        responder.write(answer.body, {{"Content-Type", answer.contentType}, {"Location", answer.location}}, status);
        return;
    }
    responder.write(answer.body, answer.contentType, status);
}

} // namespace

QJsonObject Received::toJson() const {
    QJsonObject headerObject;
    for (auto it = headers.begin(); it != headers.end(); ++it)
        headerObject.insert(QString::fromLatin1(it.key()), QString::fromUtf8(it.value()));
    return {{"method", method},
            {"path", path},
            {"query", query},
            {"headers", headerObject},
            {"body", QString::fromUtf8(body)}};
}

QJsonObject DevUser::toJson() const {
    return {{"id", id}, {"phone", phone}, {"balance_tokens", balanceTokens}, {"created_at", createdAt}};
}

DevServer::DevServer(const QString& dataDir, QObject* parent)
    : QAbstractHttpServer(parent), m_dataDir(dataDir), m_network(new QNetworkAccessManager(this)),
      m_chatText(QStringLiteral("Привет! Это ответ сервера разработки Tamvex.")) {
    m_network->setProxy(QNetworkProxy::NoProxy);
    for (const char* preset : {"fast-audio", "cheap-audio", "cheap-cleanup", "precise-audio", "classify"})
        setRecommend(QString::fromLatin1(preset), QStringLiteral("google/gemini-2.5-flash"), 600.0);
    load();
}

DevServer::~DevServer() = default;

quint16 DevServer::start(quint16 port, const QHostAddress& address) {
    m_port = listen(address, port);
    return m_port;
}

void DevServer::stop() {
    for (QTcpServer* server : servers()) {
        server->close();
        // Kept-alive connections would otherwise go on answering.
        for (QTcpSocket* socket : server->findChildren<QTcpSocket*>())
            socket->abort();
    }
}

QUrl DevServer::baseUrl() const {
    return QUrl(QStringLiteral("http://127.0.0.1:%1").arg(m_port));
}

QUrl DevServer::localhostUrl() const {
    return QUrl(QStringLiteral("http://localhost:%1").arg(m_port));
}

void DevServer::script(const QString& path, const Script& script) {
    QList<Script>& queue = m_scripts[path];
    if (!queue.isEmpty() && queue.last().times < 0)
        queue.removeLast(); // a script for ever is replaced, never waited behind
    queue.append(script);
}

void DevServer::clearScripts() {
    m_scripts.clear();
}

QList<Received> DevServer::received(const QString& path) const {
    QList<Received> out;
    for (const Received& r : m_received)
        if (r.path == path)
            out.append(r);
    return out;
}

void DevServer::setRecommend(const QString& preset, const QString& model, std::optional<double> ttlSec) {
    QJsonObject answer{{"model", model}};
    if (ttlSec)
        answer.insert("ttl_sec", *ttlSec);
    m_recommend.insert(preset, answer);
}

void DevServer::setChatAnswer(const QString& text, double costUSD) {
    m_chatText = text;
    m_chatCostUSD = costUSD;
}

void DevServer::setUpstream(const QUrl& chatCompletionsUrl, const QString& apiKey) {
    m_upstream = chatCompletionsUrl;
    m_upstreamKey = apiKey;
}

void DevServer::ackAtOnce(QTcpSocket* socket) {
    // Qt's HTTP client writes a large body without TCP_NODELAY, so on a reused connection its
    // last small segment waits for our ACK, which Linux delays by up to 40 ms. Acking at
    // once keeps the service's own ACK policy out of the client's measured latency.
    if (socket->property("tamvexAckAtOnce").toBool())
        return;
    socket->setProperty("tamvexAckAtOnce", true);
    socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    const auto ack = [socket] {
        const int on = 1;
        ::setsockopt(int(socket->socketDescriptor()), IPPROTO_TCP, TCP_QUICKACK, &on, sizeof on);
    };
    connect(socket, &QTcpSocket::readyRead, socket, ack);
    ack();
}

void DevServer::setOpenRouterKeys(const QStringList& keys) {
    m_openRouterKeys = QSet<QString>(keys.begin(), keys.end());
}

QStringList DevServer::openRouterKeys() const {
    QStringList keys(m_openRouterKeys.begin(), m_openRouterKeys.end());
    keys.sort();
    return keys;
}

bool DevServer::handleRequest(const QHttpServerRequest& request, QTcpSocket* socket) {
    ackAtOnce(socket);
    Received r;
    r.method = methodName(request.method());
    r.path = request.url().path();
    r.query = request.url().query(QUrl::FullyEncoded);
    for (const auto& [name, value] : request.headers())
        r.headers.insert(name.toLower(), value);
    r.body = request.body();

    // The responder must outlive this call for delayed and forwarded answers.
    auto responder = std::make_shared<QHttpServerResponder>(makeResponder(request, socket));
    QPointer<QTcpSocket> guard(socket);
    QPointer<DevServer> self(this);

    if (r.path.startsWith(QLatin1String("/__dev/"))) {
        writeAnswer(guard, *responder, control(r));
        return true;
    }
    m_received.append(r);

    int delayMs = 0;
    std::optional<Answer> scripted;
    auto it = m_scripts.find(r.path);
    if (it != m_scripts.end() && !it->isEmpty()) {
        Script& current = it->first();
        delayMs = current.delayMs;
        if (current.status != 0)
            scripted = Answer{current.status, current.body, current.contentType, {}};
        if (current.times > 0 && --current.times == 0)
            it->removeFirst(); // the next script of the path takes over
    }

    auto deliver = [guard, responder, delayMs, self](Answer answer) {
        if (delayMs <= 0) {
            writeAnswer(guard, *responder, answer);
            return;
        }
        QTimer::singleShot(delayMs, self.data(),
                           [guard, responder, answer] { writeAnswer(guard, *responder, answer); });
    };
    if (scripted)
        deliver(*scripted);
    else
        route(r, deliver);
    emit requestReceived(r.path);
    return true;
}

void DevServer::missingHandler(const QHttpServerRequest& request, QTcpSocket* socket) {
    auto responder = makeResponder(request, socket);
    responder.write(QByteArray(R"({"error":"not found"})"), "application/json",
                    QHttpServerResponder::StatusCode::NotFound);
}

Answer DevServer::control(const Received& r) {
    auto json = [](const QJsonValue& v, int status = 200) {
        const QByteArray body = v.isArray() ? QJsonDocument(v.toArray()).toJson(QJsonDocument::Compact)
                                            : QJsonDocument(v.toObject()).toJson(QJsonDocument::Compact);
        return Answer{status, body, "application/json", {}};
    };
    const QJsonObject body = QJsonDocument::fromJson(r.body).object();
    if (r.path == QLatin1String("/__dev/requests")) {
        if (r.method == QLatin1String("DELETE")) {
            m_received.clear();
            return json(QJsonObject{{"ok", true}});
        }
        QJsonArray all;
        for (const Received& one : m_received)
            all.append(one.toJson());
        return json(all);
    }
    if (r.path == QLatin1String("/__dev/script")) {
        if (r.method == QLatin1String("DELETE")) {
            m_scripts.clear();
            return json(QJsonObject{{"ok", true}});
        }
        const QString route = body.value("route").toString();
        if (!route.startsWith('/'))
            return json(QJsonObject{{"error", "route must start with /"}}, 400);
        Script s;
        s.status = body.value("status").toInt(0);
        const QJsonValue answerBody = body.value("body");
        s.body = answerBody.isString()   ? answerBody.toString().toUtf8()
                 : answerBody.isArray()  ? QJsonDocument(answerBody.toArray()).toJson(QJsonDocument::Compact)
                 : answerBody.isObject() ? QJsonDocument(answerBody.toObject()).toJson(QJsonDocument::Compact)
                                         : QByteArray();
        if (body.contains("content_type"))
            s.contentType = body.value("content_type").toString().toUtf8();
        s.delayMs = body.value("delay_ms").toInt(0);
        s.times = body.value("times").toInt(-1);
        script(route, s);
        return json(QJsonObject{{"ok", true}});
    }
    if (r.path == QLatin1String("/__dev/users") && r.method == QLatin1String("POST")) {
        const QString phone = body.value("phone").toString();
        if (phone.isEmpty())
            return json(QJsonObject{{"error", "phone required"}}, 400);
        const QString token = addUser(phone, body.value("balance_tokens").toDouble(m_startingBalance));
        return json(QJsonObject{{"access_token", token}, {"user", user(phone)->toJson()}});
    }
    if (r.path == QLatin1String("/__dev/activate") && r.method == QLatin1String("POST")) {
        const QString phone = body.value("phone").toString();
        if (phone.isEmpty())
            return json(QJsonObject{{"error", "phone required"}}, 400);
        const QString code = activate(phone);
        return json(QJsonObject{{"ok", true}, {"phone", phone}, {"code", code}});
    }
    if (r.path == QLatin1String("/__dev/bot") && r.method == QLatin1String("POST")) {
        setBotActivationRequired(body.value("require_activation").toBool());
        return json(QJsonObject{{"ok", true}});
    }
    if (r.path == QLatin1String("/__dev/openrouter-keys") && r.method == QLatin1String("POST")) {
        setOpenRouterKeys(body.value("keys").toVariant().toStringList());
        return json(QJsonObject{{"ok", true}});
    }
    return json(QJsonObject{{"error", "unknown control path"}}, 404);
}

void DevServer::load() {
    if (m_dataDir.isEmpty())
        return;
    QDir().mkpath(m_dataDir);
    QFile config(QDir(m_dataDir).filePath("devserver.json"));
    if (config.open(QIODevice::ReadOnly)) {
        const QJsonObject o = QJsonDocument::fromJson(config.readAll()).object();
        const QJsonObject table = o.value("recommend").toObject();
        for (auto it = table.begin(); it != table.end(); ++it)
            m_recommend.insert(it.key(), it->toObject());
        if (o.contains("chat_text"))
            m_chatText = o.value("chat_text").toString();
        if (o.contains("chat_cost_usd"))
            m_chatCostUSD = o.value("chat_cost_usd").toDouble();
        if (o.contains("starting_balance"))
            m_startingBalance = o.value("starting_balance").toDouble();
        if (o.contains("openrouter_keys"))
            setOpenRouterKeys(o.value("openrouter_keys").toVariant().toStringList());
    }
    QFile state(QDir(m_dataDir).filePath("accounts.json"));
    if (!state.open(QIODevice::ReadOnly))
        return;
    const QJsonObject o = QJsonDocument::fromJson(state.readAll()).object();
    for (const QJsonValue& v : o.value("users").toArray()) {
        const QJsonObject u = v.toObject();
        DevUser user{u.value("id").toInteger(), u.value("phone").toString(), u.value("balance_tokens").toDouble(),
                     u.value("created_at").toInteger()};
        if (user.phone.isEmpty())
            continue;
        m_users.insert(user.phone, user);
        m_nextUserId = std::max(m_nextUserId, user.id + 1);
    }
    const QJsonObject tokens = o.value("tokens").toObject();
    for (auto it = tokens.begin(); it != tokens.end(); ++it)
        m_tokens.insert(it.key(), it->toString());
}

void DevServer::save() const {
    if (m_dataDir.isEmpty())
        return;
    QJsonArray users;
    for (const DevUser& u : m_users)
        users.append(u.toJson());
    QJsonObject tokens;
    for (auto it = m_tokens.begin(); it != m_tokens.end(); ++it)
        tokens.insert(it.key(), it.value());
    QSaveFile file(QDir(m_dataDir).filePath("accounts.json"));
    if (file.open(QIODevice::WriteOnly)) {
        // It holds access tokens: the owner's alone, also where an older file was open wider.
        file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        file.write(QJsonDocument(QJsonObject{{"users", users}, {"tokens", tokens}}).toJson());
        file.commit();
    }
}

} // namespace tamvex::devserver
