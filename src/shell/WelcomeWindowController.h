#pragma once

#include "shell/welcome/WelcomeFlow.h"

#include <QObject>
#include <QPointer>

#include <functional>
#include <memory>

class QQmlEngine;
class QQuickWindow;

namespace tamvex {

class AppState;
class InputAccess;
class LoginForms;
class MicrophoneAccess;
class ModelDownloader;
class OnboardingRoad;
class PermissionsCheck;
namespace KeyboardShortcuts {
class Recorder;
}

/// Owns the onboarding window: made on first use and kept, fixed in size, closing only
/// hides it. When the last step is done it closes and calls `onFinished`.
class WelcomeWindowController : public QObject {
    Q_OBJECT
public:
    static constexpr int width = 620, height = 540;

    /// `loginForms` gives the login step its form; the accesses feed the permissions step;
    /// `models` fetches the local model when the last step offers it.
    WelcomeWindowController(AppState& state, LoginForms& loginForms, const MicrophoneAccess& microphone,
                            InputAccess& input, ModelDownloader& models, std::function<void()> onFinished,
                            QObject* parent = nullptr);
    ~WelcomeWindowController() override;

    /// Builds the window on first use, then shows it and brings it to the front.
    void show();
    /// Hides the window (onboarding done).
    void close();
    QQuickWindow* window() const { return m_window.get(); }
    WelcomeFlow* flow() const { return m_flow.get(); }
    PermissionsCheck* permissions() const { return m_permissions.get(); }
    OnboardingRoad* road() const { return m_road.get(); }

private:
    QPointer<AppState> m_state;
    LoginForms& m_loginForms;
    const MicrophoneAccess& m_microphone;
    InputAccess& m_input;
    ModelDownloader& m_models;
    std::function<void()> m_onFinished;
    std::unique_ptr<QQmlEngine> m_engine;
    std::unique_ptr<WelcomeFlow> m_flow;
    std::unique_ptr<PermissionsCheck> m_permissions;
    std::unique_ptr<KeyboardShortcuts::Recorder> m_recorder;
    std::unique_ptr<OnboardingRoad> m_road;
    std::unique_ptr<QQuickWindow> m_window;
};

} // namespace tamvex
