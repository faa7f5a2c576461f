#pragma once

#include "history/HistoryDB.h"
#include "history/HistoryEntry.h"

#include <QDateTime>
#include <QFile>
#include <QString>
#include <QUuid>

#include <sqlite3.h>

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

/// The whole content of a file.
inline QByteArray fileBytes(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

/// Writes `data` to `path`.
inline void writeFile(const QString& path, const QByteArray& data) {
    QFile f(path);
    if (f.open(QIODevice::WriteOnly))
        f.write(data);
}

} // namespace tamvex::test
