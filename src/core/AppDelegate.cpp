#include "core/AppDelegate.h"

#include "account/AnalyticsService.h"
#include "account/Network.h"
#include "core/AppState.h"
#include "core/RecordingCoordinator.h"
#include "desktop/AudioInputFile.h"
#include "desktop/AudioInputMicrophone.h"
#include "desktop/DesktopIntegration.h"
#include "desktop/TextInjector.h"
#include "desktop/X11Session.h"
#include "pipelines/BackendSelector.h"
#include "pipelines/ServiceHosts.h"
#include "platform/Clock.h"
#include "platform/Defaults.h"
#include "platform/Log.h"
#include "platform/LoginItem.h"
#include "platform/Paths.h"
#include "platform/Sounds.h"
#include "shell/SettingsStore.h"

#include <QApplication>
#include <QIcon>
#include <QMenu>
#include <QSystemTrayIcon>

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
    AnalyticsService::shared().configure(*m_defaults, sharedNetworkManager(), *m_clock,
                                         ServiceHosts::configured().main);
    AnalyticsService::shared().setAccount(&m_appState->account());
    if (!m_audioInputFile.isEmpty())
        logInfo("Audio input: " + m_audioInputFile + " instead of the microphone");
    m_coordinator = std::make_unique<RecordingCoordinator>(*m_appState, TextInjector::createForSession(*m_clock));
    m_appState->setRetryTranscriptionHook([this](QUuid id) { return m_coordinator->retryTranscription(id); });
    buildTray();
    m_desktop = std::make_unique<DesktopIntegration>(*m_coordinator, m_appState->settings(), *m_defaults);
    m_desktop->start();
    m_appState->settings().syncLaunchAtLogin();
    m_backendSelector->startRefresh();
}

void AppDelegate::buildTray() {
    if (!QSystemTrayIcon::isSystemTrayAvailable()) {
        logInfo("No system tray in this session: use the hotkey or `tamvex ctl`");
        return;
    }
    m_trayMenu = std::make_unique<QMenu>();
    QAction* record = m_trayMenu->addAction(QStringLiteral("Начать запись"));
    connect(record, &QAction::triggered, this, [this] { m_coordinator->toggleRecording(); });
    m_trayMenu->addSeparator();
    QAction* quit = m_trayMenu->addAction(QStringLiteral("Выйти"));
    connect(quit, &QAction::triggered, qApp, &QCoreApplication::quit);
    m_tray = std::make_unique<QSystemTrayIcon>(QIcon::fromTheme("audio-input-microphone"));
    m_tray->setContextMenu(m_trayMenu.get());
    connect(m_appState.get(), &AppState::recordingStateChanged, this, &AppDelegate::updateTray);
    updateTray();
    m_tray->show();
}

void AppDelegate::updateTray() {
    if (!m_tray)
        return;
    const RecordingState state = m_appState->recordingState();
    QAction* record = m_trayMenu->actions().value(0);
    record->setText(state.is(RecordingState::Case::recording) ? QStringLiteral("Остановить запись")
                                                              : QStringLiteral("Начать запись"));
    record->setEnabled(state.is(RecordingState::Case::idle) || state.is(RecordingState::Case::recording));
    m_tray->setToolTip(state.isError() ? state.message() : QStringLiteral("Tamvex"));
}

} // namespace tamvex
