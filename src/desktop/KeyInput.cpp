#include "desktop/KeyInput.h"

#include "KeyboardShortcuts/ShortcutRegistry.h"
#include "desktop/EvdevKeySource.h"
#include "desktop/PortalShortcuts.h"
#include "desktop/X11KeySource.h"
#include "platform/Log.h"

namespace tamvex {

KeyInput::KeyInput(KeyboardShortcuts::ShortcutRegistry& shortcuts, std::vector<std::unique_ptr<KeySource>> sources,
                   std::unique_ptr<PortalShortcuts> portal, QObject* parent)
    : QObject(parent), m_shortcuts(shortcuts), m_sources(std::move(sources)), m_portal(std::move(portal)) {
    for (const auto& source : m_sources) {
        KeySource* raw = source.get();
        connect(raw, &KeySource::inputEvent, this, [this, raw](int device, int type, int code, int value) {
            if (raw == m_current)
                deliver(m_state.apply(device, type, code, value));
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
    }
    connect(this, &KeyInput::keyEvent, &m_shortcuts, &KeyboardShortcuts::ShortcutRegistry::handleKeyEvent);
}

KeyInput::~KeyInput() {
    // Sources announce their devices going away as they stop; not to a half-destroyed hub.
    for (const auto& source : m_sources)
        source->disconnect(this);
}

std::unique_ptr<KeyInput> KeyInput::createForSession(KeyboardShortcuts::ShortcutRegistry& shortcuts) {
    std::vector<std::unique_ptr<KeySource>> sources;
    sources.push_back(std::make_unique<EvdevKeySource>());
    if (!qEnvironmentVariableIsEmpty("DISPLAY"))
        sources.push_back(std::make_unique<X11KeySource>());
    std::unique_ptr<PortalShortcuts> portal;
    if (!qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        portal = std::make_unique<PortalShortcuts>(shortcuts);
    return std::make_unique<KeyInput>(shortcuts, std::move(sources), std::move(portal));
}

void KeyInput::start() {
    if (m_started)
        return;
    m_started = true;
    for (const auto& source : m_sources)
        source->start();
    choose();
}

QString KeyInput::activeSourceName() const {
    switch (m_active) {
    case Source::evdev:
        return QStringLiteral("evdev");
    case Source::x11:
        return QStringLiteral("X11");
    case Source::portal:
        return QStringLiteral("GlobalShortcuts portal");
    case Source::none:
        break;
    }
    return QStringLiteral("none");
}

bool KeyInput::functionKeyAvailable() const { return m_current && m_current->seesFunctionKey(); }

void KeyInput::choose() {
    KeySource* next = nullptr;
    for (const auto& source : m_sources) {
        if (source->isAvailable()) {
            next = source.get();
            break;
        }
        if (!m_noKeysLogged && !source->unavailableReason().isEmpty()) {
            m_noKeysLogged = true; // said once per process, not at every re-check
            logInfo(source->unavailableReason());
        }
    }
    Source kind = Source::none;
    if (next)
        kind = next->name() == QLatin1String("evdev") ? Source::evdev : Source::x11;
    else if (m_portal)
        kind = Source::portal;
    if (m_chosen && next == m_current && kind == m_active)
        return;
    m_chosen = true;
    // Keys held on the old source are let go, so no shortcut or FN stays down.
    m_current = nullptr;
    deliver(m_state.clear());
    m_current = next;
    m_active = kind;
    if (kind == Source::portal)
        m_portal->start();
    switch (kind) {
    case Source::evdev:
        logInfo("Key source: evdev (keyboards under /dev/input)");
        break;
    case Source::x11:
        logInfo("Key source: X11 raw key events (custom shortcut only: X11 cannot carry the FN key)");
        break;
    case Source::portal:
        logInfo("Key source: GlobalShortcuts portal (custom shortcut bound by the desktop)");
        break;
    case Source::none:
        logInfo("Key source: none — hold-to-talk is unavailable; bind `tamvex ctl toggle` to a desktop shortcut");
        break;
    }
    emit activeSourceChanged();
    emit functionKeyChanged();
}

void KeyInput::deliver(const std::vector<KeyChange>& changes) {
    for (const KeyChange& change : changes) {
        if (change.flagsAfter != change.flagsBefore)
            emit flagsChanged(change.flagsAfter);
        emit keyEvent(change.code, change.value, change.value == 1 ? change.flagsBefore : change.flagsAfter);
    }
}

} // namespace tamvex
