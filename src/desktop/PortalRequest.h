#pragma once

#include <QDBusConnection>
#include <QString>
#include <QVariantList>
#include <QVariantMap>

#include <functional>

class QObject;

namespace tamvex::portal {

inline const QString service = QStringLiteral("org.freedesktop.portal.Desktop");
inline const QString path = QStringLiteral("/org/freedesktop/portal/desktop");

/// What a portal request came to: the Response's code (0 granted, 1 refused by the user,
/// 2 ended otherwise) and results, or code 2 and `error` when the call itself failed.
using ResponseHandler = std::function<void(uint code, const QVariantMap& results, const QString& error)>;

/// Calls `method` of the portal's `interface` with `args`, whose last argument is the options
/// map; it gets a fresh handle_token. The answer comes as a Response signal on the request
/// object, which is listened to before asking. `done` runs once, and not after `context` is gone.
void ask(QDBusConnection bus, QObject* context, const QString& interface, const QString& method, QVariantList args,
         ResponseHandler done);

/// A session handle as given: typed `o` by newer portals, `s` by Plasma 5.27's.
QString pathOf(const QVariant& value);

/// The words for a non-zero response code, for the log.
QString describeResponse(uint code);

} // namespace tamvex::portal
