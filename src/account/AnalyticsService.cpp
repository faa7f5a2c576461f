#include "account/AnalyticsService.h"

namespace tamvex {

AnalyticsService& AnalyticsService::shared() {
    static AnalyticsService* instance = new AnalyticsService;
    return *instance;
}

void AnalyticsService::track(const QString& event, const QVariantMap& properties) {
    emit shared().tracked(event, properties);
}

} // namespace tamvex
