#include "HistoryFixtures.h"
#include "history/HistoryStore.h"
#include "history/InsightsStore.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;

namespace {
const QString kInitFailedPrefix = "HistoryStore: SQLite init failed: ";
const QString kInitFailedSuffix = ". История будет недоступна в этой сессии.";

QString dbPath(const TestEnv& env) { return env.paths.dataFile("history.db"); }

void prepareDataDir(const TestEnv& env) { QDir().mkpath(env.paths.dataDir); }

QByteArray legacyJson(const QList<HistoryEntry>& entries) {
    QJsonArray array;
    for (const auto& e : entries)
        array.append(e.toJson());
    return QJsonDocument(array).toJson();
}

bool loggedInitFailure(const LogCapture& log) {
    for (const QString& line : log.lines())
        if (line.startsWith("error: " + kInitFailedPrefix) && line.endsWith(kInitFailedSuffix))
            return true;
    return false;
}
} // namespace

class HistoryStoreTest : public QObject {
    Q_OBJECT
private slots:
    void firstStartMakesAnEmptyDatabase() {
        TestEnv env;
        ManualClock clock;
        HistoryStore store(env.paths, clock);
        QSignalSpy changed(&store, &HistoryStore::changed);
        store.init();
        QVERIFY(store.isAvailable());
        QVERIFY(store.entries().isEmpty());
        QVERIFY(!store.hasMore());
        QVERIFY(QFileInfo::exists(dbPath(env)));
        QVERIFY(changed.count() >= 1);
        QCOMPARE(store.wordsLastWeek(), 0);
    }

    void pagesOf200FollowTheTable_data() {
        QTest::addColumn<int>("rows");
        QTest::addColumn<bool>("moreAtStart");
        QTest::addColumn<QList<int>>("sizesAfterEachLoad");
        QTest::addColumn<bool>("moreAtEnd");
        QTest::newRow("200") << 200 << false << QList<int>{200} << false;
        QTest::newRow("201") << 201 << true << QList<int>{201} << false;
        QTest::newRow("400") << 400 << true << QList<int>{400, 400} << false;
    }
    void pagesOf200FollowTheTable() {
        QFETCH(int, rows);
        QFETCH(bool, moreAtStart);
        QFETCH(QList<int>, sizesAfterEachLoad);
        QFETCH(bool, moreAtEnd);
        TestEnv env;
        ManualClock clock;
        prepareDataDir(env);
        seedRows(dbPath(env), rows, clock.currentDateTime());
        HistoryStore store(env.paths, clock);
        store.init();
        QCOMPARE(store.entries().size(), 200);
        QCOMPARE(store.hasMore(), moreAtStart);
        for (int expected : sizesAfterEachLoad) {
            store.loadMore();
            QCOMPARE(store.entries().size(), expected);
        }
        QCOMPARE(store.hasMore(), moreAtEnd);
        // Newest first across page boundaries, no row twice.
        QCOMPARE(store.entries().last().id, makeEntry(rows - 1, clock.currentDateTime(), 0).id);
        for (int i = 1; i < store.entries().size(); ++i)
            QVERIFY(store.entries()[i - 1].createdAt > store.entries()[i].createdAt);
    }

    void loadUntilFoundStopsAtThePageThatHoldsTheEntry() {
        TestEnv env;
        ManualClock clock;
        prepareDataDir(env);
        seedRows(dbPath(env), 450, clock.currentDateTime());
        HistoryStore store(env.paths, clock);
        store.init();
        const auto row = [&](int n) { return makeEntry(n, clock.currentDateTime(), 0).id; };
        QVERIFY(store.loadUntilFound(row(150)));
        QCOMPARE(store.entries().size(), 200);
        QVERIFY(store.loadUntilFound(row(399)));
        QCOMPARE(store.entries().size(), 400);
        QVERIFY(!store.loadUntilFound(row(9999)));
        QCOMPARE(store.entries().size(), 450);
    }

    void the10001stAddPrunesTheOldestRowButNotTheList() {
        TestEnv env;
        ManualClock clock;
        prepareDataDir(env);
        seedRows(dbPath(env), 10000, clock.currentDateTime());
        HistoryStore store(env.paths, clock);
        store.init();
        while (store.hasMore())
            store.loadMore();
        QCOMPARE(store.entries().size(), 10000);
        const QUuid oldest = store.entries().last().id;
        store.add(makeEntry(20000, clock.currentDateTime(), 0, "самая новая"));
        QCOMPARE(store.entries().size(), 10001);
        QCOMPARE(store.entries().first().text, QString("самая новая"));
        QCOMPARE(store.entries().last().id, oldest); // still on screen until the next start
        QCOMPARE(rawQuery(dbPath(env), "SELECT count(*) FROM entries;"), QString("10000"));
        QCOMPARE(rawQuery(dbPath(env), "SELECT count(*) FROM entries WHERE id = '" + uuidText(oldest) + "';"),
                 QString("0"));
    }

    void legacyJsonIsImportedOnceAndOnlyIntoAnEmptyTable() {
        ManualClock clock;
        const QDateTime now = clock.currentDateTime();
        {
            // An empty array: nothing imported, the file becomes the backup, the log says 0.
            TestEnv env;
            LogCapture log;
            prepareDataDir(env);
            writeFile(env.paths.dataFile("history.json"), "[]");
            writeFile(env.paths.dataFile("history.json.bak"), "old backup");
            HistoryStore store(env.paths, clock);
            store.init();
            QVERIFY(store.entries().isEmpty());
            QVERIFY(!QFileInfo::exists(env.paths.dataFile("history.json")));
            QCOMPARE(fileBytes(env.paths.dataFile("history.json.bak")), QByteArray("[]"));
            QVERIFY(log.has("HistoryStore: migrated 0 entries from history.json → SQLite (backup at history.json.bak)"));
        }
        {
            // One bad entry (an unknown category) leaves the whole file where it is.
            TestEnv env;
            prepareDataDir(env);
            QJsonArray array = QJsonDocument::fromJson(legacyJson({makeEntry(1, now, 0), makeEntry(2, now, 5)})).array();
            QJsonObject bad = array[1].toObject();
            bad["category"] = "poems";
            array[1] = bad;
            const QByteArray content = QJsonDocument(array).toJson();
            writeFile(env.paths.dataFile("history.json"), content);
            HistoryStore store(env.paths, clock);
            store.init();
            QVERIFY(store.isAvailable());
            QVERIFY(store.entries().isEmpty());
            QCOMPARE(fileBytes(env.paths.dataFile("history.json")), content);
            QVERIFY(!QFileInfo::exists(env.paths.dataFile("history.json.bak")));
        }
        {
            // A good file is imported in order, with every field.
            TestEnv env;
            LogCapture log;
            prepareDataDir(env);
            HistoryEntry rich = makeEntry(7, now, 30, "Импорт");
            rich.category = TextCategory::code;
            rich.promptTokens = 5;
            rich.errorMessage = "прошлое";
            const QList<HistoryEntry> legacy{makeEntry(6, now, 10), rich};
            writeFile(env.paths.dataFile("history.json"), legacyJson(legacy));
            HistoryStore store(env.paths, clock);
            store.init();
            QCOMPARE(store.entries(), legacy);
            QVERIFY(log.has("HistoryStore: migrated 2 entries from history.json → SQLite (backup at history.json.bak)"));
        }
        {
            // A table with rows: the file beside it is never read, even when it is garbage.
            TestEnv env;
            prepareDataDir(env);
            seedRows(dbPath(env), 1, now);
            writeFile(env.paths.dataFile("history.json"), "{ not json");
            HistoryStore store(env.paths, clock);
            store.init();
            QVERIFY(store.isAvailable());
            QCOMPARE(store.entries().size(), 1);
            QCOMPARE(fileBytes(env.paths.dataFile("history.json")), QByteArray("{ not json"));
        }
    }

    void aFailingWriteMidImportKeepsTheRowsSoFarAndNeverRetries() {
        TestEnv env;
        ManualClock clock;
        const QDateTime now = clock.currentDateTime();
        prepareDataDir(env);
        { HistoryDB create(dbPath(env)); }
        QVERIFY(rawExec(dbPath(env), "CREATE TRIGGER boom BEFORE INSERT ON entries WHEN NEW.text = 'boom' "
                                     "BEGIN SELECT RAISE(ABORT, 'disk says no'); END;"));
        const QByteArray content =
            legacyJson({makeEntry(1, now, 1, "first"), makeEntry(2, now, 2, "boom"), makeEntry(3, now, 3, "third")});
        writeFile(env.paths.dataFile("history.json"), content);
        {
            LogCapture log;
            HistoryStore store(env.paths, clock);
            store.init();
            QVERIFY(!store.isAvailable());
            QVERIFY(log.has(kInitFailedPrefix + "execFailed(disk says no)" + kInitFailedSuffix));
            store.add(makeEntry(9, now, 0)); // silent without a database
            QCOMPARE(log.lines().size(), 1);
        }
        QCOMPARE(rawQuery(dbPath(env), "SELECT group_concat(text) FROM entries;"), QString("first"));
        QCOMPARE(fileBytes(env.paths.dataFile("history.json")), content);
        QVERIFY(rawExec(dbPath(env), "DROP TRIGGER boom;"));
        HistoryStore again(env.paths, clock);
        again.init();
        QVERIFY(again.isAvailable());
        QCOMPARE(again.entries().size(), 1);
        QVERIFY(QFileInfo::exists(env.paths.dataFile("history.json")));
    }

    void anUnusableDatabaseLeavesASessionWithoutHistoryAndDeletesNothing_data() {
        QTest::addColumn<QString>("kind");
        QTest::newRow("random bytes") << "garbage";
        QTest::newRow("a directory") << "directory";
        QTest::newRow("a file where the folder should be") << "blocked folder";
    }
    void anUnusableDatabaseLeavesASessionWithoutHistoryAndDeletesNothing() {
        QFETCH(QString, kind);
        TestEnv env;
        ManualClock clock;
        QByteArray garbage(64 * 1024, '\0');
        for (int i = 0; i < garbage.size(); ++i)
            garbage[i] = char((i * 7919 + 13) % 251);
        if (kind == "garbage") {
            prepareDataDir(env);
            writeFile(dbPath(env), garbage);
        } else if (kind == "directory") {
            QVERIFY(QDir().mkpath(dbPath(env) + "/inside"));
        } else {
            QDir().mkpath(QFileInfo(env.paths.dataDir).path());
            writeFile(env.paths.dataDir, garbage);
        }
        LogCapture log;
        HistoryStore store(env.paths, clock);
        store.init();
        QVERIFY(!store.isAvailable());
        QVERIFY(loggedInitFailure(log));
        QVERIFY(store.entries().isEmpty());
        QCOMPARE(store.wordsLastWeek(), 0);
        log.clear();
        store.add(makeEntry(1, clock.currentDateTime(), 0));
        store.setCategory(makeEntry(1, clock.currentDateTime(), 0).id, TextCategory::ideas);
        store.loadMore();
        store.remove(QUuid::createUuid());
        store.clearAll();
        QVERIFY(store.entries().isEmpty());
        QVERIFY(log.lines().isEmpty());
        if (kind == "garbage")
            QCOMPARE(fileBytes(dbPath(env)), garbage);
        else if (kind == "directory")
            QVERIFY(QFileInfo(dbPath(env) + "/inside").isDir());
        else
            QCOMPARE(fileBytes(env.paths.dataDir), garbage);
    }

    void retryAudioOlderThanSevenDaysGoesAtStart() {
        TestEnv env;
        ManualClock clock;
        const QDateTime now = clock.currentDateTime();
        prepareDataDir(env);
        QDir().mkpath(env.paths.dataFile("audio"));
        HistoryEntry old = makeEntry(1, now, 604800.001, "");
        HistoryEntry edge = makeEntry(2, now, 604800.0, "");
        HistoryEntry gone = makeEntry(3, now, 900000.0, "");
        old.audioPath = env.paths.dataFile("audio/old.m4a");
        edge.audioPath = env.paths.dataFile("audio/edge.m4a");
        gone.audioPath = env.paths.dataFile("audio/already-gone.m4a");
        writeFile(*old.audioPath, "aac");
        writeFile(*edge.audioPath, "aac");
        {
            HistoryDB db(dbPath(env));
            for (const auto& e : {old, edge, gone})
                db.upsert(e);
        }
        LogCapture log;
        HistoryStore store(env.paths, clock);
        store.init();
        QVERIFY(!QFileInfo::exists(*old.audioPath));
        QVERIFY(QFileInfo::exists(*edge.audioPath));
        QCOMPARE(store.entry(old.id)->audioPath, std::nullopt);
        QCOMPARE(store.entry(gone.id)->audioPath, std::nullopt);
        QCOMPARE(store.entry(edge.id)->audioPath, edge.audioPath);
        QCOMPARE(rawQuery(dbPath(env), "SELECT count(*) FROM entries WHERE audio_path IS NULL;"), QString("2"));
        QVERIFY(log.has("HistoryStore: cleaned 2 expired retry-audio files (TTL 7 days)"));
        // A second start finds nothing and says nothing.
        log.clear();
        HistoryStore again(env.paths, clock);
        again.init();
        QVERIFY(!log.hasPrefix("HistoryStore: cleaned"));
    }

    void updatesTouchOnlyLoadedEntries() {
        TestEnv env;
        ManualClock clock;
        const QDateTime now = clock.currentDateTime();
        prepareDataDir(env);
        seedRows(dbPath(env), 201, now);
        HistoryStore store(env.paths, clock);
        store.init();
        const QUuid outside = makeEntry(200, now, 0).id;
        const QUuid inside = makeEntry(3, now, 0).id;
        QSignalSpy changed(&store, &HistoryStore::changed);
        store.setCategory(outside, TextCategory::tasks);
        store.setError(outside, "нет");
        store.applyRetrySuccess(outside, "текст", 1.0, 1, 2);
        QCOMPARE(changed.count(), 0);
        QCOMPARE(rawQuery(dbPath(env), "SELECT coalesce(category, error_message, 'untouched') FROM entries WHERE id = '" +
                                           uuidText(outside) + "';"),
                 QString("untouched"));

        store.setCategory(inside, TextCategory::tasks);
        QCOMPARE(changed.count(), 1);
        QCOMPARE(store.entry(inside)->category, std::optional(TextCategory::tasks));
        QCOMPARE(rawQuery(dbPath(env), "SELECT category FROM entries WHERE id = '" + uuidText(inside) + "';"),
                 QString("tasks"));
    }

    void aRetryOutcomeUpdatesTheEntryAndItsAudio() {
        TestEnv env;
        ManualClock clock;
        HistoryStore store(env.paths, clock);
        store.init();
        HistoryEntry failed = makeEntry(1, clock.currentDateTime(), 0, "");
        failed.errorMessage = "Сервер недоступен";
        failed.modelUsed = "m";
        failed.appContext = "Kate";
        failed.category = TextCategory::notes;
        failed.costUSD = 0.5;
        failed.audioPath = env.paths.dataFile("audio/f.m4a");
        QDir().mkpath(env.paths.dataFile("audio"));
        writeFile(*failed.audioPath, "aac");
        store.add(failed);

        store.setError(failed.id, "Снова ошибка");
        QCOMPARE(store.entry(failed.id)->errorMessage, std::optional<QString>("Снова ошибка"));
        QCOMPARE(store.entry(failed.id)->audioPath, failed.audioPath); // can be retried again
        QVERIFY(QFileInfo::exists(*failed.audioPath));

        store.applyRetrySuccess(failed.id, "Готовый текст", std::nullopt, 7, std::nullopt);
        HistoryEntry expected = failed;
        expected.text = "Готовый текст";
        expected.errorMessage.reset();
        expected.costUSD.reset();
        expected.promptTokens = 7;
        expected.audioPath.reset();
        QCOMPARE(*store.entry(failed.id), expected);
        QVERIFY(!QFileInfo::exists(*failed.audioPath));
        HistoryStore reopened(env.paths, clock);
        reopened.init();
        QCOMPARE(reopened.entries(), QList<HistoryEntry>{expected});
    }

    void removeAndClearAllEmptyMemoryTableAndInsights() {
        TestEnv env;
        ManualClock clock;
        const QDateTime now = clock.currentDateTime();
        HistoryStore store(env.paths, clock);
        store.init();
        InsightsStore insights(store, env.paths, clock);
        HistoryEntry withAudio = makeEntry(1, now, 5, "");
        withAudio.audioPath = env.paths.dataFile("kept.m4a");
        writeFile(*withAudio.audioPath, "aac");
        store.add(withAudio);
        store.add(makeEntry(2, now, 1, "привет мир"));
        store.remove(withAudio.id);
        QCOMPARE(store.entries().size(), 1);
        QCOMPARE(rawQuery(dbPath(env), "SELECT count(*) FROM entries;"), QString("1"));
        QVERIFY(QFileInfo::exists(*withAudio.audioPath)); // removing a row keeps its audio

        insights.compute();
        QVERIFY(QFileInfo::exists(insights.fileURL()));
        store.clearAll();
        QVERIFY(store.entries().isEmpty());
        QCOMPARE(rawQuery(dbPath(env), "SELECT count(*) FROM entries;"), QString("0"));
        QVERIFY(!insights.hasInsights());
        QVERIFY(!QFileInfo::exists(insights.fileURL()));
        store.add(makeEntry(3, now, 0));
        QCOMPARE(store.entries().size(), 1);
        QCOMPARE(rawQuery(dbPath(env), "SELECT count(*) FROM entries;"), QString("1"));
    }

    void writeFailuresAreLoggedAndLeaveTheListAsItWas() {
        TestEnv env;
        ManualClock clock;
        const QDateTime now = clock.currentDateTime();
        prepareDataDir(env);
        seedRows(dbPath(env), 250, now);
        HistoryStore store(env.paths, clock);
        store.init();
        LogCapture log;
        QVERIFY(rawExec(dbPath(env), "CREATE TRIGGER nope BEFORE INSERT ON entries BEGIN SELECT RAISE(ABORT, 'full'); END;"));
        store.add(makeEntry(5000, now, 0));
        QVERIFY(log.has("HistoryStore.add failed: execFailed(full)"));
        QCOMPARE(store.entries().size(), 200);

        QVERIFY(rawExec(dbPath(env), "ALTER TABLE entries RENAME TO moved;"));
        // The connection learns of the change at its next step; from then on the table is missing.
        store.add(makeEntry(5001, now, 0));
        QVERIFY(log.has("HistoryStore.add failed: execFailed(no such table: entries)"));
        store.loadMore();
        QVERIFY(log.has("HistoryStore.loadMore failed: prepareFailed(no such table: entries)"));
        QCOMPARE(store.entries().size(), 200);
        QVERIFY(store.hasMore());
        QVERIFY(!store.loadUntilFound(makeEntry(240, now, 0).id)); // gives up, does not spin
        QVERIFY(rawExec(dbPath(env), "ALTER TABLE moved RENAME TO entries;"));
        store.loadMore();
        QCOMPARE(store.entries().size(), 250);
        QVERIFY(!store.hasMore());
    }

    void wordsLastWeekCountsTheWholeTableFromSevenDaysAgo() {
        TestEnv env;
        ManualClock clock;
        const QDateTime now = clock.currentDateTime();
        prepareDataDir(env);
        seedRows(dbPath(env), 300, now); // 3 words each, all within the week
        {
            HistoryDB db(dbPath(env));
            db.upsert(makeEntry(1000, now, 7 * 86400.0, "ровно семь дней"));
            db.upsert(makeEntry(1001, now, 7 * 86400.0 + 1, "восемь дней назад"));
        }
        HistoryStore store(env.paths, clock);
        store.init();
        QCOMPARE(store.wordsLastWeek(), 300 * 3 + 3);
        clock.advance(1.0);
        QCOMPARE(store.wordsLastWeek(), 300 * 3);
    }
};

QTEST_GUILESS_MAIN(HistoryStoreTest)
#include "HistoryStoreTest.moc"
