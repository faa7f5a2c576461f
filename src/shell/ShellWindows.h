#pragma once

#include "account/OAuthCallbacks.h"
#include "shell/InputAccessPrompt.h"
#include "shell/MainWindowController.h"
#include "shell/WelcomeWindowController.h"
#include "shell/main/LoginForms.h"

#include <QObject>
#include <QStringList>
#include <QUrl>

#include <functional>
#include <memory>

namespace tamvex {

class AppState;
class InputAccess;
class MicrophoneAccess;
class ModelDownloader;
class ModelSelfTest;

/// The two windows and what opens them, for AppDelegate to make once at launch:
/// the six open actions, the reopen rule, the sign-in return, and the welcome window at
/// first start that hands over to the main window when onboarding completes, and the
/// explanation of input access when a paste asks for it.
class ShellWindows : public QObject {
    Q_OBJECT
public:
    /// Where the windows reach beyond AppState.
    struct Config {
        std::function<void()> toggleRecording; ///< the coordinator's toggle
        InlineLoginForm::UrlOpener openUrl;    ///< QDesktopServices::openUrl unless a test says otherwise
        QUrl yandexHost;                       ///< ServiceHosts::configured().yandexOAuth
        QUrl topUpUrl;                         ///< the service's top-up page
        QString telegramContact;               ///< empty: ServiceHosts::telegramContact()
        ModelDownloader* models = nullptr;     ///< null: ModelDownloader::shared()
        /// Measures the models' speed; null with null `models`: ModelSelfTest::shared().
        ModelSelfTest* selfTest = nullptr;
    };

    ShellWindows(AppState& state, Config config, const MicrophoneAccess& microphone, InputAccess& input,
                 QObject* parent = nullptr);
    ~ShellWindows() override;

    /// Shows the welcome window when onboarding is not done; call once at the end of launch.
    void showWelcomeIfNeeded();

    void openHomeAction();
    void openInsightsAction();
    void openAccountAction();
    void openSettingsAction();
    void openWelcomeAction();
    /// The tray's "Открыть…" and the reopen rule.
    void openMainWindow();

    MainWindowController& mainWindow() { return *m_main; }
    WelcomeWindowController& welcomeWindow() { return *m_welcome; }
    OAuthCallbacks& oauthCallbacks() { return m_callbacks; }
    InputAccessPrompt& inputAccessPrompt() { return m_inputPrompt; }

public slots:
    /// A second start handed over its arguments (connect ControlService::activated here):
    /// tamvex:// links go to the sign-in forms; a start without a link shows the main window
    /// when no window of ours is visible.
    void handleActivation(const QStringList& arguments, const QStringList& urls);

public:
    /// True when a window of ours (not the HUD, the tray icon or a menu) is on screen.
    bool hasVisibleWindows() const;

private:
    void open(int section);

    AppState& m_state;
    OAuthCallbacks m_callbacks;
    LoginForms m_forms;
    InputAccessPrompt m_inputPrompt;
    std::unique_ptr<MainWindowController> m_main;
    std::unique_ptr<WelcomeWindowController> m_welcome;
};

} // namespace tamvex
