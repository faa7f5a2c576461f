#include "shell/main/HistoryListModel.h"

#include "history/HistoryStore.h"
#include "platform/Clock.h"
#include "shell/main/HistoryRows.h"

#include <QLocale>

namespace tamvex {

HistoryListModel::HistoryListModel(HistoryStore& store, Clock& clock, QObject* parent)
    : QAbstractListModel(parent), m_store(store), m_clock(clock), m_rows(build()) {
    connect(&m_store, &HistoryStore::changed, this, &HistoryListModel::refresh);
}

QList<HistoryListModel::Row> HistoryListModel::build() const {
    QList<Row> rows;
    rows.reserve(m_store.entries().size());
    for (const HistoryGroup& group : historyGroups(m_store.entries(), m_clock.currentDateTime()))
        for (const HistoryEntry& entry : group.entries)
            rows.append({entry, group.title});
    return rows;
}

void HistoryListModel::refresh() {
    QList<Row> rows = build();
    const auto sameRow = [](const Row& a, const Row& b) { return a.group == b.group && a.entry == b.entry; };
    // A page appended by scrolling keeps the rows above as they are, and the view's position.
    const bool prefix = rows.size() > m_rows.size() && std::equal(m_rows.begin(), m_rows.end(), rows.begin(), sameRow);
    if (prefix) {
        beginInsertRows({}, int(m_rows.size()), int(rows.size()) - 1);
        m_rows = std::move(rows);
        endInsertRows();
    } else if (rows.size() == m_rows.size() &&
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
    case SymbolRole:
        return categorySymbol(e.category.value_or(TextCategory::other));
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
            {SavedRole, "saved"},   {FailedRole, "failed"}};
}

bool HistoryListModel::canFetchMore(const QModelIndex& parent) const {
    return !parent.isValid() && m_store.hasMore();
}

void HistoryListModel::fetchMore(const QModelIndex& parent) {
    if (canFetchMore(parent))
        m_store.loadMore(); // changed() brings the new rows in through refresh()
}

} // namespace tamvex
