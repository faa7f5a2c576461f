#include "account/AnalyticsService.h"

#include "account/AccountStore.h"
#include "account/Network.h"
#include "pipelines/ServiceHosts.h"
#include "platform/Defaults.h"
#include "platform/Log.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QJsonDocument>
#include <QThread>
#include <QUuid>

#include <cmath>

namespace tamvex {

namespace {

const QString kDeviceIdKey = QStringLiteral("sorvel_device_id");

// The descriptive text of a value that JSON cannot carry as it is.
QString describeValue(const QVariant& value) {
    const int type = value.typeId();
    if (type == QMetaType::QString)
        return '"' + value.toString() + '"';
    if (type == QMetaType::QStringList || type == QMetaType::QVariantList) {
        QStringList items;
        for (const QVariant& item : value.toList())
            items.append(describeValue(item));
        return '[' + items.join(", ") + ']';
    }
    if (type == QMetaType::QVariantMap || type == QMetaType::QVariantHash) {
        const QVariantMap map = value.toMap();
        if (map.isEmpty())
            return QStringLiteral("[:]");
        QStringList items;
        for (auto it = map.begin(); it != map.end(); ++it)
            items.append('"' + it.key() + "\": " + describeValue(it.value()));
        return '[' + items.join(", ") + ']';
    }
    if (type == QMetaType::QDateTime)
        return value.toDateTime().toUTC().toString(Qt::ISODate);
    if (value.canConvert<QString>()) {
        const QString text = value.toString();
        if (!text.isEmpty() || type == QMetaType::QByteArray)
            return text;
    }
    return QString::fromLatin1(value.typeName() ? value.typeName() : "unknown");
}

bool isInteger(int type) {
    switch (type) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::Short:
    case QMetaType::UShort:
        return true;
    default:
        return false;
    }
}

} // namespace

AnalyticsService& AnalyticsService::shared() {
    static AnalyticsService* instance = [] {
        auto* created = new AnalyticsService;
        // Whoever reports first, the service belongs to the main thread with the network.
        if (QCoreApplication::instance())
            created->moveToThread(QCoreApplication::instance()->thread());
        return created;
    }();
    return *instance;
}

QString AnalyticsService::ensureDeviceId(Defaults& defaults) {
    const auto stored = defaults.readString(kDeviceIdKey);
    if (stored.present() && !stored.value.isEmpty())
        return stored.value;
    const QString id = QUuid::createUuid().toString(QUuid::WithoutBraces).toLower();
    defaults.setString(kDeviceIdKey, id);
    return id;
}

void AnalyticsService::configure(Defaults& defaults, QNetworkAccessManager& network, Clock& clock,
                                 const QUrl& mainHost) {
    m_deviceId = ensureDeviceId(defaults);
    m_network = &network;
    m_clock = &clock;
    m_endpoint = ServiceHosts::join(mainHost, QStringLiteral("/api/analytics/event"));
    const QList<EarlyEvent> early = std::exchange(m_early, {});
    for (const EarlyEvent& e : early)
        send(e.event, e.properties, e.userProperties);
}

void AnalyticsService::unconfigure() {
    m_network = nullptr;
    m_clock = nullptr;
    m_early.clear();
}

void AnalyticsService::setAccount(AccountStore* account) {
    m_account = account;
}

QJsonObject AnalyticsService::sanitize(const QVariantMap& properties) {
    QJsonObject out;
    for (auto it = properties.begin(); it != properties.end(); ++it) {
        const QVariant& value = it.value();
        const int type = value.typeId();
        if (!value.isValid() || type == QMetaType::Nullptr || value.isNull())
            continue;
        if (type == QMetaType::QString)
            out.insert(it.key(), value.toString());
        else if (isInteger(type))
            out.insert(it.key(), value.toLongLong());
        else if (type == QMetaType::Double || type == QMetaType::Float)
            out.insert(it.key(), value.toDouble());
        else if (type == QMetaType::Bool)
            out.insert(it.key(), value.toBool());
        else
            out.insert(it.key(), describeValue(value));
    }
    return out;
}

QJsonObject AnalyticsService::payload(const QString& event, const QString& deviceId, const QVariantMap& eventProperties,
                                      const QVariantMap& userProperties) {
    QJsonObject body{{"event", event}, {"device_id", deviceId}};
    const QJsonObject eventProps = sanitize(eventProperties);
    const QJsonObject userProps = sanitize(userProperties);
    if (!eventProps.isEmpty())
        body.insert("event_properties", eventProps);
    if (!userProps.isEmpty())
        body.insert("user_properties", userProps);
    return body;
}

void AnalyticsService::track(const QString& event, const QVariantMap& properties, const QVariantMap& userProperties) {
    AnalyticsService& self = shared();
    // Reports may come from any thread; the network and the signal live on the service's own.
    if (QThread::currentThread() != self.thread()) {
        QMetaObject::invokeMethod(
            &self, [event, properties, userProperties] { track(event, properties, userProperties); },
            Qt::QueuedConnection);
        return;
    }
    emit self.tracked(event, properties);
    if (self.m_network && self.m_clock)
        self.send(event, properties, userProperties);
    else if (self.m_early.size() < maxEarlyEvents)
        self.m_early.append({event, properties, userProperties});
}

void AnalyticsService::send(const QString& event, const QVariantMap& properties, const QVariantMap& userProperties) {
    const QJsonObject object = payload(event, m_deviceId, properties, userProperties);
    // A value JSON cannot hold (NaN, infinity) makes the event unserializable: drop it.
    for (const QString& group : {QStringLiteral("event_properties"), QStringLiteral("user_properties")}) {
        const QJsonObject props = object.value(group).toObject();
        for (auto it = props.begin(); it != props.end(); ++it)
            if (it->isDouble() && !std::isfinite(it->toDouble()))
                return;
    }
    QNetworkRequest request(m_endpoint);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    if (m_account && m_account->accessToken())
        request.setRawHeader("Authorization", "Bearer " + m_account->accessToken()->toUtf8());
    const QByteArray body = QJsonDocument(object).toJson(QJsonDocument::Compact);

    // Fire and forget: the task finishes on its own; the answer and any failure are ignored.
    ++m_pending;
    [](AnalyticsService* self, QNetworkAccessManager* network, Clock* clock, QNetworkRequest request,
       QByteArray body) -> QCoro::Task<void> {
        try {
            co_await sendRequest(*network, *clock, request, "POST", body,
                                 RequestLimits{requestTimeoutSec, resourceTimeoutSec});
        } catch (...) {
        }
        --self->m_pending;
    }(this, m_network, m_clock, request, body);
}

} // namespace tamvex
