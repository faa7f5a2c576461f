#pragma once

#include "history/HistoryEntry.h"

#include <QDateTime>
#include <QList>
#include <QString>

namespace tamvex {

/// Entries of one heading of the home pane's history.
struct HistoryGroup {
    QString title;
    QList<HistoryEntry> entries;
};

/// The history under its headings: "СЕГОДНЯ", "ВЧЕРА", then one per "d MMMM" text, newest
/// first. Two years' same day share a heading, because the heading's text is the key.
QList<HistoryGroup> historyGroups(const QList<HistoryEntry>& entries, const QDateTime& now);

/// The heading of one entry's day, as seen at `now`.
QString historyGroupTitle(const QDateTime& createdAt, const QDateTime& now);

/// A row's title: "Ошибка: " and 40 characters of the message, else the text's first line cut
/// to 60 characters, else "(пустая)".
QString historyRowTitle(const HistoryEntry& entry);

/// The detail part of a selected row: "12 слов" when there are words, the cost in ø when
/// there is one; empty texts are not shown.
QString historyWordsText(const HistoryEntry& entry);
QString historyCostText(const HistoryEntry& entry);

/// True when the entry's kept audio is on disk, so it can be retried ("сохранено").
bool historyAudioSaved(const HistoryEntry& entry);

} // namespace tamvex
