#include "desktop/ControlService.h"

#include "core/AppState.h"
#include "core/RecordingCoordinator.h"
#include "history/HistoryStore.h"
#include "platform/Log.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>

namespace tamvex {

ControlService::ControlService(RecordingCoordinator& coordinator, QObject* parent)
    : QObject(parent), m_coordinator(coordinator) {}

ControlService::~ControlService() {
    if (m_bus) {
        m_bus->unregisterObject(objectPath);
        m_bus->unregisterService(serviceName);
    }
}

bool ControlService::registerOn(QDBusConnection bus) {
    if (!bus.isConnected()) {
        logInfo("D-Bus control: no session bus, `tamvex ctl` will not reach this instance");
        return false;
    }
    if (!bus.registerObject(objectPath, this, QDBusConnection::ExportScriptableSlots)) {
        logError("D-Bus control: could not export " + QString(objectPath));
        return false;
    }
    if (!bus.registerService(serviceName)) {
        bus.unregisterObject(objectPath);
        logError("D-Bus control: " + QString(serviceName) + " is owned by another instance");
        return false;
    }
    m_bus = bus;
    logInfo("D-Bus control: " + QString(serviceName) + " on the session bus");
    return true;
}

void ControlService::Press() {
    logInfo("D-Bus control: Press");
    m_coordinator.handleKeyDown();
}

void ControlService::Release() {
    logInfo("D-Bus control: Release");
    m_coordinator.handleKeyUp();
}

void ControlService::Toggle() {
    logInfo("D-Bus control: Toggle");
    m_coordinator.toggleRecording();
}

void ControlService::Activate(const QStringList& arguments) {
    QStringList urls;
    for (const QString& argument : arguments)
        if (argument.startsWith(QLatin1String("tamvex://"), Qt::CaseInsensitive))
            urls.append(argument);
    logInfo(QStringLiteral("D-Bus control: a second start handed over %1 arguments").arg(arguments.size()));
    emit activated(arguments, urls);
}

void ControlService::Retry(const QString& id, const QDBusMessage& message) {
    const QUuid uuid(id);
    logInfo("D-Bus control: Retry " + id.left(8));
    if (uuid.isNull()) {
        m_bus->send(message.createErrorReply(QDBusError::InvalidArgs, "Неверный ID записи: " + id));
        return;
    }
    // The retry looks only at loaded pages; an older entry is brought in first.
    m_coordinator.appState().history().loadUntilFound(uuid);
    message.setDelayedReply(true);
    auto connection = std::make_shared<QMetaObject::Connection>();
    *connection =
        connect(&m_coordinator, &RecordingCoordinator::retryFinished, this,
                [this, uuid, message, connection](const QUuid& finished, bool succeeded, const QString& text) {
                    if (finished != uuid)
                        return;
                    disconnect(*connection);
                    m_bus->send(message.createReply(QVariantList{succeeded, text}));
                });
    // Connected before the start: a retry with nothing to send ends at once.
    const AppState::RetryHook& hook = m_coordinator.appState().retryTranscriptionHook();
    QCoro::Task<void> retry = hook ? hook(uuid) : m_coordinator.retryTranscription(uuid);
    Q_UNUSED(retry);
}

bool forwardToRunningInstance(const QStringList& arguments, QDBusConnection bus) {
    if (!bus.isConnected() || !bus.interface())
        return false;
    // A question to the bus daemon only: never blocks on a peer that does not answer.
    if (!bus.interface()->isServiceRegistered(ControlService::serviceName).value())
        return false;
    QDBusMessage call = QDBusMessage::createMethodCall(ControlService::serviceName, ControlService::objectPath,
                                                       ControlService::interfaceName, "Activate");
    call.setArguments({arguments});
    const QDBusMessage reply = bus.call(call, QDBus::Block, 5000);
    if (reply.type() == QDBusMessage::ErrorMessage) {
        logError("Could not hand the arguments to the running instance: " + reply.errorMessage());
        return false;
    }
    return true;
}

} // namespace tamvex
