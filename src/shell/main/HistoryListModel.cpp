#include "shell/main/HistoryListModel.h"

#include "history/HistoryStore.h"
#include "platform/Clock.h"
#include "shell/main/HistoryRows.h"

#include <QLocale>

namespace tamvex {

HistoryListModel::HistoryListModel(HistoryStore& store, Clock& clock, QObject* parent)
    : QAbstractListModel(parent), m_store(store), m_clock(clock), m_rows(build(store.entries())) {
    connect(&m_store, &HistoryStore::changed, this, &HistoryListModel::refresh);
}

QList<HistoryListModel::Row> HistoryListModel::build(const QList<HistoryEntry>& entries) const {
    QList<Row> rows;
    rows.reserve(entries.size());
    for (const HistoryGroup& group : historyGroups(entries, m_clock.currentDateTime()))
        for (const HistoryEntry& entry : group.entries)
            rows.append({entry, group.title});
    return rows;
}

bool HistoryListModel::storeAppendedToRows() const {
    const QList<HistoryEntry>& entries = m_store.entries();
    if (entries.size() <= m_rows.size())
        return false;
    return std::equal(m_rows.begin(), m_rows.end(), entries.begin(),
                      [](const Row& row, const HistoryEntry& entry) { return row.entry.id == entry.id; });
}

void HistoryListModel::refresh() {
    // A page appended by scrolling: only its rows are built (a whole rebuild grows with every
    // page and stutters past a few thousand), and the rows above keep the view's position.
    if (storeAppendedToRows()) {
        const QList<Row> added = build(m_store.entries().mid(m_rows.size()));
        beginInsertRows({}, int(m_rows.size()), int(m_rows.size() + added.size()) - 1);
        m_rows.append(added);
        endInsertRows();
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
