#include "desktop/PortalRequest.h"

#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QObject>
#include <QPointer>

namespace tamvex::portal {

namespace {
/// Hears one Response: D-Bus signals reach slots only, not functors.
class Responder : public QObject {
    Q_OBJECT
public:
    Responder(QDBusConnection bus, QString requestPath, QObject* context, ResponseHandler done)
        : m_bus(std::move(bus)), m_requestPath(std::move(requestPath)), m_context(context), m_done(std::move(done)) {
        m_bus.connect(service, m_requestPath, "org.freedesktop.portal.Request", "Response", this,
                      SLOT(response(uint, QVariantMap)));
    }
    void finish(uint code, const QVariantMap& results, const QString& error) {
        if (m_finished)
            return;
        m_finished = true;
        m_bus.disconnect(service, m_requestPath, "org.freedesktop.portal.Request", "Response", this,
                         SLOT(response(uint, QVariantMap)));
        if (m_context)
            m_done(code, results, error);
        deleteLater();
    }

public slots:
    void response(uint code, const QVariantMap& results) { finish(code, results, {}); }

private:
    QDBusConnection m_bus;
    QString m_requestPath;
    QPointer<QObject> m_context;
    ResponseHandler m_done;
    bool m_finished = false;
};

int g_tokenCounter = 0;
} // namespace

void ask(QDBusConnection bus, QObject* context, const QString& interface, const QString& method, QVariantList args,
         ResponseHandler done) {
    const QString token = QStringLiteral("tamvex%1").arg(++g_tokenCounter);
    QVariantMap options = args.isEmpty() ? QVariantMap() : args.takeLast().toMap();
    options.insert("handle_token", token);
    args.append(options);
    QString sender = bus.baseService().mid(1);
    sender.replace('.', '_');
    auto* responder = new Responder(bus, path + "/request/" + sender + "/" + token, context, std::move(done));
    QDBusMessage message = QDBusMessage::createMethodCall(service, path, interface, method);
    message.setArguments(args);
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(message), responder);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, responder, [responder, watcher, method] {
        watcher->deleteLater();
        if (watcher->isError())
            responder->finish(2, {}, method + " failed: " + watcher->error().message());
    });
}

QString pathOf(const QVariant& value) {
    return value.userType() == qMetaTypeId<QDBusObjectPath>() ? value.value<QDBusObjectPath>().path()
                                                              : value.toString();
}

QString describeResponse(uint code) {
    switch (code) {
    case 1:
        return QStringLiteral("the user refused in the desktop's dialog (1)");
    case 2:
        return QStringLiteral("the desktop ended the request (2)");
    default:
        return QStringLiteral("response %1").arg(code);
    }
}

} // namespace tamvex::portal

#include "PortalRequest.moc"
