#include "shell/main/MainWindowModel.h"

#include "account/AccountStore.h"
#include "account/AnalyticsService.h"
#include "core/AppState.h"
#include "history/Formatting.h"
#include "history/HistoryStore.h"
#include "history/InsightsStore.h"
#include "platform/Log.h"
#include "shell/SettingsStore.h"

#include <QClipboard>
#include <QGuiApplication>

#include <algorithm>

namespace tamvex {

namespace {
QVariantMap tileMap(const InsightTile& t) {
    return {{"title", t.title}, {"symbol", t.symbol}, {"value", t.value}, {"subtitle", t.subtitle}};
}
QVariantList tileList(const QList<InsightTile>& tiles) {
    QVariantList list;
    for (const InsightTile& t : tiles)
        list.append(tileMap(t));
    return list;
}
} // namespace

MainWindowModel::MainWindowModel(AppState& state, Hooks hooks, QObject* parent)
    : QObject(parent), m_state(state), m_hooks(std::move(hooks)), m_history(state.history(), state.clock()),
      m_retrying(state) {
    connect(&m_state, &AppState::mainSectionChanged, this, &MainWindowModel::sectionChanged);
    connect(&m_state, &AppState::recordingStateChanged, this, &MainWindowModel::recordingChanged);
    connect(&m_state.account(), &AccountStore::changed, this, &MainWindowModel::accountChanged);
    connect(&m_state.insights(), &InsightsStore::changed, this, &MainWindowModel::insightsChanged);
    connect(&m_state.settings(), &SettingsStore::changed, this, &MainWindowModel::settingsChanged);
}

QString MainWindowModel::section() const {
    return m_state.mainSectionRaw();
}

SettingsPaneModel* MainWindowModel::settingsPane() {
    if (!m_settingsPane)
        m_settingsPane =
            std::make_unique<SettingsPaneModel>(m_state, *m_hooks.microphone, *m_hooks.input, *m_hooks.models,
                                                          m_hooks.selfTest);
    return m_settingsPane.get();
}

int MainWindowModel::sectionIndex() const {
    return int(mainSections::all().indexOf(m_state.mainSection()));
}

void MainWindowModel::setSection(const QString& raw) {
    if (const auto section = mainSections::fromRawValue(raw))
        m_state.setMainSection(*section);
}

bool MainWindowModel::recording() const {
    return m_state.recordingState().is(RecordingState::Case::recording);
}

bool MainWindowModel::loggedIn() const {
    return m_state.account().isLoggedIn();
}

QString MainWindowModel::phone() const {
    return m_state.account().phone();
}

QString MainWindowModel::balanceText() const {
    return formatTokens(m_state.account().balanceTokens());
}

void MainWindowModel::setSelectedEntryId(const QString& id) {
    if (id == m_selectedEntryId)
        return;
    m_selectedEntryId = id;
    emit selectedEntryIdChanged();
}

QVariantList MainWindowModel::homeTiles() const {
    return tileList(tamvex::homeTiles(m_state.insights().insights()));
}

QVariantMap MainWindowModel::weeklyGoalMap() const {
    // Like the tiles above it, the goal shows the last snapshot as it stands.
    const auto& insights = m_state.insights().insights();
    const WeeklyGoal goal = weeklyGoal(insights ? insights->wordsLastWeek : 0);
    return {{"fill", goal.fill}, {"label", goal.label}, {"caption", goal.caption}};
}

bool MainWindowModel::insightsReady() const {
    return insightsDashboardVisible(m_state.insights().insights());
}

QString MainWindowModel::insightsUpdated() const {
    const auto& insights = m_state.insights().insights();
    return insights ? insightsUpdatedCaption(insights->generatedAt, m_state.clock().currentDateTime()) : QString();
}

QVariantList MainWindowModel::insightCards() const {
    const auto& insights = m_state.insights().insights();
    return insights ? tileList(insightsCards(*insights)) : QVariantList();
}

QVariantList MainWindowModel::activity() const {
    const auto& insights = m_state.insights().insights();
    QVariantList cells;
    if (!insights)
        return cells;
    for (const ActivityCell& c : activityGrid(insights->heatmap, m_state.clock().currentDateTime()))
        cells.append(QVariantMap{{"date", c.date.toString(Qt::ISODate)}, {"words", c.words}, {"opacity", c.opacity}});
    return cells;
}

QVariantList MainWindowModel::categories() const {
    const auto& insights = m_state.insights().insights();
    QVariantList rows;
    if (!insights)
        return rows;
    for (const CategoryShare& s : categoryShares(insights->categoryBreakdown))
        rows.append(QVariantMap{{"title", categoryTitle(s.category)},
                                {"symbol", categorySymbol(s.category)},
                                {"color", categoryColorName(s.category)},
                                {"words", s.words},
                                {"percent", s.percent},
                                {"percentText", s.percentText}});
    return rows;
}

QVariantList MainWindowModel::topWords() const {
    const auto& insights = m_state.insights().insights();
    QVariantList chips;
    if (!insights)
        return chips;
    for (const auto& [word, count] : sortedTopWords(insights->topWords))
        chips.append(QVariantMap{{"word", word}, {"count", count}});
    return chips;
}

QVariantList MainWindowModel::weekBars() const {
    const auto& insights = m_state.insights().insights();
    QVariantList bars;
    if (!insights)
        return bars;
    const QList<qint64> days = lastSevenDays(*insights, m_state.clock().currentDateTime());
    const qint64 busiest = std::max<qint64>(1, *std::max_element(days.begin(), days.end()));
    for (qint64 words : days)
        bars.append(double(words) / double(busiest));
    return bars;
}

QString MainWindowModel::categoriesEmptyText() const {
    return tamvex::categoriesEmptyText();
}

QString MainWindowModel::topWordsEmptyText() const {
    return tamvex::topWordsEmptyText();
}

QString MainWindowModel::placeholderTitle() const {
    return insightsPlaceholder().first;
}

QString MainWindowModel::placeholderText() const {
    return insightsPlaceholder().second;
}

QObject* MainWindowModel::settingsObject() const {
    return &m_state.settings();
}

QVariantList MainWindowModel::presets() const {
    QVariantList list;
    const PipelinePreset selected = m_state.settings().preset();
    for (PipelinePreset p : presets::all())
        list.append(QVariantMap{{"raw", presets::rawValue(p)},
                                {"title", presets::title(p)},
                                {"subtitle", presets::subtitle(p)},
                                {"cost", presets::costLine(p)},
                                {"selected", p == selected}});
    return list;
}

QString MainWindowModel::telegramTitle() const {
    return QStringLiteral("Написать в Telegram — ") + m_hooks.telegramContact;
}

void MainWindowModel::toggleRecording() {
    if (m_hooks.toggleRecording)
        m_hooks.toggleRecording();
}

void MainWindowModel::tapStatusPill() {
    logInfo(QStringLiteral("status pill tapped, loggedIn=") + (loggedIn() ? "true" : "false"));
    m_state.setMainSection(MainSection::account);
    if (m_hooks.showWindow)
        m_hooks.showWindow();
}

void MainWindowModel::tapEntry(const QString& id) {
    setSelectedEntryId(id == m_selectedEntryId ? QString() : id);
}

void MainWindowModel::copyEntry(const QString& id) {
    const auto uuid = parseUuid(id);
    const auto entry = uuid ? m_state.history().entry(*uuid) : std::nullopt;
    if (!entry)
        return;
    if (auto* clipboard = QGuiApplication::clipboard()) {
        clipboard->clear();
        clipboard->setText(entry->text);
    }
}

void MainWindowModel::removeEntry(const QString& id) {
    if (const auto uuid = parseUuid(id))
        m_state.history().remove(*uuid);
    setSelectedEntryId(QString());
}

void MainWindowModel::retryEntry(const QString& id) {
    m_retrying.retry(id);
}

void MainWindowModel::refreshInsights() {
    m_state.insights().refresh();
    emit insightsChanged(); // "Обновлено …" is relative to now, even when nothing was computed
}

void MainWindowModel::signOut() {
    m_state.account().signOut();
}

void MainWindowModel::clearHistory() {
    m_state.history().clearAll();
    setSelectedEntryId(QString());
}

void MainWindowModel::openTopUp() {
    if (m_hooks.openUrl && m_hooks.topUpUrl.isValid())
        m_hooks.openUrl(m_hooks.topUpUrl);
}

void MainWindowModel::openTelegram() {
    AnalyticsService::track(QStringLiteral("feedback_telegram_clicked"));
    QString contact = m_hooks.telegramContact;
    if (contact.startsWith(u'@'))
        contact = QStringLiteral("https://t.me/") + contact.mid(1);
    if (m_hooks.openUrl)
        m_hooks.openUrl(QUrl(contact));
}

void MainWindowModel::choosePreset(const QString& raw) {
    m_state.settings().setPresetRaw(raw);
}

} // namespace tamvex
