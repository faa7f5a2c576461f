#include "shell/ShellWindows.h"

#include "core/AppState.h"
#include "pipelines/ModelDownloader.h"
#include "pipelines/ServiceHosts.h"
#include "platform/Log.h"
#include "shell/SettingsStore.h"

#include <QDesktopServices>

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

void ShellWindows::handleActivation(const QStringList& arguments, const QStringList& urls) {
    if (urls.isEmpty()) {
        openMainWindow(); // starting tamvex again while it runs shows the window
        return;
    }
    m_callbacks.deliver(arguments, urls);
}

} // namespace tamvex
