#pragma once

#include "history/HistoryEntry.h"
#include "platform/Paths.h"

#include <QList>
#include <QObject>

#include <functional>
#include <memory>
#include <optional>

namespace tamvex {

class Clock;
class HistoryDB;

/// The observable history: the newest pages in memory, every change written through to SQLite.
/// Persistence errors stop here; no operation raises to its caller.
class HistoryStore : public QObject {
    Q_OBJECT
    Q_PROPERTY(QList<tamvex::HistoryEntry> entries READ entries NOTIFY changed)
    Q_PROPERTY(bool hasMore READ hasMore NOTIFY changed)
    Q_PROPERTY(bool available READ isAvailable NOTIFY changed)
public:
    static constexpr int pageSize = 200;
    static constexpr int maxStoredEntries = 10000;
    static constexpr double retryAudioTTL = 604800.0;

    /// Makes an empty store without a database; init() opens it.
    HistoryStore(const Paths& paths, Clock& clock, QObject* parent = nullptr);
    ~HistoryStore() override;

    /// Opens the database, imports the legacy JSON once, drops expired retry audio and loads
    /// the first page. On failure the store runs this session without a database.
    void init();

    /// Records a run, newest first, and prunes the table to its maximum.
    void add(const HistoryEntry& entry);
    /// Sets the category of a loaded entry; an entry outside the loaded pages is left alone.
    void setCategory(const QUuid& id, TextCategory category);
    /// Puts the text of a successful retry on a loaded entry and drops its kept audio.
    void applyRetrySuccess(const QUuid& id, const QString& text, std::optional<double> costUSD,
                           std::optional<qint64> promptTokens, std::optional<qint64> completionTokens);
    /// Records the message of a failed retry; the audio stays so it can be retried again.
    void setError(const QUuid& id, const QString& message);
    /// Appends the next page of 200 entries.
    void loadMore();
    /// Loads further pages until the entry with `id` is among the loaded ones (a retry looks
    /// only there); false when no page holds it or a page could not be read.
    bool loadUntilFound(const QUuid& id);
    /// Deletes an entry from memory and table (its kept audio file stays).
    void remove(const QUuid& id);
    /// Empties the history and, through cleared(), the insights.
    void clearAll();
    /// Words of the last seven calendar days, over the whole table; 0 without a database.
    qint64 wordsLastWeek() const;

    /// The loaded entries, newest first.
    const QList<HistoryEntry>& entries() const { return m_entries; }
    /// True while the table holds rows beyond the loaded ones.
    bool hasMore() const { return m_hasMore; }
    /// False when the database could not be opened this session.
    bool isAvailable() const { return m_db != nullptr; }
    /// The loaded entry with the id, if any.
    std::optional<HistoryEntry> entry(const QUuid& id) const;
    /// The data folder ("Tamv").
    const QString& appSupportDir() const { return m_appSupportDir; }

signals:
    /// Emitted after every change of entries or hasMore.
    void changed();
    /// Emitted by clearAll(); the insights store listens to drop its snapshot.
    void cleared();

private:
    void migrateLegacyJSON();
    void cleanExpiredRetryAudio();
    void reloadFirstPage();
    HistoryEntry* find(const QUuid& id);
    // Changes a loaded entry and writes it through; an entry outside the loaded pages is left alone.
    void updateLoaded(const QUuid& id, const std::function<void(HistoryEntry&)>& change);

    Paths m_paths;
    Clock& m_clock;
    QString m_appSupportDir;
    QList<HistoryEntry> m_entries;
    bool m_hasMore = false;
    std::unique_ptr<HistoryDB> m_db;
};

} // namespace tamvex
