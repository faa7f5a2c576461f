#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QObject>
#include <QPointer>
#include <QUrl>
#include <QVariantMap>

#include <optional>

class QNetworkAccessManager;

namespace tamvex {

class AccountStore;
class Clock;
class Defaults;

/// The process-wide analytics reporter. `track` returns at once and never fails: each event
/// is one JSON POST, fired and forgotten, with no queue and no retry.
class AnalyticsService : public QObject {
    Q_OBJECT
public:
    /// The one instance, made on first use.
    static AnalyticsService& shared();
    /// Reports `event` with its properties.
    static void track(const QString& event, const QVariantMap& properties = {}, const QVariantMap& userProperties = {});

    /// Makes the instance send: reads or creates the device id in `defaults`, and posts to
    /// `mainHost` + "/api/analytics/event". Events reported before this are kept (the first
    /// `maxEarlyEvents`) and sent now, so a report early in the launch is not lost.
    void configure(Defaults& defaults, QNetworkAccessManager& network, Clock& clock, const QUrl& mainHost);
    /// Stops sending and forgets kept events (tests); `tracked` is still emitted.
    void unconfigure();
    /// The source of the bearer token; held weakly.
    void setAccount(AccountStore* account);
    /// This installation's id; empty before configure().
    QString deviceId() const { return m_deviceId; }
    /// Events handed to the network and not yet finished.
    int pendingSends() const { return m_pending; }

    /// Request limits of the analytics session: no bytes for 8 s, or 12 s in all, ends it.
    static constexpr double requestTimeoutSec = 8.0;
    static constexpr double resourceTimeoutSec = 12.0;
    static constexpr int maxEarlyEvents = 100;

    /// The wire object of one event: event, device_id, and the property objects when not empty.
    static QJsonObject payload(const QString& event, const QString& deviceId, const QVariantMap& eventProperties,
                               const QVariantMap& userProperties);
    /// Keeps texts, integers, floats and booleans; drops nulls; turns the rest into text.
    static QJsonObject sanitize(const QVariantMap& properties);
    /// The device id stored under "sorvel_device_id", made (lower-case UUID) if absent.
    static QString ensureDeviceId(Defaults& defaults);

signals:
    /// Emitted for every tracked event, before it is sent.
    void tracked(const QString& event, const QVariantMap& properties);

private:
    AnalyticsService() = default;
    void send(const QString& event, const QVariantMap& properties, const QVariantMap& userProperties);

    QNetworkAccessManager* m_network = nullptr;
    Clock* m_clock = nullptr;
    QUrl m_endpoint;
    QString m_deviceId;
    QPointer<AccountStore> m_account;
    int m_pending = 0;
    struct EarlyEvent {
        QString event;
        QVariantMap properties;
        QVariantMap userProperties;
    };
    QList<EarlyEvent> m_early;
};

} // namespace tamvex
