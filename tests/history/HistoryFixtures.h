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
#include <optional>

namespace tamvex::test {

/// The default start date of ManualClock.
inline QDateTime clockStart() {
    return QDateTime(QDate(2026, 3, 2), QTime(9, 0), Qt::UTC);
}

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

/// Runs SQL on a second, independent connection to the file (as another process would) and gives
/// the first column of the first row as text: "NULL" for null, "<no row>", or "<error>" when it fails.
inline QString rawQuery(const QString& path, const QString& sql) {
    sqlite3* db = nullptr;
    std::optional<QString> first;
    const auto keepFirst = [](void* kept, int, char** values, char**) {
        auto& text = *static_cast<std::optional<QString>*>(kept);
        if (!text)
            text = values[0] ? QString::fromUtf8(values[0]) : QStringLiteral("NULL");
        return 0;
    };
    const bool ok = sqlite3_open(path.toUtf8().constData(), &db) == SQLITE_OK &&
                    sqlite3_exec(db, sql.toUtf8().constData(), keepFirst, &first, nullptr) == SQLITE_OK;
    sqlite3_close(db);
    return ok ? first.value_or(QStringLiteral("<no row>")) : QStringLiteral("<error>");
}

/// Runs SQL (several statements allowed) on a second connection; false when it fails.
inline bool rawExec(const QString& path, const QString& sql) {
    return rawQuery(path, sql) != "<error>";
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
    QString file(const QString& name) const { return env.paths.dataFile(name); }
    QString db() const { return file("history.db"); }
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
