#pragma once

#include "history/HistoryEntry.h"
#include "platform/Error.h"

#include <QList>
#include <QPair>
#include <QString>

#include <optional>

struct sqlite3;

namespace tamvex {

/// A failure of the history database, with SQLite's message (or "unknown").
class HistoryDBError : public TamvexError {
public:
    enum class Kind { openFailed, prepareFailed, execFailed };
    HistoryDBError(Kind kind, QString message);
    /// Which step failed.
    Kind kind() const { return m_kind; }
    /// SQLite's own message.
    const QString& message() const { return m_message; }
    /// The logged form: the case name with the message in parentheses, e.g. "openFailed(...)".
    QString logText() const;

private:
    Kind m_kind;
    QString m_message;
};

/// The SQLite file of the history: one connection, one table, a statement prepared per call.
class HistoryDB {
public:
    /// Opens (creating if needed) the file, turns on WAL and creates the table and index.
    explicit HistoryDB(const QString& path);
    /// Opens an existing file for reading only: no pragmas, no schema, nothing written.
    static HistoryDB openReadOnly(const QString& path);
    ~HistoryDB();
    HistoryDB(HistoryDB&& other) noexcept;
    HistoryDB& operator=(HistoryDB&&) = delete;
    HistoryDB(const HistoryDB&) = delete;
    HistoryDB& operator=(const HistoryDB&) = delete;

    /// The path of the file.
    const QString& path() const { return m_path; }

    /// Runs SQL text through sqlite3_exec.
    void exec(const QString& sql);
    /// Inserts the entry or replaces every column of the row with its id.
    void upsert(const HistoryEntry& entry);
    /// Entries newest first; all of them when `limit` is none. Unreadable rows are skipped.
    QList<HistoryEntry> fetch(std::optional<int> limit = std::nullopt, int offset = 0);
    /// Deletes the row with the id.
    void remove(const QUuid& id);
    /// Sets the row's audio path to NULL.
    void clearAudioPath(const QUuid& id);
    /// Deletes all rows but the `keeping` newest.
    void prune(int keeping);
    /// Words in the texts of the rows created at or after `since`.
    qint64 wordCount(const QDateTime& since);
    /// Ids and audio paths of rows created before `before` that still hold audio.
    QList<QPair<QUuid, QString>> expiredAudio(const QDateTime& before);
    /// The number of rows (0 when the query gives no row).
    qint64 count();

private:
    struct ReadOnlyTag {};
    HistoryDB(const QString& path, ReadOnlyTag);
    void runOrThrow(const char* sql);
    void byIdWrite(const char* sql, const QUuid& id);

    sqlite3* m_db = nullptr;
    QString m_path;
};

} // namespace tamvex
