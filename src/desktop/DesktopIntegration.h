#pragma once

#include <QObject>

#include <memory>

namespace tamvex {

class ControlService;
class HotkeyManager;
class KeyInput;
class RecordingCoordinator;
class SettingsStore;
namespace KeyboardShortcuts {
class ShortcutRegistry;
}

/// The running application's hold on the desktop: the named shortcuts, the key input of
/// this session, the hotkey manager, and the D-Bus control name. One object for the
/// application's owner to make after the coordinator and keep to the end.
class DesktopIntegration : public QObject {
    Q_OBJECT
public:
    /// Builds the pieces for `coordinator`, over the state's named shortcuts; nothing runs
    /// until start(). Whether FN can be heard is published on the state.
    DesktopIntegration(RecordingCoordinator& coordinator, SettingsStore& settings,
                       QObject* parent = nullptr);
    ~DesktopIntegration() override;

    /// Takes "org.tamvex.Tamvex" on the session bus, then starts the hotkeys.
    void start();

    KeyboardShortcuts::ShortcutRegistry& shortcuts() { return m_shortcuts; }
    KeyInput& keyInput() { return *m_keyInput; }
    HotkeyManager& hotkeys() { return *m_hotkeys; }
    ControlService& control() { return *m_control; }

private:
    KeyboardShortcuts::ShortcutRegistry& m_shortcuts;
    std::unique_ptr<KeyInput> m_keyInput;
    std::unique_ptr<HotkeyManager> m_hotkeys;
    std::unique_ptr<ControlService> m_control;
    bool m_cardShown = false;
};

} // namespace tamvex
