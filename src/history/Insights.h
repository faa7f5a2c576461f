#pragma once

#include "history/HistoryEntry.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QMap>
#include <QString>

#include <optional>

namespace tamvex {

/// A snapshot of usage figures computed from the loaded history.
struct Insights {
    QDateTime generatedAt;
    qint64 totalWords = 0;
    double totalMinutes = 0.0;
    qint64 wordsLastWeek = 0;
    qint64 wordsLastMonth = 0;
    qint64 entriesCount = 0;
    qint64 daysUsed = 0;
    double avgWordsPerMinute = 0.0;
    /// Raw category value to words.
    QMap<QString, qint64> categoryBreakdown;
    /// The 15 most frequent words to their occurrences.
    QMap<QString, qint64> topWords;
    /// "yyyy-MM-dd" in local time to words, the last 28 days.
    QMap<QString, qint64> heatmap;
    std::optional<QString> llmSummary;

    bool operator==(const Insights&) const = default;

    /// The cache file's form: UTF-8 JSON, pretty-printed, sorted keys, ISO-8601 dates.
    QByteArray toJson() const;
    /// Decodes the cache file; none when it is not JSON or a required key is missing or mistyped.
    static std::optional<Insights> fromJson(const QByteArray& data);
};

/// Words that never count for topWords.
const QStringList& insightsStopWords();

/// Computes a snapshot over `entries` (those with text count) at the date `now`, carrying `llmSummary`.
Insights computeInsights(const QList<HistoryEntry>& entries, const QDateTime& now,
                         const std::optional<QString>& llmSummary = std::nullopt);

/// The heatmap key of a date: "yyyy-MM-dd" in local time.
QString heatmapKey(const QDateTime& date);

} // namespace tamvex
