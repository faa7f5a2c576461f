#pragma once

#include <QObject>
#include <QStringList>
#include <QUrl>

namespace tamvex {

/// Where the browser's return to "tamvex://oauth/yandex?code=…" reaches the sign-in forms:
/// a second start hands the link to the running instance (ControlService::activated), and
/// whichever form is waiting for Yandex takes it.
class OAuthCallbacks : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    /// True for a link of the Yandex return ("tamvex://oauth/yandex").
    static bool isYandexCallback(const QUrl& url);

public slots:
    /// Passes on the Yandex links among `urls`; the signature of ControlService::activated.
    void deliver(const QStringList& arguments, const QStringList& urls);

signals:
    /// A Yandex return arrived.
    void yandexCallback(const QUrl& url);
};

} // namespace tamvex
