#include "WindowFixture.h"
#include "history/Formatting.h"
#include "shell/main/HistoryListModel.h"
#include "shell/main/HistoryRows.h"
#include "shell/main/PermissionPoll.h"
#include "shell/main/RetryingIds.h"
#include "shell/settings/LocalModelSection.h"
#include "support/TestMain.h"

#include <QSignalSpy>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;

namespace {
QDateTime local(int y, int mo, int d, int h = 12, int mi = 0, int s = 0) {
    return QDateTime(QDate(y, mo, d), QTime(h, mi, s), Qt::LocalTime);
}
QStringList titlesOf(const QList<HistoryGroup>& groups) {
    QStringList titles;
    for (const auto& g : groups)
        titles << QStringLiteral("%1:%2").arg(g.title).arg(g.entries.size());
    return titles;
}
} // namespace

class MainPaneRulesTest : public QObject {
    Q_OBJECT
private slots:
    void historyGroupsFollowTheCalendar_data() {
        QTest::addColumn<QDateTime>("now");
        QTest::addColumn<QList<QDateTime>>("dates"); // newest first, as the store keeps them
        QTest::addColumn<QStringList>("groups");
        const QDateTime eve = local(2026, 12, 31, 23, 59, 30);
        QTest::newRow("new year's eve, before midnight")
            << local(2026, 12, 31, 23, 59, 59) << QList{eve} << QStringList{"СЕГОДНЯ:1"};
        QTest::newRow("new year's eve, after midnight")
            << local(2027, 1, 1, 0, 0, 1) << QList{eve} << QStringList{"ВЧЕРА:1"};
        QTest::newRow("two days after") << local(2027, 1, 2, 0, 0, 1) << QList{eve} << QStringList{"31 декабря:1"};
        QTest::newRow("order: today, yesterday, older newest first")
            << local(2026, 3, 10, 9)
            << QList{local(2026, 3, 10, 8), local(2026, 3, 9, 23), local(2026, 3, 9, 0), local(2026, 3, 5),
                     local(2026, 2, 28)}
            << QStringList{"СЕГОДНЯ:1", "ВЧЕРА:2", "5 марта:1", "28 февраля:1"};
        QTest::newRow("same day of two years shares one group")
            << local(2026, 3, 10) << QList{local(2026, 3, 5), local(2025, 5, 1), local(2025, 3, 5)}
            << QStringList{"5 марта:2", "1 мая:1"};
    }
    void historyGroupsFollowTheCalendar() {
        QFETCH(QDateTime, now);
        QFETCH(QList<QDateTime>, dates);
        QFETCH(QStringList, groups);
        QList<HistoryEntry> entries;
        for (const QDateTime& d : dates)
            entries << entryAt(d);
        const auto result = historyGroups(entries, now);
        QCOMPARE(titlesOf(result), groups);
        // Within a group the store's order (newest first) stays.
        for (const auto& g : result)
            for (int i = 1; i < g.entries.size(); ++i)
                QVERIFY(entries.indexOf(g.entries[i - 1]) < entries.indexOf(g.entries[i]));
    }

    void rowTitlesAndDetails() {
        const QString s70 = QString(70, u'ж');
        struct Case {
            QString text;
            std::optional<QString> error;
            QString title;
        } cases[] = {
            {"Первая строка\nвторая", {}, "Первая строка"},
            {s70, {}, QString(60, u'ж')},
            {"", {}, "(пустая)"},
            {"\nтекст со второй строки", {}, "(пустая)"},
            {"текст", QString(50, u'о'), "Ошибка: " + QString(40, u'о')},
            {"", QString(""), "Ошибка: "},
            {QString(59, u'a') + "😀b", {}, QString(59, u'a') + "😀"}, // an emoji is never cut in half
        };
        for (const Case& c : cases) {
            HistoryEntry e = entryAt(local(2026, 3, 1), c.text);
            e.errorMessage = c.error;
            QCOMPARE(historyRowTitle(e), c.title);
        }
        HistoryEntry e = entryAt(local(2026, 3, 1), "раз  два\nтри");
        QCOMPARE(historyWordsText(e), QString("3 слов"));
        QCOMPARE(historyCostText(e), QString());
        e.costUSD = 0.004;
        QCOMPARE(historyCostText(e), QString("1 000 ø"));
        e.text = "   ";
        QCOMPARE(historyWordsText(e), QString());
        QCOMPARE(formatTokens(1234567.4), QString("1 234 567 ø"));
    }

    void retryingIdsIgnoreASecondTap() {
        AppFixture fx;
        RetryingIds retrying(*fx.state);
        const QUuid id = QUuid::createUuid();
        QVERIFY(!retrying.retry(id)); // no hook
        int calls = 0;
        fx.state->setRetryTranscriptionHook([&](QUuid) -> QCoro::Task<void> {
            ++calls;
            co_await fx.clock.sleep(3.0);
        });
        QVERIFY(retrying.retry(uuidText(id)));
        QVERIFY(retrying.contains(id));
        QVERIFY(!retrying.retry(id)); // a second tap while it runs
        QCOMPARE(calls, 1);
        fx.clock.advance(2.99);
        QVERIFY(retrying.contains(id));
        fx.clock.advance(0.01);
        QVERIFY(!retrying.contains(id));
        QVERIFY(retrying.retry(id)); // done: a new tap retries again
        QCOMPARE(calls, 2);
        fx.clock.advance(3.0);
    }

    void permissionPollEndsOnGrantOrAfterSixtyRounds() {
        ManualClock clock;
        int status = 0;
        int reads = 0;
        const auto read = [&] {
            ++reads;
            return status;
        };
        PermissionPoll poll(clock, read, 1);
        poll.start();
        QCOMPARE(poll.rounds(), 1); // the first round reads at once
        clock.advance(58.0);
        QCOMPARE(poll.rounds(), 59);
        clock.advance(1.0);
        QCOMPARE(poll.rounds(), 60);
        QVERIFY(!poll.isRunning()); // round 60 ended it, no sleep after it
        status = 1;
        clock.advance(10.0);
        QCOMPARE(poll.status(), 0); // nobody reads any more
        poll.refresh();             // the row being shown again
        QCOMPARE(poll.status(), 1);

        // A grant ends the poll at the next round.
        status = 0;
        poll.refresh();
        poll.start();
        QSignalSpy changed(&poll, &PermissionPoll::statusChanged);
        clock.advance(4.0);
        status = 1;
        clock.advance(0.99);
        QVERIFY(changed.isEmpty());
        clock.advance(0.01);
        QCOMPARE(changed.size(), 1);
        QVERIFY(!poll.isRunning());
        QCOMPARE(poll.rounds(), 6);

        // Cancelled by a new start, by cancel() and by the row going away: no read after.
        status = 0;
        poll.refresh();
        poll.start();
        poll.start();
        poll.cancel();
        reads = 0;
        clock.advance(5.0);
        QCOMPARE(reads, 0);
        {
            PermissionPoll gone(clock, read, 1);
            gone.start();
        }
        reads = 0;
        clock.advance(5.0);
        QCOMPARE(reads, 0);
        QCOMPARE(clock.pendingTimers(), 0);
    }

    void localModelRowsFollowTheDownloadState() {
        using S = ModelDownloadState;
        using Row = LocalModelSection::Row;
        const QString name = LocalModelSection::modelName();
        const QString once = "Скачается с серверов Sorvel. Один раз — потом распознавание работает оффлайн.";
        const Row notDownloaded{"notDownloaded", "", "", once, "", 0.0, "Скачать модель", "arrow.down.circle.fill"};
        const auto downloading = [&](double progress, const QString& percent) {
            return Row{"downloading", "", "Скачивается " + name, "", percent, progress, "Отменить", ""};
        };
        const struct {
            S state;
            std::optional<qint64> fileSize;
            Row row;
        } cases[] = {
            {S::idle(), {}, notDownloaded},
            // A file found on disk is ready without a download in this run.
            {S::idle(), 574041195, {"ready", "checkmark.seal.fill", name, "Готово · занимает 574 МБ"}},
            {S::completed(), 1549000000, {"ready", "checkmark.seal.fill", name, "Готово · занимает 1,5 ГБ"}},
            {S::completed(), {}, notDownloaded}, // deleted after it was proved: nothing to show as ready
            {S::downloading(0.4279), {}, downloading(0.4279, "42%")},
            {S::downloading(1.0), {}, downloading(1.0, "100%")},
            {S::verifying(), 574041195, {"verifying", "", "", "Проверяем целостность файла…"}},
            {S::failed("The network connection was lost."),
             {},
             {"failed", "exclamationmark.triangle.fill", "", "Ошибка скачивания: The network connection was lost.", "",
              0.0, "Попробовать снова", "arrow.clockwise"}},
        };
        for (const auto& c : cases) {
            const Row row = LocalModelSection::rowFor(c.state, c.fileSize);
            QVERIFY2(row == c.row, qPrintable(c.state.toString() + ": " + row.phase + " / " + row.title + " / " +
                                              row.text + " / " + row.percentText + " / " + row.buttonText));
        }

        // The button downloads, then cancels.
        AppFixture fx;
        ModelDownloader downloader(fx.state->environment().paths, fx.clock, nullptr, [](WhisperModel) {
            return ModelDescriptor{"model.bin", 10, QString(64, u'0'), QUrl("http://127.0.0.1:9/models/model.bin")};
        });
        LocalModelSection section(downloader);
        QCOMPARE(section.phase(), QString("notDownloaded"));
        section.press();
        QCOMPARE(downloader.state(), S::downloading(0.0));
        QCOMPARE(section.buttonText(), QString("Отменить"));
        section.press();
        QCOMPARE(downloader.state(), S::idle());
        QCOMPARE(section.phase(), QString("notDownloaded"));
    }

    void historyModelPagesAsTheViewScrolls() {
        AppFixture fx;
        HistoryStore& store = fx.state->history();
        const QDateTime now = fx.clock.currentDateTime();
        for (int i = 0; i < 450; ++i)
            store.add(entryAt(now.addSecs(-3600 * 5 - i), QStringLiteral("запись %1").arg(i)));
        store.init(); // a fresh start: only the first page is loaded
        HistoryListModel model(store, fx.clock);
        QCOMPARE(model.rowCount(), HistoryStore::pageSize);
        QSignalSpy inserted(&model, &QAbstractItemModel::rowsInserted);
        QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
        QVERIFY(model.canFetchMore({}));
        model.fetchMore({});
        QCOMPARE(model.rowCount(), 400);
        model.fetchMore({});
        QCOMPARE(model.rowCount(), 450);
        QVERIFY(!model.canFetchMore({}));
        QCOMPARE(inserted.size(), 2); // appended, so the view keeps its place
        QCOMPARE(reset.size(), 0);
        QCOMPARE(model.data(model.index(449), HistoryListModel::TitleRole).toString(), QString("запись 449"));

        // A rewritten entry changes its row in place.
        const QUuid first = model.entryAt(0).id;
        QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
        store.applyRetrySuccess(first, "новый текст", std::nullopt, std::nullopt, std::nullopt);
        QCOMPARE(changed.size(), 1);
        QCOMPARE(model.data(model.index(0), HistoryListModel::TitleRole).toString(), QString("новый текст"));

        // Past midnight the same rows regroup at the next refresh.
        QCOMPARE(model.groupAt(0), QString("СЕГОДНЯ"));
        fx.clock.advance(24 * 3600.0);
        model.refresh();
        QCOMPARE(model.groupAt(0), QString("ВЧЕРА"));

        store.clearAll();
        QVERIFY(model.isEmpty());
    }
};

TAMVEX_TEST_CLASS(MainPaneRulesTest)
#include "MainPaneRulesTest.moc"
