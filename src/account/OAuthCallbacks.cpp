#include "account/OAuthCallbacks.h"

namespace tamvex {

bool OAuthCallbacks::isYandexCallback(const QUrl& url) {
    return url.scheme() == QLatin1String("tamvex") && url.host() == QLatin1String("oauth") &&
           url.path() == QLatin1String("/yandex");
}

void OAuthCallbacks::deliver(const QStringList& arguments, const QStringList& urls) {
    Q_UNUSED(arguments);
    for (const QString& text : urls) {
        const QUrl url(text);
        if (isYandexCallback(url))
            emit yandexCallback(url);
    }
}

} // namespace tamvex
