#include "core/AppDelegate.h"

#include "account/AccountStore.h"
#include "account/AnalyticsService.h"
#include "account/Network.h"
#include "core/AppState.h"
#include "core/LaunchRules.h"
#include "core/Nudges.h"
#include "core/RecordingCoordinator.h"
#include "desktop/AudioInputFile.h"
#include "desktop/AudioInputMicrophone.h"
#include "desktop/ControlService.h"
#include "desktop/DesktopIntegration.h"
#include "desktop/KeyInput.h"
#include "desktop/TextInjector.h"
#include "desktop/X11Session.h"
#include "pipelines/BackendSelector.h"
#include "pipelines/ServiceHosts.h"
#include "platform/Clock.h"
#include "platform/Defaults.h"
#include "platform/InputAccess.h"
#include "platform/Log.h"
#include "platform/LoginItem.h"
#include "platform/MicrophoneAccess.h"
#include "platform/Paths.h"
#include "platform/Sounds.h"
#include "shell/MenuBarController.h"
#include "shell/Migration.h"
#include "shell/QuitController.h"
#include "shell/SettingsStore.h"
#include "shell/ShellWindows.h"
#include "shell/UpdateController.h"
#include "shell/hud/RecordingHUDController.h"

#include <QApplication>
#include <QDesktopServices>
#include <QQuickWindow>

namespace tamvex {

AppDelegate::AppDelegate(QString audioInputFile, QObject* parent)
    : QObject(parent), m_audioInputFile(std::move(audioInputFile)) {
    const Paths paths = Paths::standard();
    m_clock = std::make_unique<WallClock>();
    m_defaults = std::make_unique<Defaults>(paths.settingsFile());
    m_sounds = std::make_unique<ResourceSounds>();
    m_loginItem = std::make_unique<AutostartLoginItem>(paths.autostartEntry(), QCoreApplication::applicationFilePath());
    if (!qEnvironmentVariableIsEmpty("DISPLAY"))
        m_frontmost = std::make_unique<X11FrontmostApp>();
    Clock& clock = *m_clock;
    AudioRecorder::InputFactory input;
    if (m_audioInputFile.isEmpty())
        input = [] { return std::make_unique<MicrophoneInput>(); };
    else
        input = [&clock, file = m_audioInputFile] { return std::make_unique<FileAudioInput>(clock, file, 1.0); };
    m_appState = std::make_unique<AppState>(
        AppEnvironment{*m_clock, *m_defaults, paths, *m_sounds, *m_loginItem, std::move(input), m_frontmost.get()});
    m_backendSelector =
        std::make_unique<BackendSelector>(*m_defaults, *m_clock, sharedNetworkManager(), ServiceHosts::configured());
    BackendSelector::setShared(m_backendSelector.get());
}

AppDelegate::~AppDelegate() {
    // The process-wide services must not outlive what they point at.
    AnalyticsService::shared().unconfigure();
    BackendSelector::setShared(nullptr);
}

void AppDelegate::applicationDidFinishLaunching() {
    logInfo("App launched");
    {
        // An earlier installation's export is offered first; the launch waits for its dialogs.
        MessageBoxMigrationAlerts alerts;
        Migration(*m_appState, alerts).offerMigration();
    }
    // After the migration, which may bring the settings this reads; anything reported
    // before this is kept and sent now.
    AnalyticsService::shared().configure(*m_defaults, sharedNetworkManager(), *m_clock,
                                         ServiceHosts::configured().main);
    AnalyticsService::shared().setAccount(&m_appState->account());
    const AppVersion version = AppVersion::current();
    AnalyticsService::track(QStringLiteral("app_launched"),
                            launch::appLaunchedProperties(version, m_appState->account().isLoggedIn(),
                                                          m_appState->settings().onboardingCompleted()));
    if (const auto update = launch::seenVersionUpdate(*m_defaults, version))
        AnalyticsService::track(QStringLiteral("app_updated"), *update);

    if (!m_audioInputFile.isEmpty())
        logInfo("Audio input: " + m_audioInputFile + " instead of the microphone");
    // The paste asks the same X11 connection which window is in front as the dictation's books do.
    m_coordinator = std::make_unique<RecordingCoordinator>(*m_appState,
                                                           TextInjector::createForSession(*m_clock, m_frontmost.get()));
    m_appState->setRetryTranscriptionHook([coordinator = QPointer(m_coordinator.get())](QUuid id) {
        return coordinator ? coordinator->retryTranscription(id) : []() -> QCoro::Task<void> { co_return; }();
    });

    m_microphoneAccess = std::make_unique<SystemMicrophoneAccess>();
    ShellWindows::Config windows;
    windows.toggleRecording = [this] { m_coordinator->toggleRecording(); };
    windows.openUrl = [](const QUrl& url) { return QDesktopServices::openUrl(url); };
    windows.yandexHost = ServiceHosts::configured().yandexOAuth;
    windows.topUpUrl = ServiceHosts::join(ServiceHosts::configured().main, QStringLiteral("/topup"));
    m_windows = std::make_unique<ShellWindows>(*m_appState, std::move(windows), *m_microphoneAccess,
                                               m_coordinator->injector()->inputAccess());
    const launch::DockRule dock{[this] { m_windows->openMainWindow(); },
                                [this] {
                                    if (QQuickWindow* main = m_windows->mainWindow().window())
                                        main->hide();
                                }};

    MenuBarController::Actions actions;
    actions.toggleRecording = [this] { m_coordinator->toggleRecording(); };
    actions.openMain = [this] { m_windows->openMainWindow(); };
    actions.openWelcome = [this] { m_windows->openWelcomeAction(); };
    actions.checkForUpdates = [this] { m_updates->checkForUpdates(); };
    actions.terminate = [this] { requestQuit(); };
    m_menuBar = std::make_unique<MenuBarController>(*m_appState, std::move(actions));
    m_quit = std::make_unique<QuitController>(
        m_appState->settings(), QuitController::runDialog,
        [this, dock] {
            dock.closeMainWindow();
            m_windows->welcomeWindow().close();
        },
        [] { QCoreApplication::quit(); });
    qApp->installEventFilter(new QuitShortcut([this] { requestQuit(); }, this));
    // Logging out must not wait on a question: the session ends the process at once.
    connect(qApp, &QGuiApplication::commitDataRequest, this, [] { QCoreApplication::quit(); });

    m_desktop = std::make_unique<DesktopIntegration>(*m_coordinator, m_appState->settings());
    m_desktop->start();
    connect(&m_desktop->control(), &ControlService::activated, m_windows.get(), &ShellWindows::handleActivation);

    m_hud = std::make_unique<RecordingHUDController>(*m_appState,
                                                     &m_coordinator->levelReader(),
                                                     [this] { m_menuBar->popUpPointerMenu(); });
    m_hud->show();
    // A hotkey that cannot work here (FN unheard, keys heard in X11 windows only) is said on
    // the HUD by the desktop integration, once its key source is decided.

    // Updates: the feed is asked a minute after launch, then daily.
    m_updatePrompter = std::make_unique<MessageBoxUpdatePrompter>();
    m_updates = std::make_unique<UpdateController>(*m_clock, *m_defaults, sharedNetworkManager(), *m_updatePrompter);
    m_updates->start();

    m_tips = std::make_unique<HotkeyTips>(*m_appState);
    m_tips->listenTo(*m_coordinator);
    m_idleNudges = std::make_unique<IdleNudgeManager>(*m_appState);
    m_idleNudges->start();

    SettingsStore& settings = m_appState->settings();
    dock.apply(settings.showInDock(), false);
    settings.syncLaunchAtLogin();
    QMetaObject::invokeMethod(this, [this] { m_backendSelector->startRefresh(); }, Qt::QueuedConnection);
    launch::observeSetting(settings, [&settings] { return settings.showInDock(); }, this,
                           [dock](bool show) { dock.apply(show, show); });
    launch::observeSetting(settings, [&settings] { return settings.onboardingCompleted(); }, this,
                           [this](bool completed) {
                               if (completed)
                                   m_windows->openMainWindow();
                           });
    m_windows->showWelcomeIfNeeded();
}

void AppDelegate::requestQuit() {
    if (applicationShouldTerminate())
        QCoreApplication::quit();
}

bool AppDelegate::applicationShouldTerminate() {
    return m_quit->applicationShouldTerminate();
}

} // namespace tamvex
