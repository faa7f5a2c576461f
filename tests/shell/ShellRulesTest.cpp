#include "DevServer.h"
#include "WindowFixture.h"
#include "account/Network.h"
#include "history/Formatting.h"
#include "shell/UpdateController.h"
#include "shell/hud/HudMath.h"
#include "shell/main/HistoryRows.h"
#include "shell/main/PermissionPoll.h"
#include "shell/main/RetryingIds.h"
#include "shell/settings/LocalModelSection.h"
#include "shell/welcome/PermissionsCheck.h"
#include "shell/welcome/WelcomeFlow.h"
#include "support/TestMain.h"
#include "support/TrackedEvents.h"

#include <QSignalSpy>
#include <QTest>

#include <cmath>

using namespace tamvex;
using namespace tamvex::test;
using namespace tamvex::hud;
using devserver::Script;

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
bool near(double a, double b) {
    return qAbs(a - b) < 1e-9;
}

QByteArray feed(const QStringList& builds) {
    QByteArray items;
    for (const QString& b : builds)
        items += QString(R"(<item><title>Tamvex</title><sparkle:version>%1</sparkle:version>
<sparkle:shortVersionString>0.%1.0</sparkle:shortVersionString>
<sparkle:releaseNotesLink>https://example.org/notes/%1</sparkle:releaseNotesLink>
<description><![CDATA[<p>Быстрее &amp; точнее</p>]]></description>
<enclosure url="https://example.org/tamvex_%1.deb" length="1" type="application/octet-stream"/></item>)")
                     .arg(b)
                     .toUtf8();
    return R"(<?xml version="1.0"?><rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel>)" +
           items + "</channel></rss>";
}

class FakePrompter final : public UpdatePrompter {
public:
    bool offerUpdate(const UpdateItem& item, const QString&) override {
        offered.append(item);
        return accept;
    }
    void showUpToDate(const QString&) override { ++upToDate; }
    void showCheckFailed(const QString& message) override { failures.append(message); }
    void openDownload(const QUrl& url) override { opened.append(url); }
    bool accept = true;
    QList<UpdateItem> offered;
    int upToDate = 0;
    QStringList failures;
    QList<QUrl> opened;
};

struct UpdateRig {
    devserver::DevServer server;
    const quint16 port = server.start(); // before the controller reads the address
    ManualClock clock;
    TestEnv env;
    FakePrompter prompter;
    /// A controller of build 5 over this rig's feed, settings and clock, as one run of the application has.
    std::unique_ptr<UpdateController> controller() {
        return std::make_unique<UpdateController>(clock, *env.defaults, sharedNetworkManager(), prompter,
                                                  QUrl(server.baseUrl().toString() + "/appcast.xml"), "0.5.0", "5");
    }
    const std::unique_ptr<UpdateController> owned = controller();
    UpdateController& updates = *owned;
    void serve(const QByteArray& body, int delayMs = 0) {
        server.script("/appcast.xml", Script{200, body, "application/rss+xml", delayMs});
    }
    void checkFromMenu() {
        QSignalSpy done(&updates, &UpdateController::checkFinished);
        updates.checkForUpdates();
        QVERIFY(done.count() == 1 || done.wait(10000));
    }
    int fetches() { return server.received("/appcast.xml").size(); }
};
} // namespace

// The rules of the shell that need no window: the main pane's rows and polls, the welcome
// flow's steps, the HUD's arithmetic and the update checks against a feed on the dev server.
class ShellRulesTest : public QObject {
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

    void advanceWalksTheStepsAndFinishes() {
        AppFixture fx;
        SettingsStore& settings = fx.state->settings();
        WelcomeFlow flow(settings);
        QSignalSpy finished(&flow, &WelcomeFlow::finished);
        TrackedEvents events;

        QVERIFY(!flow.canGoBack());
        flow.advance();
        QCOMPARE(flow.step(), 1);
        flow.advance();

        // A use case must be chosen; deselecting disables the button again.
        QVERIFY(!flow.canAdvance());
        flow.advance();
        QCOMPARE(flow.step(), 2);
        QSignalSpy canAdvance(&flow, &WelcomeFlow::canAdvanceChanged);
        flow.toggleUseCase("writing");
        QVERIFY(flow.canAdvance() && flow.isUseCaseSelected("writing"));
        flow.toggleUseCase("writing");
        QVERIFY(!flow.canAdvance());
        QVERIFY(canAdvance.size() >= 2); // the button's binding follows
        flow.toggleUseCase("ai");
        flow.toggleUseCase("docs");
        flow.toggleUseCase("nonsense");
        QCOMPARE(settings.useCases().size(), 2);

        flow.back();
        QCOMPARE(flow.step(), 1);
        for (int i = 0; i < 4; ++i)
            flow.advance(); // login and permissions may be skipped
        QCOMPARE(flow.advanceTitle(), QString("Готово"));
        flow.advance();
        // A step event for each step taken, none for a refused one or the last step.
        QCOMPARE(events.names(), QStringList(6, "onboarding_step_advanced") << "onboarding_completed");
        QCOMPARE(events.propertiesOf("onboarding_step_advanced"),
                 (QVariantMap{{"from_step", 0}, {"to_step", 1}, {"step_name", "hotkey"}}));
        QCOMPARE(events.at(1).at(1).toMap().value("step_name"), QVariant("use_cases"));
        QCOMPARE(events.propertiesOf("onboarding_completed"),
                 (QVariantMap{{"byok_key_entered", false}, {"use_cases_count", 2}}));
        QCOMPARE(finished.size(), 1);
        QVERIFY(settings.onboardingCompleted() && settings.useEmbeddedKey());
        QCOMPARE(WelcomeFlow::stepName(7), QString("step_7"));

        // A key given at the start is stored trimmed and turns the embedded key off.
        WelcomeFlow withKey(settings, 5, "  sk-or-v1-abc\n");
        events.clear();
        withKey.advance();
        QCOMPARE(settings.apiKey(), QString("sk-or-v1-abc"));
        QVERIFY(!settings.useEmbeddedKey());
        QCOMPARE(events.propertiesOf("onboarding_completed").value("byok_key_entered"), QVariant(true));
    }

    void permissionsStepReadsEverySecondWhileShown() {
        ManualClock clock;
        FixedMicrophone mic;
        mic.current = MicrophoneAccess::Status::noDevice;
        FakeAccess input;
        input.trusted = false;
        PermissionsCheck check(clock, mic, input);
        QVERIFY(!check.micGranted().has_value());
        check.appear();
        QCOMPARE(check.micGranted(), std::optional<bool>(false));
        clock.advance(5.0);
        QCOMPARE(input.promptCount(), 0); // no microphone: no prompt chain

        mic.current = MicrophoneAccess::Status::authorized;
        clock.advance(0.99);
        QCOMPARE(check.micGranted(), std::optional<bool>(false));
        clock.advance(0.01);
        QCOMPARE(check.micGranted(), std::optional<bool>(true));
        input.trusted = true;
        clock.advance(1.0);
        QVERIFY(check.accessibilityGranted());

        check.disappear();
        input.trusted = false;
        clock.advance(10.0);
        QVERIFY(check.accessibilityGranted()); // not read after the step went
        QCOMPARE(clock.pendingTimers(), 0);

        // Shown again with the microphone there: input access is asked for 0.5 s later.
        check.appear();
        clock.advance(0.49);
        QCOMPARE(input.promptCount(), 0);
        clock.advance(0.01);
        QCOMPARE(input.promptCount(), 1);
        check.disappear();
    }

    void recordingWhiskers() {
        const QList<double> floor{4, 4, 4, 4, 4};
        const QList<double> full{13.9, 18.4, 22, 18.4, 13.9};
        const struct {
            double level;
            QList<double> heights;
        } cases[] = {
            {-70.0, floor},                        // below the floor
            {-60.0, floor},                        // the floor
            {-30.0, {8.95, 11.2, 13, 11.2, 8.95}}, // half way
            {0.0, full},                           // full scale
            {5.0, full},                           // clamped
            {-160.0, floor},                       // silence
        };
        for (const auto& c : cases)
            for (int i = 0; i < 5; ++i) {
                const double h = whiskerHeight(i, CatMode::recording, c.level, 0.37);
                QVERIFY2(near(h, c.heights[i]),
                         qPrintable(QString("%1 dB, whisker %2: %3").arg(c.level).arg(i).arg(h)));
            }
    }

    // The purr ignores the level; its middle whisker runs from 6 to 20, the ends from 6 to 14.4,
    // and the wave moves along the whiskers by 0.22 of a half turn each.
    void purr() {
        const struct {
            int index;
            double phase;
            double height;
        } cases[] = {
            {2, 0.81, 20.0}, // middle, top of the wave
            {2, 0.31, 6.0},  // middle, bottom
            {2, 0.06, 13.0}, // middle, zero crossing
            {0, 0.25, 14.4}, // first, top
            {0, 0.75, 6.0},  // first, bottom
            {4, 0.37, 14.4}, // last, top: (0.88 + 0.37) π
            {1, 0.0, 0.85 * 14 * (std::sin(0.44 * M_PI) + 1) / 2 + 6},
        };
        for (const auto& c : cases)
            for (double level : {-160.0, 0.0}) {
                const double h = whiskerHeight(c.index, CatMode::processing, level, c.phase);
                QVERIFY2(near(h, c.height),
                         qPrintable(QString("whisker %1 at %2: %3").arg(c.index).arg(c.phase).arg(h)));
            }
        for (int step = 0; step <= 1000; ++step) {
            const double t = 1.7e9 + step * 0.0137;
            const double phase = purrPhase(t);
            QVERIFY(phase >= 0 && phase < 1);
            QVERIFY(qAbs(purrPhase(t + purrPeriod) - phase) < 1e-6);
            for (int i = 0; i < 5; ++i) {
                const double h = whiskerHeight(i, CatMode::processing, -30, phase);
                QVERIFY2(h >= 6 - 1e-9 && h <= 20 + 1e-9, qPrintable(QString::number(h)));
            }
        }
    }

    void thinkingDots() {
        // b = (t / 0.9 + 0.2 i) π, s = (sin 2b + 1) / 2.
        const struct {
            int index;
            double t;
            DotPose pose;
        } cases[] = {
            {0, 0.0, {-2.0, 0.725}},              // at rest
            {0, 0.225, {-4.0, 1.0}},              // at the top
            {0, 0.675, {0.0, 0.45}},              // at the bottom
            {1, 0.045, {-4.0, 1.0}},              // lags a fifth
            {2, 0.9 + 0.675 - 0.36, {0.0, 0.45}}, // a period later
        };
        for (const auto& c : cases) {
            const DotPose pose = thinkingDot(c.index, c.t);
            QVERIFY2(
                near(pose.offset, c.pose.offset) && near(pose.opacity, c.pose.opacity),
                qPrintable(QString("dot %1 at %2: %3, %4").arg(c.index).arg(c.t).arg(pose.offset).arg(pose.opacity)));
        }
    }

    void panelPosition() {
        // A panel at the bottom of 1920x1080 with a 40 px task bar at the bottom; then a second
        // screen to the right with a panel on the left: the area does not start at 0.
        const struct {
            QRect available;
            QSize size;
            bool nudge;
            QPoint topLeft;
        } cases[] = {
            {QRect(0, 0, 1920, 1040), QSize(126, 44), false, QPoint(897, 990)},
            {QRect(0, 0, 1920, 1040), QSize(126, 44), true, QPoint(897, 968)},
            {QRect(0, 0, 1920, 1040), QSize(127, 44), false, QPoint(896, 990)}, // odd width rounds left
            {QRect(1920 + 60, 32, 2560 - 60, 1440 - 32), QSize(300, 60), false, QPoint(1980 + 1100, 1440 - 6 - 60)},
        };
        for (const auto& c : cases)
            QCOMPARE(hud::panelPosition(c.available, c.size, c.nudge), c.topLeft);
    }

    void errorTextIsCutToFifty() {
        const QString sixty = QString("Сервер не отвечает. ").repeated(3);
        // 49 letters and an emoji of two UTF-16 units: the emoji is the 50th character.
        const QString emoji = QString("а").repeated(49) + QString::fromUtf8("😿");
        const QString cases[][2] = {
            {sixty, sixty.left(50)},  {sixty.left(50), sixty.left(50)}, {"Нет сети", "Нет сети"}, {"", ""},
            {emoji + "хвост", emoji},
        };
        for (const auto& c : cases)
            QCOMPARE(errorPillText(c[0]), c[1]);
    }

    void updateFeedAgainstOurBuild_data() {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("offered"); // the build offered, or "" for none
        QTest::addColumn<bool>("upToDate");
        QTest::addColumn<bool>("failed");
        QTest::newRow("newer build") << feed({"4", "6", "5"}) << "6" << false << false;
        QTest::newRow("newer by its second number") << feed({"5.1"}) << "5.1" << false << false;
        QTest::newRow("same build") << feed({"5"}) << "" << true << false;
        QTest::newRow("older build") << feed({"3", "4"}) << "" << true << false;
        QTest::newRow("no release") << feed({}) << "" << true << false;
        QTest::newRow("malformed") << QByteArray("<rss><channel><item>") << "" << false << true;
        QTest::newRow("not a feed") << QByteArray("{\"json\": true}") << "" << false << true;
    }

    void updateFeedAgainstOurBuild() {
        QFETCH(QByteArray, body);
        QFETCH(QString, offered);
        QFETCH(bool, upToDate);
        QFETCH(bool, failed);
        UpdateRig rig;
        TrackedEvents tracked;
        rig.serve(body);
        rig.checkFromMenu();
        QCOMPARE(rig.prompter.offered.size(), offered.isEmpty() ? 0 : 1);
        QCOMPARE(rig.prompter.upToDate, upToDate ? 1 : 0);
        QCOMPARE(rig.prompter.failures.size(), failed ? 1 : 0);
        QCOMPARE(tracked.names(), offered.isEmpty() ? QStringList() : QStringList{"update_available_shown"});
        if (!offered.isEmpty()) {
            const UpdateItem& item = rig.prompter.offered[0];
            QCOMPARE(item.version, offered);
            QCOMPARE(item.notes, QString("Быстрее & точнее"));
            QCOMPARE(rig.prompter.opened, QList<QUrl>{QUrl("https://example.org/tamvex_" + offered + ".deb")});
            QCOMPARE(tracked.propertiesOf("update_available_shown"),
                     (QVariantMap{{"current_version", "0.5.0"},
                                  {"current_build", "5"},
                                  {"new_version", "0." + offered + ".0"},
                                  {"new_build", offered}}));
        }
    }

    void updateChecksInTheBackgroundSayNothingButAFind() {
        UpdateRig rig;
        rig.serve(QByteArray("garbage"));
        syncWait(rig.updates.check(false));
        QVERIFY(rig.prompter.failures.isEmpty() && rig.prompter.upToDate == 0);
        rig.prompter.accept = false; // "Позже"
        rig.serve(feed({"9"}));
        syncWait(rig.updates.check(false));
        QCOMPARE(rig.prompter.offered.size(), 1);
        QVERIFY(rig.prompter.opened.isEmpty());
    }

    void updateFeedThatNeverAnswersGivesUpOnTheClock() {
        UpdateRig rig;
        rig.serve(feed({"9"}), 60000);
        QSignalSpy done(&rig.updates, &UpdateController::checkFinished);
        rig.updates.checkForUpdates();
        QVERIFY(spinUntil([&] { return rig.fetches() == 1; }));
        rig.clock.advance(29.9);
        QCoreApplication::processEvents();
        QCOMPARE(done.count(), 0);
        rig.clock.advance(0.1);
        QVERIFY(done.count() == 1 || done.wait(5000));
        QCOMPARE(rig.prompter.failures.size(), 1);
    }

    void updateChecksOnceADay() {
        UpdateRig rig;
        rig.serve(feed({"5"}));
        const auto fetchesAfter = [&](double seconds, int expected) {
            rig.clock.advance(seconds);
            return spinUntil([&] { return rig.fetches() == expected; }, 3000) && rig.fetches() == expected;
        };
        {
            const auto first = rig.controller();
            first->start();
            QVERIFY(fetchesAfter(59.9, 0));
            QVERIFY(fetchesAfter(0.1, 1)); // a minute after launch
            QVERIFY(fetchesAfter(86399.9, 1));
            QVERIFY(fetchesAfter(0.1, 2)); // a day later
        }
        // Restarted an hour later: the next check comes a day after the last one kept in the settings.
        rig.clock.advance(3600.0);
        const auto second = rig.controller();
        second->start();
        QVERIFY(fetchesAfter(60.0, 2));
        QVERIFY(fetchesAfter(86400.0 - 3600.0 - 60.0 - 0.1, 2));
        QVERIFY(fetchesAfter(0.1, 3));
        QCOMPARE(rig.prompter.offered.size() + rig.prompter.upToDate + rig.prompter.failures.size(), qsizetype(0));
    }
};

TAMVEX_TEST_CLASS(ShellRulesTest)
#include "ShellRulesTest.moc"
