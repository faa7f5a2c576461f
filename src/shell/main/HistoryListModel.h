#pragma once

#include "history/HistoryEntry.h"

#include <QAbstractListModel>
#include <QList>
#include <QtQml/qqmlregistration.h>

namespace tamvex {

class Clock;
class HistoryStore;

/// The home pane's history as a list for QML: the loaded entries under their headings
/// (the "group" role feeds the view's sections), with the next page of the store fetched
/// as the view scrolls near the end.
class HistoryListModel : public QAbstractListModel {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Made by the main window's model")
    Q_PROPERTY(int count READ rowCount NOTIFY countChanged)
    Q_PROPERTY(bool empty READ isEmpty NOTIFY countChanged)
public:
    enum Role {
        IdRole = Qt::UserRole + 1,
        TitleRole,
        TextRole,
        GroupRole,
        SymbolRole,
        TimeRole,
        WordsRole,
        CostRole,
        SavedRole,
        FailedRole,
        ColorRole,
    };
    Q_ENUM(Role)

    HistoryListModel(HistoryStore& store, Clock& clock, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;
    bool canFetchMore(const QModelIndex& parent) const override;
    void fetchMore(const QModelIndex& parent) override;
    /// The next page, for a view that reached its end: ListView asks for one page by itself
    /// and then no more, so the list would stop at 400 entries.
    Q_INVOKABLE void loadNextPage() { fetchMore({}); }

    bool isEmpty() const { return m_rows.isEmpty(); }
    /// The entry of a row.
    const HistoryEntry& entryAt(int row) const { return m_rows.at(row).entry; }
    /// The heading of a row.
    QString groupAt(int row) const { return m_rows.at(row).group; }
    /// Regroups against the clock's today (the date may have changed since the last change).
    Q_INVOKABLE void refresh();

signals:
    void countChanged();

private:
    struct Row {
        HistoryEntry entry;
        QString group;
    };
    /// The rows of `entries`, under their group titles, for the clock's today.
    QList<Row> build(const QList<HistoryEntry>& entries);
    /// True when the store's first entries are the rows shown and more follow, on the day the
    /// rows were grouped.
    bool storeAppendedToRows() const;
    /// Puts the entries of a further page under their headings.
    void insertPage(const QList<HistoryEntry>& page);

    HistoryStore& m_store;
    Clock& m_clock;
    QDate m_builtOn;
    QList<Row> m_rows;
};

} // namespace tamvex
