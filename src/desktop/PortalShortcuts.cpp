#include "desktop/PortalShortcuts.h"

#include "KeyboardShortcuts/KeyCodes.h"
#include "KeyboardShortcuts/ShortcutRegistry.h"
#include "desktop/PortalRequest.h"
#include "platform/Log.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCall>

namespace {

/// One entry of the portal's a(sa{sv}) shortcut lists.
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
using portal::pathOf;
const QString& kService = portal::service;
const QString& kPath = portal::path;
const QString kInterface = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");
const QString kSessionInterface = QStringLiteral("org.freedesktop.portal.Session");
// KDE files the shortcuts under this name in its settings (System Settings → Shortcuts).
const QString kSessionToken = QStringLiteral("tamvex");

QList<PortalShortcut> shortcutsOf(const QVariant& value) {
    QList<PortalShortcut> list;
    if (value.canConvert<QDBusArgument>())
        value.value<QDBusArgument>() >> list;
    return list;
}

// The keysym names of the keys a shortcut may use that type no character.
QString keysymOf(KeyboardShortcuts::SpecialKey key) {
    using KeyboardShortcuts::SpecialKey;
    switch (key) {
    case SpecialKey::returnKey:
        return QStringLiteral("Return");
    case SpecialKey::deleteKey:
        return QStringLiteral("BackSpace");
    case SpecialKey::deleteForward:
        return QStringLiteral("Delete");
    case SpecialKey::end:
        return QStringLiteral("End");
    case SpecialKey::escape:
        return QStringLiteral("Escape");
    case SpecialKey::home:
        return QStringLiteral("Home");
    case SpecialKey::space:
        return QStringLiteral("space");
    case SpecialKey::tab:
        return QStringLiteral("Tab");
    case SpecialKey::pageUp:
        return QStringLiteral("Page_Up");
    case SpecialKey::pageDown:
        return QStringLiteral("Page_Down");
    case SpecialKey::upArrow:
        return QStringLiteral("Up");
    case SpecialKey::rightArrow:
        return QStringLiteral("Right");
    case SpecialKey::downArrow:
        return QStringLiteral("Down");
    case SpecialKey::leftArrow:
        return QStringLiteral("Left");
    default:
        break;
    }
    return {};
}
} // namespace

QString PortalShortcuts::preferredTrigger(const std::optional<KeyboardShortcuts::Shortcut>& shortcut) {
    using namespace KeyboardShortcuts;
    if (!shortcut || (shortcut->carbonModifiers & CarbonModifier::function))
        return {}; // FN is no key the desktop can bind
    QStringList parts;
    const std::pair<int, const char*> modifiers[] = {{CarbonModifier::control, "CTRL"},
                                                     {CarbonModifier::option, "ALT"},
                                                     {CarbonModifier::shift, "SHIFT"},
                                                     {CarbonModifier::command, "LOGO"}};
    for (const auto& [bit, word] : modifiers)
        if (shortcut->carbonModifiers & bit)
            parts << QString::fromLatin1(word);
    QString key;
    if (const auto special = specialKeyForCode(shortcut->carbonKeyCode))
        key = isFunctionKey(shortcut->carbonKeyCode) ? symbolOfSpecialKey(*special) : keysymOf(*special);
    else
        key = ansiCharacter(shortcut->carbonKeyCode).toUpper();
    if (key.isEmpty())
        return {};
    parts << key;
    return parts.join('+');
}

PortalShortcuts::PortalShortcuts(KeyboardShortcuts::ShortcutRegistry& shortcuts, QDBusConnection bus, QObject* parent)
    : KeySource(parent), m_shortcuts(shortcuts), m_bus(std::move(bus)) {
    qDBusRegisterMetaType<PortalShortcut>();
    qDBusRegisterMetaType<QList<PortalShortcut>>();
    // A shortcut recorded in the settings pane is offered to the desktop anew.
    connect(&m_shortcuts, &KeyboardShortcuts::ShortcutRegistry::shortcutByNameDidChange, this, [this] {
        if (m_state == State::bound)
            bind();
        else if (m_state == State::binding)
            m_rebindQueued = true;
    });
}

PortalShortcuts::~PortalShortcuts() { stop(); }

bool PortalShortcuts::start() {
    if (m_state == State::binding || m_state == State::bound)
        return isAvailable();
    m_state = State::binding;
    m_reason.clear();
    if (!m_bus.isConnected()) {
        fail("GlobalShortcuts portal: no session bus");
        return false;
    }
    const bool listening =
        m_bus.connect(kService, kPath, kInterface, "Activated", this, SLOT(onShortcutSignal(QDBusMessage))) &&
        m_bus.connect(kService, kPath, kInterface, "Deactivated", this, SLOT(onShortcutSignal(QDBusMessage))) &&
        m_bus.connect(kService, kPath, kInterface, "ShortcutsChanged", this, SLOT(onShortcutsChanged(QDBusMessage)));
    if (!listening) {
        fail("GlobalShortcuts portal: cannot listen to its signals");
        return false;
    }
    const QVariantMap options{{"session_handle_token", kSessionToken}, {"shortcuts", shortcutList()}};
    portal::ask(m_bus, this, kInterface, "CreateSession", {options},
                [this](uint code, const QVariantMap& results, const QString& error) {
                    onCreateSessionResponse(code, results, error);
                });
    return false;
}

void PortalShortcuts::closeSession() {
    if (m_session.isEmpty())
        return;
    m_bus.disconnect(kService, m_session, kSessionInterface, "Closed", this, SLOT(onSessionClosed()));
    // Not awaited: on quit there is no loop left to hear the answer, and the desktop also
    // ends the session when our bus connection goes.
    m_bus.asyncCall(QDBusMessage::createMethodCall(kService, m_session, kSessionInterface, "Close"));
    logInfo("GlobalShortcuts portal: session closed");
    m_session.clear();
}

void PortalShortcuts::stop() {
    const bool wasAvailable = isAvailable();
    closeSession();
    m_triggers.clear();
    m_state = State::idle;
    if (wasAvailable) {
        emit deviceRemoved(0);
        emit availabilityChanged(false);
    }
}

QVariant PortalShortcuts::shortcutList() const {
    QList<PortalShortcut> list;
    for (const QString& rawName : m_shortcuts.namesWithHandlers()) {
        QVariantMap properties{{"description", QStringLiteral("Tamvex: диктовка (удерживай)")}};
        const QString trigger = preferredTrigger(m_shortcuts.storedShortcut({rawName, std::nullopt}));
        if (!trigger.isEmpty())
            properties.insert("preferred_trigger", trigger);
        list.append({rawName, properties});
    }
    return QVariant::fromValue(list);
}

void PortalShortcuts::onCreateSessionResponse(uint response, const QVariantMap& results, const QString& error) {
    if (m_state != State::binding)
        return;
    if (!error.isEmpty()) {
        fail("GlobalShortcuts portal: " + error);
        return;
    }
    if (response != 0 || !results.contains("session_handle")) {
        fail("GlobalShortcuts portal: session refused: " + portal::describeResponse(response));
        return;
    }
    m_session = pathOf(results.value("session_handle"));
    m_bus.connect(kService, m_session, kSessionInterface, "Closed", this, SLOT(onSessionClosed()));
    bind();
}

void PortalShortcuts::bind() {
    m_rebindQueued = false;
    portal::ask(m_bus, this, kInterface, "BindShortcuts",
                {QVariant::fromValue(QDBusObjectPath(m_session)), shortcutList(), QString(), QVariantMap()},
                [this](uint code, const QVariantMap& results, const QString& error) {
                    onBindResponse(code, results, error);
                });
}

void PortalShortcuts::onBindResponse(uint response, const QVariantMap& results, const QString& error) {
    if (m_state != State::binding && m_state != State::bound)
        return;
    if (!error.isEmpty()) {
        fail("GlobalShortcuts portal: " + error);
        return;
    }
    if (response != 0) {
        fail("GlobalShortcuts portal: shortcuts not bound: " + portal::describeResponse(response));
        return;
    }
    takeTriggers(results.value("shortcuts"));
    if (m_triggers.isEmpty()) {
        // What an older portal answers when it ignored the list: nothing is bound.
        fail("GlobalShortcuts portal: the desktop bound no shortcut (its answer lists none)");
        return;
    }
    QStringList bound;
    for (auto it = m_triggers.cbegin(); it != m_triggers.cend(); ++it)
        bound << it.key() + " → " + (it.value().isEmpty() ? QStringLiteral("(no key yet)") : it.value());
    bound.sort();
    logInfo("GlobalShortcuts portal: shortcuts bound: " + bound.join(", "));
    if (m_state == State::binding) {
        m_state = State::bound;
        emit availabilityChanged(true);
    }
    if (m_rebindQueued)
        bind();
}

void PortalShortcuts::takeTriggers(const QVariant& list) {
    QHash<QString, QString> triggers;
    const QStringList ours = m_shortcuts.namesWithHandlers();
    for (const PortalShortcut& shortcut : shortcutsOf(list))
        if (ours.contains(shortcut.id))
            triggers.insert(shortcut.id, shortcut.properties.value("trigger_description").toString());
    if (triggers == m_triggers)
        return;
    m_triggers = triggers;
    emit triggersChanged();
}

void PortalShortcuts::onShortcutSignal(const QDBusMessage& message) {
    // Activated / Deactivated (o session_handle, s shortcut_id, t timestamp, a{sv} options).
    const QList<QVariant> args = message.arguments();
    if (m_state != State::bound || args.size() < 2 || pathOf(args.at(0)) != m_session)
        return;
    emit shortcutEdge(args.at(1).toString(), message.member() == QLatin1String("Activated"));
}

void PortalShortcuts::onShortcutsChanged(const QDBusMessage& message) {
    // ShortcutsChanged (o session_handle, a(sa{sv}) shortcuts): the user rebound them on the desktop.
    const QList<QVariant> args = message.arguments();
    if (m_state != State::bound || args.size() < 2 || pathOf(args.at(0)) != m_session)
        return;
    takeTriggers(args.at(1));
    QStringList described;
    for (auto it = m_triggers.cbegin(); it != m_triggers.cend(); ++it)
        described << it.key() + " → " + it.value();
    logInfo("GlobalShortcuts portal: the desktop changed the shortcuts: " + described.join(", "));
}

void PortalShortcuts::onSessionClosed() {
    m_session.clear();
    fail("GlobalShortcuts portal: the desktop closed the session");
}

void PortalShortcuts::fail(const QString& reason) {
    const bool wasAvailable = isAvailable();
    m_state = State::failed;
    m_reason = reason;
    m_rebindQueued = false;
    closeSession(); // a session that binds nothing is of no use to keep
    if (!m_triggers.isEmpty()) {
        m_triggers.clear();
        emit triggersChanged();
    }
    // The key input logs the reason when it passes over this source.
    if (wasAvailable)
        emit deviceRemoved(0);
    emit availabilityChanged(false);
}

} // namespace tamvex
