#pragma once

#include <QObject>
#include <QString>

#include <memory>

namespace tamvex {

class AppState;
class BackendSelector;
class DesktopIntegration;
class Clock;
class Defaults;
class FrontmostApp;
class HotkeyTips;
class IdleNudgeManager;
class LoginItem;
class MenuBarController;
class MessageBoxUpdatePrompter;
class SystemMicrophoneAccess;
class ShellWindows;
class UpdateController;
class QuitController;
class RecordingHUDController;
class RecordingCoordinator;
class ResourceSounds;

/// Builds the running application once, in order, and owns it until the process ends.
class AppDelegate : public QObject {
    Q_OBJECT
public:
    /// `audioInputFile` replaces the microphone when it is not empty.
    explicit AppDelegate(QString audioInputFile = {}, QObject* parent = nullptr);
    ~AppDelegate() override;

    /// The launch sequence.
    void applicationDidFinishLaunching();

    AppState& appState() { return *m_appState; }
    RecordingCoordinator& coordinator() { return *m_coordinator; }

    /// The platform's quit request (a menu's "Выйти", Ctrl+Q): true to end the process now.
    bool applicationShouldTerminate();

    RecordingHUDController& hud() { return *m_hud; }
    MenuBarController& menuBar() { return *m_menuBar; }

    /// The menus' "Выйти" and Ctrl+Q: ends the process when the quit rule says so.
    void requestQuit();

    ShellWindows& windows() { return *m_windows; }

private:

    QString m_audioInputFile;
    std::unique_ptr<Clock> m_clock;
    std::unique_ptr<Defaults> m_defaults;
    std::unique_ptr<ResourceSounds> m_sounds;
    std::unique_ptr<LoginItem> m_loginItem;
    std::unique_ptr<FrontmostApp> m_frontmost;
    std::unique_ptr<AppState> m_appState;
    std::unique_ptr<BackendSelector> m_backendSelector;
    std::unique_ptr<RecordingCoordinator> m_coordinator;
    std::unique_ptr<DesktopIntegration> m_desktop;
    std::unique_ptr<MenuBarController> m_menuBar;
    std::unique_ptr<RecordingHUDController> m_hud;
    std::unique_ptr<QuitController> m_quit;
    std::unique_ptr<HotkeyTips> m_tips;
    std::unique_ptr<IdleNudgeManager> m_idleNudges;
    std::unique_ptr<SystemMicrophoneAccess> m_microphoneAccess;
    std::unique_ptr<ShellWindows> m_windows;
    std::unique_ptr<MessageBoxUpdatePrompter> m_updatePrompter;
    std::unique_ptr<UpdateController> m_updates;
};

} // namespace tamvex
