#pragma once

#include "shell/settings/PermissionRow.h"

#include <QObject>

#include <memory>

class QQmlEngine;
class QQuickWindow;

namespace tamvex {

class Clock;
class InputAccess;

/// Answers InputAccess::promptRequested: a window that says why the paste needs input
/// access and shows the commands that grant it, with a copy button and the live check. It
/// opens at most once per launch, however often a paste fails.
class InputAccessPrompt : public QObject {
    Q_OBJECT
public:
    static constexpr int width = 600, height = 480;

    InputAccessPrompt(Clock& clock, InputAccess& input, QObject* parent = nullptr);
    ~InputAccessPrompt() override;

    /// Opens the window, unless it was opened before in this launch.
    void show();
    /// The window, null until shown.
    QQuickWindow* window() const { return m_window.get(); }
    /// How many times the window was opened (0 or 1).
    int timesShown() const { return m_timesShown; }
    PermissionRow* row() { return &m_row; }

private:
    PermissionRow m_row;
    std::unique_ptr<QQmlEngine> m_engine;
    std::unique_ptr<QQuickWindow> m_window;
    int m_timesShown = 0;
};

} // namespace tamvex
