#include "shell/hud/RecordingHUDController.h"

#include "core/AppState.h"
#include "core/LevelReader.h"
#include "history/HistoryStore.h"
#include "platform/Log.h"
#include "shell/QmlModule.h"
#include "shell/hud/FloatingWindowHints.h"
#include "shell/hud/HudMath.h"

#include <QGuiApplication>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QScreen>

namespace tamvex {

RecordingHUDController::RecordingHUDController(AppState& appState, LevelReader* levelReader,
                                               std::function<void()> onMenuTap, QObject* parent)
    : QObject(parent), m_appState(appState), m_levelReader(levelReader), m_onMenuTap(std::move(onMenuTap)) {
    connect(&appState, &AppState::recordingStateChanged, this, [this] {
        emit stateChanged();
        position();
    });
    connect(&appState, &AppState::slowProcessingChanged, this, &RecordingHUDController::slowProcessingChanged);
    connect(&appState, &AppState::pendingNudgeChanged, this, [this] {
        emit nudgeChanged();
        position();
    });
    connect(&appState.history(), &HistoryStore::changed, this, &RecordingHUDController::refreshWordCount);
    if (levelReader)
        connect(levelReader, &LevelReader::levelChanged, this, &RecordingHUDController::setLevel);
    connect(qGuiApp, &QGuiApplication::primaryScreenChanged, this, [this] {
        followPrimaryScreen();
        position();
    });
    followPrimaryScreen();
    refreshWordCount();
}

RecordingHUDController::~RecordingHUDController() {
    // The window's bindings read this object: it goes first.
    m_window.reset();
}

void RecordingHUDController::show() {
    if (m_window)
        return;
    m_engine = std::make_unique<QQmlEngine>();
    setUpQmlEngine(*m_engine);
    QQmlComponent component(m_engine.get(), qmlModuleUrl(QStringLiteral("Hud/HudWindow.qml")));
    std::unique_ptr<QObject> object(
        component.createWithInitialProperties({{QStringLiteral("controller"), QVariant::fromValue(this)}}));
    auto* window = qobject_cast<QQuickWindow*>(object.get());
    if (!window) {
        logError("HUD could not be built: " + component.errorString());
        return;
    }
    object.release();
    m_window.reset(window);
    connect(window, &QWindow::widthChanged, this, &RecordingHUDController::position);
    connect(window, &QWindow::heightChanged, this, &RecordingHUDController::position);
    // The window manager reads these before the first map.
    if (!leaveUnmanaged(*window)) {
        window->create();
        applyFloatingWindowHints(*window);
    }
    position();
    window->show();
}

QQuickWindow* RecordingHUDController::window() const {
    return m_window.get();
}

void RecordingHUDController::position() {
    if (!m_window || !m_screen)
        return;
    const QPoint topLeft = hud::panelPosition(m_screen->availableGeometry(), m_window->size(), hasNudge());
    if (m_window->screen() != m_screen)
        m_window->setScreen(m_screen);
    m_window->setPosition(topLeft);
}

void RecordingHUDController::followPrimaryScreen() {
    for (const auto& c : m_screenConnections)
        disconnect(c);
    m_screenConnections.clear();
    m_screen = QGuiApplication::primaryScreen();
    if (!m_screen)
        return;
    m_screenConnections << connect(m_screen, &QScreen::availableGeometryChanged, this, &RecordingHUDController::position)
                        << connect(m_screen, &QScreen::geometryChanged, this, &RecordingHUDController::position);
}

QString RecordingHUDController::stateKind() const {
    return m_appState.recordingState().name();
}

QString RecordingHUDController::errorMessage() const {
    return m_appState.recordingState().message();
}

bool RecordingHUDController::slowProcessing() const {
    return m_appState.slowProcessing();
}

bool RecordingHUDController::hasNudge() const {
    return m_appState.pendingNudge().has_value();
}

QString RecordingHUDController::nudgeIcon() const {
    return m_appState.pendingNudge().value_or(NudgeContent{}).icon;
}

QString RecordingHUDController::nudgeTitle() const {
    return m_appState.pendingNudge().value_or(NudgeContent{}).title;
}

QString RecordingHUDController::nudgeBody() const {
    return m_appState.pendingNudge().value_or(NudgeContent{}).body;
}

QString RecordingHUDController::nudgeHotkey() const {
    return m_appState.pendingNudge().value_or(NudgeContent{}).hotkey;
}

void RecordingHUDController::menuTap() {
    if (m_onMenuTap)
        m_onMenuTap();
}

void RecordingHUDController::setLevel(float level) {
    // No smoothing here: each whisker's own 0.1 s animation smooths the meter.
    if (level == m_level)
        return;
    m_level = level;
    emit levelChanged();
}

void RecordingHUDController::refreshWordCount() {
    const int words = static_cast<int>(m_appState.history().wordsLastWeek());
    if (words == m_wordsLastWeek)
        return;
    m_wordsLastWeek = words;
    emit wordsLastWeekChanged();
}

} // namespace tamvex
