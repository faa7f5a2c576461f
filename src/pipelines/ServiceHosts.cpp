#include "pipelines/ServiceHosts.h"

#include "platform/Log.h"

#include <QtGlobal>

namespace tamvex {

namespace {

QUrl parseConstant(const char* text) {
    const QUrl url(QString::fromUtf8(text), QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty())
        qFatal("Compiled-in service host is not a URL: %s", text);
    return url;
}

// A bad override is a configuration slip, not a fault: say so and keep the default.
QUrl withOverride(const char* variable, const char* fallback, bool keepPath = false) {
    const QString value = qEnvironmentVariable(variable).trimmed();
    if (!value.isEmpty()) {
        QUrl url(value, QUrl::StrictMode);
        if (url.isValid() && !url.host().isEmpty() && (url.scheme() == "http" || url.scheme() == "https")) {
            if (!keepPath)
                url.setPath(QString());
            return url;
        }
        logError(QString("ServiceHosts: ignoring %1=%2, not an http(s) URL").arg(variable, value));
    }
    return parseConstant(fallback);
}

} // namespace

ServiceHosts ServiceHosts::fromEnvironment() {
    return {withOverride("TAMVEX_MAIN_URL", TAMVEX_DEFAULT_MAIN_URL),
            withOverride("TAMVEX_STT_URL", TAMVEX_DEFAULT_STT_URL),
            withOverride("TAMVEX_OPENROUTER_URL", TAMVEX_DEFAULT_OPENROUTER_URL),
            withOverride("TAMVEX_YANDEX_OAUTH_URL", TAMVEX_DEFAULT_YANDEX_OAUTH_URL),
            withOverride("TAMVEX_MODEL_MIRROR_URL", TAMVEX_DEFAULT_MODEL_MIRROR_URL, true)};
}

const ServiceHosts& ServiceHosts::configured() {
    static const ServiceHosts hosts = fromEnvironment();
    return hosts;
}

QString ServiceHosts::telegramContact() {
    static const QString contact = [] {
        const QString value = qEnvironmentVariable("TAMVEX_TELEGRAM_CONTACT").trimmed();
        return value.isEmpty() ? QStringLiteral(TAMVEX_DEFAULT_TELEGRAM_CONTACT) : value;
    }();
    return contact;
}

ServiceHosts ServiceHosts::allAt(const QUrl& base) {
    return {base, base, base, base, base};
}

QUrl ServiceHosts::join(const QUrl& base, const QString& path) {
    QUrl url = base;
    QString prefix = url.path();
    if (prefix.endsWith('/'))
        prefix.chop(1);
    url.setPath(prefix + path);
    return url;
}

} // namespace tamvex
