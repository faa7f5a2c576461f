#include "desktop/DesktopIntegration.h"

#include "KeyboardShortcuts/ShortcutRegistry.h"
#include "core/AppState.h"
#include "core/RecordingCoordinator.h"
#include "desktop/ControlService.h"
#include "desktop/HotkeyManager.h"
#include "desktop/HotkeyNotes.h"
#include "desktop/KeyInput.h"
#include "core/Nudges.h"
#include "platform/Log.h"
#include "shell/SettingsStore.h"

namespace tamvex {

DesktopIntegration::DesktopIntegration(RecordingCoordinator& coordinator, SettingsStore& settings, QObject* parent)
    : QObject(parent), m_shortcuts(coordinator.appState().shortcuts()),
      m_keyInput(KeyInput::createForSession(m_shortcuts, coordinator.appState().clock())),
      m_hotkeys(std::make_unique<HotkeyManager>(coordinator, settings, *m_keyInput, m_shortcuts)),
      m_control(std::make_unique<ControlService>(coordinator)) {
    AppState& state = coordinator.appState();
    connect(m_keyInput.get(), &KeyInput::functionKeyChanged, &state,
            [&state, input = m_keyInput.get()] { state.setFunctionKeyAvailable(input->functionKeyAvailable()); });
    // Said once, when the key source is first decided (the portal answers a moment after start);
    // queued, so that a choice made during start() reaches a HUD that exists.
    connect(m_keyInput.get(), &KeyInput::activeSourceChanged, this, [this, &state, &settings] {
        if (m_cardShown)
            return;
        m_cardShown = true;
        const hotkeyNotes::Situation situation{m_shortcuts.delivery(), settings.useFnHotkey(),
                                               m_keyInput->functionKeyAvailable()};
        if (const auto card = hotkeyNotes::launchCard(situation, nudges::hotkeyDisplayName(state))) {
            logInfo("Hotkey note shown: " + card->title);
            state.showNudge(*card, nudges::functionKeyUnavailableDuration);
        }
    }, Qt::QueuedConnection);
}

// Members go in reverse: the control name and the manager before the input they use.
DesktopIntegration::~DesktopIntegration() = default;

void DesktopIntegration::start() {
    m_control->registerOn();
    m_hotkeys->start();
}

} // namespace tamvex
