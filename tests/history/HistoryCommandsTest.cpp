#include "cli/HistoryCommands.h"
#include "HistoryFixtures.h"
#include "history/HistoryStore.h"
#include "history/InsightsStore.h"
#include "support/TestMain.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <tuple>

using namespace tamvex;
using namespace tamvex::test;

namespace {
CommandOutput run(int (*command)(const QStringList&, QTextStream&, QTextStream&), const QStringList& args) {
    return captureCommand([&](QTextStream& out, QTextStream& err) { return command(args, out, err); });
}

// The exit code, standard output and standard error of one run, to compare in one go.
using Said = std::tuple<int, QString, QString>;
Said said(int (*command)(const QStringList&, QTextStream&, QTextStream&), const QStringList& args) {
    const CommandOutput r = run(command, args);
    return {r.code, r.out, r.err};
}

// The commands read Paths::standard(), which follows XDG_DATA_HOME.
struct CliEnv : TestEnv {
    CliEnv() { qputenv("XDG_DATA_HOME", QFileInfo(paths.dataDir).path().toUtf8()); }
    ~CliEnv() { qunsetenv("XDG_DATA_HOME"); }
};
} // namespace

class HistoryCommandsTest : public QObject {
    Q_OBJECT
private slots:
    void badArgumentsAnEmptyAndABrokenHistory() {
        CliEnv env;
        QCOMPARE(run(runHistoryCommand, {}).code, 2);
        for (const char* limit : {"0", "000000000000000000000000", "-1", "+5", "пять"})
            QVERIFY2(run(runHistoryCommand, {"list", "--limit", limit}).code == 2, limit);
        QCOMPARE(run(runHistoryCommand, {"list", "--limit"}).code, 2);
        QCOMPARE(run(runHistoryCommand, {"list", "--bogus"}).err.left(29), QString("Неизвестный параметр: --bogus"));
        QCOMPARE(run(runHistoryCommand, {"show"}).code, 2);
        QCOMPARE(run(runInsightsCommand, {"extra"}).code, 2);
        QCOMPARE(said(runHistoryCommand, {"list"}), (Said{0, "История пуста.\n", ""}));
        for (const QStringList& args : {QStringList{"list", "--json"}, QStringList{"export", "--json"}}) {
            const CommandOutput r = run(runHistoryCommand, args);
            QCOMPARE(r.code, 0);
            QCOMPARE(QJsonDocument::fromJson(r.out.toUtf8()), QJsonDocument(QJsonArray()));
        }
        QCOMPARE(said(runHistoryCommand, {"show", "ABCD"}), (Said{1, "", "Запись не найдена: ABCD\n"}));
        const CommandOutput insights = run(runInsightsCommand, {});
        QCOMPARE(insights.code, 0);
        QVERIFY(insights.out.startsWith("Пока недостаточно данных\n"));
        QCOMPARE(said(runInsightsCommand, {"--json"}), (Said{0, "null\n", ""}));
        QVERIFY(!QFileInfo::exists(env.paths.dataDir));

        QDir().mkpath(env.paths.dataDir);
        writeFile(env.paths.dataFile("history.db"), QByteArray(8192, 'x'));
        const CommandOutput r = run(runHistoryCommand, {"list"});
        QCOMPARE(r.code, 1);
        QVERIFY(r.err.startsWith("Не удалось"));
        QCOMPARE(fileBytes(env.paths.dataFile("history.db")), QByteArray(8192, 'x'));
    }

    void listShowAndExportReadTheLiveDatabase() {
        CliEnv env;
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

        CommandOutput r = run(runHistoryCommand, {"list"});
        QCOMPARE(r.code, 0);
        QStringList lines = r.out.split('\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 21);
        QVERIFY(lines[0].startsWith(uuidText(failed.id).left(8)));
        QVERIFY(lines[0].contains("Идеи"));
        QVERIFY(lines[0].endsWith("Ошибка: Сервер не ответил"));
        QVERIFY(lines[1].endsWith("запись номер 29"));
        QCOMPARE(lines.last(), QString("Показано 20 из 31."));

        r = run(runHistoryCommand, {"list", "--limit", "3", "--json"});
        const QJsonArray array = QJsonDocument::fromJson(r.out.toUtf8()).array();
        QCOMPARE(array.size(), 3);
        QCOMPARE(HistoryEntry::fromJson(array[0].toObject()), std::optional(failed));
        // A limit past the rows, or past what any integer holds, lists them all.
        for (const char* limit : {"2147483647", "2147483648", "99999999999999999999999"}) {
            r = run(runHistoryCommand, {"list", "--limit", limit});
            QCOMPARE(r.code, 0);
            QVERIFY2(r.out.endsWith("Показано 31 из 31.\n"), limit);
        }

        r = run(runHistoryCommand, {"show", uuidText(failed.id).toLower()});
        QCOMPARE(r.code, 0);
        QVERIFY(r.out.contains("Ошибка:       Сервер не ответил\n"));
        QVERIFY(r.out.contains("Категория:    Идеи\n"));
        r = run(runHistoryCommand, {"show", uuidText(makeEntry(5, now, 0).id), "--json"});
        QCOMPARE(HistoryEntry::fromJson(QJsonDocument::fromJson(r.out.toUtf8()).object())->text,
                 QString("запись номер 5"));
        // `retry` names its entry the same way.
        QCOMPARE(said(runHistoryCommand, {"show", "00000000"}),
                 (Said{1, "", "Под «00000000» подходят несколько записей; укажите больше символов ID.\n"}));

        // The export is the legacy file's form: every element reads back with the parser its import uses.
        r = run(runHistoryCommand, {"export", "--json"});
        QList<HistoryEntry> exported;
        for (const QJsonValue& v : QJsonDocument::fromJson(r.out.toUtf8()).array())
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
        QCOMPARE(r.code, 0);
        QVERIFY(r.out.startsWith("Обновлено "));
        QVERIFY(r.out.contains("Всего слов: 5 (≈ 0 страниц A4)\n"));
    }
};

TAMVEX_TEST_CLASS(HistoryCommandsTest)
#include "HistoryCommandsTest.moc"
