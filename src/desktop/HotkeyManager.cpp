#include "desktop/HotkeyManager.h"

#include "KeyboardShortcuts/ShortcutRegistry.h"
#include "core/RecordingCoordinator.h"
#include "desktop/KeyInput.h"
#include "platform/Log.h"
#include "shell/SettingsStore.h"

namespace tamvex {

HotkeyManager::HotkeyManager(RecordingCoordinator& coordinator, SettingsStore& settings, KeyInput& input,
                             KeyboardShortcuts::ShortcutRegistry& shortcuts, QObject* parent)
    : QObject(parent), m_coordinator(coordinator), m_settings(&settings), m_input(input), m_shortcuts(shortcuts),
      m_fnMonitor(input) {}

void HotkeyManager::start() {
    applyMode();
    if (!m_alternativeWired) {
        // These stay registered whatever the mode; they check the mode themselves.
        QPointer<HotkeyManager> self(this);
        auto customModeLive = [self] { return self && self->m_settings && !self->m_settings->useFnHotkey(); };
        m_shortcuts.onKeyDown(KeyboardShortcuts::sorvelRecordAlternative, [self, customModeLive] {
            if (customModeLive())
                self->m_coordinator.handleKeyDown();
        });
        m_shortcuts.onKeyUp(KeyboardShortcuts::sorvelRecordAlternative, [self, customModeLive] {
            if (customModeLive())
                self->m_coordinator.handleKeyUp();
        });
        m_alternativeWired = true;
    }
    // After the handlers: the portal asks the desktop to bind the names that have them.
    m_input.start();
    if (!m_modeObserver && m_settings) {
        // Queued: the switch takes effect one event-loop turn after the setting is written.
        m_modeObserver = connect(m_settings.data(), &SettingsStore::hotkeyModeChanged, this,
                                 &HotkeyManager::applyMode, Qt::QueuedConnection);
    }
}

void HotkeyManager::applyMode() {
    if (m_settings && !m_settings->useFnHotkey()) {
        if (m_fnMonitor.isEnabled())
            m_fnMonitor.stop();
        logInfo("Hotkey mode: custom (KeyboardShortcuts)");
        return;
    }
    QPointer<HotkeyManager> self(this);
    m_fnMonitor.onKeyDown = [self] {
        if (self)
            self->m_coordinator.handleKeyDown();
    };
    m_fnMonitor.onKeyUp = [self] {
        if (self)
            self->m_coordinator.handleKeyUp();
    };
    if (!m_fnMonitor.isEnabled())
        m_fnMonitor.start();
    logInfo("Hotkey mode: FN");
}

} // namespace tamvex
