// The database file on its own, the store the application keeps over it, and the commands
// that read it beside the running application.
#include "HistoryFixtures.h"
#include "cli/HistoryCommands.h"
#include "history/HistoryDB.h"
#include "history/HistoryStore.h"
#include "history/InsightsStore.h"
#include "support/TestMain.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSet>
#include <QTest>

#include <csignal>
#include <tuple>

using namespace tamvex;
using namespace tamvex::test;

namespace {
using CommandFn = int (*)(const QStringList&, QTextStream&, QTextStream&);
CommandOutput run(CommandFn command, const QStringList& args) {
    return captureCommand([&](QTextStream& out, QTextStream& err) { return command(args, out, err); });
}

// The commands read Paths::standard(), which follows XDG_DATA_HOME.
struct CliEnv : TestEnv {
    CliEnv() { qputenv("XDG_DATA_HOME", QFileInfo(paths.dataDir).path().toUtf8()); }
    ~CliEnv() { qunsetenv("XDG_DATA_HOME"); }
};
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
QByteArray legacyJson(const QList<HistoryEntry>& entries) {
    QJsonArray array;
    for (const auto& e : entries)
        array.append(e.toJson());
    return QJsonDocument(array).toJson();
}
} // namespace

class HistoryTest : public QObject {
    Q_OBJECT
private slots:
    void aFirstStartMakesTheExactSchemaWithWriteAheadLogging() {
        Sandbox box(0, false); // not even the data folder yet
        HistoryStore& store = box.open();
        QVERIFY(store.isAvailable());
        QVERIFY(store.entries().isEmpty());
        QCOMPARE(rawQuery(box.db(), "SELECT sql FROM sqlite_master WHERE name = 'entries';"),
                 QString("CREATE TABLE entries (\n"
                         "    id TEXT PRIMARY KEY,\n    created_at REAL NOT NULL,\n    duration_sec REAL NOT NULL,\n"
                         "    text TEXT NOT NULL DEFAULT '',\n    error_message TEXT,\n    model_used TEXT,\n"
                         "    cost_usd REAL,\n    prompt_tokens INTEGER,\n    completion_tokens INTEGER,\n"
                         "    app_context TEXT,\n    category TEXT,\n    audio_path TEXT\n)"));
        QCOMPARE(rawQuery(box.db(), "SELECT sql FROM sqlite_master WHERE type = 'index' AND name LIKE 'idx%';"),
                 QString("CREATE INDEX idx_entries_created_at ON entries(created_at DESC)"));
        QCOMPARE(rawQuery(box.db(), "SELECT count(*) FROM sqlite_master;"), QString("3")); // table, its key, index
        QCOMPARE(rawQuery(box.db(), "PRAGMA journal_mode;"), QString("wal"));
    }

    void rowsRoundTripAndUpsertReplacesTheWholeRow() {
        Sandbox box;
        HistoryDB db(box.db());
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
        // Text is cut at an embedded zero.
        db.upsert(makeEntry(9, clockStart(), 0, QString("до") + QChar(0) + "после"));
        QCOMPARE(db.fetch().first().text, QString("до"));
    }

    void rowsOfAnEarlierInstallationReadAsTheyStandAndBrokenOnesAreSkipped() {
        Sandbox box;
        // Written the way the earlier installation did: rollback journal, sub-millisecond dates,
        // an integer date, lower-case ids; then rows that do not read, and an unknown category.
        QVERIFY(rawExec(
            box.db(),
            "CREATE TABLE entries (id TEXT PRIMARY KEY, created_at REAL NOT NULL, duration_sec REAL NOT NULL,"
            " text TEXT NOT NULL DEFAULT '', error_message TEXT, model_used TEXT, cost_usd REAL,"
            " prompt_tokens INTEGER, completion_tokens INTEGER, app_context TEXT, category TEXT,"
            " audio_path TEXT);"
            "INSERT INTO entries VALUES ('0f8fad5b-d9cb-469f-a165-70867728950e', 1767225600.1234567, 3.5,"
            " 'Старая запись', NULL, 'whisper-large-v3', 0.001, 10, 20, 'Telegram', 'messages', NULL);"
            "INSERT INTO entries (id, created_at, duration_sec) VALUES"
            " ('7C9E6679-7425-40DE-944B-E07FC1F90AE7', 1767225500, 1), ('not-a-uuid', 1e12, 1), (NULL, 1e12, 1);"
            "INSERT INTO entries (id, created_at, duration_sec, text, category, cost_usd) VALUES "
            "('aaaaaaaa-bbbb-4ccc-8ddd-eeeeeeeeeeee', 2, 3, 'x', 'poems', 0);"));
        const HistoryEntry old{.id = QUuid("0F8FAD5B-D9CB-469F-A165-70867728950E"),
                               .createdAt = QDateTime::fromMSecsSinceEpoch(1767225600123, Qt::UTC),
                               .durationSec = 3.5,
                               .text = "Старая запись",
                               .modelUsed = "whisper-large-v3",
                               .costUSD = 0.001,
                               .promptTokens = 10,
                               .completionTokens = 20,
                               .appContext = "Telegram",
                               .category = TextCategory::messages};
        const HistoryEntry bare{.id = QUuid("7C9E6679-7425-40DE-944B-E07FC1F90AE7"),
                                .createdAt = QDateTime::fromSecsSinceEpoch(1767225500, Qt::UTC),
                                .durationSec = 1};
        const HistoryEntry lower{.id = QUuid("AAAAAAAA-BBBB-4CCC-8DDD-EEEEEEEEEEEE"),
                                 .createdAt = QDateTime::fromSecsSinceEpoch(2, Qt::UTC),
                                 .durationSec = 3,
                                 .text = "x",
                                 .costUSD = 0.0}; // zero is a value, not NULL
        HistoryDB db(box.db());
        QCOMPARE(rawQuery(box.db(), "PRAGMA journal_mode;"), QString("wal"));
        QCOMPARE(db.count(), 5);
        // The two broken rows are the newest: the page of three holds one real row.
        QCOMPARE(db.fetch(3, 0), QList<HistoryEntry>{old});
        QCOMPARE(db.fetch(), (QList<HistoryEntry>{old, bare, lower}));
        db.upsert(lower);
        QCOMPARE(rawQuery(box.db(), "SELECT category FROM entries WHERE id = 'AAAAAAAA-BBBB-4CCC-8DDD-EEEEEEEEEEEE';"),
                 QString("NULL"));
    }

    // A kill in the middle of writes, which a test process cannot do to itself.
    void sigkillMidBurstKeepsEveryAddThatReturned() {
        TestEnv env;
        QProcess child;
        child.start(HISTORY_CHILD, {"burst", env.root.path()});
        QVERIFY(child.waitForStarted());
        QByteArray output;
        // Let it write a few hundred rows, then kill it without warning.
        QVERIFY(spinUntil(
            [&] {
                output += child.readAllStandardOutput();
                return output.count('\n') >= 400;
            },
            60000));
        ::kill(pid_t(child.processId()), SIGKILL);
        QVERIFY(child.waitForFinished(10000));
        QCOMPARE(child.exitStatus(), QProcess::CrashExit);
        output += child.readAllStandardOutput();

        QSet<int> returned;
        for (const QByteArray& line : output.split('\n'))
            if (!line.isEmpty())
                returned.insert(line.toInt());

        const QString path = env.paths.dataFile("history.db");
        QCOMPARE(rawQuery(path, "PRAGMA integrity_check;"), QString("ok"));
        HistoryDB db(path);
        QHash<QUuid, QString> stored;
        for (const HistoryEntry& e : db.fetch())
            stored.insert(e.id, e.text);
        for (int i : returned) {
            const HistoryEntry expected = makeEntry(i, clockStart(), 0);
            QVERIFY2(stored.contains(expected.id), qPrintable(QString("row %1 lost").arg(i)));
            QCOMPARE(stored.value(expected.id), QString("burst entry %1").arg(i));
        }
        // At most the one add in flight at the kill may have landed beyond what was reported.
        QVERIFY(stored.size() <= returned.size() + 1);
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

    // Nothing of the old file is lost, and nothing of it is imported twice.
    void legacyJsonIsImportedWholeOnceAndOnlyIntoAnEmptyTable() {
        {
            Sandbox box;
            HistoryEntry rich = makeEntry(7, box.now, 30, "Импорт");
            rich.category = TextCategory::code;
            const QList<HistoryEntry> legacy{makeEntry(6, box.now, 10), rich};
            writeFile(box.file("history.json"), legacyJson(legacy));
            QCOMPARE(box.open().entries(), legacy);
            QCOMPARE(fileBytes(box.file("history.json.bak")), legacyJson(legacy));
        }
        Sandbox box;
        { HistoryDB create(box.db()); }
        QVERIFY(rawExec(box.db(), "CREATE TRIGGER boom BEFORE INSERT ON entries WHEN NEW.text = 'boom' "
                                  "BEGIN SELECT RAISE(ABORT, 'disk says no'); END;"));
        // One entry that does not read (an unknown category) leaves the whole file where it is.
        HistoryEntry bad = makeEntry(2, box.now, 5);
        bad.category = TextCategory::ideas;
        QByteArray content = legacyJson({makeEntry(1, box.now, 0), bad}).replace("\"ideas\"", "\"poems\"");
        writeFile(box.file("history.json"), content);
        QVERIFY(box.open().entries().isEmpty());
        QCOMPARE(fileBytes(box.file("history.json")), content);

        content = legacyJson(
            {makeEntry(1, box.now, 1, "first"), makeEntry(2, box.now, 2, "boom"), makeEntry(3, box.now, 3, "third")});
        writeFile(box.file("history.json"), content);
        {
            LogCapture log;
            QVERIFY(!box.open().isAvailable());
            QVERIFY(log.has("HistoryStore: SQLite init failed: execFailed(disk says no). История будет недоступна в "
                            "этой сессии."));
        }
        QCOMPARE(rawQuery(box.db(), "SELECT group_concat(text) FROM entries;"), QString("first"));
        QCOMPARE(fileBytes(box.file("history.json")), content);
        QVERIFY(rawExec(box.db(), "DROP TRIGGER boom;"));
        // A table with rows: the file beside it stays and is never read again.
        QCOMPARE(box.open().entries().size(), 1);
        QCOMPARE(fileBytes(box.file("history.json")), content);
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
        old.audioPath = box.file("audio/old.m4a");
        edge.audioPath = box.file("audio/edge.m4a");
        writeFile(*old.audioPath, "aac");
        writeFile(*edge.audioPath, "aac");
        {
            HistoryDB db(box.db());
            for (const auto& e : {old, edge})
                db.upsert(e);
        }
        // A row whose id does not read is passed over, not a reason to stop.
        QVERIFY(rawExec(box.db(),
                        "INSERT INTO entries (id, created_at, duration_sec, audio_path) VALUES ('bad', 0, 1, '/x');"));
        HistoryStore& store = box.open();
        QVERIFY(!QFileInfo::exists(*old.audioPath));
        QVERIFY(QFileInfo::exists(*edge.audioPath));
        QCOMPARE(store.entry(old.id)->audioPath, std::nullopt);
        QCOMPARE(store.entry(edge.id)->audioPath, edge.audioPath);
        QCOMPARE(rawQuery(box.db(), "SELECT count(*) FROM entries WHERE audio_path IS NULL;"), QString("1"));
        QCOMPARE(rawQuery(box.db(), "SELECT audio_path FROM entries WHERE id = 'bad';"), QString("/x"));
    }

    void updatesTouchOnlyLoadedEntries() {
        Sandbox box(201);
        HistoryStore& store = box.open();
        const QUuid outside = box.id(200), inside = box.id(3);
        store.setCategory(outside, TextCategory::tasks); // every update goes through the same lookup
        const QString column = "SELECT coalesce(category, 'untouched') FROM entries WHERE id = '%1';";
        QCOMPARE(rawQuery(box.db(), column.arg(uuidText(outside))), QString("untouched"));

        store.setCategory(inside, TextCategory::tasks);
        QCOMPARE(store.entry(inside)->category, std::optional(TextCategory::tasks));
        QCOMPARE(rawQuery(box.db(), column.arg(uuidText(inside))), QString("tasks"));
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

    void commandsAnswerWithACodeAndALineBesideTheRunningApp() {
        CliEnv env;
        // Arguments of `history`, or of `insights` after that word; a part of what it must write.
        using Row = std::tuple<QStringList, int, QString>;
        const auto check = [](const QList<Row>& rows) {
            for (const auto& [args, code, line] : rows) {
                const bool insights = args.value(0) == "insights";
                const CommandOutput r = insights ? run(runInsightsCommand, args.mid(1)) : run(runHistoryCommand, args);
                QVERIFY2(r.code == code && (r.out + r.err).contains(line), qPrintable(args.join(' ')));
            }
        };
        const QString noLimit = "После --limit нужно целое число больше нуля.";
        check({{{}, 2, "Использование:"},
               {{"list", "--limit", "0"}, 2, noLimit},
               {{"list", "--limit"}, 2, noLimit},
               {{"list", "--bogus"}, 2, "Неизвестный параметр: --bogus"},
               {{"insights", "extra"}, 2, "Лишний аргумент: extra"},
               {{"list"}, 0, "История пуста."},
               {{"show", "ABCD"}, 1, "Запись не найдена: ABCD"},
               {{"insights", "--json"}, 0, "null"}});
        QVERIFY(!QFileInfo::exists(env.paths.dataDir)); // reading made nothing
        QDir().mkpath(env.paths.dataDir);
        const QByteArray garbage(8192, 'x');
        writeFile(env.paths.dataFile("history.db"), garbage);
        check({{{"list"}, 1, "Не удалось прочитать историю (" + env.paths.dataFile("history.db") + "): "}});
        QCOMPARE(fileBytes(env.paths.dataFile("history.db")), garbage); // and kept it
        QFile::remove(env.paths.dataFile("history.db"));

        ManualClock clock;
        HistoryStore store(env.paths, clock); // the running application, holding the file open
        store.init();
        const QDateTime now = clock.currentDateTime();
        for (int i = 0; i < 30; ++i)
            store.add(makeEntry(i, now, 100 - i, QStringLiteral("запись номер %1").arg(i)));
        HistoryEntry failed = makeEntry(77, now, 1, "");
        failed.errorMessage = "Сервер не ответил";
        failed.category = TextCategory::ideas;
        store.add(failed);
        const QByteArray dbBefore = fileBytes(env.paths.dataFile("history.db"));
        check({{{"list"}, 0, "00000000  2026-03-02 11:59    2.5 с  Идеи       Ошибка: Сервер не ответил"},
               {{"list"}, 0, "Показано 20 из 31."},
               {{"list", "--limit", "3"}, 0, "Показано 3 из 31."},
               {{"show", uuidText(failed.id).toLower()}, 0, "Ошибка:       Сервер не ответил"},
               // `retry` names its entry the same way.
               {{"show", "00000000"}, 1, "Под «00000000» подходят несколько записей; укажите больше символов ID."}});
        // The export is the legacy file's form: every element reads back with the parser its import uses.
        QList<HistoryEntry> exported;
        for (const QJsonValue& v :
             QJsonDocument::fromJson(run(runHistoryCommand, {"export", "--json"}).out.toUtf8()).array())
            exported.append(HistoryEntry::fromJson(v.toObject()).value());
        QCOMPARE(exported, store.entries());
        QCOMPARE(fileBytes(env.paths.dataFile("history.db")), dbBefore);
        store.add(makeEntry(99, now, 0, "после чтения")); // the application still writes
        QCOMPARE(store.entries().size(), 32);
    }

    void insightsRecomputeWritesTheCacheTheAppReads() {
        CliEnv env;
        ManualClock clock(QDateTime::currentDateTimeUtc());
        HistoryStore store(env.paths, clock);
        store.init();
        store.add(makeEntry(1, clock.currentDateTime(), 10, "Привет привет мир, это проверка"));
        InsightsStore::save(computeInsights({}, clock.currentDateTime().addDays(-1), QString("старое")),
                            env.paths.dataFile("insights.json"));

        CommandOutput r = run(runInsightsCommand, {"--recompute", "--json"});
        QCOMPARE(r.code, 0);
        const QJsonObject o = QJsonDocument::fromJson(r.out.toUtf8()).object();
        QCOMPARE(o.value("totalWords").toInt(), 5);
        QCOMPARE(o.value("llmSummary").toString(), QString("старое"));
        InsightsStore app(store, env.paths, clock);
        QCOMPARE(app.insights()->totalWords, 5);
        QVERIFY(!app.shouldRecompute());

        r = run(runInsightsCommand, {});
        QVERIFY(r.out.contains("Всего слов: 5 (≈ 0 страниц A4)\n"));
    }
};

TAMVEX_TEST_CLASS(HistoryTest)
#include "HistoryTest.moc"
