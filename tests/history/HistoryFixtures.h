#pragma once

#include "history/HistoryDB.h"
#include "history/HistoryEntry.h"
#include "history/HistoryStore.h"
#include "support/TestSupport.h"

#include <QDateTime>
#include <QDir>
#include <QString>
#include <QUuid>

#include <sqlite3.h>

#include <memory>

namespace tamvex::test {

/// The default start date of ManualClock.
inline QDateTime clockStart() { return QDateTime(QDate(2026, 3, 2), QTime(9, 0), Qt::UTC); }

/// An entry with a fixed id made from `n`, created `secondsAgo` before `now`.
inline HistoryEntry makeEntry(int n, const QDateTime& now, double secondsAgo, const QString& text = "one two three") {
    HistoryEntry e;
    e.id = QUuid(QStringLiteral("00000000-0000-4000-8000-%1").arg(n, 12, 10, QChar('0')));
    e.createdAt = now.addMSecs(-qint64(secondsAgo * 1000.0));
    e.durationSec = 2.5;
    e.text = text;
    return e;
}

/// Writes `count` rows one second apart (row 0 newest) in one transaction.
inline void seedRows(const QString& path, int count, const QDateTime& now, int firstNumber = 0) {
    HistoryDB db(path);
    db.exec("BEGIN;");
    for (int i = 0; i < count; ++i)
        db.upsert(makeEntry(firstNumber + i, now, 60.0 + i, QStringLiteral("row %1 text").arg(firstNumber + i)));
    db.exec("COMMIT;");
}

/// Runs SQL on a second, independent connection to the file (as another process would).
inline bool rawExec(const QString& path, const QString& sql) {
    sqlite3* db = nullptr;
    bool ok = sqlite3_open(path.toUtf8().constData(), &db) == SQLITE_OK &&
              sqlite3_exec(db, sql.toUtf8().constData(), nullptr, nullptr, nullptr) == SQLITE_OK;
    sqlite3_close(db);
    return ok;
}

/// The first column of the first row of a query on a second connection, as text ("NULL" for null).
inline QString rawQuery(const QString& path, const QString& sql) {
    sqlite3* db = nullptr;
    QString result = "<error>";
    if (sqlite3_open(path.toUtf8().constData(), &db) == SQLITE_OK) {
        sqlite3_stmt* st = nullptr;
        if (sqlite3_prepare_v2(db, sql.toUtf8().constData(), -1, &st, nullptr) == SQLITE_OK) {
            const int rc = sqlite3_step(st);
            if (rc == SQLITE_ROW) {
                const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(st, 0));
                result = text ? QString::fromUtf8(text) : QStringLiteral("NULL");
            } else if (rc == SQLITE_DONE) {
                result = "<no row>";
            }
        }
        sqlite3_finalize(st);
    }
    sqlite3_close(db);
    return result;
}

/// A sandbox with its data folder (unless told not to make it), `rows` seeded rows (row 0
/// newest), and the store over it once opened.
struct Sandbox {
    explicit Sandbox(int rows = 0, bool makeFolder = true) {
        if (makeFolder)
            QDir().mkpath(env.paths.dataDir);
        if (rows > 0)
            seedRows(db(), rows, now);
    }
    QString db() const { return env.paths.dataFile("history.db"); }
    QString file(const QString& name) const { return env.paths.dataFile(name); }
    HistoryStore& open() { // as a start of the application: the one before is gone
        store.reset();
        store = std::make_unique<HistoryStore>(env.paths, clock);
        store->init();
        return *store;
    }
    QUuid id(int n) const { return makeEntry(n, now, 0).id; }

    TestEnv env;
    ManualClock clock;
    QDateTime now = clock.currentDateTime();
    std::unique_ptr<HistoryStore> store;
};

} // namespace tamvex::test
