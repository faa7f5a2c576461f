#include "shell/SettingsStore.h"

#include "platform/Clock.h"
#include "platform/Defaults.h"
#include "platform/Log.h"
#include "platform/LoginItem.h"

#include <algorithm>

namespace tamvex {

namespace K = SettingsKeys;

namespace {
// The switches that are on for a user who never touched them: anything but a
// stored boolean counts as on.
bool onUnlessFalse(const Defaults& d, const QString& key) {
    return d.readBool(key).valueOr(true);
}

std::optional<QDateTime> dateOrNone(const Defaults& d, const QString& key) {
    return d.readDate(key).optional();
}
} // namespace

SettingsStore::SettingsStore(Defaults& defaults, Clock& clock, LoginItem& loginItem, QObject* parent)
    : QObject(parent), m_defaults(defaults), m_clock(clock), m_loginItem(loginItem) {
    m_apiKey = defaults.readString(K::apiKey).valueOr({});
    m_customModelId = defaults.readString(K::customModelId).valueOr({});
    m_useEmbeddedKey = onUnlessFalse(defaults, K::useEmbeddedKey);
    m_useFnHotkey = onUnlessFalse(defaults, K::useFnHotkey);
    m_launchAtLogin = onUnlessFalse(defaults, K::launchAtLogin);
    m_localSpeechDetection = onUnlessFalse(defaults, K::localSpeechDetection);
    m_localModel = whisperModels::fromRawValue(defaults.readString(K::localModel).valueOr({}));
    m_onboardingCompleted = defaults.readBool(K::onboardingCompleted).valueOr(false);
    m_showInDock = defaults.readBool(K::showInDock).valueOr(false);
    m_preset = presets::fromRawValue(defaults.readString(K::preset).valueOr({})).value_or(PipelinePreset::fast);
    for (const QString& raw : defaults.readStringArray(K::useCases).valueOr({}))
        if (auto useCase = useCaseFromRawValue(raw))
            m_useCases.insert(*useCase);
    m_totalSpentUSD = defaults.readDouble(K::totalSpentUSD).valueOr(0.0);
    m_totalRequests = defaults.readInt(K::totalRequests).valueOr(0);
    m_lastRequestAt = dateOrNone(defaults, K::lastRequestAt);
    m_lastIdleNudgeAt = dateOrNone(defaults, K::lastIdleNudgeAt);
    m_lastLongHoldTipAt = dateOrNone(defaults, K::lastLongHoldTipAt);
    m_lastShortTapTipAt = dateOrNone(defaults, K::lastShortTapTipAt);
    if (defaults.contains(K::remainingCreditsUSD))
        m_remainingCreditsUSD = defaults.readDouble(K::remainingCreditsUSD).valueOr(0.0);
    m_cmdQBehavior =
        cmdQBehaviorFromRawValue(defaults.readString(K::cmdQBehavior).valueOr({})).value_or(CmdQBehavior::ask);
}

template <class T> static bool assign(T& field, const T& value) {
    if (field == value)
        return false;
    field = value;
    return true;
}

void SettingsStore::setApiKey(const QString& value) {
    if (assign(m_apiKey, value))
        emit changed();
    m_defaults.setString(K::apiKey, value);
}

void SettingsStore::setCustomModelId(const QString& value) {
    if (assign(m_customModelId, value))
        emit changed();
    m_defaults.setString(K::customModelId, value);
}

void SettingsStore::setUseEmbeddedKey(bool value) {
    if (assign(m_useEmbeddedKey, value))
        emit changed();
    m_defaults.setBool(K::useEmbeddedKey, value);
}

void SettingsStore::setPreset(PipelinePreset value) {
    if (assign(m_preset, value))
        emit changed();
    m_defaults.setString(K::preset, presets::rawValue(value));
}

void SettingsStore::setPresetRaw(const QString& raw) {
    if (auto preset = presets::fromRawValue(raw))
        setPreset(*preset);
}

void SettingsStore::setUseCases(const QSet<UseCase>& value) {
    if (assign(m_useCases, value))
        emit changed();
    writeUseCases();
}

void SettingsStore::writeUseCases() {
    QStringList raw;
    for (UseCase useCase : m_useCases)
        raw.append(useCaseRawValue(useCase));
    // Sorted so that the stored array does not depend on the set's order.
    std::sort(raw.begin(), raw.end());
    m_defaults.setStringArray(K::useCases, raw);
}

void SettingsStore::setOnboardingCompleted(bool value) {
    if (assign(m_onboardingCompleted, value))
        emit changed();
    m_defaults.setBool(K::onboardingCompleted, value);
}

void SettingsStore::setShowInDock(bool value) {
    if (assign(m_showInDock, value))
        emit changed();
    m_defaults.setBool(K::showInDock, value);
}

void SettingsStore::setUseFnHotkey(bool value) {
    if (assign(m_useFnHotkey, value))
        emit changed();
    m_defaults.setBool(K::useFnHotkey, value);
    emit hotkeyModeChanged();
}

void SettingsStore::setLaunchAtLogin(bool value) {
    if (assign(m_launchAtLogin, value))
        emit changed();
    m_defaults.setBool(K::launchAtLogin, value);
    syncLaunchAtLogin();
}

void SettingsStore::setLocalSpeechDetection(bool value) {
    if (assign(m_localSpeechDetection, value))
        emit changed();
    m_defaults.setBool(K::localSpeechDetection, value);
}

void SettingsStore::setLocalModel(std::optional<WhisperModel> value) {
    if (assign(m_localModel, value))
        emit changed();
    if (value)
        m_defaults.setString(K::localModel, whisperModels::rawValue(*value));
    else
        m_defaults.remove(K::localModel);
}

void SettingsStore::setOptionalDate(std::optional<QDateTime>& field, const QString& key,
                                    const std::optional<QDateTime>& value) {
    if (assign(field, value))
        emit changed();
    if (value)
        m_defaults.setDate(key, *value);
    else
        m_defaults.remove(key);
}

void SettingsStore::setLastIdleNudgeAt(const std::optional<QDateTime>& value) {
    setOptionalDate(m_lastIdleNudgeAt, K::lastIdleNudgeAt, value);
}

void SettingsStore::setLastLongHoldTipAt(const std::optional<QDateTime>& value) {
    setOptionalDate(m_lastLongHoldTipAt, K::lastLongHoldTipAt, value);
}

void SettingsStore::setLastShortTapTipAt(const std::optional<QDateTime>& value) {
    setOptionalDate(m_lastShortTapTipAt, K::lastShortTapTipAt, value);
}

void SettingsStore::setCmdQBehavior(CmdQBehavior value) {
    if (assign(m_cmdQBehavior, value))
        emit changed();
    m_defaults.setString(K::cmdQBehavior, cmdQBehaviorRawValue(value));
}

QString SettingsStore::cmdQBehaviorRaw() const {
    return cmdQBehaviorRawValue(m_cmdQBehavior);
}

void SettingsStore::syncLaunchAtLogin() {
    const LoginItem::Status status = m_loginItem.status();
    const bool enabled = status == LoginItem::Status::enabled;
    const bool registered = enabled || status == LoginItem::Status::requiresApproval;
    if (m_launchAtLogin && enabled)
        return;
    if (!m_launchAtLogin && !registered)
        return;
    try {
        if (m_launchAtLogin) {
            m_loginItem.registerItem();
            logInfo("Launch at login: registered");
        } else {
            m_loginItem.unregisterItem();
            logInfo("Launch at login: unregistered");
        }
    } catch (const std::exception& e) {
        logError(QStringLiteral("Launch at login %1 failed: %2")
                     .arg(m_launchAtLogin ? "register" : "unregister", describeError(e)));
    }
}

void SettingsStore::recordUsage(const UsageInfo& usage) {
    const Defaults::Batch batch(m_defaults);
    m_totalSpentUSD += usage.costUSD;
    m_totalRequests += 1;
    emit changed();
    markRequest();
    m_defaults.setDouble(K::totalSpentUSD, m_totalSpentUSD);
    m_defaults.setInt(K::totalRequests, m_totalRequests);
    const QString monthKey = K::monthlySpentPrefix + m_clock.currentDateTime().toLocalTime().toString("yyyy-MM");
    m_defaults.setDouble(monthKey, m_defaults.readDouble(monthKey).valueOr(0.0) + usage.costUSD);
}

void SettingsStore::markRequest() {
    m_lastRequestAt = m_clock.currentDateTime();
    emit changed();
    m_defaults.setDate(K::lastRequestAt, *m_lastRequestAt);
}

QString SettingsStore::useCaseRawValue(UseCase useCase) {
    switch (useCase) {
    case UseCase::ai:
        return QStringLiteral("ai");
    case UseCase::writing:
        return QStringLiteral("writing");
    case UseCase::messengers:
        return QStringLiteral("messengers");
    case UseCase::docs:
        return QStringLiteral("docs");
    }
    return {};
}

std::optional<UseCase> SettingsStore::useCaseFromRawValue(const QString& raw) {
    for (UseCase u : {UseCase::ai, UseCase::writing, UseCase::messengers, UseCase::docs})
        if (useCaseRawValue(u) == raw)
            return u;
    return std::nullopt;
}

QString SettingsStore::cmdQBehaviorRawValue(CmdQBehavior value) {
    switch (value) {
    case CmdQBehavior::ask:
        return QStringLiteral("ask");
    case CmdQBehavior::minimize:
        return QStringLiteral("minimize");
    case CmdQBehavior::quit:
        return QStringLiteral("quit");
    }
    return {};
}

std::optional<SettingsStore::CmdQBehavior> SettingsStore::cmdQBehaviorFromRawValue(const QString& raw) {
    for (CmdQBehavior b : {CmdQBehavior::ask, CmdQBehavior::minimize, CmdQBehavior::quit})
        if (cmdQBehaviorRawValue(b) == raw)
            return b;
    return std::nullopt;
}

} // namespace tamvex
