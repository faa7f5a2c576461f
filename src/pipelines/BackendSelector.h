#pragma once

#include "pipelines/ServiceHosts.h"
#include "platform/Clock.h"

#include <QDateTime>
#include <QObject>
#include <QUrl>

#include <qcoro/qcorotask.h>

#include <functional>
#include <optional>

class QNetworkAccessManager;

namespace tamvex {

class Clock;
class Defaults;

/// Decides which of the two speech proxy hosts a proxy-mode dictation goes to: the main host
/// unless the "stt" host is clearly faster. Reading the answer never waits for a network.
class BackendSelector : public QObject {
    Q_OBJECT
public:
    /// The last pick, persisted as JSON under "backend_selector_choice_v1".
    struct CachedChoice {
        QString endpoint;     ///< "main" or "stt"; anything else counts as "main"
        QDateTime measuredAt; ///< when the pick was made
        qint64 mainLatencyMs = -1;
        qint64 sttLatencyMs = -1;

        /// JSON with the date as seconds since 2001-01-01 UTC.
        QByteArray encode() const;
        /// The record, or none when `data` is not one whole record.
        static std::optional<CachedChoice> decode(const QByteArray& data);
        bool operator==(const CachedChoice&) const = default;
    };

    /// Measures one host: seconds, or -1.0 on any failure. Replaceable for tests.
    using LatencyMeasurer = std::function<QCoro::Task<double>(QUrl baseURL)>;

    static constexpr const char* cacheKey = "backend_selector_choice_v1";
    static constexpr double cacheTTL = 600.0;
    static constexpr double unhealthySec = 300.0;
    static constexpr double probeTimeoutSec = 3.0;
    /// How much faster the "stt" host must be to win.
    static constexpr double sttMarginSec = 0.03;

    /// Reads the stored pick; starts no probe.
    BackendSelector(Defaults& defaults, Clock& clock, QNetworkAccessManager& network,
                    ServiceHosts hosts = ServiceHosts::configured(), QObject* parent = nullptr);
    /// Stops the probes still running: they read this selector's clock, which may go with it.
    ~BackendSelector() override;

    /// Installs the process-wide instance; called once at start.
    static void setShared(BackendSelector* selector);
    /// The process-wide instance; a call before setShared() is a programming fault.
    static BackendSelector& shared();
    /// True once setShared() was called with an instance.
    static bool hasShared();

    /// The base URL to use now; may start a refresh in the background, never waits.
    QUrl currentEndpoint();
    /// Sends the "stt" host's traffic to the main host for the next 300 s.
    void markSTTUnhealthy();
    /// Probes both hosts at once and records the pick.
    QCoro::Task<void> refresh();
    /// Starts refresh() without waiting for it.
    void startRefresh();
    /// GET /api/health on `baseURL`: seconds when the status is exactly 200, else -1.0.
    QCoro::Task<double> measureLatency(QUrl baseURL);

    /// The pick of two probe results in seconds (negative = failed): "main" or "stt".
    static QString pick(double mainSec, double sttSec);

    /// Replaces the probe (tests).
    void setLatencyMeasurer(LatencyMeasurer measurer) { m_measurer = std::move(measurer); }
    /// The last pick.
    const std::optional<CachedChoice>& current() const { return m_current; }
    const QUrl& mainEndpoint() const { return m_hosts.main; }
    const QUrl& sttEndpoint() const { return m_hosts.stt; }
    /// Every host this selector was built with.
    const ServiceHosts& hosts() const { return m_hosts; }
    QNetworkAccessManager& network() const { return m_network; }
    Clock& clock() const { return m_clock; }

signals:
    /// A refresh recorded a new pick.
    void picked();

private:
    void persist(const CachedChoice& choice);

    Defaults& m_defaults;
    Clock& m_clock;
    QNetworkAccessManager& m_network;
    ServiceHosts m_hosts;
    std::optional<CachedChoice> m_current;
    std::optional<double> m_sttUnhealthyUntil; // Clock::now() seconds; memory only
    LatencyMeasurer m_measurer;
    Cancellation m_stopProbes; // cancelled when the selector goes
};

} // namespace tamvex
