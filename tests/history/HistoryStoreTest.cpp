#include "history/HistoryStore.h"
#include "HistoryFixtures.h"
#include "history/InsightsStore.h"
#include "support/TestMain.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;

namespace {
const QString kInitFailedPrefix = "HistoryStore: SQLite init failed: ";
const QString kInitFailedSuffix = ". История будет недоступна в этой сессии.";

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
        Sandbox box(0, false);
        HistoryStore& store = box.open();
        QVERIFY(store.isAvailable());
        QVERIFY(store.entries().isEmpty());
        QVERIFY(!store.hasMore());
        QVERIFY(QFileInfo::exists(box.db()));
        QCOMPARE(store.wordsLastWeek(), 0);
    }

    void pagesOf200FollowTheTable_data() {
        QTest::addColumn<int>("rows");
        QTest::addColumn<bool>("moreAtStart");
        QTest::addColumn<QList<int>>("sizesAfterEachLoad");
        QTest::newRow("200") << 200 << false << QList<int>{200};
        QTest::newRow("201") << 201 << true << QList<int>{201};
        QTest::newRow("400") << 400 << true << QList<int>{400, 400};
    }
    void pagesOf200FollowTheTable() {
        QFETCH(int, rows);
        QFETCH(bool, moreAtStart);
        QFETCH(QList<int>, sizesAfterEachLoad);
        Sandbox box(rows);
        HistoryStore& store = box.open();
        QCOMPARE(store.entries().size(), 200);
        QCOMPARE(store.hasMore(), moreAtStart);
        for (int expected : sizesAfterEachLoad) {
            store.loadMore();
            QCOMPARE(store.entries().size(), expected);
        }
        QVERIFY(!store.hasMore());
        // Newest first across page boundaries, no row twice.
        QCOMPARE(store.entries().last().id, box.id(rows - 1));
        for (int i = 1; i < store.entries().size(); ++i)
            QVERIFY(store.entries()[i - 1].createdAt > store.entries()[i].createdAt);
    }

    void loadUntilFoundStopsAtThePageThatHoldsTheEntry() {
        Sandbox box(450);
        HistoryStore& store = box.open();
        QVERIFY(store.loadUntilFound(box.id(150)));
        QCOMPARE(store.entries().size(), 200);
        QVERIFY(store.loadUntilFound(box.id(399)));
        QCOMPARE(store.entries().size(), 400);
        QVERIFY(!store.loadUntilFound(box.id(9999)));
        QCOMPARE(store.entries().size(), 450);
    }

    void the10001stAddPrunesTheOldestRowButNotTheList() {
        Sandbox box(10000);
        HistoryStore& store = box.open();
        while (store.hasMore())
            store.loadMore();
        QCOMPARE(store.entries().size(), 10000);
        const QUuid oldest = store.entries().last().id;
        store.add(makeEntry(20000, box.now, 0, "самая новая"));
        QCOMPARE(store.entries().size(), 10001);
        QCOMPARE(store.entries().first().text, QString("самая новая"));
        QCOMPARE(store.entries().last().id, oldest); // still on screen until the next start
        QCOMPARE(rawQuery(box.db(), "SELECT count(*) FROM entries;"), QString("10000"));
        QCOMPARE(rawQuery(box.db(), "SELECT count(*) FROM entries WHERE id = '" + uuidText(oldest) + "';"),
                 QString("0"));
    }

    void legacyJsonIsImportedOnceAndOnlyIntoAnEmptyTable() {
        {
            // An empty array: nothing imported, the file becomes the backup.
            Sandbox box;
            writeFile(box.file("history.json"), "[]");
            writeFile(box.file("history.json.bak"), "old backup");
            QVERIFY(box.open().entries().isEmpty());
            QVERIFY(!QFileInfo::exists(box.file("history.json")));
            QCOMPARE(fileBytes(box.file("history.json.bak")), QByteArray("[]"));
        }
        {
            // One bad entry (an unknown category) leaves the whole file where it is.
            Sandbox box;
            QJsonArray array =
                QJsonDocument::fromJson(legacyJson({makeEntry(1, box.now, 0), makeEntry(2, box.now, 5)})).array();
            QJsonObject bad = array[1].toObject();
            bad["category"] = "poems";
            array[1] = bad;
            const QByteArray content = QJsonDocument(array).toJson();
            writeFile(box.file("history.json"), content);
            HistoryStore& store = box.open();
            QVERIFY(store.isAvailable());
            QVERIFY(store.entries().isEmpty());
            QCOMPARE(fileBytes(box.file("history.json")), content);
            QVERIFY(!QFileInfo::exists(box.file("history.json.bak")));
        }
        {
            // A good file is imported in order, with every field.
            Sandbox box;
            HistoryEntry rich = makeEntry(7, box.now, 30, "Импорт");
            rich.category = TextCategory::code;
            rich.promptTokens = 5;
            rich.errorMessage = "прошлое";
            const QList<HistoryEntry> legacy{makeEntry(6, box.now, 10), rich};
            writeFile(box.file("history.json"), legacyJson(legacy));
            QCOMPARE(box.open().entries(), legacy);
        }
        {
            // A table with rows: the file beside it is never read, even when it is garbage.
            Sandbox box(1);
            writeFile(box.file("history.json"), "{ not json");
            QCOMPARE(box.open().entries().size(), 1);
            QCOMPARE(fileBytes(box.file("history.json")), QByteArray("{ not json"));
        }
    }

    void aFailingWriteMidImportKeepsTheRowsSoFarAndNeverRetries() {
        Sandbox box;
        { HistoryDB create(box.db()); }
        QVERIFY(rawExec(box.db(), "CREATE TRIGGER boom BEFORE INSERT ON entries WHEN NEW.text = 'boom' "
                                  "BEGIN SELECT RAISE(ABORT, 'disk says no'); END;"));
        const QByteArray content = legacyJson(
            {makeEntry(1, box.now, 1, "first"), makeEntry(2, box.now, 2, "boom"), makeEntry(3, box.now, 3, "third")});
        writeFile(box.file("history.json"), content);
        {
            LogCapture log;
            HistoryStore& store = box.open();
            QVERIFY(!store.isAvailable());
            QVERIFY(log.has(kInitFailedPrefix + "execFailed(disk says no)" + kInitFailedSuffix));
        }
        QCOMPARE(rawQuery(box.db(), "SELECT group_concat(text) FROM entries;"), QString("first"));
        QCOMPARE(fileBytes(box.file("history.json")), content);
        QVERIFY(rawExec(box.db(), "DROP TRIGGER boom;"));
        QCOMPARE(box.open().entries().size(), 1); // the file stays, never read again
        QVERIFY(QFileInfo::exists(box.file("history.json")));
    }

    void anUnusableDatabaseLeavesASessionWithoutHistoryAndDeletesNothing_data() {
        QTest::addColumn<QString>("kind");
        QTest::newRow("random bytes") << "garbage";
        QTest::newRow("a directory") << "directory";
        QTest::newRow("a file where the folder should be") << "blocked folder";
    }
    void anUnusableDatabaseLeavesASessionWithoutHistoryAndDeletesNothing() {
        QFETCH(QString, kind);
        Sandbox box(0, kind == "garbage");
        const QByteArray garbage(64 * 1024, '\x5a');
        // What is in the way, and what must still be there afterwards.
        const QString blocker = kind == "garbage"     ? box.db()
                                : kind == "directory" ? box.db() + "/inside"
                                                      : box.env.paths.dataDir;
        if (kind == "directory")
            QVERIFY(QDir().mkpath(blocker));
        else
            QVERIFY(writeFile(blocker, garbage));
        LogCapture log;
        HistoryStore& store = box.open();
        QVERIFY(!store.isAvailable());
        QVERIFY(loggedInitFailure(log));
        QVERIFY(store.entries().isEmpty());
        QCOMPARE(store.wordsLastWeek(), 0);
        log.clear();
        store.add(makeEntry(1, box.now, 0));
        store.setCategory(box.id(1), TextCategory::ideas);
        store.loadMore();
        store.remove(QUuid::createUuid());
        store.clearAll();
        QVERIFY(log.lines().isEmpty());
        if (kind == "directory")
            QVERIFY(QFileInfo(blocker).isDir());
        else
            QCOMPARE(fileBytes(blocker), garbage);
    }

    void retryAudioOlderThanSevenDaysGoesAtStart() {
        Sandbox box;
        HistoryEntry old = makeEntry(1, box.now, 604800.001, "");
        HistoryEntry edge = makeEntry(2, box.now, 604800.0, "");
        HistoryEntry gone = makeEntry(3, box.now, 900000.0, "");
        old.audioPath = box.file("audio/old.m4a");
        edge.audioPath = box.file("audio/edge.m4a");
        gone.audioPath = box.file("audio/already-gone.m4a");
        writeFile(*old.audioPath, "aac");
        writeFile(*edge.audioPath, "aac");
        {
            HistoryDB db(box.db());
            for (const auto& e : {old, edge, gone})
                db.upsert(e);
        }
        // A row whose id does not read is passed over, not a reason to stop.
        QVERIFY(rawExec(box.db(),
                        "INSERT INTO entries (id, created_at, duration_sec, audio_path) VALUES ('bad', 0, 1, '/x');"));
        HistoryStore& store = box.open();
        QVERIFY(!QFileInfo::exists(*old.audioPath));
        QVERIFY(QFileInfo::exists(*edge.audioPath));
        QCOMPARE(store.entry(old.id)->audioPath, std::nullopt);
        QCOMPARE(store.entry(gone.id)->audioPath, std::nullopt);
        QCOMPARE(store.entry(edge.id)->audioPath, edge.audioPath);
        QCOMPARE(rawQuery(box.db(), "SELECT count(*) FROM entries WHERE audio_path IS NULL;"), QString("2"));
        QCOMPARE(rawQuery(box.db(), "SELECT audio_path FROM entries WHERE id = 'bad';"), QString("/x"));
    }

    void updatesTouchOnlyLoadedEntries() {
        Sandbox box(201);
        HistoryStore& store = box.open();
        const QUuid outside = box.id(200), inside = box.id(3);
        store.setCategory(outside, TextCategory::tasks);
        store.setError(outside, "нет");
        store.applyRetrySuccess(outside, "текст", 1.0, 1, 2);
        const QString column = "SELECT coalesce(category, error_message, 'untouched') FROM entries WHERE id = '%1';";
        QCOMPARE(rawQuery(box.db(), column.arg(uuidText(outside))), QString("untouched"));

        store.setCategory(inside, TextCategory::tasks);
        QCOMPARE(store.entry(inside)->category, std::optional(TextCategory::tasks));
        QCOMPARE(rawQuery(box.db(), column.arg(uuidText(inside))), QString("tasks"));
    }

    void aRetryOutcomeUpdatesTheEntryAndItsAudio() {
        Sandbox box;
        HistoryStore& store = box.open();
        HistoryEntry failed = makeEntry(1, box.now, 0, "");
        failed.errorMessage = "Сервер недоступен";
        failed.modelUsed = "m";
        failed.appContext = "Kate";
        failed.category = TextCategory::notes;
        failed.costUSD = 0.5;
        failed.audioPath = box.file("audio/f.m4a");
        writeFile(*failed.audioPath, "aac");
        store.add(failed);
        store.applyRetrySuccess(failed.id, "Готовый текст", std::nullopt, 7, std::nullopt);
        HistoryEntry expected = failed;
        expected.text = "Готовый текст";
        expected.errorMessage.reset();
        expected.costUSD.reset();
        expected.promptTokens = 7;
        expected.audioPath.reset();
        QCOMPARE(*store.entry(failed.id), expected);
        QVERIFY(!QFileInfo::exists(*failed.audioPath));
        QCOMPARE(box.open().entries(), QList<HistoryEntry>{expected});
    }

    void removeAndClearAllEmptyMemoryTableAndInsights() {
        Sandbox box;
        HistoryStore& store = box.open();
        InsightsStore insights(store, box.env.paths, box.clock);
        const auto rows = [&] { return rawQuery(box.db(), "SELECT count(*) FROM entries;"); };
        HistoryEntry withAudio = makeEntry(1, box.now, 5, "");
        withAudio.audioPath = box.file("kept.m4a");
        writeFile(*withAudio.audioPath, "aac");
        store.add(withAudio);
        store.add(makeEntry(2, box.now, 1, "привет мир"));
        store.remove(withAudio.id);
        QCOMPARE(store.entries().size(), 1);
        QCOMPARE(rows(), QString("1"));
        QVERIFY(QFileInfo::exists(*withAudio.audioPath)); // removing a row keeps its audio

        insights.compute();
        QVERIFY(QFileInfo::exists(insights.fileURL()));
        store.clearAll();
        QVERIFY(store.entries().isEmpty());
        QCOMPARE(rows(), QString("0"));
        QVERIFY(!insights.hasInsights());
        QVERIFY(!QFileInfo::exists(insights.fileURL()));
        store.add(makeEntry(3, box.now, 0));
        QCOMPARE(store.entries().size(), 1);
        QCOMPARE(rows(), QString("1"));
    }

    void writeFailuresAreLoggedAndLeaveTheListAsItWas() {
        Sandbox box(250);
        HistoryStore& store = box.open();
        LogCapture log;
        QVERIFY(
            rawExec(box.db(), "CREATE TRIGGER nope BEFORE INSERT ON entries BEGIN SELECT RAISE(ABORT, 'full'); END;"));
        store.add(makeEntry(5000, box.now, 0));
        QVERIFY(log.has("HistoryStore.add failed: execFailed(full)"));
        QCOMPARE(store.entries().size(), 200);

        QVERIFY(rawExec(box.db(), "ALTER TABLE entries RENAME TO moved;"));
        // The connection learns of the change at its next step; from then on the table is missing.
        store.add(makeEntry(5001, box.now, 0));
        store.loadMore();
        QCOMPARE(store.entries().size(), 200);
        QVERIFY(store.hasMore());
        QVERIFY(!store.loadUntilFound(box.id(240))); // gives up, does not spin
        QVERIFY(rawExec(box.db(), "ALTER TABLE moved RENAME TO entries;"));
        store.loadMore();
        QCOMPARE(store.entries().size(), 250);
        QVERIFY(!store.hasMore());
    }

    void wordsLastWeekCountsTheWholeTableFromSevenDaysAgo() {
        Sandbox box(300); // 3 words each, all within the week
        {
            HistoryDB db(box.db());
            db.upsert(makeEntry(1000, box.now, 7 * 86400.0, "ровно семь дней"));
            db.upsert(makeEntry(1001, box.now, 7 * 86400.0 + 1, "восемь дней назад"));
        }
        HistoryStore& store = box.open();
        QCOMPARE(store.wordsLastWeek(), 300 * 3 + 3);
        box.clock.advance(1.0);
        QCOMPARE(store.wordsLastWeek(), 300 * 3);
    }
};

TAMVEX_TEST_CLASS(HistoryStoreTest)
#include "HistoryStoreTest.moc"
