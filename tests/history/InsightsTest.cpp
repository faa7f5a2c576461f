// Runs with TZ=MSK-3 (UTC+3 all year), so local day keys differ from UTC ones near midnight.
// The figures, and how the pages show them.
#include "HistoryFixtures.h"
#include "history/Formatting.h"
#include "history/HistoryStore.h"
#include "history/InsightsStore.h"
#include "history/Words.h"
#include "support/TestMain.h"
#include "support/TestSupport.h"

#include <QFileInfo>
#include <QTest>

#include <clocale>
#include <limits>

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

Insights withWords(qint64 totalWords, double totalMinutes = 0, qint64 wordsLastWeek = 0) {
    Insights s;
    s.totalWords = totalWords;
    s.totalMinutes = totalMinutes;
    s.wordsLastWeek = wordsLastWeek;
    return s;
}
QStringList letterRuns(const QString& text) {
    QStringList runs;
    forEachLetterRun(text.toLower(), 4, [&](QStringView w) { runs.append(w.toString()); });
    return runs;
}
} // namespace

class InsightsTest : public QObject {
    Q_OBJECT
    const QLocale ru{QLocale::Russian};
private slots:
    void initTestCase() {
        // Everything here runs in our users' locale, whose printf writes "1,0": the figures keep the dot.
        QVERIFY2(std::setlocale(LC_ALL, "ru_RU.UTF-8"),
                 "ru_RU.UTF-8 is not generated (scripts/install-deps.sh does it)");
        QCOMPARE(*std::localeconv()->decimal_point, ',');
    }

    // Russian plurals, the hour edges of the minutes shown, and rounding in the user's locale.
    void displayTextsAtTheirEdges() {
        const QDateTime t = clockStart();
        const QList<QPair<QString, QString>> texts{
            {insightsUpdatedCaption(t, t.addSecs(59)), "Обновлено только что"},
            {insightsUpdatedCaption(t, t.addSecs(60)), "Обновлено 1 минуту назад"},
            {insightsUpdatedCaption(t, t.addSecs(3 * 3600)), "Обновлено 3 часа назад"},
            {insightsUpdatedCaption(t, t.addDays(11)), "Обновлено 11 дней назад"},
            {homeTiles(withWords(0, 59.9), ru)[1].subtitle, "≈ 59 мин"},
            {homeTiles(withWords(0, 60.0), ru)[1].subtitle, "≈ 1.0 часа"},
            {homeTiles(withWords(3359), ru)[3].value, "60 мин"}, // 59.98 minutes saved rounds in the print
            {homeTiles(withWords(3360), ru)[3].value, "1.0ч"},
            {insightsCards(withWords(3359), ru)[3].value, "60м"},
            {insightsCards(withWords(3360), ru)[3].value, "1.0ч"},
            {homeTiles(std::nullopt, ru)[0].subtitle, ""}, // no snapshot, no weekly gain
            {weeklyGoal(1999).caption, "Ещё 1 слов до новых инсайтов"},
            {weeklyGoal(2000).caption, "🎉 Ты намурчал 2000 слов на этой неделе!"},
            {weeklyGoal(2500).caption, "🎉 Ты намурчал 2000 слов на этой неделе!"}, // the goal, not the count
            {formatTokens(999.5), "1 000 ø"},
            {formatTokens(std::numeric_limits<double>::quiet_NaN()), "0 ø"},
            {categoryShares({{"other", 2}, {"tasks", 1}})[0].percentText, "66%"}, // cut, not rounded
        };
        for (const auto& [actual, expected] : texts)
            QCOMPARE(actual, expected);
    }

    void topWordsAndTheActivityGrid() {
        QMap<QString, qint64> words;
        for (int i = 0; i < 20; ++i)
            words.insert(QString("word%1").arg(i, 2, 10, QChar('0')), i);
        const auto top = sortedTopWords(words);
        QCOMPARE(top.size(), 15);
        QCOMPARE(top.first(), (QPair<QString, qint64>{"word19", 19}));
        QCOMPARE(top.last().second, 5);

        const QDateTime now = QDateTime(QDate(2026, 3, 2), QTime(12, 0)); // local
        const auto grid = activityGrid({{"2026-03-02", 40}, {"2026-02-03", 10}, {"2026-02-02", 500}}, now);
        QCOMPARE(grid.size(), 28);
        QCOMPARE(grid.first().date, QDate(2026, 2, 3));
        QCOMPARE(grid.first().opacity, 10.0 / 40.0 * 0.75 + 0.1);
        QCOMPARE(grid.last().date, QDate(2026, 3, 2));
        QCOMPARE(grid.last().opacity, 0.85);
        QCOMPARE(activityGrid({}, now).last().opacity, 0.1); // no busiest day to divide by

        Insights s;
        s.heatmap = {{"2026-03-02", 7}, {"2026-02-24", 6}, {"2026-02-23", 5}};
        QCOMPARE(lastSevenDays(s, now), (QList<qint64>{6, 0, 0, 0, 0, 0, 7}));
    }

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
        // Case folded, short words and the stop word "which" left out, old entries counted.
        QCOMPARE(s.topWords.size(), 9);
        QCOMPARE(s.topWords.value("привет"), 3);
        QCOMPARE(s.topWords.value("давно"), 2);
        QCOMPARE(s.heatmap.size(), 28);
        QCOMPARE(s.heatmap.value("2026-03-02"), 5 + 4);
        QCOMPARE(s.heatmap.value("2026-02-23"), 2 + 3);
        QCOMPARE(s.heatmap.firstKey(), QString("2026-02-03"));
        QVERIFY(!s.heatmap.contains("2026-01-31")); // beyond 28 days, still counted above
        QCOMPARE(s.generatedAt, now);
        QCOMPARE(s.llmSummary, std::optional<QString>("сводка"));
    }

    void emptyAndSilentHistoriesGiveZerosNotDivisions() {
        const QDateTime now = clockStart();
        const Insights none = computeInsights({}, now);
        QCOMPARE(none.avgWordsPerMinute, 0.0);
        QCOMPARE(none.heatmap.size(), 28);
        QCOMPARE(computeInsights({entryAt(1, now, "слова без времени", 0)}, now).avgWordsPerMinute, 0.0);
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
        const Insights s = computeInsights({entryAt(1, now, text)}, now);
        QCOMPARE(s.topWords.size(), 15);
        QVERIFY(!s.topWords.contains("которые") && !s.topWords.contains("should"));
        QCOMPARE(s.topWords.value(QString("слово") + QChar(u'а' + 19)), 20);
        QVERIFY(!s.topWords.contains(QString("слово") + QChar(u'а' + 0)));
    }

    void aBrokenCacheIsRecomputedAndAGoodOneOnlyAfterMoreThanAnHour() {
        Sandbox box;
        HistoryStore& history = box.open();
        writeFile(box.file("insights.json"), "{\"generatedAt\": "); // cut short
        InsightsStore store(history, box.env.paths, box.clock);
        QVERIFY(!store.hasInsights());
        QVERIFY(store.shouldRecompute());
        store.refresh();
        const QDateTime first = store.insights()->generatedAt;
        history.add(entryAt(1, box.clock.currentDateTime(), "новая диктовка"));
        box.clock.advance(3600.0);
        QVERIFY(!store.shouldRecompute()); // exactly an hour is not yet more
        store.refresh();
        QCOMPARE(store.insights()->generatedAt, first);
        box.clock.advance(0.001);
        QVERIFY(store.shouldRecompute());
        store.refresh();
        QCOMPARE(store.insights()->totalWords, 2);
        // What was written over the broken file reads back whole.
        QCOMPARE(InsightsStore::load(box.file("insights.json")), store.insights());
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
