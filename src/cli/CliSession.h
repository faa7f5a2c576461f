#pragma once

#include "platform/Clock.h"
#include "platform/Defaults.h"
#include "platform/LoginItem.h"
#include "platform/Sounds.h"

#include <QEventLoop>

#include <qcoro/qcorotask.h>

#include <exception>
#include <memory>
#include <optional>
#include <type_traits>

namespace tamvex {

class AppState;

/// The application's state over the user's own folders and settings, for a command that
/// runs the dictation road without the desktop: no sounds, no microphone, no paste.
class CliSession {
public:
    CliSession();
    ~CliSession();
    CliSession(const CliSession&) = delete;
    CliSession& operator=(const CliSession&) = delete;

    AppState& appState() { return *m_state; }
    Clock& clock() { return m_clock; }
    /// Loads the signed-in user when a token is stored: the proxy road is built only for a
    /// loaded user. A failed load leaves the session signed out.
    QCoro::Task<void> loadAccount();

private:
    class SilentSounds final : public SoundPlayer {
    public:
        void play(const QString&, float) override {}
    };

    WallClock m_clock;
    std::unique_ptr<Defaults> m_defaults;
    SilentSounds m_sounds;
    std::unique_ptr<AutostartLoginItem> m_loginItem;
    std::unique_ptr<AppState> m_state;
};

/// A command's terminal shows its result: the system's log lines stay out of it unless the
/// user asks for them with QT_LOGGING_RULES.
void keepLogsOutOfTheTerminal();

/// Runs the event loop until `task` ends; gives its value or rethrows its error.
template <class T> T runToEnd(QCoro::Task<T>& task) {
    std::optional<std::conditional_t<std::is_void_v<T>, bool, T>> value;
    std::exception_ptr error;
    bool done = false;
    QEventLoop loop;
    auto wrapper = [&]() -> QCoro::Task<void> {
        try {
            if constexpr (std::is_void_v<T>)
                co_await task;
            else
                value.emplace(co_await task);
        } catch (...) {
            error = std::current_exception();
        }
        done = true;
        loop.quit();
    };
    QCoro::Task<void> running = wrapper();
    if (!done)
        loop.exec();
    if (error)
        std::rethrow_exception(error);
    if constexpr (!std::is_void_v<T>)
        return std::move(*value);
}

} // namespace tamvex
