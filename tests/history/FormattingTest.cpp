#include "history/Formatting.h"
#include "HistoryFixtures.h"
#include "support/TestMain.h"

#include <QTest>

#include <clocale>
#include <limits>

using namespace tamvex;
using namespace tamvex::test;

namespace {
Insights withWords(qint64 totalWords, double totalMinutes = 0, qint64 wordsLastWeek = 0) {
    Insights s;
    s.totalWords = totalWords;
    s.totalMinutes = totalMinutes;
    s.wordsLastWeek = wordsLastWeek;
    return s;
}
} // namespace

class FormattingTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() {
        // Everything here runs in our users' locale, whose printf writes "1,0": the figures keep the dot.
        QVERIFY2(std::setlocale(LC_ALL, "ru_RU.UTF-8"),
                 "ru_RU.UTF-8 is not generated (scripts/install-deps.sh does it)");
        QCOMPARE(*std::localeconv()->decimal_point, ',');
    }

    void tokensAreWholeNumbersGroupedByBlanks() {
        QCOMPARE(formatTokens(0), QString("0 ø"));
        QCOMPARE(formatTokens(999.4), QString("999 ø"));
        QCOMPARE(formatTokens(999.5), QString("1 000 ø"));
        QCOMPARE(formatTokens(250000), QString("250 000 ø"));
        QCOMPARE(formatTokens(1234567.89), QString("1 234 568 ø"));
        QCOMPARE(formatTokens(-12345), QString("-12 345 ø"));
        QCOMPARE(formatTokens(-0.3), QString("0 ø"));
        QCOMPARE(formatTokens(std::numeric_limits<double>::quiet_NaN()), QString("0 ø"));
    }

    void insightsCardsShowSpeedPagesDaysAndSavedTime() {
        const QLocale ru(QLocale::Russian);
        Insights s = withWords(249, 10.0);
        s.avgWordsPerMinute = 24.5;
        s.daysUsed = 3;
        auto cards = insightsCards(s, ru);
        QCOMPARE(cards.size(), 4);
        QCOMPARE(cards[0], (InsightTile{"Слов в минуту", "speedometer", "24", "среднее по всем диктовкам"}));
        QCOMPARE(cards[1], (InsightTile{"Всего слов", "textformat", "249", "≈ 0 страниц A4"}));
        QCOMPARE(cards[2], (InsightTile{"Используешь", "calendar", "3", "дней"}));
        QCOMPARE(cards[3].value, QString("4м")); // 249/40 − 249/140 = 4.45
        QCOMPARE(cards[3].subtitle, QString("vs набор текста"));

        cards = insightsCards(withWords(3360), ru);
        QCOMPARE(savedMinutes(3360), 60.0);
        QCOMPARE(cards[3].value, QString("1.0ч"));
        QCOMPARE(cards[1].value, QString("3\u00a0360"));
        QCOMPARE(cards[1].subtitle, QString("≈ 13 страниц A4"));
        QCOMPARE(homeTiles(withWords(3360), ru)[3].value, QString("1.0ч"));
        QCOMPARE(homeTiles(withWords(3359), ru)[3].value, QString("60 мин")); // 59.98 rounds in the print
    }

    void homeTilesReadZerosWithoutASnapshot() {
        const QLocale ru(QLocale::Russian);
        auto tiles = homeTiles(std::nullopt, ru);
        QCOMPARE(tiles[0], (InsightTile{"Слов всего", "textformat", "0", ""}));
        QCOMPARE(tiles[1], (InsightTile{"Минут наговорено", "clock.fill", "0", "≈ 0 мин"}));
        QCOMPARE(tiles[2], (InsightTile{"Используешь", "calendar", "0", "дней"}));
        QCOMPARE(tiles[3], (InsightTile{"Сэкономлено", "bolt.fill", "0 мин", "vs набор текста"}));

        tiles = homeTiles(withWords(12345, 59.9, 1), ru);
        QCOMPARE(tiles[0].value, QString("12\u00a0345"));
        QCOMPARE(tiles[0].subtitle, QString("+1 за неделю"));
        QCOMPARE(tiles[1].value, QString("60"));
        QCOMPARE(tiles[1].subtitle, QString("≈ 59 мин"));
        tiles = homeTiles(withWords(0, 60.0), ru);
        QCOMPARE(tiles[1].subtitle, QString("≈ 1.0 часа"));
        QCOMPARE(homeTiles(withWords(0, 135.0), ru)[1].subtitle, QString("≈ 2.2 часа"));
    }

    void weeklyGoalCelebratesTheGoalNotTheCount() {
        WeeklyGoal g = weeklyGoal(0);
        QCOMPARE(g.fill, 0.0);
        QCOMPARE(g.label, QString("0 / 2000"));
        QCOMPARE(g.caption, QString("Ещё 2000 слов до новых инсайтов"));
        QCOMPARE(weeklyGoal(1999).caption, QString("Ещё 1 слов до новых инсайтов"));
        g = weeklyGoal(2000);
        QCOMPARE(g.fill, 1.0);
        QCOMPARE(g.caption, QString("🎉 Ты намурчал 2000 слов на этой неделе!"));
        g = weeklyGoal(2500);
        QCOMPARE(g.fill, 1.0);
        QCOMPARE(g.label, QString("2500 / 2000"));
        QCOMPARE(g.caption, QString("🎉 Ты намурчал 2000 слов на этой неделе!"));
    }

    void categorySharesAreCutPercentagesOfAllWords() {
        QVERIFY(categoryShares({}).isEmpty());
        // An unknown key counts in the total, though it gets no row.
        const auto rows = categoryShares({{"notes", 29}, {"docs", 29}, {"code", 41}, {"legacy", 1}, {"ideas", 0}});
        QCOMPARE(rows.size(), 3);
        QCOMPARE(rows[0].category, TextCategory::code);
        QCOMPARE(rows[0].percentText, QString("41%"));
        QCOMPARE(rows[1].category, TextCategory::docs); // equal words keep the declared order
        QCOMPARE(rows[1].percent, 29);
        QCOMPARE(rows[2].category, TextCategory::notes);
        QCOMPARE(categoryShares({{"other", 2}, {"tasks", 1}})[1].percentText, QString("33%"));
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
        QCOMPARE(grid[1].opacity, 0.1);
        const auto quiet = activityGrid({}, now);
        QCOMPARE(quiet.last().opacity, 0.1);

        Insights s;
        s.heatmap = {{"2026-03-02", 7}, {"2026-02-24", 6}, {"2026-02-23", 5}};
        QCOMPARE(lastSevenDays(s, now), (QList<qint64>{6, 0, 0, 0, 0, 0, 7}));
    }

    void theDashboardNeedsWordsAndTheCaptionSaysHowOld() {
        QVERIFY(!insightsDashboardVisible(std::nullopt));
        QVERIFY(!insightsDashboardVisible(withWords(0)));
        QVERIFY(insightsDashboardVisible(withWords(1)));
        const QDateTime t = clockStart();
        QCOMPARE(insightsUpdatedCaption(t, t.addSecs(59)), QString("Обновлено только что"));
        QCOMPARE(insightsUpdatedCaption(t, t.addSecs(60)), QString("Обновлено 1 минуту назад"));
        QCOMPARE(insightsUpdatedCaption(t, t.addSecs(3 * 3600)), QString("Обновлено 3 часа назад"));
        QCOMPARE(insightsUpdatedCaption(t, t.addDays(11)), QString("Обновлено 11 дней назад"));
    }
};

TAMVEX_TEST_CLASS(FormattingTest)
#include "FormattingTest.moc"
