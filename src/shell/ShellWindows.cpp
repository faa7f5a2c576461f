#include "shell/ShellWindows.h"

#include "core/AppState.h"
#include "pipelines/local/ModelDownloader.h"
#include "pipelines/local/ModelSelfTest.h"
#include "pipelines/ServiceHosts.h"
#include "platform/Log.h"
#include "shell/SettingsStore.h"

#include <QDesktopServices>
#include <QGuiApplication>
#include <QQuickWindow>
#include <QWindow>

#include <algorithm>

namespace tamvex {

namespace {
InlineLoginForm::UrlOpener openerOrDesktop(InlineLoginForm::UrlOpener opener) {
    if (opener)
        return opener;
    return [](const QUrl& url) { return QDesktopServices::openUrl(url); };
}
} // namespace

ShellWindows::ShellWindows(AppState& state, Config config, const MicrophoneAccess& microphone, InputAccess& input,
                           QObject* parent)
    : QObject(parent), m_state(state),
      m_forms(state, config.yandexHost, openerOrDesktop(config.openUrl), &m_callbacks),
      m_inputPrompt(state.clock(), input) {
    MainWindowModel::Hooks hooks;
    hooks.toggleRecording = config.toggleRecording;
    hooks.showWindow = [this] { openMainWindow(); };
    hooks.openUrl = openerOrDesktop(config.openUrl);
    hooks.loginForms = &m_forms;
    hooks.topUpUrl = config.topUpUrl;
    hooks.telegramContact =
        config.telegramContact.isEmpty() ? ServiceHosts::telegramContact() : config.telegramContact;
    hooks.microphone = &microphone;
    hooks.input = &input;
    // The application's one downloader, which the local engine also looks at.
    hooks.models = config.models ? config.models : &ModelDownloader::shared();
    hooks.selfTest = config.selfTest || config.models ? config.selfTest : &ModelSelfTest::shared();
    ModelDownloader& models = *hooks.models;
    m_main = std::make_unique<MainWindowController>(state, std::move(hooks));
    m_welcome = std::make_unique<WelcomeWindowController>(state, m_forms, microphone, input, models,
                                                          [this] { openMainWindow(); });
}

ShellWindows::~ShellWindows() = default;

void ShellWindows::showWelcomeIfNeeded() {
    if (m_state.settings().onboardingCompleted())
        return; // the program comes up in the tray alone
    logInfo("Showing welcome window (first run)");
    m_welcome->show();
}

void ShellWindows::open(int section) {
    m_state.setMainSection(MainSection(section));
    m_main->show();
}

void ShellWindows::openHomeAction() {
    open(int(MainSection::home));
}
void ShellWindows::openInsightsAction() {
    open(int(MainSection::insights));
}
void ShellWindows::openAccountAction() {
    open(int(MainSection::account));
}
void ShellWindows::openSettingsAction() {
    open(int(MainSection::settings));
}
void ShellWindows::openWelcomeAction() {
    m_welcome->show();
}
void ShellWindows::openMainWindow() {
    m_main->show();
}

bool ShellWindows::hasVisibleWindows() const {
    const auto visible = [](const QWindow* window) { return window && window->isVisible(); };
    if (visible(m_main->window()) || visible(m_welcome->window()))
        return true;
    // A dialog of ours (the quit question, an update offer). The HUD, the tray icon and the menus
    // float over everything and don't count.
    const QWindowList windows = QGuiApplication::topLevelWindows();
    return std::any_of(windows.cbegin(), windows.cend(),
                       [&](const QWindow* window) { return window->type() == Qt::Dialog && visible(window); });
}

void ShellWindows::handleActivation(const QStringList& arguments, const QStringList& urls) {
    if (!urls.isEmpty()) {
        m_callbacks.deliver(arguments, urls);
        return;
    }
    // Starting tamvex again while it runs shows the main window, unless one of ours is on screen.
    if (!hasVisibleWindows())
        openMainWindow();
}

} // namespace tamvex
