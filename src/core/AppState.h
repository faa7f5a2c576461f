#pragma once

#include "core/AppEnvironment.h"
#include "core/RecordingState.h"
#include "platform/Clock.h"

#include <QObject>
#include <QString>
#include <QUuid>

#include <qcoro/qcorotask.h>

#include <functional>
#include <memory>
#include <optional>

namespace tamvex {

class AccountStore;
class HistoryStore;
namespace KeyboardShortcuts {
class ShortcutRegistry;
}
class SorvelAPI;
class InsightsStore;
class SettingsStore;

/// The section the main window shows.
enum class MainSection { home, insights, account, settings };

namespace mainSections {
/// Every section in declared order.
QList<MainSection> all();
/// "home", "insights", "account", "settings".
QString rawValue(MainSection section);
/// The section of a raw text, or none.
std::optional<MainSection> fromRawValue(const QString& raw);
} // namespace mainSections

/// A tip card for the HUD.
struct NudgeContent {
    QString icon;   ///< name of a symbol
    QString title;  ///< the card's heading
    QString body;   ///< the card's text
    QString hotkey; ///< the hotkey's display name, drawn as a key cap
    bool operator==(const NudgeContent&) const = default;
};

/// The one shared state of the system: the stores, and what ties the dictation to the
/// views. Lives on the main thread for the whole process.
class AppState : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString recordingStateName READ recordingStateName NOTIFY recordingStateChanged)
    Q_PROPERTY(QString errorMessage READ errorMessage NOTIFY recordingStateChanged)
    Q_PROPERTY(QString lastTranscription READ lastTranscription NOTIFY lastTranscriptionChanged)
    Q_PROPERTY(bool slowProcessing READ slowProcessing NOTIFY slowProcessingChanged)
    Q_PROPERTY(QString mainSectionRaw READ mainSectionRaw NOTIFY mainSectionChanged)
    Q_PROPERTY(bool usesServiceBalance READ usesServiceBalance NOTIFY changed)
public:
    /// Runs the retry of a failed dictation by its history id.
    using RetryHook = std::function<QCoro::Task<void>(QUuid)>;

    /// Creates the stores in order and forwards their change signals.
    explicit AppState(AppEnvironment environment, QObject* parent = nullptr);
    ~AppState() override;

    const AppEnvironment& environment() const { return m_env; }
    Clock& clock() const { return m_env.clock; }

    RecordingState recordingState() const { return m_recordingState; }
    /// Writes the state and runs recordingStateDidChange.
    void setRecordingState(const RecordingState& state);
    /// Turns slowProcessing off unless the state is processing.
    void recordingStateDidChange();
    QString recordingStateName() const { return m_recordingState.name(); }
    QString errorMessage() const { return m_recordingState.message(); }

    QString lastTranscription() const { return m_lastTranscription; }
    void setLastTranscription(const QString& text);
    bool slowProcessing() const { return m_slowProcessing; }
    void setSlowProcessing(bool value);

    std::optional<NudgeContent> pendingNudge() const { return m_pendingNudge; }
    /// Shows `content` for `duration` seconds, replacing any nudge on show.
    void showNudge(const NudgeContent& content, double duration);
    /// Takes the nudge away and cancels its timer.
    void dismissNudge();

    MainSection mainSection() const { return m_mainSection; }
    void setMainSection(MainSection section);
    QString mainSectionRaw() const { return mainSections::rawValue(m_mainSection); }

    const RetryHook& retryTranscriptionHook() const { return m_retryHook; }
    void setRetryTranscriptionHook(RetryHook hook) { m_retryHook = std::move(hook); }

    /// True when the next cloud dictation is paid from the service balance.
    bool usesServiceBalance() const;

    /// Whether some keyboard of this machine can send FN, once the key input has looked;
    /// none until then.
    std::optional<bool> functionKeyAvailable() const { return m_functionKeyAvailable; }
    void setFunctionKeyAvailable(bool available);

    SettingsStore& settings() const { return *m_settings; }
    HistoryStore& history() const { return *m_history; }
    AccountStore& account() const { return *m_account; }
    /// The main service's client that the account store speaks through.
    SorvelAPI& api() const { return *m_api; }
    InsightsStore& insights() const { return *m_insights; }
    /// The named shortcuts: one registry, so the settings pane's recorder and the hotkeys
    /// see the same stored values and the same pause.
    KeyboardShortcuts::ShortcutRegistry& shortcuts() const { return *m_shortcuts; }

signals:
    /// Any change of the state or of one of its stores.
    void changed();
    void recordingStateChanged();
    void lastTranscriptionChanged();
    void slowProcessingChanged();
    void pendingNudgeChanged();
    void mainSectionChanged();
    void functionKeyAvailableChanged();

private:
    QCoro::Task<void> dismissNudgeAfter(double duration, Cancellation cancellation);

    AppEnvironment m_env;
    RecordingState m_recordingState = RecordingState::idle();
    QString m_lastTranscription;
    bool m_slowProcessing = false;
    std::optional<NudgeContent> m_pendingNudge;
    std::optional<Cancellation> m_nudgeDismissTask;
    MainSection m_mainSection = MainSection::home;
    RetryHook m_retryHook;
    std::optional<bool> m_functionKeyAvailable;
    // The stores, in creation order.
    std::unique_ptr<SettingsStore> m_settings;
    std::unique_ptr<HistoryStore> m_history;
    std::unique_ptr<SorvelAPI> m_api;
    std::unique_ptr<AccountStore> m_account;
    std::unique_ptr<InsightsStore> m_insights;
    std::unique_ptr<KeyboardShortcuts::ShortcutRegistry> m_shortcuts;
};

} // namespace tamvex
