#include "core/AppState.h"

#include "KeyboardShortcuts/ShortcutRegistry.h"
#include "account/AccountStore.h"
#include "account/AnalyticsService.h"
#include "account/Network.h"
#include "account/SorvelAPI.h"
#include "history/HistoryStore.h"
#include "history/InsightsStore.h"
#include "pipelines/ServiceHosts.h"
#include "shell/SettingsStore.h"

#include <QPointer>

namespace tamvex {

QString RecordingState::name() const {
    switch (m_case) {
    case Case::error:
        return QStringLiteral("error");
    case Case::idle:
        return QStringLiteral("idle");
    case Case::recording:
        return QStringLiteral("recording");
    case Case::processing:
        return QStringLiteral("processing");
    }
    return {};
}

QString RecordingState::description() const {
    if (m_case == Case::error)
        return QStringLiteral("error(\"%1\")").arg(m_message);
    return name();
}

namespace mainSections {
QList<MainSection> all() {
    return {MainSection::home, MainSection::insights, MainSection::account, MainSection::settings};
}

QString rawValue(MainSection section) {
    switch (section) {
    case MainSection::home:
        return QStringLiteral("home");
    case MainSection::insights:
        return QStringLiteral("insights");
    case MainSection::account:
        return QStringLiteral("account");
    case MainSection::settings:
        return QStringLiteral("settings");
    }
    return {};
}

std::optional<MainSection> fromRawValue(const QString& raw) {
    for (MainSection s : all())
        if (rawValue(s) == raw)
            return s;
    return std::nullopt;
}
} // namespace mainSections

AppState::AppState(AppEnvironment environment, QObject* parent) : QObject(parent), m_env(std::move(environment)) {
    m_settings = std::make_unique<SettingsStore>(m_env.defaults, m_env.clock, m_env.loginItem);
    m_history = std::make_unique<HistoryStore>(m_env.paths, m_env.clock);
    m_history->init();
    m_api = std::make_unique<SorvelAPI>(sharedNetworkManager(), m_env.clock, m_env.defaults,
                                        ServiceHosts::configured().main);
    m_account = std::make_unique<AccountStore>(m_env.defaults, *m_api);
    m_insights = std::make_unique<InsightsStore>(*m_history, m_env.paths, m_env.clock);
    m_shortcuts = std::make_unique<KeyboardShortcuts::ShortcutRegistry>(m_env.defaults);
    // A change in any store counts as a change of the state; `this` owns the stores, so
    // the connections cannot outlive it.
    connect(m_settings.get(), &SettingsStore::changed, this, &AppState::changed);
    connect(m_history.get(), &HistoryStore::changed, this, &AppState::changed);
    connect(m_account.get(), &AccountStore::changed, this, &AppState::changed);
    connect(m_insights.get(), &InsightsStore::changed, this, &AppState::changed);
    if (m_account->accessToken())
        m_account->startRefresh();
}

AppState::~AppState() = default;

void AppState::setRecordingState(const RecordingState& state) {
    const bool differs = !(m_recordingState == state);
    m_recordingState = state;
    if (differs) {
        emit recordingStateChanged();
        emit changed();
    }
    recordingStateDidChange();
}

void AppState::recordingStateDidChange() {
    if (!m_recordingState.is(RecordingState::Case::processing) && m_slowProcessing)
        setSlowProcessing(false);
}

void AppState::setFunctionKeyAvailable(bool available) {
    if (m_functionKeyAvailable == available)
        return;
    m_functionKeyAvailable = available;
    emit functionKeyAvailableChanged();
}

void AppState::setLastTranscription(const QString& text) {
    if (m_lastTranscription == text)
        return;
    m_lastTranscription = text;
    emit lastTranscriptionChanged();
    emit changed();
}

void AppState::setSlowProcessing(bool value) {
    if (m_slowProcessing == value)
        return;
    m_slowProcessing = value;
    emit slowProcessingChanged();
    emit changed();
}

void AppState::showNudge(const NudgeContent& content, double duration) {
    if (m_nudgeDismissTask)
        m_nudgeDismissTask->cancel();
    m_pendingNudge = content;
    emit pendingNudgeChanged();
    emit changed();
    Cancellation cancellation;
    m_nudgeDismissTask = cancellation;
    dismissNudgeAfter(duration, cancellation);
}

QCoro::Task<void> AppState::dismissNudgeAfter(double duration, Cancellation cancellation) {
    QPointer<AppState> self(this);
    Clock& clock = m_env.clock;
    const bool slept = co_await clock.sleep(duration, cancellation);
    if (!slept || !self || cancellation.isCancelled())
        co_return;
    self->m_pendingNudge.reset();
    emit self->pendingNudgeChanged();
    emit self->changed();
}

void AppState::dismissNudge() {
    if (m_nudgeDismissTask) {
        m_nudgeDismissTask->cancel();
        m_nudgeDismissTask.reset();
    }
    m_pendingNudge.reset();
    emit pendingNudgeChanged();
    emit changed();
}

void AppState::setMainSection(MainSection section) {
    if (m_mainSection == section)
        return;
    m_mainSection = section;
    // Reported here, not by the window: the section may be chosen before the window exists.
    AnalyticsService::track(QStringLiteral("section_opened"), {{QStringLiteral("section"), mainSectionRaw()}});
    emit mainSectionChanged();
    emit changed();
}

bool AppState::usesServiceBalance() const {
    if (m_settings->useEmbeddedKey())
        return true;
    // Spaces and tabs only: a key that is nothing but line breaks still counts as a key.
    const QString& key = m_settings->apiKey();
    qsizetype start = 0, end = key.size();
    while (start < end && (key[start] == ' ' || key[start] == '\t'))
        ++start;
    while (end > start && (key[end - 1] == ' ' || key[end - 1] == '\t'))
        --end;
    return start == end;
}

} // namespace tamvex
