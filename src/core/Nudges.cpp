#include "core/Nudges.h"

#include "KeyboardShortcuts/ShortcutRegistry.h"
#include "account/AnalyticsService.h"
#include "core/RecordingConstants.h"
#include "core/RecordingCoordinator.h"
#include "platform/Log.h"
#include "platform/Sounds.h"
#include "shell/SettingsStore.h"

namespace tamvex {

namespace {
/// Seconds from `then` to now, or none when there is no `then`.
std::optional<double> secondsSince(const Clock& clock, const std::optional<QDateTime>& then) {
    if (!then)
        return std::nullopt;
    return then->msecsTo(clock.currentDateTime()) / 1000.0;
}
} // namespace

namespace nudges {

QString hotkeyDisplayName(const AppState& appState) {
    if (appState.settings().useFnHotkey())
        return QStringLiteral("FN");
    const KeyboardShortcuts::ShortcutRegistry shortcuts(appState.environment().defaults);
    if (const auto shortcut = shortcuts.storedShortcut(KeyboardShortcuts::sorvelRecordAlternative))
        return shortcut->screenText();
    return QStringLiteral("горячую клавишу записи");
}

NudgeContent shortTapCard(const QString& hotkey) {
    return {QStringLiteral("hand.tap"), QStringLiteral("Слишком короткое нажатие"),
            QStringLiteral("Запись не началась, токены не списаны. Удерживай ") + hotkey +
                QStringLiteral(" или сделай двойной клик для длинной записи."),
            hotkey};
}

NudgeContent longHoldCard(const QString& hotkey) {
    return {QStringLiteral("hand.tap.fill"), QStringLiteral("Кнопку можно не держать"),
            QStringLiteral("В следующий раз нажми ") + hotkey +
                QStringLiteral(" дважды — запись начнётся сама. Одно нажатие закончит. Удерживать не нужно."),
            hotkey};
}

NudgeContent idleCard(const QString& hotkey) {
    return {QStringLiteral("sparkles"), QStringLiteral("Tamvex ждёт"),
            QStringLiteral("Нажми ") + hotkey +
                QStringLiteral(" и продиктуй. Без слов-паразитов, грамматически верно и структурировано."),
            hotkey};
}

NudgeContent functionKeyUnavailableCard() {
    return {QStringLiteral("keyboard"), QStringLiteral("Клавиша FN здесь не работает"),
            QStringLiteral("Ни одна клавиатура этого компьютера не передаёт FN. Задай свою комбинацию: "
                           "Настройки → Горячая клавиша → «Своя комбинация»."),
            QStringLiteral("FN")};
}

} // namespace nudges

HotkeyTips::HotkeyTips(AppState& appState, QObject* parent) : QObject(parent), m_appState(appState) {}

HotkeyTips::~HotkeyTips() {
    m_alive.cancel();
}

void HotkeyTips::listenTo(RecordingCoordinator& coordinator) {
    connect(&coordinator, &RecordingCoordinator::shortTapTipRequested, this, &HotkeyTips::showShortTapTip);
    connect(&coordinator, &RecordingCoordinator::longHoldTipRequested, this, &HotkeyTips::showLongHoldTip);
}

void HotkeyTips::showShortTapTip() {
    SettingsStore& settings = m_appState.settings();
    const auto since = secondsSince(m_appState.clock(), settings.lastShortTapTipAt());
    if (since && *since < RecordingConstants::shortTapTipCooldownSec)
        return;
    // Spent before the card is shown: a card that never reaches the screen still counts.
    settings.setLastShortTapTipAt(m_appState.clock().currentDateTime());
    const QString hotkey = nudges::hotkeyDisplayName(m_appState);
    AnalyticsService::track(QStringLiteral("short_tap_tip_shown"), {{QStringLiteral("hotkey"), hotkey}});
    logInfo(QStringLiteral("ShortTapTip: queued for hotkey=") + hotkey);
    showWhenIdle(nudges::shortTapCard(hotkey));
}

void HotkeyTips::showLongHoldTip() {
    SettingsStore& settings = m_appState.settings();
    const auto since = secondsSince(m_appState.clock(), settings.lastLongHoldTipAt());
    if (since && *since < RecordingConstants::longHoldTipCooldownSec)
        return;
    settings.setLastLongHoldTipAt(m_appState.clock().currentDateTime());
    const QString hotkey = nudges::hotkeyDisplayName(m_appState);
    AnalyticsService::track(QStringLiteral("long_hold_tip_shown"), {{QStringLiteral("hotkey"), hotkey}});
    logInfo(QStringLiteral("LongHoldTip: queued for hotkey=") + hotkey);
    showWhenIdle(nudges::longHoldCard(hotkey));
}

QCoro::Task<void> HotkeyTips::showWhenIdle(NudgeContent card) {
    const Cancellation alive = m_alive;
    AppState& appState = m_appState;
    for (int round = 0; round < nudges::idleWaitPolls; ++round) {
        if (alive.isCancelled())
            co_return;
        if (appState.recordingState().is(RecordingState::Case::idle)) {
            appState.showNudge(card, nudges::visibleDuration);
            co_return;
        }
        if (!co_await appState.clock().sleep(nudges::idleWaitPollSec, alive))
            co_return;
    }
    // Out of time: the card is dropped without a word.
}

IdleNudgeManager::IdleNudgeManager(AppState& appState, QObject* parent) : QObject(parent), m_appState(appState) {}

IdleNudgeManager::~IdleNudgeManager() {
    if (m_timer)
        m_appState.clock().cancelTimer(m_timer);
}

void IdleNudgeManager::start() {
    if (m_timer)
        m_appState.clock().cancelTimer(m_timer);
    schedule();
    disconnect(m_subscription);
    // A card leaves the moment a dictation begins, whichever kind it is.
    m_subscription = connect(&m_appState, &AppState::recordingStateChanged, this, [this] {
        if (m_appState.recordingState().is(RecordingState::Case::recording) && m_appState.pendingNudge())
            m_appState.dismissNudge();
    });
}

void IdleNudgeManager::schedule() {
    m_timer = m_appState.clock().schedule(checkInterval, [this] {
        schedule();
        check();
    });
}

void IdleNudgeManager::check() {
    if (!m_appState.recordingState().is(RecordingState::Case::idle) || m_appState.pendingNudge())
        return;
    SettingsStore& settings = m_appState.settings();
    const Clock& clock = m_appState.clock();
    if (const auto since = secondsSince(clock, settings.lastIdleNudgeAt()); since && *since <= nudges::idleNudgeGapSec)
        return;
    if (const auto quiet = secondsSince(clock, settings.lastRequestAt()); quiet && *quiet < nudges::idleQuietSec)
        return;
    const QString hotkey = nudges::hotkeyDisplayName(m_appState);
    m_appState.showNudge(nudges::idleCard(hotkey), nudges::visibleDuration);
    settings.setLastIdleNudgeAt(clock.currentDateTime());
    m_appState.environment().sounds.play(QStringLiteral("Glass"), 0.55f);
    AnalyticsService::track(QStringLiteral("idle_nudge_shown"), {{QStringLiteral("hotkey"), hotkey}});
    logInfo(QStringLiteral("IdleNudge: shown for hotkey=") + hotkey);
}

} // namespace tamvex
