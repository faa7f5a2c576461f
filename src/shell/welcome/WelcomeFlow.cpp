#include "shell/welcome/WelcomeFlow.h"

#include "account/AnalyticsService.h"
#include "shell/SettingsStore.h"

namespace tamvex {

WelcomeFlow::WelcomeFlow(SettingsStore& settings, int step, QString apiKey, int totalSteps, QObject* parent)
    : QObject(parent), m_settings(settings), m_step(step), m_apiKey(std::move(apiKey)), m_totalSteps(totalSteps) {
    connect(&m_settings, &SettingsStore::changed, this, &WelcomeFlow::canAdvanceChanged);
}

void WelcomeFlow::setStep(int step) {
    step = std::clamp(step, 0, m_totalSteps - 1);
    if (step == m_step)
        return;
    m_step = step;
    emit stepChanged();
    emit canAdvanceChanged();
}

bool WelcomeFlow::canAdvance() const {
    return m_step != useCasesStep || !m_settings.useCases().isEmpty();
}

QString WelcomeFlow::advanceTitle() const {
    return isLastStep() ? QStringLiteral("Готово") : QStringLiteral("Дальше");
}

QString WelcomeFlow::stepName(int step) {
    static const QStringList names{"hello", "hotkey", "use_cases", "login", "permissions", "test"};
    return step >= 0 && step < names.size() ? names.at(step) : QStringLiteral("step_") + QString::number(step);
}

void WelcomeFlow::advance() {
    if (!canAdvance())
        return;
    if (!isLastStep()) {
        const int next = m_step + 1;
        AnalyticsService::track(QStringLiteral("onboarding_step_advanced"),
                                {{"from_step", m_step}, {"to_step", next}, {"step_name", stepName(next)}});
        setStep(next);
        return;
    }
    const QString key = m_apiKey.trimmed();
    if (!key.isEmpty()) {
        m_settings.setApiKey(key);
        m_settings.setUseEmbeddedKey(false);
    }
    m_settings.setOnboardingCompleted(true);
    AnalyticsService::track(
        QStringLiteral("onboarding_completed"),
        {{"byok_key_entered", !key.isEmpty()}, {"use_cases_count", int(m_settings.useCases().size())}});
    emit finished();
}

void WelcomeFlow::back() {
    setStep(m_step - 1);
}

void WelcomeFlow::toggleUseCase(const QString& rawValue) {
    const auto useCase = SettingsStore::useCaseFromRawValue(rawValue);
    if (!useCase)
        return;
    QSet<UseCase> cases = m_settings.useCases();
    if (!cases.remove(*useCase))
        cases.insert(*useCase);
    m_settings.setUseCases(cases);
}

QStringList WelcomeFlow::selectedUseCases() const {
    QStringList raw;
    for (UseCase c : m_settings.useCases())
        raw.append(SettingsStore::useCaseRawValue(c));
    raw.sort();
    return raw;
}

bool WelcomeFlow::isUseCaseSelected(const QString& rawValue) const {
    const auto useCase = SettingsStore::useCaseFromRawValue(rawValue);
    return useCase && m_settings.useCases().contains(*useCase);
}

} // namespace tamvex
