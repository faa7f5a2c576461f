#pragma once

#include "shell/main/MainWindowModel.h"

#include <QObject>
#include <QPointer>
#include <QSize>

#include <memory>

class QQmlEngine;
class QQuickWindow;

namespace tamvex {

class AppState;

/// Owns the main window: made on first show, kept for the whole run, and brought back with
/// its size and state after the user closes it (closing only hides it).
class MainWindowController : public QObject {
    Q_OBJECT
public:
    static constexpr int width = 1240, height = 820;
    static constexpr int minimumWidth = 1100, minimumHeight = 700;

    /// A controller over `state` (held weakly) with the model's `hooks`.
    MainWindowController(AppState& state, MainWindowModel::Hooks hooks, QObject* parent = nullptr);
    ~MainWindowController() override;

    /// Builds the window on first use, then shows it and brings it to the front. Does nothing
    /// once the state is gone or when the window cannot be built (logged).
    void show();
    /// The window, null before the first show.
    QQuickWindow* window() const { return m_window.get(); }
    /// The model behind the window, null before the first show.
    MainWindowModel* model() const { return m_model.get(); }

private:
    QPointer<AppState> m_state;
    MainWindowModel::Hooks m_hooks;
    std::unique_ptr<QQmlEngine> m_engine;
    std::unique_ptr<MainWindowModel> m_model;
    std::unique_ptr<QQuickWindow> m_window;
};

/// Makes a QML window of the module from `file` with `properties`; null with the errors logged.
std::unique_ptr<QQuickWindow> createModuleWindow(QQmlEngine& engine, const QString& file,
                                                 const QVariantMap& properties);
/// Shows, raises and activates `window`.
void bringToFront(QQuickWindow& window);
/// Gives a new window its `size`, centres it on the primary screen and brings it to the front.
void showCentred(QQuickWindow& window, QSize size);

} // namespace tamvex
