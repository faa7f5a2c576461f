#include "shell/main/HistoryListModel.h"

#include "history/HistoryStore.h"
#include "platform/Clock.h"
#include "shell/main/HistoryRows.h"

#include <QLocale>
#include <QSet>

#include <algorithm>

namespace tamvex {

HistoryListModel::HistoryListModel(HistoryStore& store, Clock& clock, QObject* parent)
    : QAbstractListModel(parent), m_store(store), m_clock(clock), m_rows(build(store.entries())) {
    connect(&m_store, &HistoryStore::changed, this, &HistoryListModel::refresh);
}

QList<HistoryListModel::Row> HistoryListModel::build(const QList<HistoryEntry>& entries) {
    m_builtOn = m_clock.currentDateTime().toLocalTime().date();
    QList<Row> rows;
    rows.reserve(entries.size());
    for (const HistoryGroup& group : historyGroups(entries, m_clock.currentDateTime()))
        for (const HistoryEntry& entry : group.entries)
            rows.append({entry, group.title});
    return rows;
}

bool HistoryListModel::storeAppendedToRows() const {
    const QList<HistoryEntry>& entries = m_store.entries();
    if (entries.size() <= m_rows.size() || m_clock.currentDateTime().toLocalTime().date() != m_builtOn)
        return false;
    // The rows need not stand in the store's order: a page may have joined a heading above.
    QSet<QUuid> shown;
    shown.reserve(m_rows.size());
    for (const Row& row : m_rows)
        shown.insert(row.entry.id);
    return std::all_of(entries.begin(), entries.begin() + m_rows.size(),
                       [&](const HistoryEntry& entry) { return shown.contains(entry.id); });
}

void HistoryListModel::insertPage(const QList<HistoryEntry>& page) {
    for (const HistoryGroup& group : historyGroups(page, m_clock.currentDateTime())) {
        // A heading already shown takes the page's entries at its end, as a whole rebuild would:
        // the same day and month of an earlier year shares the heading of this year's.
        qsizetype at = m_rows.size();
        for (qsizetype i = m_rows.size(); i-- > 0;) {
            if (m_rows[i].group == group.title) {
                at = i + 1;
                break;
            }
        }
        beginInsertRows({}, int(at), int(at + group.entries.size()) - 1);
        for (const HistoryEntry& entry : group.entries)
            m_rows.insert(at++, {entry, group.title});
        endInsertRows();
    }
}

void HistoryListModel::refresh() {
    // A page loaded by scrolling: only its rows are built (a whole rebuild grows with every
    // page and stutters past a few thousand) and inserted, so the rows shown keep the view's position.
    if (storeAppendedToRows()) {
        insertPage(m_store.entries().mid(m_rows.size()));
        emit countChanged();
        return;
    }
    QList<Row> rows = build(m_store.entries());
    if (rows.size() == m_rows.size() &&
        std::equal(rows.begin(), rows.end(), m_rows.begin(),
                   [](const Row& a, const Row& b) { return a.group == b.group && a.entry.id == b.entry.id; })) {
        // Same rows in the same places: a retry or a category changed some of them.
        for (int i = 0; i < rows.size(); ++i) {
            if (!(rows[i].entry == m_rows[i].entry)) {
                m_rows[i] = rows[i];
                emit dataChanged(index(i), index(i));
            }
        }
        return;
    } else {
        beginResetModel();
        m_rows = std::move(rows);
        endResetModel();
    }
    emit countChanged();
}

int HistoryListModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(m_rows.size());
}

QVariant HistoryListModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= m_rows.size())
        return {};
    const Row& row = m_rows.at(index.row());
    const HistoryEntry& e = row.entry;
    switch (role) {
    case IdRole:
        return uuidText(e.id);
    case Qt::DisplayRole:
    case TitleRole:
        return historyRowTitle(e);
    case TextRole:
        return e.text;
    case GroupRole:
        return row.group;
    // Not yet classified (or never, as a failed run): the tile shows no category.
    case SymbolRole:
        return e.category ? categorySymbol(*e.category) : QString();
    case ColorRole:
        return e.category ? categoryColorName(*e.category) : QString();
    case TimeRole:
        return QLocale(QLocale::Russian, QLocale::Russia)
            .toString(e.createdAt.toLocalTime().time(), QLocale::ShortFormat);
    case WordsRole:
        return historyWordsText(e);
    case CostRole:
        return historyCostText(e);
    case SavedRole:
        return historyAudioSaved(e);
    case FailedRole:
        return e.errorMessage.has_value();
    default:
        return {};
    }
}

QHash<int, QByteArray> HistoryListModel::roleNames() const {
    return {{IdRole, "entryId"},    {TitleRole, "title"},  {TextRole, "text"},   {GroupRole, "group"},
            {SymbolRole, "symbol"}, {TimeRole, "time"},    {WordsRole, "words"}, {CostRole, "cost"},
            {SavedRole, "saved"},   {FailedRole, "failed"}, {ColorRole, "categoryColor"}};
}

bool HistoryListModel::canFetchMore(const QModelIndex& parent) const {
    return !parent.isValid() && m_store.hasMore();
}

void HistoryListModel::fetchMore(const QModelIndex& parent) {
    if (canFetchMore(parent))
        m_store.loadMore(); // changed() brings the new rows in through refresh()
}

} // namespace tamvex
