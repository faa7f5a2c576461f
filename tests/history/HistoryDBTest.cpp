#include "history/HistoryDB.h"
#include "HistoryFixtures.h"
#include "support/TestMain.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;

namespace {
HistoryEntry fullEntry() {
    const QDateTime created(QDate(2026, 2, 27), QTime(18, 4, 5, 678), Qt::UTC);
    HistoryEntry e = makeEntry(1, created, 0, "Привет, мир!\nВторая строка");
    e.durationSec = 12.25;
    e.errorMessage = "сбой";
    e.modelUsed = "google/gemini-2.5-flash";
    e.costUSD = 0.000125;
    e.promptTokens = 1234567890123;
    e.completionTokens = 42;
    e.appContext = "Firefox";
    e.category = TextCategory::emails;
    e.audioPath = "/tmp/audio/x.m4a";
    return e;
}
} // namespace

class HistoryDBTest : public QObject {
    Q_OBJECT
private slots:
    void createsTheExactSchemaWithWriteAheadLogging() {
        QTemporaryDir dir;
        const QString path = dir.filePath("history.db");
        HistoryDB db(path);
        QCOMPARE(rawQuery(path, "SELECT sql FROM sqlite_master WHERE name = 'entries';"),
                 QString("CREATE TABLE entries (\n"
                         "    id TEXT PRIMARY KEY,\n    created_at REAL NOT NULL,\n    duration_sec REAL NOT NULL,\n"
                         "    text TEXT NOT NULL DEFAULT '',\n    error_message TEXT,\n    model_used TEXT,\n"
                         "    cost_usd REAL,\n    prompt_tokens INTEGER,\n    completion_tokens INTEGER,\n"
                         "    app_context TEXT,\n    category TEXT,\n    audio_path TEXT\n)"));
        QCOMPARE(rawQuery(path, "SELECT sql FROM sqlite_master WHERE type = 'index' AND name LIKE 'idx%';"),
                 QString("CREATE INDEX idx_entries_created_at ON entries(created_at DESC)"));
        QCOMPARE(rawQuery(path, "SELECT count(*) FROM sqlite_master;"), QString("3")); // table, its key, index
        QCOMPARE(rawQuery(path, "PRAGMA journal_mode;"), QString("wal"));
    }

    void rowsRoundTripAndUpsertReplacesTheWholeRow() {
        QTemporaryDir dir;
        HistoryDB db(dir.filePath("history.db"));
        HistoryEntry full = fullEntry();
        HistoryEntry bare;
        bare.id = QUuid::createUuid();
        bare.createdAt = full.createdAt.addSecs(-10);
        db.upsert(full);
        db.upsert(bare);
        QCOMPARE(db.fetch(), (QList<HistoryEntry>{full, bare}));
        QCOMPARE(rawQuery(db.path(), "SELECT id FROM entries WHERE text = '';"), uuidText(bare.id));

        HistoryEntry changed = full;
        changed.createdAt = bare.createdAt.addSecs(-1); // an upsert moves created_at too
        changed.text = "новый";
        changed.errorMessage.reset();
        changed.category.reset();
        changed.costUSD.reset();
        db.upsert(changed);
        QCOMPARE(db.count(), 2);
        QCOMPARE(db.fetch(), (QList<HistoryEntry>{bare, changed}));
        QCOMPARE(db.fetch(1, 1), QList<HistoryEntry>{changed});
        QCOMPARE(db.fetch(5, 2), QList<HistoryEntry>{});
        // Text is cut at an embedded zero.
        db.upsert(makeEntry(9, clockStart(), 0, QString("до") + QChar(0) + "после"));
        QCOMPARE(db.fetch().first().text, QString("до"));
    }

    void unreadableRowsAreSkippedAndUnknownCategoriesReadAsNone() {
        QTemporaryDir dir;
        const QString path = dir.filePath("history.db");
        HistoryDB db(path);
        const QDateTime now = clockStart();
        const HistoryEntry good = makeEntry(1, now, 100);
        db.upsert(good);
        QVERIFY(rawExec(path, "INSERT INTO entries (id, created_at, duration_sec) VALUES ('not-a-uuid', 1e12, 1);"
                              "INSERT INTO entries (id, created_at, duration_sec) VALUES (NULL, 1e12, 1);"
                              "INSERT INTO entries (id, created_at, duration_sec, text, category, cost_usd) VALUES "
                              "('aaaaaaaa-bbbb-4ccc-8ddd-eeeeeeeeeeee', 2, 3, 'x', 'poems', 0);"));
        QCOMPARE(db.count(), 4);
        // The two broken rows are the newest: the page of three holds one real row.
        QCOMPARE(db.fetch(3, 0), QList<HistoryEntry>{good});
        const auto all = db.fetch();
        QCOMPARE(all.size(), 2);
        const HistoryEntry lower = all.last();
        QCOMPARE(uuidText(lower.id), QString("AAAAAAAA-BBBB-4CCC-8DDD-EEEEEEEEEEEE"));
        QVERIFY(!lower.category.has_value());
        QCOMPARE(lower.costUSD, std::optional<double>(0.0)); // zero is a value, not NULL
        QCOMPARE(lower.createdAt, QDateTime::fromSecsSinceEpoch(2, Qt::UTC));
        db.upsert(lower);
        QCOMPARE(rawQuery(path, "SELECT category FROM entries WHERE id = 'AAAAAAAA-BBBB-4CCC-8DDD-EEEEEEEEEEEE';"),
                 QString("NULL"));
    }

    void failuresAreTypedAndCarrySQLitesMessage() {
        QTemporaryDir dir;
        QDir(dir.path()).mkdir("folder.db");
        auto e = thrown<HistoryDBError>([&] { HistoryDB db(dir.filePath("folder.db")); });
        QVERIFY(e && (e->kind() == HistoryDBError::Kind::openFailed || e->kind() == HistoryDBError::Kind::execFailed));
        QVERIFY(!e->message().isEmpty());
        writeFile(dir.filePath("garbage.db"), QByteArray(4096, '\x5a'));
        e = thrown<HistoryDBError>([&] { HistoryDB db(dir.filePath("garbage.db")); });
        QVERIFY(e && e->kind() == HistoryDBError::Kind::execFailed);
        QCOMPARE(e->logText(), QString("execFailed(file is not a database)"));
        QCOMPARE(fileBytes(dir.filePath("garbage.db")), QByteArray(4096, '\x5a'));

        HistoryDB db(dir.filePath("history.db"));
        db.upsert(makeEntry(1, clockStart(), 0));
        e = thrown<HistoryDBError>([&] { db.exec("SELECT nonsense FROM;"); });
        QVERIFY(e && e->kind() == HistoryDBError::Kind::execFailed);
        QVERIFY(e->message().contains("syntax error"));
        // The connection stays usable after a failure.
        QCOMPARE(db.count(), 1);
        db.exec("DROP TABLE entries;");
        e = thrown<HistoryDBError>([&] { db.count(); });
        QVERIFY(e);
        QCOMPARE(e->logText(), QString("prepareFailed(no such table: entries)"));
        QVERIFY_THROWS_EXCEPTION(HistoryDBError, db.fetch(200, 0));
        QVERIFY_THROWS_EXCEPTION(HistoryDBError, db.upsert(makeEntry(2, clockStart(), 0)));
    }

    void aDatabaseOfAnEarlierInstallationReadsAsItStands() {
        QTemporaryDir dir;
        const QString path = dir.filePath("history.db");
        // Written the way the earlier installation did: rollback journal, sub-millisecond dates,
        // an integer date, lower-case ids.
        QVERIFY(rawExec(
            path, "CREATE TABLE entries (id TEXT PRIMARY KEY, created_at REAL NOT NULL, duration_sec REAL NOT NULL,"
                  " text TEXT NOT NULL DEFAULT '', error_message TEXT, model_used TEXT, cost_usd REAL,"
                  " prompt_tokens INTEGER, completion_tokens INTEGER, app_context TEXT, category TEXT,"
                  " audio_path TEXT);"
                  "INSERT INTO entries VALUES ('0f8fad5b-d9cb-469f-a165-70867728950e', 1767225600.1234567, 3.5,"
                  " 'Старая запись', NULL, 'whisper-large-v3', 0.001, 10, 20, 'Telegram', 'messages', NULL);"
                  "INSERT INTO entries (id, created_at, duration_sec) VALUES"
                  " ('7C9E6679-7425-40DE-944B-E07FC1F90AE7', 1767225500, 1);"));
        HistoryDB db(path);
        const auto rows = db.fetch();
        QCOMPARE(rows.size(), 2);
        QCOMPARE(uuidText(rows[0].id), QString("0F8FAD5B-D9CB-469F-A165-70867728950E"));
        QCOMPARE(rows[0].createdAt.toMSecsSinceEpoch(), qint64(1767225600123));
        QCOMPARE(rows[0].text, QString("Старая запись"));
        QCOMPARE(rows[0].category, std::optional(TextCategory::messages));
        QCOMPARE(rows[0].promptTokens, std::optional<qint64>(10));
        QCOMPARE(rows[1].text, QString());
        QCOMPARE(rows[1].createdAt, QDateTime::fromSecsSinceEpoch(1767225500, Qt::UTC));
        QCOMPARE(rawQuery(path, "PRAGMA journal_mode;"), QString("wal"));
    }
};

TAMVEX_TEST_CLASS(HistoryDBTest)
#include "HistoryDBTest.moc"
