#pragma once

#include <QAbstractHttpServer>
#include <QByteArray>
#include <QHash>
#include <QHostAddress>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QPointer>
#include <QSet>
#include <QString>
#include <QUrl>

#include <functional>
#include <memory>
#include <optional>

class QNetworkAccessManager;
class QTcpSocket;
class QHttpServerResponder;

namespace tamvex::devserver {

/// One request as the server received it.
struct Received {
    QString method;
    QString path;
    QString query;                        ///< the raw query, as sent
    QMap<QByteArray, QByteArray> headers; ///< names in lower case
    QByteArray body;

    /// The value of a header (any case), or empty.
    QByteArray header(const QByteArray& name) const { return headers.value(name.toLower()); }
    /// True when the header was sent at all.
    bool hasHeader(const QByteArray& name) const { return headers.contains(name.toLower()); }
    /// The record as JSON (body as text).
    QJsonObject toJson() const;
};

/// A scripted answer for one path, replacing (or, with status 0, only delaying) the real one.
struct Script {
    int status = 0; ///< 0: answer as usual, after the delay
    QByteArray body;
    QByteArray contentType = "application/json";
    int delayMs = 0;
    int times = -1; ///< how many requests it answers; -1 for ever
};

/// An answer to write.
struct Answer {
    int status = 200;
    QByteArray body;
    QByteArray contentType = "application/json";
    QString filePath;    ///< when set, the file's bytes are the body
    QByteArray location; ///< when set, sent as the Location header (a redirect)
};

/// A user account of the development service.
struct DevUser {
    qint64 id = 0;
    QString phone;
    double balanceTokens = 0.0;
    qint64 createdAt = 0;
    /// The wire form of the user.
    QJsonObject toJson() const;
};

/// The main service, the speech proxy and OpenRouter's own chat path on loopback: account,
/// analytics, recommend, chat completions on both roads, models. Scriptable per path and
/// recording what it received.
class DevServer : public QAbstractHttpServer {
    Q_OBJECT
public:
    /// `dataDir` keeps accounts, analytics.jsonl, devserver.json and models/; empty keeps all in memory.
    explicit DevServer(const QString& dataDir = {}, QObject* parent = nullptr);
    ~DevServer() override;

    /// Listens on `address`:`port` (0 picks one); gives the port, 0 on failure.
    quint16 start(quint16 port = 0, const QHostAddress& address = QHostAddress::LocalHost);
    /// Stops listening; later connections are refused.
    void stop();
    /// "http://127.0.0.1:<port>".
    QUrl baseUrl() const;
    /// The same server named "localhost", to tell two hosts apart in tests.
    QUrl localhostUrl() const;

    /// Scripts the answers of `path` (exact match, no query). Scripts of one path queue up:
    /// once one has answered its `times`, the next one answers; a script for ever is replaced.
    void script(const QString& path, const Script& script);
    /// Drops every script.
    void clearScripts();
    /// Every request so far, oldest first; the control paths are not recorded.
    QList<Received> received() const { return m_received; }
    /// The requests to one path.
    QList<Received> received(const QString& path) const;
    /// Forgets what was received.
    void clearReceived() { m_received.clear(); }
    /// Emitted after each recorded request has been answered or scheduled.
    Q_SIGNAL void requestReceived(const QString& path);

    /// Sets the model (and time to live) that recommend gives for a preset name.
    void setRecommend(const QString& preset, const QString& model, std::optional<double> ttlSec);
    /// Replaces the speech proxy's scripted answer text and cost in dollars.
    void setChatAnswer(const QString& text, double costUSD);
    /// Forwards chat requests of both roads to an OpenRouter-compatible URL with `apiKey`.
    void setUpstream(const QUrl& chatCompletionsUrl, const QString& apiKey);
    /// The API keys OpenRouter's own path accepts; with none, every key is refused.
    void setOpenRouterKeys(const QStringList& keys);
    QStringList openRouterKeys() const;
    /// Makes (or finds) a user and gives a fresh access token for it.
    QString addUser(const QString& phone, double balanceTokens);
    /// The user of a phone, if known.
    std::optional<DevUser> user(const QString& phone) const;
    /// Balance given to new users.
    void setStartingBalance(double tokens) { m_startingBalance = tokens; }
    /// With true, a phone must start the Telegram bot before a code is sent: request-code
    /// answers "activation_required" until activate() (or POST /__dev/activate) is called.
    void setBotActivationRequired(bool required) { m_activationRequired = required; }
    /// The bot saw the phone: it counts as activated, with a fresh code ready; gives the code.
    QString activate(const QString& phone);
    /// Every analytics event received, as parsed objects.
    QList<QJsonObject> analyticsEvents() const { return m_analytics; }

protected:
    bool handleRequest(const QHttpServerRequest& request, QTcpSocket* socket) override;
    void missingHandler(const QHttpServerRequest& request, QTcpSocket* socket) override;

private:
    using Respond = std::function<void(Answer)>;

    // Service routes; `respond` may be called later (upstream forwarding).
    void route(const Received& request, const Respond& respond);
    Answer health() const;
    Answer recommend(const Received& request) const;
    void chatCompletions(const Received& request, const Respond& respond);
    void openRouterChat(const Received& request, const Respond& respond);
    /// The scripted or forwarded answer to a request whose model is concrete. `price`, when
    /// set, completes the usage (and charges); without it an upstream answer passes as it is.
    void answerChat(const QJsonObject& request, const Respond& respond,
                    const std::function<void(QJsonObject& usage)>& price);
    /// The model itself, a known "preset:" label's model, or none for an unknown label.
    std::optional<QString> concreteModel(const QString& model) const;
    Answer me(const Received& request) const;
    Answer requestCode(const Received& request);
    Answer checkActivation(const Received& request) const;
    Answer verify(const Received& request);
    Answer yandexExchange(const Received& request);
    Answer yandexAuthorize(const Received& request) const;
    Answer analyticsEvent(const Received& request);
    Answer modelFile(const Received& request) const;
    Answer appcast() const;
    Answer control(const Received& request);

    static void ackAtOnce(QTcpSocket* socket);
    std::optional<QString> bearerPhone(const Received& request) const;
    QString issueToken(const QString& phone);
    DevUser& ensureUser(const QString& phone, bool* created = nullptr);
    void charge(const QString& phone, double costUSD);
    void load();
    void save() const;

    QString m_dataDir;
    quint16 m_port = 0;
    QNetworkAccessManager* m_network = nullptr;
    QHash<QString, QList<Script>> m_scripts;
    QList<Received> m_received;
    QList<QJsonObject> m_analytics;
    QHash<QString, QJsonObject> m_recommend;
    QString m_chatText;
    double m_chatCostUSD = 0.001;
    QUrl m_upstream;
    QString m_upstreamKey;
    QSet<QString> m_openRouterKeys;
    double m_startingBalance = 100000.0;
    QMap<QString, DevUser> m_users;   // by phone
    QHash<QString, QString> m_tokens; // token -> phone
    QHash<QString, QString> m_codes;  // phone -> pending code
    bool m_activationRequired = false;
    QSet<QString> m_activated; // phones whose bot was started
    qint64 m_nextUserId = 1;
};

} // namespace tamvex::devserver
