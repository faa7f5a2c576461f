// The settings store seen by key: used by `tamvex settings get|set`.
#include "shell/SettingsStore.h"

#include <QLocale>

#include <algorithm>

namespace tamvex {

namespace K = SettingsKeys;

namespace {
std::optional<bool> parseBool(const QString& text) {
    const QString t = text.trimmed().toLower();
    if (t == "true" || t == "1" || t == "yes" || t == "on")
        return true;
    if (t == "false" || t == "0" || t == "no" || t == "off")
        return false;
    return std::nullopt;
}

QVariant dateValue(const std::optional<QDateTime>& date) {
    return date ? QVariant(date->toUTC().toString(Qt::ISODateWithMs)) : QVariant();
}

const QString kBoolError = QStringLiteral("Ожидается true или false");
} // namespace

QStringList SettingsStore::keys() {
    return {K::apiKey,
            K::customModelId,
            K::useEmbeddedKey,
            K::preset,
            K::useCases,
            K::onboardingCompleted,
            K::showInDock,
            K::useFnHotkey,
            K::launchAtLogin,
            K::totalSpentUSD,
            K::totalRequests,
            K::lastRequestAt,
            K::remainingCreditsUSD,
            K::lastIdleNudgeAt,
            K::lastLongHoldTipAt,
            K::lastShortTapTipAt,
            K::cmdQBehavior,
            K::localSpeechDetection,
            K::localModel};
}

QString SettingsStore::keyForName(const QString& name) {
    return name == QLatin1String("api_key") ? K::apiKey : name;
}

QVariant SettingsStore::valueForKey(const QString& key) const {
    if (key == K::apiKey)
        return m_apiKey;
    if (key == K::customModelId)
        return m_customModelId;
    if (key == K::useEmbeddedKey)
        return m_useEmbeddedKey;
    if (key == K::preset)
        return presetRaw();
    if (key == K::useCases) {
        QStringList raw;
        for (UseCase u : m_useCases)
            raw.append(useCaseRawValue(u));
        std::sort(raw.begin(), raw.end());
        return raw;
    }
    if (key == K::onboardingCompleted)
        return m_onboardingCompleted;
    if (key == K::showInDock)
        return m_showInDock;
    if (key == K::useFnHotkey)
        return m_useFnHotkey;
    if (key == K::launchAtLogin)
        return m_launchAtLogin;
    if (key == K::totalSpentUSD)
        return m_totalSpentUSD;
    if (key == K::totalRequests)
        return m_totalRequests;
    if (key == K::lastRequestAt)
        return dateValue(m_lastRequestAt);
    if (key == K::remainingCreditsUSD)
        return m_remainingCreditsUSD ? QVariant(*m_remainingCreditsUSD) : QVariant();
    if (key == K::lastIdleNudgeAt)
        return dateValue(m_lastIdleNudgeAt);
    if (key == K::lastLongHoldTipAt)
        return dateValue(m_lastLongHoldTipAt);
    if (key == K::lastShortTapTipAt)
        return dateValue(m_lastShortTapTipAt);
    if (key == K::cmdQBehavior)
        return cmdQBehaviorRaw();
    if (key == K::localSpeechDetection)
        return m_localSpeechDetection;
    if (key == K::localModel)
        return m_localModel ? QVariant(whisperModels::rawValue(*m_localModel)) : QVariant();
    return {};
}

QString SettingsStore::assignFromText(const QString& key, const QString& text) {
    auto assignBool = [&](void (SettingsStore::*setter)(bool)) -> QString {
        const auto value = parseBool(text);
        if (!value)
            return kBoolError;
        (this->*setter)(*value);
        return {};
    };
    auto assignDate = [&](void (SettingsStore::*setter)(const std::optional<QDateTime>&)) -> QString {
        if (text.isEmpty()) {
            (this->*setter)(std::nullopt);
            return {};
        }
        const QDateTime date = QDateTime::fromString(text, Qt::ISODateWithMs);
        if (!date.isValid())
            return QStringLiteral("Ожидается дата ISO-8601, например 2026-03-02T09:00:00Z, или пустая строка");
        (this->*setter)(date);
        return {};
    };

    if (key == K::apiKey)
        setApiKey(text);
    else if (key == K::customModelId)
        setCustomModelId(text);
    else if (key == K::useEmbeddedKey)
        return assignBool(&SettingsStore::setUseEmbeddedKey);
    else if (key == K::onboardingCompleted)
        return assignBool(&SettingsStore::setOnboardingCompleted);
    else if (key == K::showInDock)
        return assignBool(&SettingsStore::setShowInDock);
    else if (key == K::useFnHotkey)
        return assignBool(&SettingsStore::setUseFnHotkey);
    else if (key == K::launchAtLogin)
        return assignBool(&SettingsStore::setLaunchAtLogin);
    else if (key == K::localSpeechDetection)
        return assignBool(&SettingsStore::setLocalSpeechDetection);
    else if (key == K::localModel) {
        const auto model = whisperModels::fromRawValue(text);
        if (!model) {
            QStringList names;
            for (WhisperModel m : whisperModels::all())
                names.append(whisperModels::rawValue(m));
            return QStringLiteral("Неизвестная модель «%1»: %2").arg(text, names.join(QStringLiteral(", ")));
        }
        setLocalModel(*model);
    }
    else if (key == K::preset) {
        const auto preset = presets::fromRawValue(text);
        if (!preset)
            return QStringLiteral("Неизвестный пресет «%1»: fast, cheap, precise или local").arg(text);
        setPreset(*preset);
    } else if (key == K::useCases) {
        QSet<UseCase> set;
        for (const QString& part : text.split(',', Qt::SkipEmptyParts)) {
            const auto useCase = useCaseFromRawValue(part.trimmed());
            if (!useCase)
                return QStringLiteral("Неизвестный сценарий «%1»: ai, writing, messengers или docs")
                    .arg(part.trimmed());
            set.insert(*useCase);
        }
        setUseCases(set);
    } else if (key == K::cmdQBehavior) {
        const auto behavior = cmdQBehaviorFromRawValue(text);
        if (!behavior)
            return QStringLiteral("Неизвестное поведение «%1»: ask, minimize или quit").arg(text);
        setCmdQBehavior(*behavior);
    } else if (key == K::lastIdleNudgeAt)
        return assignDate(&SettingsStore::setLastIdleNudgeAt);
    else if (key == K::lastLongHoldTipAt)
        return assignDate(&SettingsStore::setLastLongHoldTipAt);
    else if (key == K::lastShortTapTipAt)
        return assignDate(&SettingsStore::setLastShortTapTipAt);
    else if (keys().contains(key))
        return QStringLiteral("Ключ «%1» только для чтения: его пишет сама программа").arg(key);
    else
        return QStringLiteral("Неизвестный ключ «%1»").arg(key);
    return {};
}

} // namespace tamvex
