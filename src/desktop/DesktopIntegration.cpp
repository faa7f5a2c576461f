#include "desktop/DesktopIntegration.h"

#include "KeyboardShortcuts/ShortcutRegistry.h"
#include "core/AppState.h"
#include "core/RecordingCoordinator.h"
#include "desktop/ControlService.h"
#include "desktop/HotkeyManager.h"
#include "desktop/KeyInput.h"

namespace tamvex {

DesktopIntegration::DesktopIntegration(RecordingCoordinator& coordinator, SettingsStore& settings, QObject* parent)
    : QObject(parent), m_shortcuts(coordinator.appState().shortcuts()),
      m_keyInput(KeyInput::createForSession(m_shortcuts)),
      m_hotkeys(std::make_unique<HotkeyManager>(coordinator, settings, *m_keyInput, m_shortcuts)),
      m_control(std::make_unique<ControlService>(coordinator)) {
    AppState& state = coordinator.appState();
    connect(m_keyInput.get(), &KeyInput::functionKeyChanged, &state,
            [&state, input = m_keyInput.get()] { state.setFunctionKeyAvailable(input->functionKeyAvailable()); });
}

// Members go in reverse: the control name and the manager before the input they use.
DesktopIntegration::~DesktopIntegration() = default;

void DesktopIntegration::start() {
    m_control->registerOn();
    m_hotkeys->start();
}

} // namespace tamvex
