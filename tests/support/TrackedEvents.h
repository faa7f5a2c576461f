#pragma once

#include "account/AnalyticsService.h"

#include <QSignalSpy>
#include <QStringList>
#include <QVariantMap>

namespace tamvex::test {

/// Every analytics event the shared service reports while this lives, in order.
struct TrackedEvents : QSignalSpy {
    TrackedEvents() : QSignalSpy(&AnalyticsService::shared(), &AnalyticsService::tracked) {}
    QStringList names() const {
        QStringList out;
        for (const auto& args : *this)
            out.append(args.at(0).toString());
        return out;
    }
    /// The properties of the first event called `name`; empty when there was none.
    QVariantMap propertiesOf(const QString& name) const {
        for (const auto& args : *this)
            if (args.at(0).toString() == name)
                return args.at(1).toMap();
        return {};
    }
};

} // namespace tamvex::test
