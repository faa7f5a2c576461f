#pragma once

#include "history/HistoryEntry.h"
#include "history/Insights.h"

#include <QDate>
#include <QList>
#include <QLocale>
#include <QPair>
#include <QString>

#include <optional>

namespace tamvex {

/// A balance in "ø" as text: whole number, blanks between groups of three, then " ø".
QString formatTokens(double value);

/// A whole number with the locale's digit grouping.
QString groupedNumber(qint64 value, const QLocale& locale = QLocale());

/// One figure card of the home or insights pane.
struct InsightTile {
    QString title;
    QString symbol;
    QString value;
    QString subtitle;
    bool operator==(const InsightTile&) const = default;
};

/// Minutes saved against typing: words at 40 a minute less words at 140 a minute.
double savedMinutes(qint64 totalWords);

/// True when the insights pane shows its dashboard rather than its placeholder.
bool insightsDashboardVisible(const std::optional<Insights>& insights);
/// The placeholder's title and text.
QPair<QString, QString> insightsPlaceholder();
/// "Обновлено " and the age of the snapshot in Russian words ("только что", "5 минут назад").
QString insightsUpdatedCaption(const QDateTime& generatedAt, const QDateTime& now);
/// The insights pane's four cards, in order.
QList<InsightTile> insightsCards(const Insights& insights, const QLocale& locale = QLocale());
/// The words of the last 7 days from the heatmap, oldest first, today last.
QList<qint64> lastSevenDays(const Insights& insights, const QDateTime& now);

/// The home pane's four tiles, in order; without a snapshot every figure is 0.
QList<InsightTile> homeTiles(const std::optional<Insights>& insights, const QLocale& locale = QLocale());

/// The weekly goal of the home pane.
struct WeeklyGoal {
    double fill = 0.0;
    QString label;
    QString caption;
};
/// The bar's fill, its label and caption for the words of the last week.
WeeklyGoal weeklyGoal(qint64 wordsLastWeek);

/// One row of the category list.
struct CategoryShare {
    TextCategory category;
    qint64 words = 0;
    int percent = 0;
    /// The percentage as shown ("42%").
    QString percentText;
};
/// Categories with one word or more, most words first, with their share of all words.
QList<CategoryShare> categoryShares(const QMap<QString, qint64>& categoryBreakdown);
/// What the category list shows when it is empty.
QString categoriesEmptyText();

/// The top words, most frequent first, at most 15.
QList<QPair<QString, qint64>> sortedTopWords(const QMap<QString, qint64>& topWords);
/// What the top-words list shows when it is empty.
QString topWordsEmptyText();

/// One day of the activity grid.
struct ActivityCell {
    QDate date;
    qint64 words = 0;
    double opacity = 0.1;
};
/// The 28 days from 27 days ago to today, oldest first, with their opacity against the busiest day.
QList<ActivityCell> activityGrid(const QMap<QString, qint64>& heatmap, const QDateTime& now);

} // namespace tamvex
