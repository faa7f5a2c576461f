#include "desktop/PortalShortcuts.h"

#include "KeyboardShortcuts/KeyCodes.h"
#include "KeyboardShortcuts/ShortcutRegistry.h"
#include "platform/Log.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

namespace {

/// One entry of BindShortcuts' a(sa{sv}).
struct PortalShortcut {
    QString id;
    QVariantMap properties;
};

QDBusArgument& operator<<(QDBusArgument& argument, const PortalShortcut& shortcut) {
    argument.beginStructure();
    argument << shortcut.id << shortcut.properties;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, PortalShortcut& shortcut) {
    argument.beginStructure();
    argument >> shortcut.id >> shortcut.properties;
    argument.endStructure();
    return argument;
}

} // namespace

Q_DECLARE_METATYPE(PortalShortcut)

namespace tamvex {

namespace {
const QString kService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kInterface = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");

// The trigger the desktop proposes to the user, in the portal's shortcut syntax.
QString preferredTrigger(const std::optional<KeyboardShortcuts::Shortcut>& shortcut) {
    using namespace KeyboardShortcuts;
    if (!shortcut)
        return {};
    QStringList parts;
    if (shortcut->carbonModifiers & CarbonModifier::control)
        parts << "CTRL";
    if (shortcut->carbonModifiers & CarbonModifier::option)
        parts << "ALT";
    if (shortcut->carbonModifiers & CarbonModifier::shift)
        parts << "SHIFT";
    if (shortcut->carbonModifiers & CarbonModifier::command)
        parts << "LOGO";
    if (const auto special = specialKeyForCode(shortcut->carbonKeyCode);
        special && isFunctionKey(shortcut->carbonKeyCode))
        parts << symbolOfSpecialKey(*special);
    else if (const QString character = ansiCharacter(shortcut->carbonKeyCode); !character.isEmpty())
        parts << character;
    else
        return {};
    return parts.join('+');
}
} // namespace

PortalShortcuts::PortalShortcuts(KeyboardShortcuts::ShortcutRegistry& shortcuts, QDBusConnection bus, QObject* parent)
    : QObject(parent), m_shortcuts(shortcuts), m_bus(std::move(bus)) {
    qDBusRegisterMetaType<PortalShortcut>();
    qDBusRegisterMetaType<QList<PortalShortcut>>();
}

QString PortalShortcuts::requestPath(const QString& token) const {
    QString sender = m_bus.baseService().mid(1);
    sender.replace('.', '_');
    return kPath + "/request/" + sender + "/" + token;
}

void PortalShortcuts::start() {
    if (m_started)
        return;
    m_started = true;
    if (!m_bus.isConnected()) {
        fail("GlobalShortcuts portal: no session bus");
        return;
    }
    const bool edges =
        m_bus.connect(kService, kPath, kInterface, "Activated", this, SLOT(onShortcutSignal(QDBusMessage))) &&
        m_bus.connect(kService, kPath, kInterface, "Deactivated", this, SLOT(onShortcutSignal(QDBusMessage)));
    if (!edges) {
        fail("GlobalShortcuts portal: cannot listen to Activated / Deactivated");
        return;
    }
    const QString token = QStringLiteral("tamvex%1").arg(++m_tokenCounter);
    const QVariantMap options{{"handle_token", token}, {"session_handle_token", QStringLiteral("tamvex_session")}};
    call("CreateSession", {options}, SLOT(onCreateSessionResponse(uint, QVariantMap)), token);
}

void PortalShortcuts::call(const QString& method, const QVariantList& args, const char* responseSlot,
                           const QString& token) {
    // The answer comes as a Response signal on the request object: listen before asking.
    m_bus.connect(kService, requestPath(token), "org.freedesktop.portal.Request", "Response", this, responseSlot);
    QDBusMessage message = QDBusMessage::createMethodCall(kService, kPath, kInterface, method);
    message.setArguments(args);
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(message), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, method] {
        watcher->deleteLater();
        if (watcher->isError())
            fail("GlobalShortcuts portal: " + method + " failed: " + watcher->error().message());
    });
}

void PortalShortcuts::onCreateSessionResponse(uint response, const QVariantMap& results) {
    if (response != 0 || !results.contains("session_handle")) {
        fail(QStringLiteral("GlobalShortcuts portal: session refused (%1)").arg(response));
        return;
    }
    const QVariant handle = results.value("session_handle");
    m_session = handle.canConvert<QDBusObjectPath>() ? handle.value<QDBusObjectPath>().path() : handle.toString();
    QList<PortalShortcut> shortcuts;
    for (const QString& rawName : m_shortcuts.namesWithHandlers()) {
        QVariantMap properties{{"description", QStringLiteral("Tamvex: диктовка (удерживай)")}};
        const QString trigger = preferredTrigger(m_shortcuts.storedShortcut({rawName, std::nullopt}));
        if (!trigger.isEmpty())
            properties.insert("preferred_trigger", trigger);
        shortcuts.append({rawName, properties});
    }
    const QString token = QStringLiteral("tamvex%1").arg(++m_tokenCounter);
    call("BindShortcuts",
         {QVariant::fromValue(QDBusObjectPath(m_session)), QVariant::fromValue(shortcuts), QString(),
          QVariantMap{{"handle_token", token}}},
         SLOT(onBindResponse(uint, QVariantMap)), token);
}

void PortalShortcuts::onBindResponse(uint response, const QVariantMap& /*results*/) {
    if (response != 0) {
        fail(QStringLiteral("GlobalShortcuts portal: shortcuts not bound (%1)").arg(response));
        return;
    }
    m_bound = true;
    logInfo("GlobalShortcuts portal: shortcuts bound");
    emit boundChanged();
}

void PortalShortcuts::onShortcutSignal(const QDBusMessage& message) {
    // Activated / Deactivated (o session_handle, s shortcut_id, t timestamp, a{sv} options).
    const QList<QVariant> args = message.arguments();
    if (args.size() < 2 || args.at(0).value<QDBusObjectPath>().path() != m_session)
        return;
    const auto type = message.member() == QLatin1String("Activated") ? KeyboardShortcuts::EventType::keyDown
                                                                       : KeyboardShortcuts::EventType::keyUp;
    m_shortcuts.handleExternalEdge(args.at(1).toString(), type);
}

void PortalShortcuts::fail(const QString& reason) {
    logError(reason);
    emit failed(reason);
}

} // namespace tamvex
