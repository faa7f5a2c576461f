#include "history/Formatting.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace tamvex {

namespace {

constexpr qint64 kWeeklyGoalWords = 2000;

// A fixed-point figure with printf's rounding (ties to even on the exact binary value:
// 24.5 with no decimals reads "24", as the figures are specified) but always with a dot:
// printf follows LC_NUMERIC, which QCoreApplication sets from the user's locale ("1,0").
QString fixed(double value, int decimals) {
    char buffer[400]; // the longest double written out in full
    const auto end = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, decimals);
    return end.ec == std::errc() ? QString::fromLatin1(buffer, end.ptr - buffer) : QStringLiteral("0");
}

// Russian nouns after a number take one of three forms: 1 минута, 2 минуты, 5 минут.
QString russianPlural(qint64 n, const char* one, const char* few, const char* many) {
    const qint64 tens = n % 100, units = n % 10;
    if (units == 1 && tens != 11)
        return QString::fromUtf8(one);
    if (units >= 2 && units <= 4 && (tens < 12 || tens > 14))
        return QString::fromUtf8(few);
    return QString::fromUtf8(many);
}

QString savedForInsightsPane(double minutes) {
    return minutes < 60 ? fixed(minutes, 0) + "м" : fixed(minutes / 60.0, 1) + "ч";
}

QString savedForHomePane(double minutes) {
    return minutes < 60 ? fixed(minutes, 0) + " мин" : fixed(minutes / 60.0, 1) + "ч";
}

} // namespace

QString formatTokens(double value) {
    const double rounded = std::round(value);
    QString digits;
    // What a number formatter cannot write (NaN, infinities, beyond 64 bits) reads "0".
    if (!std::isfinite(rounded) || std::abs(rounded) >= 9.2e18 || rounded == 0.0) {
        digits = QStringLiteral("0");
    } else {
        const qint64 whole = qint64(rounded);
        const QString plain = QString::number(whole < 0 ? -whole : whole);
        for (qsizetype i = 0; i < plain.size(); ++i) {
            if (i > 0 && (plain.size() - i) % 3 == 0)
                digits += u' ';
            digits += plain[i];
        }
        if (whole < 0)
            digits.prepend(u'-');
    }
    return digits + QStringLiteral(" ø");
}

QString groupedNumber(qint64 value, const QLocale& locale) { return locale.toString(value); }

double savedMinutes(qint64 totalWords) { return double(totalWords) / 40.0 - double(totalWords) / 140.0; }

bool insightsDashboardVisible(const std::optional<Insights>& insights) {
    return insights && insights->totalWords >= 1;
}

QPair<QString, QString> insightsPlaceholder() {
    return {QStringLiteral("Пока недостаточно данных"),
            QStringLiteral("Сделай несколько диктовок и здесь появятся графики, тепловая карта и категории.")};
}

QString insightsUpdatedCaption(const QDateTime& generatedAt, const QDateTime& now) {
    const qint64 seconds = std::max<qint64>(0, generatedAt.secsTo(now));
    if (seconds < 60)
        return QStringLiteral("Обновлено только что");
    QString age;
    if (seconds < 3600)
        age = QString::number(seconds / 60) + " " + russianPlural(seconds / 60, "минуту", "минуты", "минут");
    else if (seconds < 86400)
        age = QString::number(seconds / 3600) + " " + russianPlural(seconds / 3600, "час", "часа", "часов");
    else
        age = QString::number(seconds / 86400) + " " + russianPlural(seconds / 86400, "день", "дня", "дней");
    return QStringLiteral("Обновлено ") + age + QStringLiteral(" назад");
}

QList<InsightTile> insightsCards(const Insights& s, const QLocale& locale) {
    return {
        {"Слов в минуту", "speedometer", fixed(s.avgWordsPerMinute, 0), "среднее по всем диктовкам"},
        {"Всего слов", "textformat", groupedNumber(s.totalWords, locale),
         "≈ " + QString::number(s.totalWords / 250) + " страниц A4"},
        {"Используешь", "calendar", QString::number(s.daysUsed), "дней"},
        {"Сэкономлено", "bolt.fill", savedForInsightsPane(savedMinutes(s.totalWords)), "vs набор текста"},
    };
}

QList<qint64> lastSevenDays(const Insights& s, const QDateTime& now) {
    QList<qint64> days;
    const QDateTime local = now.toLocalTime();
    for (int offset = 6; offset >= 0; --offset)
        days.append(s.heatmap.value(heatmapKey(local.addDays(-offset)), 0));
    return days;
}

QList<InsightTile> homeTiles(const std::optional<Insights>& insights, const QLocale& locale) {
    const Insights s = insights.value_or(Insights{});
    const QString weekly =
        s.wordsLastWeek >= 1 ? "+" + QString::number(s.wordsLastWeek) + " за неделю" : QString();
    const QString spoken = s.totalMinutes < 60
                               ? "≈ " + QString::number(qint64(s.totalMinutes)) + " мин"
                               : "≈ " + fixed(s.totalMinutes / 60.0, 1) + " часа";
    return {
        {"Слов всего", "textformat", groupedNumber(s.totalWords, locale), weekly},
        {"Минут наговорено", "clock.fill", fixed(s.totalMinutes, 0), spoken},
        {"Используешь", "calendar", QString::number(s.daysUsed), "дней"},
        {"Сэкономлено", "bolt.fill", savedForHomePane(savedMinutes(s.totalWords)), "vs набор текста"},
    };
}

WeeklyGoal weeklyGoal(qint64 wordsLastWeek) {
    WeeklyGoal goal;
    goal.fill = std::min(double(wordsLastWeek) / double(kWeeklyGoalWords), 1.0);
    goal.label = QString::number(wordsLastWeek) + " / " + QString::number(kWeeklyGoalWords);
    const qint64 remaining = kWeeklyGoalWords - wordsLastWeek;
    // The celebration names the goal, not the real count.
    goal.caption = remaining < 1 ? "🎉 Ты намурчал " + QString::number(kWeeklyGoalWords) + " слов на этой неделе!"
                                 : "Ещё " + QString::number(remaining) + " слов до новых инсайтов";
    return goal;
}

QList<CategoryShare> categoryShares(const QMap<QString, qint64>& breakdown) {
    qint64 total = 0;
    for (qint64 words : breakdown)
        total += words;
    total = std::max<qint64>(total, 1);
    QList<CategoryShare> rows;
    for (TextCategory c : allTextCategories) {
        const qint64 words = breakdown.value(categoryRawValue(c), 0);
        if (words < 1)
            continue;
        const int percent = int(words * 100 / total);
        rows.append({c, words, percent, QString::number(percent) + "%"});
    }
    // Stable, so categories with equal words keep their declared order.
    std::stable_sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) { return a.words > b.words; });
    return rows;
}

QString categoriesEmptyText() { return QStringLiteral("Пока нечего показать"); }

QList<QPair<QString, qint64>> sortedTopWords(const QMap<QString, qint64>& topWords) {
    QList<QPair<QString, qint64>> words;
    for (auto it = topWords.begin(); it != topWords.end(); ++it)
        words.append({it.key(), it.value()});
    std::stable_sort(words.begin(), words.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
    if (words.size() > 15)
        words.resize(15);
    return words;
}

QString topWordsEmptyText() { return QStringLiteral("Недостаточно данных для разбора"); }

QList<ActivityCell> activityGrid(const QMap<QString, qint64>& heatmap, const QDateTime& now) {
    QList<ActivityCell> cells;
    const QDateTime local = now.toLocalTime();
    qint64 busiest = 1;
    for (int offset = 27; offset >= 0; --offset) {
        const QDateTime day = local.addDays(-offset);
        const qint64 words = heatmap.value(heatmapKey(day), 0);
        busiest = std::max(busiest, words);
        cells.append({day.date(), words, 0.0});
    }
    for (ActivityCell& cell : cells)
        cell.opacity = double(cell.words) / double(busiest) * 0.75 + 0.1;
    return cells;
}

} // namespace tamvex
