#include "desktop/ControlService.h"

#include "core/RecordingCoordinator.h"
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
