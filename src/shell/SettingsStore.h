#pragma once

#include "pipelines/PipelinePreset.h"
#include "pipelines/local/WhisperModel.h"
#include "pipelines/SpeechPipeline.h"

#include <QDateTime>
#include <QObject>
#include <QSet>
#include <QString>
#include <QVariant>

#include <optional>

namespace tamvex {

class Clock;
class Defaults;
class LoginItem;

/// What onboarding learned the system is for.
enum class UseCase { ai, writing, messengers, docs };

/// The user's choices and the counters that survive a restart. Every property is read
/// once at construction and written back on assignment.
class SettingsStore : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString apiKey READ apiKey WRITE setApiKey NOTIFY changed)
    Q_PROPERTY(QString customModelId READ customModelId WRITE setCustomModelId NOTIFY changed)
    Q_PROPERTY(bool useEmbeddedKey READ useEmbeddedKey WRITE setUseEmbeddedKey NOTIFY changed)
    Q_PROPERTY(QString presetRaw READ presetRaw WRITE setPresetRaw NOTIFY changed)
    Q_PROPERTY(bool onboardingCompleted READ onboardingCompleted WRITE setOnboardingCompleted NOTIFY changed)
    Q_PROPERTY(bool showInDock READ showInDock WRITE setShowInDock NOTIFY changed)
    Q_PROPERTY(bool useFnHotkey READ useFnHotkey WRITE setUseFnHotkey NOTIFY changed)
    Q_PROPERTY(bool launchAtLogin READ launchAtLogin WRITE setLaunchAtLogin NOTIFY changed)
    Q_PROPERTY(double totalSpentUSD READ totalSpentUSD NOTIFY changed)
    Q_PROPERTY(qint64 totalRequests READ totalRequests NOTIFY changed)
    Q_PROPERTY(QString cmdQBehaviorRaw READ cmdQBehaviorRaw NOTIFY changed)
    Q_PROPERTY(bool localSpeechDetection READ localSpeechDetection WRITE setLocalSpeechDetection NOTIFY changed)
public:
    /// What the quit shortcut does.
    enum class CmdQBehavior { ask, minimize, quit };
    Q_ENUM(CmdQBehavior)

    /// Loads every property from `defaults`; never fails.
    SettingsStore(Defaults& defaults, Clock& clock, LoginItem& loginItem, QObject* parent = nullptr);

    QString apiKey() const { return m_apiKey; }
    void setApiKey(const QString& value);
    QString customModelId() const { return m_customModelId; }
    void setCustomModelId(const QString& value);
    bool useEmbeddedKey() const { return m_useEmbeddedKey; }
    void setUseEmbeddedKey(bool value);
    PipelinePreset preset() const { return m_preset; }
    void setPreset(PipelinePreset value);
    QString presetRaw() const { return presets::rawValue(m_preset); }
    /// Assigns a preset by raw value; an unknown text is ignored.
    void setPresetRaw(const QString& raw);
    QSet<UseCase> useCases() const { return m_useCases; }
    void setUseCases(const QSet<UseCase>& value);
    bool onboardingCompleted() const { return m_onboardingCompleted; }
    void setOnboardingCompleted(bool value);
    bool showInDock() const { return m_showInDock; }
    void setShowInDock(bool value);
    bool useFnHotkey() const { return m_useFnHotkey; }
    /// Writes the value and emits hotkeyModeChanged on every assignment.
    void setUseFnHotkey(bool value);
    bool launchAtLogin() const { return m_launchAtLogin; }
    /// Writes the value, then brings the login item in line.
    void setLaunchAtLogin(bool value);
    double totalSpentUSD() const { return m_totalSpentUSD; }
    qint64 totalRequests() const { return m_totalRequests; }
    std::optional<QDateTime> lastRequestAt() const { return m_lastRequestAt; }
    std::optional<double> remainingCreditsUSD() const { return m_remainingCreditsUSD; }
    std::optional<QDateTime> lastIdleNudgeAt() const { return m_lastIdleNudgeAt; }
    void setLastIdleNudgeAt(const std::optional<QDateTime>& value);
    std::optional<QDateTime> lastLongHoldTipAt() const { return m_lastLongHoldTipAt; }
    void setLastLongHoldTipAt(const std::optional<QDateTime>& value);
    std::optional<QDateTime> lastShortTapTipAt() const { return m_lastShortTapTipAt; }
    void setLastShortTapTipAt(const std::optional<QDateTime>& value);
    CmdQBehavior cmdQBehavior() const { return m_cmdQBehavior; }
    void setCmdQBehavior(CmdQBehavior value);
    QString cmdQBehaviorRaw() const;
    /// Whether the local preset drops silence and noise before the recogniser; on by default.
    bool localSpeechDetection() const { return m_localSpeechDetection; }
    /// The local model the user chose, none before a choice.
    std::optional<WhisperModel> localModel() const { return m_localModel; }
    void setLocalSpeechDetection(bool value);
    /// None forgets the choice: the local road then takes a model on disk, or proposes one.
    void setLocalModel(std::optional<WhisperModel> value);

    /// Brings the login item in line with launchAtLogin; failures are logged only.
    void syncLaunchAtLogin();
    /// Books one paid request: totals, the request stamp and the month's sum.
    void recordUsage(const UsageInfo& usage);
    /// Stamps lastRequestAt with now.
    void markRequest();

    /// The raw value of a use case.
    static QString useCaseRawValue(UseCase useCase);
    /// The use case of a raw text, or none.
    static std::optional<UseCase> useCaseFromRawValue(const QString& raw);
    static QString cmdQBehaviorRawValue(CmdQBehavior value);
    static std::optional<CmdQBehavior> cmdQBehaviorFromRawValue(const QString& raw);

    /// The settings keys this store owns, in property order.
    static QStringList keys();
    /// The stored key a user-facing name stands for: "api_key" names the OpenRouter key;
    /// any other name is taken as a stored key.
    static QString keyForName(const QString& name);
    /// The loaded value of a key in printable form; an invalid QVariant for an unknown key
    /// and for a key with no value.
    QVariant valueForKey(const QString& key) const;
    /// Assigns a property from text by its key, with all side effects. Returns an error
    /// text in Russian, or an empty string on success.
    QString assignFromText(const QString& key, const QString& text);

signals:
    /// Any property changed.
    void changed();
    /// The hotkey mode was assigned (also when unchanged).
    void hotkeyModeChanged();

private:
    void setOptionalDate(std::optional<QDateTime>& field, const QString& key, const std::optional<QDateTime>& value);
    void writeUseCases();

    Defaults& m_defaults;
    Clock& m_clock;
    LoginItem& m_loginItem;
    QString m_apiKey;
    QString m_customModelId;
    bool m_useEmbeddedKey = true;
    PipelinePreset m_preset = PipelinePreset::fast;
    QSet<UseCase> m_useCases;
    bool m_onboardingCompleted = false;
    bool m_showInDock = false;
    bool m_useFnHotkey = true;
    bool m_launchAtLogin = true;
    double m_totalSpentUSD = 0.0;
    qint64 m_totalRequests = 0;
    std::optional<QDateTime> m_lastRequestAt;
    std::optional<double> m_remainingCreditsUSD;
    std::optional<QDateTime> m_lastIdleNudgeAt;
    std::optional<QDateTime> m_lastLongHoldTipAt;
    std::optional<QDateTime> m_lastShortTapTipAt;
    CmdQBehavior m_cmdQBehavior = CmdQBehavior::ask;
    bool m_localSpeechDetection = true;
    std::optional<WhisperModel> m_localModel;
};

/// Settings keys, one place for all of them.
namespace SettingsKeys {
inline const QString apiKey = QStringLiteral("openrouter_api_key");
inline const QString customModelId = QStringLiteral("custom_model_id");
inline const QString useEmbeddedKey = QStringLiteral("use_embedded_key");
inline const QString preset = QStringLiteral("pipeline_preset");
inline const QString useCases = QStringLiteral("use_cases");
inline const QString onboardingCompleted = QStringLiteral("onboarding_done_v2");
inline const QString showInDock = QStringLiteral("show_in_dock");
inline const QString useFnHotkey = QStringLiteral("use_fn_hotkey");
inline const QString launchAtLogin = QStringLiteral("launch_at_login");
inline const QString totalSpentUSD = QStringLiteral("total_spent_usd");
inline const QString totalRequests = QStringLiteral("total_requests");
inline const QString lastRequestAt = QStringLiteral("last_request_at");
inline const QString remainingCreditsUSD = QStringLiteral("remaining_credits");
inline const QString lastIdleNudgeAt = QStringLiteral("last_idle_nudge_at");
inline const QString lastLongHoldTipAt = QStringLiteral("last_long_hold_tip_at");
inline const QString lastShortTapTipAt = QStringLiteral("last_short_tap_tip_at");
inline const QString cmdQBehavior = QStringLiteral("cmd_q_behavior");
inline const QString localSpeechDetection = QStringLiteral("local_speech_detection");
inline const QString localModel = QStringLiteral("local_model");
inline const QString accessToken = QStringLiteral("sorvel_access_token");
inline const QString deviceId = QStringLiteral("sorvel_device_id");
inline const QString lastSeenVersion = QStringLiteral("sorvel_last_seen_version");
inline const QString lastSeenBuild = QStringLiteral("sorvel_last_seen_build");
inline const QString backendSelectorChoice = QStringLiteral("backend_selector_choice_v1");
inline const QString firstLaunchDate = QStringLiteral("first_launch_date");
/// "monthly_spent." followed by the month as yyyy-MM.
inline const QString monthlySpentPrefix = QStringLiteral("monthly_spent.");
/// "KeyboardShortcuts_" followed by the shortcut's name.
inline const QString shortcutPrefix = QStringLiteral("KeyboardShortcuts_");
} // namespace SettingsKeys

} // namespace tamvex
