#include "history/HistoryDB.h"

#include "history/Words.h"

#include <sqlite3.h>

namespace tamvex {

namespace {

const char* const kCreateTable = "CREATE TABLE IF NOT EXISTS entries (\n"
                                 "    id TEXT PRIMARY KEY,\n"
                                 "    created_at REAL NOT NULL,\n"
                                 "    duration_sec REAL NOT NULL,\n"
                                 "    text TEXT NOT NULL DEFAULT '',\n"
                                 "    error_message TEXT,\n"
                                 "    model_used TEXT,\n"
                                 "    cost_usd REAL,\n"
                                 "    prompt_tokens INTEGER,\n"
                                 "    completion_tokens INTEGER,\n"
                                 "    app_context TEXT,\n"
                                 "    category TEXT,\n"
                                 "    audio_path TEXT\n"
                                 ");";

const char* const kCreateIndex = "CREATE INDEX IF NOT EXISTS idx_entries_created_at ON entries(created_at DESC);";

const char* const kUpsert =
    "INSERT INTO entries (id, created_at, duration_sec, text, error_message, model_used,\n"
    "                     cost_usd, prompt_tokens, completion_tokens, app_context, category, audio_path)\n"
    "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)\n"
    "ON CONFLICT(id) DO UPDATE SET\n"
    "    created_at=excluded.created_at,\n"
    "    duration_sec=excluded.duration_sec,\n"
    "    text=excluded.text,\n"
    "    error_message=excluded.error_message,\n"
    "    model_used=excluded.model_used,\n"
    "    cost_usd=excluded.cost_usd,\n"
    "    prompt_tokens=excluded.prompt_tokens,\n"
    "    completion_tokens=excluded.completion_tokens,\n"
    "    app_context=excluded.app_context,\n"
    "    category=excluded.category,\n"
    "    audio_path=excluded.audio_path;";

QString messageOf(sqlite3* db) {
    const char* message = db ? sqlite3_errmsg(db) : nullptr;
    return message ? QString::fromUtf8(message) : QStringLiteral("unknown");
}

// Owns one prepared statement and finalises it on every way out of the call.
class Statement {
public:
    Statement(sqlite3* db, const char* sql) : m_db(db) {
        if (sqlite3_prepare_v2(db, sql, -1, &m_stmt, nullptr) != SQLITE_OK) {
            sqlite3_finalize(m_stmt);
            m_stmt = nullptr;
            throw HistoryDBError(HistoryDBError::Kind::prepareFailed, messageOf(db));
        }
    }
    ~Statement() { sqlite3_finalize(m_stmt); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    sqlite3_stmt* get() const { return m_stmt; }

    void bindText(int index, const std::optional<QString>& text) {
        if (!text)
            return check(sqlite3_bind_null(m_stmt, index));
        const QByteArray utf8 = text->toUtf8();
        // Bound as a zero-terminated string: an embedded zero ends the text there.
        check(sqlite3_bind_text(m_stmt, index, utf8.constData(), -1, SQLITE_TRANSIENT));
    }
    void bindDouble(int index, std::optional<double> value) {
        check(value ? sqlite3_bind_double(m_stmt, index, *value) : sqlite3_bind_null(m_stmt, index));
    }
    void bindInt64(int index, std::optional<qint64> value) {
        check(value ? sqlite3_bind_int64(m_stmt, index, *value) : sqlite3_bind_null(m_stmt, index));
    }
    /// Steps a write to its end; anything but SQLITE_DONE is a failure.
    void stepWrite() {
        if (sqlite3_step(m_stmt) != SQLITE_DONE)
            throw HistoryDBError(HistoryDBError::Kind::execFailed, messageOf(m_db));
    }

private:
    void check(int rc) {
        if (rc != SQLITE_OK)
            throw HistoryDBError(HistoryDBError::Kind::execFailed, messageOf(m_db));
    }
    sqlite3* m_db;
    sqlite3_stmt* m_stmt = nullptr;
};

std::optional<QString> columnText(sqlite3_stmt* stmt, int column) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(stmt, column));
    if (!text)
        return std::nullopt;
    return QString::fromUtf8(text, sqlite3_column_bytes(stmt, column));
}

std::optional<HistoryEntry> readRow(sqlite3_stmt* stmt) {
    const auto idText = columnText(stmt, 0);
    const auto id = idText ? parseUuid(*idText) : std::nullopt;
    if (!id)
        return std::nullopt;
    HistoryEntry e;
    e.id = *id;
    e.createdAt = dateFromSeconds(sqlite3_column_double(stmt, 1));
    e.durationSec = sqlite3_column_double(stmt, 2);
    e.text = columnText(stmt, 3).value_or(QString());
    e.errorMessage = columnText(stmt, 4);
    e.modelUsed = columnText(stmt, 5);
    if (sqlite3_column_type(stmt, 6) != SQLITE_NULL)
        e.costUSD = sqlite3_column_double(stmt, 6);
    if (sqlite3_column_type(stmt, 7) != SQLITE_NULL)
        e.promptTokens = sqlite3_column_int64(stmt, 7);
    if (sqlite3_column_type(stmt, 8) != SQLITE_NULL)
        e.completionTokens = sqlite3_column_int64(stmt, 8);
    e.appContext = columnText(stmt, 9);
    if (const auto raw = columnText(stmt, 10))
        e.category = categoryFromRawValue(*raw);
    e.audioPath = columnText(stmt, 11);
    return e;
}

} // namespace

HistoryDBError::HistoryDBError(Kind kind, QString message)
    : TamvexError(QStringLiteral("Ошибка базы данных истории: ") + message), m_kind(kind),
      m_message(std::move(message)) {}

QString HistoryDBError::logText() const {
    static const char* const names[] = {"openFailed", "prepareFailed", "execFailed"};
    return QString::fromLatin1(names[int(m_kind)]) + "(" + m_message + ")";
}

HistoryDB::HistoryDB(const QString& path) : m_path(path) {
    if (sqlite3_open(path.toUtf8().constData(), &m_db) != SQLITE_OK) {
        const QString message = messageOf(m_db);
        sqlite3_close(m_db);
        m_db = nullptr;
        throw HistoryDBError(HistoryDBError::Kind::openFailed, message);
    }
    try {
        runOrThrow("PRAGMA journal_mode=WAL;");
        runOrThrow("PRAGMA synchronous=NORMAL;");
        runOrThrow(kCreateTable);
        runOrThrow(kCreateIndex);
    } catch (...) {
        // A throwing constructor gets no destructor: close the handle here.
        sqlite3_close(m_db);
        m_db = nullptr;
        throw;
    }
}

HistoryDB::HistoryDB(const QString& path, ReadOnlyTag) : m_path(path) {
    if (sqlite3_open_v2(path.toUtf8().constData(), &m_db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        const QString message = messageOf(m_db);
        sqlite3_close(m_db);
        m_db = nullptr;
        throw HistoryDBError(HistoryDBError::Kind::openFailed, message);
    }
    // The application may be writing at the same moment; wait for it briefly rather than fail.
    sqlite3_busy_timeout(m_db, 2000);
}

HistoryDB HistoryDB::openReadOnly(const QString& path) { return HistoryDB(path, ReadOnlyTag{}); }

HistoryDB::~HistoryDB() {
    if (m_db)
        sqlite3_close(m_db);
}

HistoryDB::HistoryDB(HistoryDB&& other) noexcept : m_db(other.m_db), m_path(std::move(other.m_path)) {
    other.m_db = nullptr;
}

void HistoryDB::runOrThrow(const char* sql) {
    char* error = nullptr;
    if (sqlite3_exec(m_db, sql, nullptr, nullptr, &error) != SQLITE_OK) {
        const QString message = error ? QString::fromUtf8(error) : QStringLiteral("unknown");
        sqlite3_free(error);
        throw HistoryDBError(HistoryDBError::Kind::execFailed, message);
    }
}

void HistoryDB::exec(const QString& sql) { runOrThrow(sql.toUtf8().constData()); }

void HistoryDB::upsert(const HistoryEntry& e) {
    Statement st(m_db, kUpsert);
    st.bindText(1, uuidText(e.id));
    st.bindDouble(2, secondsSince1970(e.createdAt));
    st.bindDouble(3, e.durationSec);
    st.bindText(4, e.text);
    st.bindText(5, e.errorMessage);
    st.bindText(6, e.modelUsed);
    st.bindDouble(7, e.costUSD);
    st.bindInt64(8, e.promptTokens);
    st.bindInt64(9, e.completionTokens);
    st.bindText(10, e.appContext);
    st.bindText(11, e.category ? std::optional<QString>(categoryRawValue(*e.category)) : std::nullopt);
    st.bindText(12, e.audioPath);
    st.stepWrite();
}

QList<HistoryEntry> HistoryDB::fetch(std::optional<int> limit, int offset) {
    const QByteArray sql = limit ? "SELECT * FROM entries ORDER BY created_at DESC LIMIT " + QByteArray::number(*limit) +
                                       " OFFSET " + QByteArray::number(offset) + ";"
                                 : QByteArray("SELECT * FROM entries ORDER BY created_at DESC;");
    Statement st(m_db, sql.constData());
    // No reserve from the limit: it is a bound, not a size, and a caller may pass INT_MAX.
    QList<HistoryEntry> entries;
    // A failing step ends the read; what was read so far is the result.
    while (sqlite3_step(st.get()) == SQLITE_ROW)
        if (auto entry = readRow(st.get()))
            entries.append(std::move(*entry));
    return entries;
}

void HistoryDB::byIdWrite(const char* sql, const QUuid& id) {
    Statement st(m_db, sql);
    st.bindText(1, uuidText(id));
    st.stepWrite();
}

void HistoryDB::remove(const QUuid& id) { byIdWrite("DELETE FROM entries WHERE id = ?;", id); }

void HistoryDB::clearAudioPath(const QUuid& id) {
    byIdWrite("UPDATE entries SET audio_path = NULL WHERE id = ?;", id);
}

void HistoryDB::prune(int keeping) {
    // Deletes what lies past the newest `keeping` rows on the created_at index. The same rows go
    // as with "id NOT IN (the newest `keeping`)", but without building and probing a set of every
    // id in the table, which cost some 20 ms per add at the maximum of 10 000 rows.
    exec("DELETE FROM entries WHERE id IN (\n    SELECT id FROM entries ORDER BY created_at DESC LIMIT -1 OFFSET " +
         QString::number(keeping) + "\n);");
}

qint64 HistoryDB::wordCount(const QDateTime& since) {
    Statement st(m_db, "SELECT text FROM entries WHERE created_at >= ? AND text != '';");
    st.bindDouble(1, secondsSince1970(since));
    qint64 total = 0;
    while (sqlite3_step(st.get()) == SQLITE_ROW) {
        // Counted on the UTF-8 bytes: no conversion of every text of the week.
        const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(st.get(), 0));
        if (text)
            total += countWordsUtf8(text, sqlite3_column_bytes(st.get(), 0));
    }
    return total;
}

QList<QPair<QUuid, QString>> HistoryDB::expiredAudio(const QDateTime& before) {
    Statement st(m_db, "SELECT id, audio_path FROM entries WHERE audio_path IS NOT NULL AND created_at < ?;");
    st.bindDouble(1, secondsSince1970(before));
    QList<QPair<QUuid, QString>> result;
    while (sqlite3_step(st.get()) == SQLITE_ROW) {
        const auto idText = columnText(st.get(), 0);
        const auto id = idText ? parseUuid(*idText) : std::nullopt;
        const auto path = columnText(st.get(), 1);
        if (id && path)
            result.append({*id, *path});
    }
    return result;
}

qint64 HistoryDB::count() {
    Statement st(m_db, "SELECT COUNT(*) FROM entries;");
    return sqlite3_step(st.get()) == SQLITE_ROW ? sqlite3_column_int64(st.get(), 0) : 0;
}

} // namespace tamvex
