#include "pipelines/BackendSelector.h"

#include "account/JsonFields.h"
#include "account/Network.h"
#include "platform/Clock.h"
#include "platform/Defaults.h"
#include "platform/Log.h"

#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QPointer>
#include <QTimeZone>

#include <cmath>

namespace tamvex {

namespace {

BackendSelector* gShared = nullptr;

// The reference date of the stored pick: the first moment of 2001, UTC.
const QDateTime& epoch2001() {
    static const QDateTime epoch(QDate(2001, 1, 1), QTime(0, 0), QTimeZone::utc());
    return epoch;
}

qint64 wholeMs(double seconds) {
    return seconds < 0.0 ? -1 : qint64(std::trunc(seconds * 1000.0));
}

} // namespace

QByteArray BackendSelector::CachedChoice::encode() const {
    const double seconds = double(epoch2001().msecsTo(measuredAt)) / 1000.0;
    const QJsonObject object{{"endpoint", endpoint},
                             {"measuredAt", seconds},
                             {"mainLatencyMs", mainLatencyMs},
                             {"sttLatencyMs", sttLatencyMs}};
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

std::optional<BackendSelector::CachedChoice> BackendSelector::CachedChoice::decode(const QByteArray& data) {
    try {
        const QJsonObject o = json::parseObject(data);
        const double seconds = json::requiredDouble(o, "measuredAt");
        if (!std::isfinite(seconds) || std::abs(seconds) > 1e13)
            return std::nullopt;
        return CachedChoice{json::requiredString(o, "endpoint"),
                            epoch2001().addMSecs(qint64(std::llround(seconds * 1000.0))),
                            json::requiredInt(o, "mainLatencyMs"), json::requiredInt(o, "sttLatencyMs")};
    } catch (const json::DecodeFailure&) {
        return std::nullopt;
    }
}

BackendSelector::BackendSelector(Defaults& defaults, Clock& clock, QNetworkAccessManager& network, ServiceHosts hosts,
                                 QObject* parent)
    : QObject(parent), m_defaults(defaults), m_clock(clock), m_network(network), m_hosts(std::move(hosts)) {
    if (!m_hosts.main.isValid() || !m_hosts.stt.isValid())
        qFatal("BackendSelector: service hosts are not URLs");
    // Bytes that do not decode behave as no pick; the key stays until the next refresh overwrites it.
    const auto stored = m_defaults.readData(QString::fromLatin1(cacheKey));
    if (stored.present())
        m_current = CachedChoice::decode(stored.value);
}

BackendSelector::~BackendSelector() {
    m_stopProbes.cancel();
}

void BackendSelector::setShared(BackendSelector* selector) {
    gShared = selector;
}

bool BackendSelector::hasShared() {
    return gShared != nullptr;
}

BackendSelector& BackendSelector::shared() {
    if (!gShared)
        qFatal("BackendSelector::shared() used before setShared()");
    return *gShared;
}

QUrl BackendSelector::currentEndpoint() {
    if (m_sttUnhealthyUntil && *m_sttUnhealthyUntil > m_clock.now())
        return m_hosts.main;
    if (m_current) {
        // A date in the future (the clock was set back) has a negative age and counts as fresh.
        const double age = double(m_current->measuredAt.msecsTo(m_clock.currentDateTime())) / 1000.0;
        if (age < cacheTTL)
            return m_current->endpoint == QLatin1String("stt") ? m_hosts.stt : m_hosts.main;
    }
    startRefresh();
    return m_hosts.main;
}

void BackendSelector::markSTTUnhealthy() {
    m_sttUnhealthyUntil = m_clock.now() + unhealthySec;
    logError(QStringLiteral("BackendSelector: STT marked unhealthy for 5 min"));
}

QString BackendSelector::pick(double mainSec, double sttSec) {
    if (sttSec < 0.0)
        return QStringLiteral("main");
    if (mainSec < 0.0)
        return QStringLiteral("stt");
    return sttSec + sttMarginSec < mainSec ? QStringLiteral("stt") : QStringLiteral("main");
}

void BackendSelector::startRefresh() {
    [](QPointer<BackendSelector> self) -> QCoro::Task<void> {
        try {
            if (self)
                co_await self->refresh();
        } catch (const std::exception& e) {
            logError(QStringLiteral("BackendSelector: refresh failed: ") + describeError(e));
        }
    }(this);
}

QCoro::Task<void> BackendSelector::refresh() {
    QPointer<BackendSelector> self(this);
    // Both probes start now and run side by side; then wait for both.
    auto measure = [this](const QUrl& url) { return m_measurer ? m_measurer(url) : measureLatency(url); };
    QCoro::Task<double> mainProbe = measure(m_hosts.main);
    QCoro::Task<double> sttProbe = measure(m_hosts.stt);
    const double mainSec = co_await std::move(mainProbe);
    const double sttSec = co_await std::move(sttProbe);
    // Probes stopped by the destructor end here while the object is still half there.
    if (!self || m_stopProbes.isCancelled())
        co_return;

    CachedChoice choice{pick(mainSec, sttSec), m_clock.currentDateTime(), wholeMs(mainSec), wholeMs(sttSec)};
    m_current = choice;
    persist(choice);
    logInfo(QString("BackendSelector: pick=%1 main=%2ms stt=%3ms")
                .arg(choice.endpoint)
                .arg(choice.mainLatencyMs)
                .arg(choice.sttLatencyMs));
    emit picked();
}

void BackendSelector::persist(const CachedChoice& choice) {
    m_defaults.setData(QString::fromLatin1(cacheKey), choice.encode());
}

QCoro::Task<double> BackendSelector::measureLatency(QUrl baseURL) {
    QNetworkRequest request(ServiceHosts::join(baseURL, QStringLiteral("/api/health")));
    Clock& clock = m_clock;
    const double started = clock.now();
    try {
        const HttpAnswer answer = co_await sendRequest(m_network, clock, request, "GET", {},
                                                       RequestLimits{probeTimeoutSec, probeTimeoutSec}, m_stopProbes);
        if (answer.status == 200)
            co_return clock.now() - started;
    } catch (const std::exception&) {
    }
    co_return -1.0;
}

} // namespace tamvex
