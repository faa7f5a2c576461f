#pragma once

#include "core/RecordingState.h"

#include <QIcon>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>

class QMenu;
class QSystemTrayIcon;

namespace tamvex {

class AppState;

/// The tray icon that shows the dictation's state, its short status menu, and the longer
/// menu that opens at the pointer from the HUD's handle.
class MenuBarController : public QObject {
    Q_OBJECT
public:
    /// What the menus do; each may be empty in tests.
    struct Actions {
        std::function<void()> toggleRecording;
        std::function<void()> openMain;
        std::function<void()> openWelcome;
        std::function<void()> checkForUpdates;
        std::function<void()> terminate; ///< goes through the quit rule, never straight out
    };

    /// Builds the status menu; the tray icon appears only where a tray exists, and the log
    /// says once that the handle's menu is the way in otherwise.
    MenuBarController(AppState& appState, Actions actions, QObject* parent = nullptr);
    ~MenuBarController() override;

    /// The status menu, built once.
    QMenu& statusMenu() { return *m_statusMenu; }
    /// The tray icon, null where there is no tray.
    QSystemTrayIcon* trayIcon() const { return m_tray.get(); }

    /// A new pointer menu with the current spent and request count.
    std::unique_ptr<QMenu> buildPointerMenu();
    /// Builds the pointer menu anew and opens it at the mouse.
    void popUpPointerMenu();

    /// The symbol drawn for a state: "TrayIcon" for idle when our resources have it.
    static QString iconSymbol(RecordingState::Case state, bool trayIconExists);
    /// The tray's icon for a state: the paw in its colour; processing and error light with a
    /// dark halo, readable on a light panel and a dark one.
    static QIcon stateIcon(RecordingState::Case state, bool trayIconExists);
    /// The pointer menu's first line, "Sorvel · <spent> · <n> req".
    static QString usageLine(double totalSpentUSD, qint64 totalRequests);

private:
    void updateIcon();

    AppState& m_appState;
    Actions m_actions;
    std::unique_ptr<QMenu> m_statusMenu;
    std::unique_ptr<QMenu> m_pointerMenu;
    std::unique_ptr<QSystemTrayIcon> m_tray;
};

} // namespace tamvex
