#pragma once

#include <QObject>
#include <QVariantMap>

namespace tamvex {

/// The process-wide analytics reporter. `track` returns at once and never fails.
class AnalyticsService : public QObject {
    Q_OBJECT
public:
    /// The one instance, made on first use.
    static AnalyticsService& shared();
    /// Reports `event` with its properties.
    static void track(const QString& event, const QVariantMap& properties = {});

signals:
    /// Emitted for every tracked event, before it is sent.
    void tracked(const QString& event, const QVariantMap& properties);

private:
    AnalyticsService() = default;
};

} // namespace tamvex
