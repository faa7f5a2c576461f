#include "desktop/KeyInput.h"

#include "KeyboardShortcuts/ShortcutRegistry.h"
#include "desktop/EvdevKeySource.h"
#include "desktop/PortalShortcuts.h"
#include "desktop/X11KeySource.h"
#include "platform/Log.h"

namespace tamvex {

namespace {
KeyInput::Source kindOf(const KeySource* source) {
    if (!source)
        return KeyInput::Source::none;
    const QString name = source->name();
    if (name == QLatin1String("evdev"))
        return KeyInput::Source::evdev;
    if (name == QLatin1String("X11"))
        return KeyInput::Source::x11;
    return KeyInput::Source::portal;
}
} // namespace

KeyInput::KeyInput(KeyboardShortcuts::ShortcutRegistry& shortcuts, Clock& clock,
                   std::vector<std::unique_ptr<KeySource>> sources, bool waylandSession, QObject* parent)
    : QObject(parent), m_shortcuts(shortcuts), m_clock(clock), m_sources(std::move(sources)),
      m_wayland(waylandSession) {
    for (const auto& source : m_sources) {
        KeySource* raw = source.get();
        // Only the source in use feeds the coordinator: the others' events are dropped here.
        connect(raw, &KeySource::inputEvent, this, [this, raw](int device, int type, int code, int value) {
            if (raw == m_current)
                deliver(m_state.apply(device, type, code, value));
        });
        connect(raw, &KeySource::shortcutEdge, this, [this, raw](const QString& rawName, bool pressed) {
            if (raw == m_current)
                m_shortcuts.handleExternalEdge(rawName, pressed ? KeyboardShortcuts::EventType::keyDown
                                                                : KeyboardShortcuts::EventType::keyUp);
        });
        connect(raw, &KeySource::deviceRemoved, this, [this, raw](int device) {
            if (raw == m_current)
                deliver(m_state.removeDevice(device));
        });
        connect(raw, &KeySource::availabilityChanged, this, [this] {
            if (m_started)
                choose();
        });
        connect(raw, &KeySource::functionKeyChanged, this, [this, raw] {
            if (raw == m_current)
                emit functionKeyChanged();
        });
        if (auto* portal = qobject_cast<PortalShortcuts*>(raw))
            connect(portal, &PortalShortcuts::triggersChanged, this, [this] { publish(); });
    }
    connect(this, &KeyInput::keyEvent, &m_shortcuts, &KeyboardShortcuts::ShortcutRegistry::handleKeyEvent);
}

KeyInput::~KeyInput() {
    m_clock.cancelTimer(m_graceTimer);
    // Sources announce their devices going away as they stop; not to a half-destroyed hub.
    for (const auto& source : m_sources)
        source->disconnect(this);
}

bool KeyInput::isWaylandSession() {
    return !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") ||
           qEnvironmentVariable("XDG_SESSION_TYPE") == QLatin1String("wayland");
}

std::unique_ptr<KeyInput> KeyInput::createForSession(KeyboardShortcuts::ShortcutRegistry& shortcuts, Clock& clock) {
    const bool wayland = isWaylandSession();
    std::vector<std::unique_ptr<KeySource>> sources;
    sources.push_back(std::make_unique<EvdevKeySource>());
    // Through Xwayland, X11 hears keys only while an X11 window has the focus: the portal,
    // which the desktop feeds whatever has the focus, comes first.
    if (wayland)
        sources.push_back(std::make_unique<PortalShortcuts>(shortcuts));
    if (!qEnvironmentVariableIsEmpty("DISPLAY"))
        sources.push_back(std::make_unique<X11KeySource>());
    return std::make_unique<KeyInput>(shortcuts, clock, std::move(sources), wayland);
}

void KeyInput::start() {
    if (m_started)
        return;
    m_started = true;
    for (const auto& source : m_sources)
        source->start();
    m_graceTimer = m_clock.schedule(pendingGraceSec, [this] {
        m_graceTimer = 0;
        m_graceOver = true;
        choose();
    });
    choose();
}

void KeyInput::stop() {
    if (!m_started)
        return;
    m_clock.cancelTimer(m_graceTimer);
    m_graceTimer = 0;
    for (const auto& source : m_sources)
        source->disconnect(this); // no hand-over while everything stops
    m_current = nullptr;
    deliver(m_state.clear());
    m_shortcuts.releaseAll();
    for (const auto& source : m_sources)
        source->stop();
    m_started = false;
}

QString KeyInput::activeSourceName() const { return m_current ? m_current->name() : QStringLiteral("none"); }

bool KeyInput::functionKeyAvailable() const { return m_current && m_current->seesFunctionKey(); }

void KeyInput::choose() {
    KeySource* next = nullptr;
    for (const auto& source : m_sources) {
        if (source->isAvailable()) {
            next = source.get();
            break;
        }
        // A better source still waiting for the desktop's answer is given a moment; the
        // source in use, if any, serves on meanwhile.
        if (source->isPending() && (!m_graceOver || (m_current && m_current->isAvailable())))
            return;
        const QString reason = source->unavailableReason();
        if (!reason.isEmpty() && !m_reasonsLogged.contains(reason)) {
            m_reasonsLogged.insert(reason); // said once per process, not at every re-check
            logInfo(reason);
        }
    }
    if (m_chosen && next == m_current)
        return;
    m_chosen = true;
    // Keys and shortcuts held through the old source are let go, so nothing stays down.
    m_current = nullptr;
    deliver(m_state.clear());
    m_shortcuts.releaseAll();
    m_current = next;
    m_active = kindOf(next);
    logChoice();
    publish();
    emit activeSourceChanged();
    emit functionKeyChanged();
}

void KeyInput::logChoice() const {
    switch (m_active) {
    case Source::evdev:
        logInfo("Key source: evdev (keyboards under /dev/input)");
        break;
    case Source::x11:
        if (m_wayland)
            logInfo("Key source: X11 raw key events through Xwayland — the hotkey is heard only while an X11 "
                    "window has the focus. For every window: join the `input` group (sudo usermod -aG input "
                    "$USER, then log in again), or bind a desktop shortcut to `tamvex ctl toggle`");
        else
            logInfo("Key source: X11 raw key events (custom shortcut only: X11 cannot carry the FN key)");
        break;
    case Source::portal:
        logInfo("Key source: GlobalShortcuts portal (custom shortcut bound by the desktop; FN cannot be bound)");
        break;
    case Source::none:
        logInfo("Key source: none — hold-to-talk is unavailable; bind a desktop shortcut to `tamvex ctl toggle`");
        break;
    }
}

void KeyInput::publish() {
    using KeyboardShortcuts::Delivery;
    switch (m_active) {
    case Source::evdev:
        m_shortcuts.setDelivery(Delivery::keys);
        break;
    case Source::x11:
        m_shortcuts.setDelivery(m_wayland ? Delivery::focusedX11Only : Delivery::keys);
        break;
    case Source::portal: {
        const auto* portal = qobject_cast<const PortalShortcuts*>(m_current);
        m_shortcuts.setDelivery(Delivery::desktop, portal ? portal->triggers() : QHash<QString, QString>());
        break;
    }
    case Source::none:
        m_shortcuts.setDelivery(Delivery::none);
        break;
    }
}

void KeyInput::deliver(const std::vector<KeyChange>& changes) {
    for (const KeyChange& change : changes) {
        if (change.flagsAfter != change.flagsBefore)
            emit flagsChanged(change.flagsAfter);
        emit keyEvent(change.code, change.value, change.value == 1 ? change.flagsBefore : change.flagsAfter);
    }
}

} // namespace tamvex
