#include "shell/main/HistoryRows.h"

#include "history/Formatting.h"
#include "history/Words.h"

#include <QFileInfo>
#include <QLocale>

namespace tamvex {

QString historyGroupTitle(const QDateTime& createdAt, const QDateTime& now) {
    const QDate day = createdAt.toLocalTime().date();
    const QDate today = now.toLocalTime().date();
    if (day == today)
        return QStringLiteral("СЕГОДНЯ");
    if (day == today.addDays(-1))
        return QStringLiteral("ВЧЕРА");
    // "d MMMM" in Russian takes the genitive month name: "5 марта".
    static const QLocale russian(QLocale::Russian, QLocale::Russia);
    return russian.toString(day, QStringLiteral("d MMMM"));
}

QList<HistoryGroup> historyGroups(const QList<HistoryEntry>& entries, const QDateTime& now) {
    HistoryGroup today{QStringLiteral("СЕГОДНЯ"), {}};
    HistoryGroup yesterday{QStringLiteral("ВЧЕРА"), {}};
    QList<HistoryGroup> older;
    for (const HistoryEntry& entry : entries) {
        const QString title = historyGroupTitle(entry.createdAt, now);
        if (title == today.title) {
            today.entries.append(entry);
        } else if (title == yesterday.title) {
            yesterday.entries.append(entry);
        } else {
            // The store is newest first, so a heading's first entry fixes its place.
            auto it = std::find_if(older.begin(), older.end(), [&](const HistoryGroup& g) { return g.title == title; });
            if (it == older.end())
                older.append({title, {entry}});
            else
                it->entries.append(entry);
        }
    }
    QList<HistoryGroup> groups;
    if (!today.entries.isEmpty())
        groups.append(today);
    if (!yesterday.entries.isEmpty())
        groups.append(yesterday);
    groups.append(older);
    return groups;
}

QString historyRowTitle(const HistoryEntry& entry) {
    if (entry.errorMessage)
        return QStringLiteral("Ошибка: ") + leftCharacters(*entry.errorMessage, 40);
    const QString firstLine = leftCharacters(entry.text.section(u'\n', 0, 0), 60);
    return firstLine.isEmpty() ? QStringLiteral("(пустая)") : firstLine;
}

QString historyWordsText(const HistoryEntry& entry) {
    const qint64 words = countWords(entry.text);
    return words > 0 ? QString::number(words) + QStringLiteral(" слов") : QString();
}

QString historyCostText(const HistoryEntry& entry) {
    if (!entry.costUSD || *entry.costUSD <= 0.0)
        return {};
    return formatTokens(*entry.costUSD * 250000.0);
}

bool historyAudioSaved(const HistoryEntry& entry) {
    return entry.audioPath && !entry.audioPath->isEmpty() && QFileInfo::exists(*entry.audioPath);
}

} // namespace tamvex
