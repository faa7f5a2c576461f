#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <QtQml/qqmlregistration.h>

namespace tamvex {

class SettingsStore;

/// The onboarding's steps and their rules: where the user stands, whether the main button
/// may advance, and what advancing and finishing report and store.
class WelcomeFlow : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("The welcome window controller makes the flow")
    Q_PROPERTY(int step READ step WRITE setStep NOTIFY stepChanged)
    Q_PROPERTY(int totalSteps READ totalSteps CONSTANT)
    Q_PROPERTY(bool canAdvance READ canAdvance NOTIFY canAdvanceChanged)
    Q_PROPERTY(bool isLastStep READ isLastStep NOTIFY stepChanged)
    Q_PROPERTY(bool canGoBack READ canGoBack NOTIFY stepChanged)
    Q_PROPERTY(QString advanceTitle READ advanceTitle NOTIFY stepChanged)
    /// The raw values of the chosen use cases.
    Q_PROPERTY(QStringList selectedUseCases READ selectedUseCases NOTIFY canAdvanceChanged)
public:
    static constexpr int defaultTotalSteps = 6;
    /// The step where a use case must be chosen.
    static constexpr int useCasesStep = 2;

    /// A flow over `settings`, starting at `step` with the key text `apiKey`.
    WelcomeFlow(SettingsStore& settings, int step = 0, QString apiKey = {}, int totalSteps = defaultTotalSteps,
                QObject* parent = nullptr);

    int step() const { return m_step; }
    void setStep(int step);
    int totalSteps() const { return m_totalSteps; }
    bool isLastStep() const { return m_step >= m_totalSteps - 1; }
    /// "Назад" exists after the first step.
    bool canGoBack() const { return m_step > 0; }
    /// False only on the use-case step while no use case is chosen.
    bool canAdvance() const;
    /// "Дальше", or "Готово" on the last step.
    QString advanceTitle() const;

    /// The key text that finishing stores, as the key step's field leaves it.
    void setApiKey(const QString& key) { m_apiKey = key; }

    /// The analytics name of a step ("hello" … "test", else "step_N").
    static QString stepName(int step);

    /// The main button: the next step, or on the last one the end of onboarding.
    Q_INVOKABLE void advance();
    /// "Назад".
    Q_INVOKABLE void back();
    /// A use-case tile's tap: adds the case or takes it out.
    Q_INVOKABLE void toggleUseCase(const QString& rawValue);
    QStringList selectedUseCases() const;
    /// True when the case is chosen.
    Q_INVOKABLE bool isUseCaseSelected(const QString& rawValue) const;

signals:
    void stepChanged();
    void canAdvanceChanged();
    /// Onboarding is done; the window closes.
    void finished();

private:
    SettingsStore& m_settings;
    int m_step;
    QString m_apiKey;
    int m_totalSteps;
};

} // namespace tamvex
