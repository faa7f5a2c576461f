#pragma once

#include <QObject>

#include <functional>

class QKeyEvent;

namespace tamvex {

class SettingsStore;

/// The quit rule: a tray program stays useful with no window open, so quitting asks first,
/// minimises, or quits, as the user chose in `cmdQBehavior`.
class QuitController {
public:
    /// The dialog's buttons with their response numbers.
    enum class Answer { minimize = 1000, quit = 1001, cancel = 1002 };
    struct DialogResult {
        Answer answer = Answer::cancel;
        bool dontAskAgain = false; ///< "Не спрашивать в следующий раз"
    };

    /// `ask` runs the dialog; `closeWindows` closes the main and welcome windows;
    /// `terminate` ends the process (the dialog's "Выйти").
    QuitController(SettingsStore& settings, std::function<DialogResult()> ask, std::function<void()> closeWindows,
                   std::function<void()> terminate);

    /// True when the process may end now; otherwise the request is cancelled.
    bool applicationShouldTerminate();
    /// Closes the windows and takes the program out of the task bar.
    void minimize();

    /// The real dialog: a modal message box with the three buttons and the check box.
    static DialogResult runDialog();

private:
    SettingsStore& m_settings;
    std::function<DialogResult()> m_ask;
    std::function<void()> m_closeWindows;
    std::function<void()> m_terminate;
};

/// Ctrl+Q in any window of the program is the menus' "Выйти". The key is matched by its
/// position as well, so that it works with a Cyrillic layout active (Ctrl+Й).
class QuitShortcut : public QObject {
    Q_OBJECT
public:
    /// Filters the application's key presses once installed on it.
    explicit QuitShortcut(std::function<void()> onQuit, QObject* parent = nullptr);
    /// True for Ctrl+Q, whatever layout is active.
    static bool isQuitKey(const QKeyEvent& event);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    std::function<void()> m_onQuit;
};

} // namespace tamvex
