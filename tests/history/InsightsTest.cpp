// Runs with TZ=MSK-3 (UTC+3 all year), so local day keys differ from UTC ones near midnight.
#include "HistoryFixtures.h"
#include "history/HistoryStore.h"
#include "history/InsightsStore.h"
#include "history/Words.h"
#include "support/TestMain.h"
#include "support/TestSupport.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;

namespace {
HistoryEntry entryAt(int n, const QDateTime& created, const QString& text, double seconds = 60.0,
                     std::optional<TextCategory> category = std::nullopt) {
    HistoryEntry e = makeEntry(n, created, 0, text);
    e.durationSec = seconds;
    e.category = category;
    return e;
}

QStringList letterRuns(const QString& text) {
    QStringList runs;
    forEachLetterRun(text.toLower(), 4, [&](QStringView w) { runs.append(w.toString()); });
    return runs;
}
} // namespace

class InsightsTest : public QObject {
    Q_OBJECT
private slots:
    void wordsSplitAtBlanksAndLettersAtEverythingElse() {
        QCOMPARE(countWords(u""), 0);
        QCOMPARE(countWords(u"   \n\t"), 0);
        QCOMPARE(countWords(u"один,два три-четыре 5"), 3);
        QCOMPARE(countWords(u"a\u00a0b\u2029c\u0085d\u3000e\u200bf"), 5); // U+200B is no blank
        // The database counts on UTF-8 bytes; both ways agree, broken bytes included.
        for (const QString& text : {QString("a\u00a0b\u2029c\u0085d\u3000e\u200bf"), QString(" ёж,  ёлка\r\n🐈 кот "),
                                    QString("x\u1680y\u202fz\u205fw\u2007v")}) {
            const QByteArray utf8 = text.toUtf8();
            QCOMPARE(countWordsUtf8(utf8.constData(), utf8.size()), countWords(text));
        }
        QCOMPARE(countWordsUtf8("a \xE2\x80 b\xff c", 9), 4); // a broken sequence is a non-blank character
        QCOMPARE(letterRuns("Ёжики ЁЛКИ-палки 2026года, helloWORLD naïve cafe\u0301s"),
                 (QStringList{"ёжики", "палки", "helloworld", "naïve", "cafe\u0301s"}));
        QCOMPARE(letterRuns("word1word2 четыре4пять абвг"), (QStringList{"четыре"}));
    }

    void computesEveryFigureFromTheLoadedEntries() {
        const QDateTime now = clockStart(); // 12:00 local on 2026-03-02
        const QList<HistoryEntry> entries{
            entryAt(1, now.addSecs(-60), "Привет мир привет Мир ПРИВЕТ", 120, TextCategory::messages),
            entryAt(2, now.addSecs(-3600), "", 30, TextCategory::docs), // failed: not counted
            // 22:30 UTC on the 1st is the 2nd in local time.
            entryAt(3, QDateTime(QDate(2026, 3, 1), QTime(22, 30), Qt::UTC), "hello hello world which", 60),
            entryAt(4, now.addDays(-7), "ровно неделя", 0, TextCategory::code),
            entryAt(5, now.addDays(-7).addSecs(-1), "чуть раньше недели", 0, TextCategory::code),
            entryAt(6, now.addDays(-30), "месяц", 0, TextCategory::notes),
            entryAt(7, now.addDays(-40), "давно давно", 60),
            entryAt(8, now.addDays(-2), "   ", 0), // blanks: zero words, still a day used
        };
        const Insights s = computeInsights(entries, now, QString("сводка"));
        QCOMPARE(s.entriesCount, 7);
        QCOMPARE(s.totalWords, 5 + 4 + 2 + 3 + 1 + 2 + 0);
        QCOMPARE(s.totalMinutes, 240.0 / 60.0);
        QCOMPARE(s.avgWordsPerMinute, 17.0 / 4.0);
        QCOMPARE(s.wordsLastWeek, 5 + 4 + 2 + 0);
        QCOMPARE(s.wordsLastMonth, 5 + 4 + 2 + 3 + 1 + 0);
        QCOMPARE(s.daysUsed, 5); // 03-02 and 02-23 (two entries each), 02-28, 01-31, 01-21
        QCOMPARE(s.categoryBreakdown,
                 (QMap<QString, qint64>{{"messages", 5}, {"other", 4 + 2 + 0}, {"code", 5}, {"notes", 1}}));
        QCOMPARE(s.topWords, (QMap<QString, qint64>{{"привет", 3},
                                                    {"hello", 2},
                                                    {"world", 1},
                                                    {"ровно", 1},
                                                    {"неделя", 1},
                                                    {"раньше", 1},
                                                    {"недели", 1},
                                                    {"месяц", 1},
                                                    {"давно", 2}}));
        QCOMPARE(s.heatmap.size(), 28);
        QCOMPARE(s.heatmap.value("2026-03-02"), 5 + 4);
        QCOMPARE(s.heatmap.value("2026-02-28"), 0);
        QCOMPARE(s.heatmap.value("2026-02-23"), 2 + 3);
        QCOMPARE(s.heatmap.firstKey(), QString("2026-02-03"));
        QVERIFY(!s.heatmap.contains("2026-01-31")); // beyond 28 days, still counted above
        QCOMPARE(s.generatedAt, now);
        QCOMPARE(s.llmSummary, std::optional<QString>("сводка"));
    }

    void emptyAndSilentHistoriesGiveZerosNotDivisions() {
        const QDateTime now = clockStart();
        const Insights none = computeInsights({}, now);
        QCOMPARE(none.totalWords, 0);
        QCOMPARE(none.avgWordsPerMinute, 0.0);
        QCOMPARE(none.heatmap.size(), 28);
        for (qint64 v : none.heatmap)
            QCOMPARE(v, 0);
        const Insights zeroDuration = computeInsights({entryAt(1, now, "слова без времени", 0)}, now);
        QCOMPARE(zeroDuration.totalWords, 3);
        QCOMPARE(zeroDuration.avgWordsPerMinute, 0.0);
    }

    void topWordsKeepFifteenWithoutStopWords() {
        const QDateTime now = clockStart();
        QString text;
        // 20 distinct words of five letters; word i occurs i+1 times.
        for (int i = 0; i < 20; ++i)
            for (int k = 0; k <= i; ++k)
                text += QString("слово") + QChar(u'а' + i) + " ";
        // Stop words are dropped in any case, however frequent.
        text += QString("которые ").repeated(23) + "SHOULD Should " + QString("should ").repeated(11);
        text += QString("четыре ").repeated(13);
        const Insights s = computeInsights({entryAt(1, now, text)}, now);
        QCOMPARE(s.topWords.size(), 15);
        QVERIFY(!s.topWords.contains("которые") && !s.topWords.contains("should"));
        QCOMPARE(s.topWords.value("четыре"), 13);
        QCOMPARE(s.topWords.value(QString("слово") + QChar(u'а' + 19)), 20);
        QVERIFY(!s.topWords.contains(QString("слово") + QChar(u'а' + 0)));
        QCOMPARE(computeInsights({entryAt(1, now, "абвг abcd")}, now).topWords.size(), 0);
    }

    void theFileRoundTripsWithSortedKeysAndKeepsTheSummary() {
        Sandbox box;
        HistoryStore& history = box.open();
        history.add(entryAt(1, box.clock.currentDateTime(), "первая запись"));
        const QString file = box.env.paths.dataFile("insights.json");
        {
            Insights seeded = computeInsights({}, box.clock.currentDateTime().addSecs(-7200), QString("из файла"));
            QVERIFY(InsightsStore::save(seeded, file));
        }
        InsightsStore store(history, box.env.paths, box.clock);
        QVERIFY(store.hasInsights());
        QCOMPARE(store.insights()->llmSummary, std::optional<QString>("из файла"));
        store.refresh();
        QCOMPARE(store.insights()->totalWords, 2);
        QCOMPARE(store.insights()->llmSummary, std::optional<QString>("из файла"));

        const QByteArray data = fileBytes(file);
        const QJsonObject o = QJsonDocument::fromJson(data).object();
        QCOMPARE(o.value("generatedAt").toString(), QString("2026-03-02T09:00:00Z"));
        QCOMPARE(o.keys(), (QStringList{"avgWordsPerMinute", "categoryBreakdown", "daysUsed", "entriesCount",
                                        "generatedAt", "heatmap", "llmSummary", "topWords", "totalMinutes",
                                        "totalWords", "wordsLastMonth", "wordsLastWeek"}));
        QVERIFY(data.indexOf("\"avgWordsPerMinute\"") < data.indexOf("\"wordsLastWeek\""));
        QVERIFY(data.contains("\n    \"heatmap\": {\n"));
        InsightsStore reloaded(history, box.env.paths, box.clock);
        QCOMPARE(*reloaded.insights(), *store.insights());
    }

    void aCorruptOrIncompleteCacheCountsAsNone_data() {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("not json") << QByteArray("{\"generatedAt\": ");
        QTest::newRow("an array") << QByteArray("[]");
        QJsonObject o = QJsonDocument::fromJson(computeInsights({}, clockStart()).toJson()).object();
        o.remove("heatmap");
        QTest::newRow("missing key") << QJsonDocument(o).toJson();
        o = QJsonDocument::fromJson(computeInsights({}, clockStart()).toJson()).object();
        o["totalWords"] = 2.5;
        QTest::newRow("fractional count") << QJsonDocument(o).toJson();
        o["totalWords"] = 2;
        o["generatedAt"] = "yesterday";
        QTest::newRow("bad date") << QJsonDocument(o).toJson();
    }
    void aCorruptOrIncompleteCacheCountsAsNone() {
        QFETCH(QByteArray, content);
        Sandbox box;
        HistoryStore& history = box.open();
        writeFile(box.env.paths.dataFile("insights.json"), content);
        InsightsStore store(history, box.env.paths, box.clock);
        QVERIFY(!store.hasInsights());
        QVERIFY(store.shouldRecompute());
        store.refresh();
        QVERIFY(store.hasInsights());
        QVERIFY(InsightsStore::load(box.env.paths.dataFile("insights.json")).has_value());
    }

    void recomputationWaitsMoreThanAnHour() {
        Sandbox box;
        HistoryStore& history = box.open();
        InsightsStore store(history, box.env.paths, box.clock);
        QVERIFY(store.shouldRecompute());
        store.refresh();
        const QDateTime first = store.insights()->generatedAt;
        history.add(entryAt(1, box.clock.currentDateTime(), "новая диктовка"));
        box.clock.advance(3600.0);
        QVERIFY(!store.shouldRecompute()); // exactly an hour is not yet more
        store.refresh();
        QCOMPARE(store.insights()->generatedAt, first);
        QCOMPARE(store.insights()->totalWords, 0);
        box.clock.advance(0.001);
        QVERIFY(store.shouldRecompute());
        store.refresh();
        QCOMPARE(store.insights()->totalWords, 2);
    }

    void aGoneHistoryStopsTheComputation() {
        Sandbox box;
        InsightsStore store(box.open(), box.env.paths, box.clock);
        box.store.reset();
        store.compute();
        QVERIFY(!store.hasInsights());
        QVERIFY(!QFileInfo::exists(store.fileURL()));
    }
};

TAMVEX_TEST_CLASS(InsightsTest)
#include "InsightsTest.moc"
