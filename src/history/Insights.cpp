#include "history/Insights.h"

#include "history/Words.h"

#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tamvex {

namespace {

constexpr int kTopWords = 15;
constexpr int kHeatmapDays = 28;
constexpr qsizetype kMinWordLength = 4;

QJsonObject mapToJson(const QMap<QString, qint64>& map) {
    QJsonObject o;
    for (auto it = map.begin(); it != map.end(); ++it)
        o.insert(it.key(), it.value());
    return o;
}

bool readInteger(const QJsonValue& v, qint64& out) {
    if (!v.isDouble())
        return false;
    const double d = v.toDouble();
    if (d != std::floor(d) || std::abs(d) > 9.0e15)
        return false;
    out = qint64(d);
    return true;
}

bool readMap(const QJsonValue& v, QMap<QString, qint64>& out) {
    if (!v.isObject())
        return false;
    const QJsonObject o = v.toObject();
    for (auto it = o.begin(); it != o.end(); ++it) {
        qint64 n = 0;
        if (!readInteger(it.value(), n))
            return false;
        out.insert(it.key(), n);
    }
    return true;
}

} // namespace

const QStringList& insightsStopWords() {
    static const QStringList words = {
        "который", "которые", "которая", "которое", "поэтому", "потому", "просто", "очень", "сейчас", "только",
        "также",   "будет",   "должен",  "нужно",   "можно",   "могут",  "чтобы",  "когда", "после",  "перед",
        "every",   "where",   "their",   "there",   "would",   "could",  "should", "about", "which",  "while"};
    return words;
}

QString heatmapKey(const QDateTime& date) { return date.toLocalTime().date().toString(QStringLiteral("yyyy-MM-dd")); }

QByteArray Insights::toJson() const {
    QJsonObject o;
    o["generatedAt"] = isoDateText(generatedAt);
    o["totalWords"] = totalWords;
    o["totalMinutes"] = totalMinutes;
    o["wordsLastWeek"] = wordsLastWeek;
    o["wordsLastMonth"] = wordsLastMonth;
    o["entriesCount"] = entriesCount;
    o["daysUsed"] = daysUsed;
    o["avgWordsPerMinute"] = avgWordsPerMinute;
    o["categoryBreakdown"] = mapToJson(categoryBreakdown);
    o["topWords"] = mapToJson(topWords);
    o["heatmap"] = mapToJson(heatmap);
    if (llmSummary)
        o["llmSummary"] = *llmSummary;
    // QJsonObject keeps its keys sorted, so the output is sorted at every level.
    return QJsonDocument(o).toJson(QJsonDocument::Indented);
}

std::optional<Insights> Insights::fromJson(const QByteArray& data) {
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(data, &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject())
        return std::nullopt;
    const QJsonObject o = doc.object();
    Insights s;
    const QJsonValue generated = o.value("generatedAt");
    if (!generated.isString())
        return std::nullopt;
    s.generatedAt = parseIsoDate(generated.toString());
    const QJsonValue minutes = o.value("totalMinutes"), speed = o.value("avgWordsPerMinute");
    if (!s.generatedAt.isValid() || !minutes.isDouble() || !speed.isDouble())
        return std::nullopt;
    s.totalMinutes = minutes.toDouble();
    s.avgWordsPerMinute = speed.toDouble();
    const bool ok = readInteger(o.value("totalWords"), s.totalWords) &&
                    readInteger(o.value("wordsLastWeek"), s.wordsLastWeek) &&
                    readInteger(o.value("wordsLastMonth"), s.wordsLastMonth) &&
                    readInteger(o.value("entriesCount"), s.entriesCount) &&
                    readInteger(o.value("daysUsed"), s.daysUsed) &&
                    readMap(o.value("categoryBreakdown"), s.categoryBreakdown) &&
                    readMap(o.value("topWords"), s.topWords) && readMap(o.value("heatmap"), s.heatmap);
    if (!ok)
        return std::nullopt;
    const QJsonValue summary = o.value("llmSummary");
    if (summary.isString())
        s.llmSummary = summary.toString();
    else if (!summary.isUndefined() && !summary.isNull())
        return std::nullopt;
    return s;
}

Insights computeInsights(const QList<HistoryEntry>& entries, const QDateTime& now,
                         const std::optional<QString>& llmSummary) {
    Insights s;
    const QDateTime localNow = now.toLocalTime();
    QDateTime weekStart = localNow.addDays(-7);
    QDateTime monthStart = localNow.addDays(-30);
    if (!weekStart.isValid())
        weekStart = now;
    if (!monthStart.isValid())
        monthStart = now;
    const qint64 weekStartMs = weekStart.toMSecsSinceEpoch();
    const qint64 monthStartMs = monthStart.toMSecsSinceEpoch();

    double totalSeconds = 0.0;
    std::array<qint64, allTextCategories.size()> wordsByCategory{};
    std::array<bool, allTextCategories.size()> categorySeen{};
    QHash<QString, qint64> wordsByDay;
    // Words are counted as views into the lower-cased texts, which live until the end: no
    // string is made per word, and a plain hash keeps the lookups cheap.
    std::vector<QString> lowered;
    lowered.reserve(size_t(entries.size()));
    std::unordered_map<std::u16string_view, qint64> wordCounts;
    // Local dates change only on quarter hours, and entries come in order: convert once per quarter.
    qint64 lastQuarter = std::numeric_limits<qint64>::min();
    QString lastKey;
    for (const HistoryEntry& e : entries) {
        if (e.text.isEmpty())
            continue;
        const qint64 n = countWords(e.text);
        ++s.entriesCount;
        s.totalWords += n;
        totalSeconds += e.durationSec;
        const qint64 createdMs = e.createdAt.toMSecsSinceEpoch();
        if (createdMs >= weekStartMs)
            s.wordsLastWeek += n;
        if (createdMs >= monthStartMs)
            s.wordsLastMonth += n;
        const auto category = size_t(e.category.value_or(TextCategory::other));
        wordsByCategory[category] += n;
        categorySeen[category] = true;
        const qint64 quarter = createdMs >= 0 ? createdMs / 900000 : (createdMs - 899999) / 900000;
        if (quarter != lastQuarter) {
            lastQuarter = quarter;
            lastKey = heatmapKey(e.createdAt);
        }
        wordsByDay[lastKey] += n;
        lowered.push_back(e.text.toLower());
        forEachLetterRun(lowered.back(), kMinWordLength, [&](QStringView word) {
            ++wordCounts[std::u16string_view(word.utf16(), size_t(word.size()))];
        });
    }
    s.totalMinutes = totalSeconds / 60.0;
    s.avgWordsPerMinute = s.totalMinutes > 0 ? double(s.totalWords) / s.totalMinutes : 0.0;
    for (TextCategory c : allTextCategories)
        if (categorySeen[size_t(c)])
            s.categoryBreakdown.insert(categoryRawValue(c), wordsByCategory[size_t(c)]);

    for (const QString& stop : insightsStopWords())
        wordCounts.erase(std::u16string_view(QStringView(stop).utf16(), size_t(stop.size())));
    std::vector<std::pair<std::u16string_view, qint64>> ranked(wordCounts.begin(), wordCounts.end());
    // Equal counts fall alphabetically, so the cut is the same on every run.
    const auto byCount = [](const auto& a, const auto& b) {
        return a.second != b.second ? a.second > b.second : a.first < b.first;
    };
    const size_t keep = std::min<size_t>(kTopWords, ranked.size());
    std::partial_sort(ranked.begin(), ranked.begin() + ptrdiff_t(keep), ranked.end(), byCount);
    for (size_t i = 0; i < keep; ++i)
        s.topWords.insert(QString::fromUtf16(ranked[i].first.data(), qsizetype(ranked[i].first.size())),
                          ranked[i].second);

    for (int offset = 0; offset < kHeatmapDays; ++offset) {
        const QString key = heatmapKey(localNow.addDays(-offset));
        s.heatmap.insert(key, wordsByDay.value(key, 0));
    }
    s.daysUsed = wordsByDay.size();
    s.generatedAt = now;
    s.llmSummary = llmSummary;
    return s;
}

} // namespace tamvex
