#pragma once

#include "core/AppState.h"
#include "platform/Clock.h"

#include <QObject>
#include <QPointer>

#include <qcoro/qcorotask.h>

namespace tamvex {

class RecordingCoordinator;

namespace nudges {
/// Seconds a card stays on screen.
inline constexpr double visibleDuration = 9.0;
inline constexpr double idleNudgeGapSec = 86400.0;
inline constexpr double idleQuietSec = 1800.0;
/// A tip waits for the idle state in this many polls of this many seconds.
inline constexpr int idleWaitPolls = 60;
inline constexpr double idleWaitPollSec = 0.5;

/// "FN", the custom shortcut's text, or "горячую клавишу записи" when none is set.
QString hotkeyDisplayName(const AppState& appState);
NudgeContent shortTapCard(const QString& hotkey);
NudgeContent longHoldCard(const QString& hotkey);
NudgeContent idleCard(const QString& hotkey);
/// Said at launch when the hotkey is FN and no keyboard of this computer can send it.
NudgeContent functionKeyUnavailableCard();
/// Seconds that card stays: it explains a hotkey that will not work, so longer than a tip.
inline constexpr double functionKeyUnavailableDuration = 20.0;
} // namespace nudges

/// The two tips about how the hotkey was used: the coordinator asks, this decides whether
/// the cooldown allows and shows the card once the dictation is idle.
class HotkeyTips : public QObject {
    Q_OBJECT
public:
    HotkeyTips(AppState& appState, QObject* parent = nullptr);
    ~HotkeyTips() override;
    /// Listens to the coordinator's short-tap and long-hold requests.
    void listenTo(RecordingCoordinator& coordinator);

    void showShortTapTip();
    void showLongHoldTip();

private:
    QCoro::Task<void> showWhenIdle(NudgeContent card);

    AppState& m_appState;
    Cancellation m_alive;
};

/// Reminds an idle user, at most once a day, that the program is there.
class IdleNudgeManager : public QObject {
    Q_OBJECT
public:
    static constexpr double checkInterval = 300.0;

    explicit IdleNudgeManager(AppState& appState, QObject* parent = nullptr);
    ~IdleNudgeManager() override;
    /// Starts the checks every 300 s, and dismisses a card when a recording starts.
    void start();
    /// One check: shows the idle card when every rule allows.
    void check();

private:
    void schedule();

    AppState& m_appState;
    Clock::TimerId m_timer = 0;
    QMetaObject::Connection m_subscription;
};

} // namespace tamvex
