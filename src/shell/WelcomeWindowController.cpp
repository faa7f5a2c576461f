#include "shell/WelcomeWindowController.h"

#include "KeyboardShortcuts/Recorder.h"
#include "core/AppState.h"
#include "shell/MainWindowController.h"
#include "shell/main/LoginForms.h"
#include "shell/welcome/OnboardingRoad.h"
#include "shell/welcome/PermissionsCheck.h"

#include <QQmlEngine>
#include <QQuickWindow>

namespace tamvex {

WelcomeWindowController::WelcomeWindowController(AppState& state, LoginForms& loginForms,
                                                 const MicrophoneAccess& microphone, InputAccess& input,
                                                 ModelDownloader& models, std::function<void()> onFinished,
                                                 QObject* parent)
    : QObject(parent), m_state(&state), m_loginForms(loginForms), m_microphone(microphone), m_input(input),
      m_models(models), m_onFinished(std::move(onFinished)) {}

WelcomeWindowController::~WelcomeWindowController() {
    m_window.reset();
    m_road.reset();
    m_recorder.reset();
    m_permissions.reset();
    m_flow.reset();
}

void WelcomeWindowController::show() {
    if (m_window) {
        bringToFront(*m_window);
        return;
    }
    if (!m_state)
        return;
    if (!m_engine)
        m_engine = std::make_unique<QQmlEngine>();
    m_flow = std::make_unique<WelcomeFlow>(m_state->settings(), 0, QString(), WelcomeFlow::defaultTotalSteps);
    m_permissions = std::make_unique<PermissionsCheck>(m_state->clock(), m_microphone, m_input);
    m_recorder = std::make_unique<KeyboardShortcuts::Recorder>(m_state->shortcuts(),
                                                               KeyboardShortcuts::sorvelRecordAlternative);
    m_road = std::make_unique<OnboardingRoad>(*m_state, m_models, *m_flow, *m_recorder);
    QPointer<WelcomeWindowController> self(this);
    connect(m_flow.get(), &WelcomeFlow::finished, this, [self] {
        if (!self)
            return;
        self->close();
        if (self->m_onFinished)
            self->m_onFinished();
    });
    m_window =
        createModuleWindow(*m_engine, QStringLiteral("Welcome/WelcomeWindow.qml"),
                           {{QStringLiteral("flow"), QVariant::fromValue(m_flow.get())},
                            {QStringLiteral("permissions"), QVariant::fromValue(m_permissions.get())},
                            {QStringLiteral("loginForms"), QVariant::fromValue(&m_loginForms)},
                            {QStringLiteral("recorder"), QVariant::fromValue(m_recorder.get())},
                            {QStringLiteral("road"), QVariant::fromValue(m_road.get())},
                            {QStringLiteral("appState"), QVariant::fromValue(static_cast<QObject*>(m_state.data()))}});
    if (!m_window)
        return;
    m_window->setTitle(QStringLiteral("Welcome to Tamvex"));
    // Titled and closable only: it can be neither resized nor minimised.
    m_window->setFlags(Qt::Window | Qt::WindowTitleHint | Qt::WindowCloseButtonHint);
    m_window->setMinimumSize(QSize(width, height));
    m_window->setMaximumSize(QSize(width, height));
    showCentred(*m_window, QSize(width, height));
}

void WelcomeWindowController::close() {
    if (m_window)
        m_window->close();
}

} // namespace tamvex
