// The application state: the pipeline its settings and account choose, and the cards it
// shows (the tips, the idle nudge and their timers).
#include "KeyboardShortcuts/ShortcutRegistry.h"
#include "account/AccountStore.h"
#include "core/Nudges.h"
#include "core/PipelineBuilding.h"
#include "pipelines/CloudPipelines.h"
#include "pipelines/LocalWhisperPipeline.h"
#include "shell/SettingsStore.h"
#include "support/AppFixture.h"
#include "support/TestMain.h"
#include "support/TrackedEvents.h"

#include <QDir>
#include <QSignalSpy>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;

class AppStateTest : public QObject {
    Q_OBJECT

    struct Fixture {
        AppFixture app;
        AppState& state = *app.state;
        SettingsStore& settings = app.state->settings();
        TrackedEvents tracked;
        QDateTime ago(double seconds) const { return app.clock.currentDateTime().addMSecs(-qint64(seconds * 1000)); }
        QString cardTitle() const { return state.pendingNudge() ? state.pendingNudge()->title : QString(); }
    };

private slots:
    void initTestCase() {
        // Nothing listens there: a refresh of a stored token fails at once, leaving no user.
        qputenv("TAMVEX_MAIN_URL", "http://127.0.0.1:9");
        qputenv("TAMVEX_STT_URL", "http://127.0.0.1:9");
    }

    void choices_data() {
        QTest::addColumn<QString>("preset");
        QTest::addColumn<bool>("embedded");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("account"); // "", "token" (no user yet), "user"
        QTest::addColumn<QString>("custom");
        QTest::addColumn<QString>("modelFile"); // a file in the models folder, or ""
        QTest::addColumn<QString>("expected");  // error code, or mode + pipeline + models
        const auto row = [](const char* name, const char* preset, bool embedded, const char* key, const char* account,
                            const char* custom, const char* modelFile, const char* expected) {
            QTest::newRow(name) << QString(preset) << embedded << QString(key) << QString(account) << QString(custom)
                                << QString(modelFile) << QString(expected);
        };
        const char* large = "ggml-large-v3-turbo-q5_0.bin";
        row("own key, signed out", "fast", false, "sk-1", "", "", "", "direct single preset:fast-audio");
        row("embedded key wins over a stored key and a custom model", "fast", true, "sk-1", "user", "my/model", "",
            "proxy single preset:fast-audio");
        row("key of blanks is no key", "precise", false, " \t ", "user", "", "", "proxy single preset:precise-audio");
        row("key of blanks, signed out", "fast", false, "  ", "", "", "", "error 4");
        row("token without a loaded user", "fast", true, "", "token", "", "", "error 4");
        row("custom model of blanks and breaks", "fast", false, "sk-1", "", " \n\t", "",
            "direct single preset:fast-audio");
        row("custom model makes cheap one request", "cheap", false, "sk-1", "", " my/model\n", "",
            "direct single my/model");
        row("cheap through the service", "cheap", true, "", "user", "", "",
            "proxy two preset:cheap-audio preset:cheap-cleanup");
        row("local needs no login and ignores the custom model", "local", true, "", "", "my/model", large, "local");
        row("local without the large model", "local", false, "sk-1", "user", "", "ggml-medium-q5_0.bin", "error -101");
    }

    void choices() {
        QFETCH(QString, preset);
        QFETCH(bool, embedded);
        QFETCH(QString, key);
        QFETCH(QString, account);
        QFETCH(QString, custom);
        QFETCH(QString, modelFile);
        QFETCH(QString, expected);
        Fixture f;
        AppState& state = f.state;
        state.settings().setPresetRaw(preset);
        state.settings().setUseEmbeddedKey(embedded);
        state.settings().setApiKey(key);
        state.settings().setCustomModelId(custom);
        if (account == "user")
            state.account().setSession("tok", UserDTO{1, "+7999", 1000, 0});
        else if (account == "token")
            state.account().setToken("tok");
        if (!modelFile.isEmpty()) {
            const QString dir = f.app.env.paths.dataFile("models");
            QDir().mkpath(dir);
            QFile file(dir + "/" + modelFile);
            QVERIFY(file.open(QIODevice::WriteOnly));
        }

        QString got;
        try {
            const PipelineSetup setup = buildPipeline(state);
            if (setup.cloudMode)
                got = setup.cloudMode->kind == OpenRouterService::Mode::Kind::proxy ? "proxy " : "direct ";
            if (auto* single = dynamic_cast<SinglePassPipeline*>(setup.pipeline.get())) {
                got += "single " + single->model();
                QCOMPARE(single->systemPrompt(), prompts::cleanupPrompt);
            } else if (auto* two = dynamic_cast<TwoStagePipeline*>(setup.pipeline.get())) {
                got += "two " + two->sttModel() + " " + two->cleanupModel();
            } else if (dynamic_cast<LocalWhisperPipeline*>(setup.pipeline.get())) {
                got += "local";
            }
            if (setup.cloudMode && setup.cloudMode->kind == OpenRouterService::Mode::Kind::direct)
                QCOMPARE(setup.cloudMode->secret, key); // trimmed only when the request is built
        } catch (const DomainError& e) {
            got = "error " + QString::number(e.code());
            QCOMPARE(e.domain(), QString("Tamvex"));
            QCOMPARE(e.description(),
                     e.code() == 4 ? notSignedInError().description() : modelNotDownloadedError().description());
        }
        QCOMPARE(got, expected);
        spinUntil([&] { return !state.account().isRefreshing(); });
    }

    void slowFlagOnlyLivesDuringProcessing() {
        Fixture f;
        AppState& s = f.state;
        s.setRecordingState(RecordingState::processing());
        s.setSlowProcessing(true);
        s.setRecordingState(RecordingState::processing());
        QVERIFY(s.slowProcessing());
        QSignalSpy slow(&s, &AppState::slowProcessingChanged);
        s.setRecordingState(RecordingState::error("x"));
        QVERIFY(!s.slowProcessing());
        QCOMPARE(slow.count(), 1);
        // Already off: nothing is written, so observers see nothing.
        s.setRecordingState(RecordingState::idle());
        QCOMPARE(slow.count(), 1);
    }

    void nudgeTimersReplaceEachOther() {
        Fixture f;
        AppState& s = f.state;
        const NudgeContent first{"hand.tap", "Первый", "текст", "FN"};
        const NudgeContent second{"timer", "Второй", "текст", "FN"};
        s.showNudge(first, 9.0);
        f.app.clock.advance(5.0);
        s.showNudge(second, 9.0);
        f.app.clock.advance(8.99);
        // The first timer would have fired at 9 s; the second card keeps its full time.
        QCOMPARE(s.pendingNudge(), std::optional<NudgeContent>(second));
        f.app.clock.advance(0.01);
        QVERIFY(!s.pendingNudge());

        s.showNudge(first, 9.0);
        s.dismissNudge();
        QVERIFY(!s.pendingNudge());
        QCOMPARE(f.app.clock.pendingTimers(), 0);
    }

    // Blanks and tabs are no key; any other character, even a line break, is one.
    void serviceBalanceByKey() {
        Fixture f;
        const std::tuple<bool, const char*, bool> cases[] = {{true, "", true},        {false, "", true},
                                                             {false, " \t \t", true}, {false, "\n", false},
                                                             {false, "\tk ", false},  {true, "\tk ", true}};
        for (const auto& [embedded, key, service] : cases) {
            f.settings.setUseEmbeddedKey(embedded);
            f.settings.setApiKey(key);
            QVERIFY2(f.state.usesServiceBalance() == service,
                     qPrintable(QStringLiteral("embedded %1, key «%2»").arg(embedded).arg(key)));
        }
    }

    // Tips refuse strictly below their cooldown, so the exact cooldown shows.
    void tipCooldowns_data() {
        QTest::addColumn<bool>("longHold");
        QTest::addColumn<double>("sinceLast"); // negative: never shown
        QTest::addColumn<bool>("shows");
        QTest::newRow("short tap, first ever") << false << -1.0 << true;
        QTest::newRow("short tap, 21599.9 s") << false << 21599.9 << false;
        QTest::newRow("short tap, 21600 s exactly") << false << 21600.0 << true;
        QTest::newRow("long hold, 86399.9 s") << true << 86399.9 << false;
        QTest::newRow("long hold, 86400 s exactly") << true << 86400.0 << true;
    }
    void tipCooldowns() {
        QFETCH(bool, longHold);
        QFETCH(double, sinceLast);
        QFETCH(bool, shows);
        Fixture f;
        HotkeyTips tips(f.state);
        const std::optional<QDateTime> last = sinceLast < 0 ? std::nullopt : std::optional<QDateTime>(f.ago(sinceLast));
        longHold ? f.settings.setLastLongHoldTipAt(last) : f.settings.setLastShortTapTipAt(last);
        longHold ? tips.showLongHoldTip() : tips.showShortTapTip();
        const auto stamp = longHold ? f.settings.lastLongHoldTipAt() : f.settings.lastShortTapTipAt();
        QCOMPARE(stamp == f.app.clock.currentDateTime(), shows);
        QCOMPARE(f.cardTitle(), !shows ? QString() : longHold ? "Кнопку можно не держать" : "Слишком короткое нажатие");
        const QString event = longHold ? "long_hold_tip_shown" : "short_tap_tip_shown";
        QCOMPARE(f.tracked.names(), shows ? QStringList{event} : QStringList{});
        if (shows) {
            QCOMPARE(f.tracked.propertiesOf(event), (QVariantMap{{"hotkey", "FN"}}));
            // The card stays 9 s.
            f.app.clock.advance(8.9);
            QVERIFY(f.state.pendingNudge());
            f.app.clock.advance(0.1);
            QVERIFY(!f.state.pendingNudge());
        }
    }

    // A tip waits for idle in 60 polls of 0.5 s: the last poll is at 29.5 s.
    void tipWaitsForIdle() {
        for (const auto& [idleAfter, shows] : {std::pair{29.4, true}, {29.6, false}}) {
            Fixture f;
            HotkeyTips tips(f.state);
            f.state.setRecordingState(RecordingState::processing());
            tips.showLongHoldTip();
            f.app.clock.advance(idleAfter);
            QVERIFY(!f.state.pendingNudge());
            f.state.setRecordingState(RecordingState::idle());
            f.app.clock.advance(0.1);
            QCOMPARE(f.cardTitle(), shows ? "Кнопку можно не держать" : "");
            f.app.clock.advance(5);
            QCOMPARE(bool(f.state.pendingNudge()), shows);
            // Either way the cooldown is spent.
            QVERIFY(f.settings.lastLongHoldTipAt());
            tips.showLongHoldTip();
            QCOMPARE(f.tracked.names(), QStringList{"long_hold_tip_shown"});
        }
    }

    void idleNudgeRules_data() {
        QTest::addColumn<double>("sinceNudge"); // negative: never
        QTest::addColumn<double>("sinceRequest");
        QTest::addColumn<QString>("busy"); // "processing", "card" or ""
        QTest::addColumn<bool>("shows");
        QTest::newRow("never nudged, never dictated") << -1.0 << -1.0 << "" << true;
        QTest::newRow("nudged 86400 s ago exactly") << 86400.0 << -1.0 << "" << false;
        QTest::newRow("nudged 86400.5 s ago") << 86400.5 << -1.0 << "" << true;
        QTest::newRow("quiet 1800 s exactly") << -1.0 << 1800.0 << "" << true;
        QTest::newRow("quiet 1799.9 s") << -1.0 << 1799.9 << "" << false;
        QTest::newRow("processing") << -1.0 << -1.0 << "processing" << false;
        QTest::newRow("a card is showing") << -1.0 << -1.0 << "card" << false;
    }
    void idleNudgeRules() {
        QFETCH(double, sinceNudge);
        QFETCH(double, sinceRequest);
        QFETCH(QString, busy);
        QFETCH(bool, shows);
        Fixture f;
        if (sinceNudge >= 0)
            f.settings.setLastIdleNudgeAt(f.ago(sinceNudge));
        if (sinceRequest >= 0) {
            f.app.clock.setDate(f.ago(sinceRequest));
            f.settings.markRequest();
            f.app.clock.setDate(f.ago(-sinceRequest));
        }
        if (busy == "processing")
            f.state.setRecordingState(RecordingState::processing());
        if (busy == "card")
            f.state.showNudge(nudges::shortTapCard("FN"), 9);
        IdleNudgeManager manager(f.state);
        manager.check();
        QCOMPARE(f.cardTitle() == "Tamvex ждёт", shows);
        QCOMPARE(f.app.sounds.played, shows ? QStringList{"Glass@0.55"} : QStringList{});
        QCOMPARE(f.settings.lastIdleNudgeAt() == f.app.clock.currentDateTime(), shows);
        QCOMPARE(f.tracked.names(), shows ? QStringList{"idle_nudge_shown"} : QStringList{});
    }

    // The first check comes 300 s after start; a press takes a card away at once.
    void idleNudgeTimerAndDismissalByPress() {
        Fixture f;
        IdleNudgeManager manager(f.state);
        manager.start();
        f.app.clock.advance(299.9);
        QVERIFY(!f.state.pendingNudge());
        f.app.clock.advance(0.1);
        QCOMPARE(f.cardTitle(), "Tamvex ждёт");
        f.state.setRecordingState(RecordingState::recording());
        QVERIFY(!f.state.pendingNudge());
    }

    void hotkeyNameInEveryCard() {
        Fixture f;
        QCOMPARE(nudges::hotkeyDisplayName(f.state), "FN");
        f.settings.setUseFnHotkey(false);
        const QString unset = "горячую клавишу записи";
        QCOMPARE(nudges::hotkeyDisplayName(f.state), unset);
        for (const NudgeContent& card :
             {nudges::shortTapCard(unset), nudges::longHoldCard(unset), nudges::idleCard(unset)}) {
            QCOMPARE(card.hotkey, unset);
            QVERIFY2(card.body.contains(unset), qPrintable(card.body));
        }
        KeyboardShortcuts::ShortcutRegistry shortcuts(*f.app.env.defaults);
        const KeyboardShortcuts::Shortcut custom{46, KeyboardShortcuts::CarbonModifier::control |
                                                         KeyboardShortcuts::CarbonModifier::shift};
        shortcuts.storeShortcut(KeyboardShortcuts::sorvelRecordAlternative, custom);
        QCOMPARE(nudges::hotkeyDisplayName(f.state), "Ctrl+Shift+M");
        QCOMPARE((KeyboardShortcuts::Shortcut{0x09, KeyboardShortcuts::CarbonModifier::all}.screenText()),
                 "Ctrl+Alt+Shift+Super+Fn+V");
    }
};

TAMVEX_TEST_CLASS(AppStateTest)
#include "AppStateTest.moc"
