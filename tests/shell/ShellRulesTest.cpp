#include "DevServer.h"
#include "WindowFixture.h"
#include "account/Network.h"
#include "shell/UpdateController.h"
#include "shell/hud/HudMath.h"
#include "shell/main/HistoryRows.h"
#include "shell/main/PermissionPoll.h"
#include "shell/main/RetryingIds.h"
#include "pipelines/local/LocalWhisperEngineCache.h"
#include "pipelines/local/ModelSelfTest.h"
#include "shell/settings/LocalModelSection.h"
#include "shell/welcome/OnboardingRoad.h"
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
    void historyGroupsFollowTheCalendar() {
        const QDateTime eve = local(2026, 12, 31, 23, 59, 30);
        const struct {
            QDateTime now;
            QList<QDateTime> dates; // newest first, as the store keeps them
            QStringList groups;
        } cases[] = {
            {local(2026, 12, 31, 23, 59, 59), {eve}, {"СЕГОДНЯ:1"}}, // new year's eve, before midnight
            {local(2027, 1, 1, 0, 0, 1), {eve}, {"ВЧЕРА:1"}},        // and after it
            {local(2027, 1, 2, 0, 0, 1), {eve}, {"31 декабря:1"}},
            {local(2026, 3, 10, 9),
             {local(2026, 3, 10, 8), local(2026, 3, 9, 23), local(2026, 3, 9, 0), local(2026, 3, 5),
              local(2026, 2, 28)},
             {"СЕГОДНЯ:1", "ВЧЕРА:2", "5 марта:1", "28 февраля:1"}},
            // The same day of two years shares one group.
            {local(2026, 3, 10), {local(2026, 3, 5), local(2025, 5, 1), local(2025, 3, 5)}, {"5 марта:2", "1 мая:1"}},
        };
        for (const auto& c : cases) {
            QList<HistoryEntry> entries;
            for (const QDateTime& d : c.dates)
                entries << entryAt(d);
            const auto result = historyGroups(entries, c.now);
            QCOMPARE(titlesOf(result), c.groups);
            // Within a group the store's order (newest first) stays.
            for (const auto& g : result)
                for (int i = 1; i < g.entries.size(); ++i)
                    QVERIFY(entries.indexOf(g.entries[i - 1]) < entries.indexOf(g.entries[i]));
        }
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

    // Which row each state shows, and the texts composed from its values.
    void localModelRowsFollowTheDownloadState() {
        using S = ModelDownloadState;
        const QString once = "Скачается Whisper Large V3 Turbo (Q5) с серверов Sorvel, запасной источник — зеркало "
                             "huggingface.co. Один раз — потом распознавание работает оффлайн.";
        const struct {
            S state;
            std::optional<qint64> fileSize;
            QString phase, text, from = {};
        } cases[] = {
            {S::idle(), {}, "notDownloaded", once},
            // A file found on disk is ready without a download in this run.
            {S::idle(), 574041195, "ready", "Готово · занимает 574 МБ"},
            {S::completed(), 1549000000, "ready", "Готово · занимает 1,5 ГБ"},
            {S::completed(), {}, "notDownloaded", once}, // deleted after it was proved: nothing to show as ready
            {S::downloading(0.4279), {}, "downloading", "42%"},
            {S::downloading(0.5), {}, "downloading", "Загрузка с huggingface.co50%", "huggingface.co"},
            {S::failed("The network connection was lost."),
             {},
             "failed",
             "Ошибка скачивания: The network connection was lost."},
        };
        for (const auto& c : cases) {
            const LocalModelSection::Row row =
                LocalModelSection::rowFor(c.state, c.fileSize, {c.from, "api.sorvel.ru", "huggingface.co"});
            QCOMPARE(row.phase, c.phase);
            QCOMPARE(row.text + row.percentText, c.text);
        }
        // A self-hoster's host is named as it is.
        QVERIFY(LocalModelSection::rowFor(S::idle(), {}, {{}, "models.example.org", "mirror.example.org"})
                    .text.startsWith("Скачается Whisper Large V3 Turbo (Q5) с models.example.org, запасной источник — "
                                     "зеркало mirror.example.org."));

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

    // Every model's line: what it says and which buttons it has, by download, file and speed.
    void localModelListShowsEachModelsStateSizeAndSpeed() {
        using S = ModelDownloadState;
        using M = WhisperModel;
        using In = LocalModelSection::EntryInput;
        auto summary = [](const LocalModelSection::Entry& e) {
            QStringList buttons;
            for (const auto& [on, name] : {std::pair{e.canDownload, "download"}, {e.canCancel, "cancel"},
                                           {e.canChoose, "choose"}, {e.canDelete, "delete"}, {e.canMeasure, "measure"}})
                if (on)
                    buttons << name;
            return QStringList{e.tag + (e.current ? "*" : ""), e.phase, e.status, e.speed, e.slow ? "slow" : "", buttons.join(',')}.join(" | ");
        };
        const struct {
            In in;
            QString expected;
        } cases[] = {
            {In{.model = M::baseQ5_1}, " | notDownloaded | Не скачана |  |  | download"},
            {In{.model = M::baseQ5_1, .inUse = true, .otherTransfer = true}, "рекомендуем | notDownloaded | Не скачана |  |  | "},
            {In{.model = M::parakeetV3Q4, .state = S::downloading(0.429)}, " | downloading | Скачивается · 42% |  |  | cancel"},
            {In{.model = M::baseQ5_1, .state = S::verifying()}, " | verifying | Проверяем целостность файла… |  |  | "},
            {In{.model = M::baseQ5_1, .state = S::failed("Нет сети")},
             " | failed | Ошибка скачивания: Нет сети |  |  | download"},
            {In{.model = M::baseQ5_1, .fileSize = 59707625, .inUse = true},
             "используется* | ready | Скачана | Скорость ещё не проверена |  | choose,delete,measure"},
            {In{.model = M::baseQ5_1, .fileSize = 59707625, .measuring = true},
             " | ready | Скачана | Проверяем скорость на этом компьютере… |  | choose,delete"},
            {In{.model = M::largeV3TurboQ5, .fileSize = 574041195, .speed = ModelSpeed{10.56, 80.3}, .chosen = true},
             "выбрана* | ready | Скачана | 10 с речи — за 76 с | slow | delete,measure"},
            {In{.model = M::parakeetV3Q4, .fileSize = 355615679, .speed = ModelSpeed{10.56, 1.4}},
             " | ready | Скачана | 10 с речи — за 1,3 с |  | choose,delete,measure"},
            {In{.model = M::mediumQ5, .fileSize = 539212467, .measureFailure = "нет памяти"},
             " | ready | Скачана | Скорость не проверена: нет памяти |  | choose,delete,measure"},
        };
        for (const auto& c : cases)
            QCOMPARE(summary(LocalModelSection::entryFor(c.in)), c.expected);
        QCOMPARE(LocalModelSection::entryFor(In{.model = M::parakeetV3Q8}).details, QString("669 МБ · 25 европейских языков"));

        // The warning: only for a chosen model measured too slow, naming the fastest that keeps up.
        const QString turboSlow = "Whisper Large V3 Turbo (Q5) не успевает на этом компьютере: 20 с диктовки "
                                  "распознаются около 152 с, а предел — 25 с.";
        QMap<M, ModelSpeed> all;
        for (M m : whisperModels::all())
            all.insert(m, {10.0, 40.0});
        const struct {
            M chosen;
            QMap<M, ModelSpeed> speeds;
            QString warning;
        } warnings[] = {
            {M::largeV3TurboQ5,
             {{M::largeV3TurboQ5, {10.0, 76.0}}, {M::parakeetV3Q8, {10.0, 3.3}}, {M::parakeetV3Q4, {10.0, 2.2}}},
             turboSlow + " Успевает Parakeet TDT 0.6B v3 (Q4): 10 с речи — за 2,2 с."},
            {M::largeV3TurboQ5, {{M::largeV3TurboQ5, {10.0, 76.0}}},
             turboSlow + " Ни одна из проверенных моделей не успевает — попробуйте Whisper Base (Q5_1)."},
            {M::mediumQ5, all,
             "Whisper Medium (Q5) не успевает на этом компьютере: 20 с диктовки распознаются около 80 с, а предел — "
             "25 с. Ни одна модель не успевает здесь — для диктовки выберите облачный режим."},
            {M::largeV3TurboQ5, {{M::largeV3TurboQ5, {10.0, 12.5}}}, ""}, // 25 s: on the edge, keeps up
            {M::largeV3TurboQ5, {{M::parakeetV3Q4, {10.0, 2.2}}}, ""},    // not measured
        };
        for (const auto& w : warnings)
            QCOMPARE(LocalModelSection::warningFor(w.chosen, w.speeds), w.warning);

        // The buttons over a real folder: choosing needs the file; deleting takes one model's
        // file and nothing else, and forgets the choice it was.
        AppFixture fx;
        SettingsStore& settings = fx.state->settings();
        ModelDownloader downloader(fx.state->environment().paths, fx.clock);
        for (M m : {M::largeV3TurboQ5, M::baseQ5_1})
            QVERIFY(writeFile(downloader.localURL(m), "model"));
        const QString notes = downloader.modelsDirectory() + "/my-own-model.bin";
        QVERIFY(writeFile(notes, "mine"));
        QTemporaryDir data;
        ModelSpeedRecord record(data.filePath("model-speeds.json"));
        QVERIFY(record.store(M::largeV3TurboQ5, "CPU", {10.0, 76.0}) && record.store(M::baseQ5_1, "CPU", {10.0, 3.1}));
        LocalWhisperEngineCache cache([&](M m) { return downloader.localURL(m); });
        ModelSelfTest selfTest(cache, record, fx.clock, "CPU");
        LocalModelSection section(downloader, &selfTest);
        section.followSettings(settings);
        section.refresh(); // both are measured already: nothing is queued
        QVERIFY(!selfTest.isPending(M::largeV3TurboQ5) && !selfTest.isPending(M::baseQ5_1));
        QVERIFY(section.warning().isEmpty()); // nothing chosen yet
        section.choose("ggml-parakeet-tdt-0.6b-v3-q4_0"); // not downloaded
        section.choose("no-such-model");
        QCOMPARE(settings.localModel(), std::nullopt);
        section.choose("ggml-large-v3-turbo-q5_0");
        QCOMPARE(settings.localModel(), std::optional(M::largeV3TurboQ5));
        QVERIFY(section.entries().at(0).chosen && section.entries().at(0).slow);
        QVERIFY2(section.warning().endsWith("Успевает Whisper Base (Q5_1): 10 с речи — за 3,1 с."),
                 qPrintable(section.warning()));
        section.remove("ggml-large-v3-turbo-q5_0");
        QVERIFY(!QFile::exists(downloader.localURL(M::largeV3TurboQ5)));
        QVERIFY(QFile::exists(downloader.localURL(M::baseQ5_1)) && QFile::exists(notes));
        QCOMPARE(settings.localModel(), std::nullopt);
        QVERIFY(section.warning().isEmpty());
        // With no choice the model on disk is the card's, and the entry of the deleted one offers its download.
        QCOMPARE(section.model(), M::baseQ5_1);
        QCOMPARE(section.entries().at(0).phase, QString("notDownloaded"));
        QCOMPARE(section.entries().at(4).tag, QString("используется"));
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
        flow.advance();
        // A step event for each step taken, none for a refused one or the last step.
        QCOMPARE(events.names(), QStringList(6, "onboarding_step_advanced") << "onboarding_completed");
        QCOMPARE(events.propertiesOf("onboarding_step_advanced"),
                 (QVariantMap{{"from_step", 0}, {"to_step", 1}, {"step_name", "hotkey"}}));
        QCOMPARE(events.propertiesOf("onboarding_completed"),
                 (QVariantMap{{"byok_key_entered", false}, {"use_cases_count", 2}}));
        QCOMPARE(finished.size(), 1);
        QVERIFY(settings.onboardingCompleted() && settings.useEmbeddedKey());

        // A key given at the start is stored trimmed and turns the embedded key off.
        WelcomeFlow withKey(settings, 5, "  sk-or-v1-abc\n");
        events.clear();
        withKey.advance();
        QCOMPARE(settings.apiKey(), QString("sk-or-v1-abc"));
        QVERIFY(!settings.useEmbeddedKey());
        QCOMPARE(events.propertiesOf("onboarding_completed").value("byok_key_entered"), QVariant(true));
    }

    // The road of the next dictation: the local preset needs its model and nothing else; a cloud
    // preset takes the own key before the account.
    void onboardingRoads() {
        using R = OnboardingRoad::Road;
        const struct {
            bool local, model, ownKey, signedIn;
            R road;
        } cases[] = {
            {true, true, false, false, R::local},  {true, false, true, true, R::none},
            {false, true, false, false, R::none},  {false, false, true, false, R::ownKey},
            {false, false, true, true, R::ownKey}, {false, false, false, true, R::service},
        };
        for (const auto& c : cases)
            QCOMPARE(OnboardingRoad::roadFor(c.local, c.model, c.ownKey, c.signedIn), c.road);
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
        QVERIFY(!check.input()->commandsShown()); // no microphone: no prompt chain

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

        // Shown again with the microphone there: input access is asked for 0.5 s later, by the
        // row showing its commands in place.
        check.appear();
        clock.advance(0.49);
        QVERIFY(!check.input()->commandsShown());
        clock.advance(0.01);
        QVERIFY(check.input()->commandsShown() && check.input()->polling());
        QCOMPARE(input.promptCount(), 0);
        check.disappear();
        QVERIFY(!check.input()->polling());
    }

    // The state's spring: still at the start, over the mark by about 2% at its first peak (a
    // damping of 0.78), and settled by a second.
    void springOfAStateChange() {
        const struct {
            double seconds, progress, tolerance;
        } cases[] = {
            {-0.1, 0.0, 0.0}, {0.0, 0.0, 0.0}, {0.3196, 1.0199, 0.001}, {1.0, 1.0, 0.002}, {2.0, 1.0, 1e-5},
        };
        for (const auto& c : cases)
            QVERIFY2(qAbs(hud::springProgress(c.seconds) - c.progress) <= c.tolerance, qPrintable(QString::number(c.seconds)));
        double peak = 0;
        for (double t = 0; t < 1.2; t += 0.001)
            peak = std::max(peak, hud::springProgress(t));
        QVERIFY(peak > 1.015 && peak < 1.025);
    }

    // Recording whiskers follow the level from -60 dB to 0 dB, clamped either side; the purr ignores
    // the level and its wave moves along the whiskers by 0.22 of a half turn each.
    void whiskerHeights() {
        using enum CatMode;
        const struct {
            int index;
            CatMode mode;
            double level, phase, height;
        } cases[] = {
            {2, recording, -70.0, 0.37, 4.0}, // below the floor
            {1, recording, -30.0, 0.0, 11.2}, // half way
            {3, recording, 0.0, 0.0, 18.4},   // full scale
            {4, recording, 0.0, 0.0, 13.9},
            {2, recording, 5.0, 0.0, 22.0},      // clamped
            {2, processing, -160.0, 0.81, 20.0}, // middle, top of the wave
            {0, processing, 0.0, 0.75, 6.0},     // first, bottom
            {4, processing, -160.0, 0.37, 14.4}, // last, top: (0.88 + 0.37) π
            {1, processing, -30.0, 0.0, 0.85 * 14 * (std::sin(0.44 * M_PI) + 1) / 2 + 6},
        };
        for (const auto& c : cases) {
            const double h = whiskerHeight(c.index, c.mode, c.level, c.phase);
            QVERIFY2(qAbs(h - c.height) < 1e-9,
                     qPrintable(QString("whisker %1 at %2 dB, %3: %4").arg(c.index).arg(c.level).arg(c.phase).arg(h)));
        }
        for (const double t : {1.7e9, 1.7e9 + 0.7, 1.7e9 + 1.3999}) {
            QVERIFY(purrPhase(t) >= 0 && purrPhase(t) < 1);
            QVERIFY(qAbs(purrPhase(t + purrPeriod) - purrPhase(t)) < 1e-6);
        }
    }

    void panelPosition() {
        // A 40 px task bar at the bottom of 1920x1080 and a pending nudge; then a second screen to
        // the right with a panel on the left: the area does not start at 0. The desktop test sees
        // the plain 6 and 28 px gaps on a real X server.
        const struct {
            QRect available;
            QSize size;
            bool nudge;
            QPoint topLeft;
        } cases[] = {
            {QRect(0, 0, 1920, 1040), QSize(127, 44), true, QPoint(896, 968)}, // odd width rounds left
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
        QTest::newRow("no release") << feed({}) << "" << true << false;
        QTest::newRow("malformed") << QByteArray("<rss><channel><item>") << "" << false << true;
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

    // A click on "Проверить обновления…" while the schedule's check runs is answered by that
    // check; versions that cannot be read are reported as "unknown".
    void updateCheckJoinedFromTheMenuAndUnknownVersions() {
        UpdateRig rig;
        rig.serve(feed({"5"}), 300);
        QSignalSpy done(&rig.updates, &UpdateController::checkFinished);
        rig.updates.check(false);
        QVERIFY(rig.updates.isChecking());
        rig.updates.checkForUpdates();
        QVERIFY(done.wait(10000));
        QCOMPARE(rig.fetches(), 1);
        QCOMPARE(rig.prompter.upToDate, 1);

        // A build of ours with no version or build number, and a release with no display version.
        TrackedEvents tracked;
        UpdateController unnamed(rig.clock, *rig.env.defaults, sharedNetworkManager(), rig.prompter,
                                 QUrl(rig.server.baseUrl().toString() + "/appcast.xml"), "", "");
        QByteArray bare = feed({"9"});
        bare.replace("<sparkle:shortVersionString>0.9.0</sparkle:shortVersionString>", "");
        rig.serve(bare);
        QSignalSpy found(&unnamed, &UpdateController::checkFinished);
        unnamed.checkForUpdates();
        QVERIFY(found.wait(10000));
        QCOMPARE(tracked.propertiesOf("update_available_shown"), (QVariantMap{{"current_version", "unknown"},
                                                                              {"current_build", "unknown"},
                                                                              {"new_version", "unknown"},
                                                                              {"new_build", "9"}}));
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

    // The checks of the schedule say nothing unless they find a build: up to date, failed, then a
    // newer build that the user puts off.
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
            rig.serve(QByteArray("garbage"));
            QVERIFY(fetchesAfter(86399.9, 1));
            QVERIFY(fetchesAfter(0.1, 2)); // a day later
        }
        // Restarted an hour later: the next check comes a day after the last one kept in the settings.
        rig.clock.advance(3600.0);
        rig.prompter.accept = false; // "Позже"
        rig.serve(feed({"9"}));
        const auto second = rig.controller();
        second->start();
        QVERIFY(fetchesAfter(60.0, 2));
        QVERIFY(fetchesAfter(86400.0 - 3600.0 - 60.0 - 0.1, 2));
        QVERIFY(fetchesAfter(0.1, 3));
        QVERIFY(spinUntil([&] { return rig.prompter.offered.size() == 1; }));
        QVERIFY(rig.prompter.opened.isEmpty() && rig.prompter.failures.isEmpty() && rig.prompter.upToDate == 0);
    }
};

TAMVEX_TEST_CLASS(ShellRulesTest)
#include "ShellRulesTest.moc"
