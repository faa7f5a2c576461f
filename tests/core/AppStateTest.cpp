// The application state: the pipeline its settings and account choose, and the cards it
// shows (the tips, the idle nudge and their timers).
#include "KeyboardShortcuts/ShortcutRegistry.h"
#include "account/AccountStore.h"
#include "core/Nudges.h"
#include "core/PipelineBuilding.h"
#include "pipelines/CloudPipelines.h"
#include "pipelines/local/LocalWhisperPipeline.h"
#include "shell/SettingsStore.h"
#include "support/AppFixture.h"
#include "support/TestMain.h"
#include "support/TrackedEvents.h"

#include <QSignalSpy>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;

// What the settings and the account hold, and the pipeline they give (or the error code).
struct Choice {
    QString preset;
    bool embedded = false;
    QString key, account, custom, modelFile, expected;
};
Q_DECLARE_METATYPE(Choice)

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
        QTest::addColumn<Choice>("c");
        const char* large = "ggml-large-v3-turbo-q5_0.bin";
        // Only blanks and tabs are no key: a line break is a key.
        QTest::newRow("key of a line break")
            << Choice{"fast", false, "\n", "", "", "", "direct single preset:fast-audio"};
        QTest::newRow("embedded key wins over a stored key and a custom model")
            << Choice{"fast", true, "sk-1", "user", "my/model", "", "proxy single preset:fast-audio"};
        QTest::newRow("key of blanks is no key")
            << Choice{"precise", false, " \t ", "user", "", "", "proxy single preset:precise-audio"};
        QTest::newRow("token without a loaded user") << Choice{"fast", true, "", "token", "", "", "error 4"};
        QTest::newRow("custom model of blanks and breaks")
            << Choice{"fast", false, "sk-1", "", " \n\t", "", "direct single preset:fast-audio"};
        QTest::newRow("custom model makes cheap one request")
            << Choice{"cheap", false, "sk-1", "", " my/model\n", "", "direct single my/model"};
        QTest::newRow("cheap through the service")
            << Choice{"cheap", true, "", "user", "", "", "proxy two preset:cheap-audio preset:cheap-cleanup"};
        QTest::newRow("local needs no login and ignores the custom model")
            << Choice{"local", true, "", "", "my/model", large, "local"};
        QTest::newRow("local without a model file")
            << Choice{"local", false, "sk-1", "user", "", "notes.bin", "error -101"};
    }

    void choices() {
        QFETCH(Choice, c);
        Fixture f;
        AppState& state = f.state;
        state.settings().setPresetRaw(c.preset);
        state.settings().setUseEmbeddedKey(c.embedded);
        state.settings().setApiKey(c.key);
        state.settings().setCustomModelId(c.custom);
        if (c.account == "user")
            state.account().setSession("tok", UserDTO{1, "+7999", 1000, 0});
        else if (c.account == "token")
            state.account().setToken("tok");
        if (!c.modelFile.isEmpty())
            QVERIFY(writeFile(f.app.env.paths.dataFile("models") + "/" + c.modelFile, ""));

        QString got;
        try {
            const PipelineSetup setup = buildPipeline(state);
            if (setup.cloudMode)
                got = setup.cloudMode->kind == OpenRouterService::Mode::Kind::proxy ? "proxy " : "direct ";
            if (auto* single = dynamic_cast<SinglePassPipeline*>(setup.pipeline.get()))
                got += "single " + single->model();
            else if (auto* two = dynamic_cast<TwoStagePipeline*>(setup.pipeline.get()))
                got += "two " + two->sttModel() + " " + two->cleanupModel();
            else if (auto* local = dynamic_cast<LocalWhisperPipeline*>(setup.pipeline.get())) {
                got += "local";
                // Speech detection is on unless the user turned it off.
                QVERIFY(local->detectsSpeech());
                state.settings().setLocalSpeechDetection(false);
                const PipelineSetup off = buildPipeline(state);
                QVERIFY(!static_cast<LocalWhisperPipeline*>(off.pipeline.get())->detectsSpeech());
            }
            if (setup.cloudMode && setup.cloudMode->kind == OpenRouterService::Mode::Kind::direct)
                QCOMPARE(setup.cloudMode->secret, c.key); // trimmed only when the request is built
        } catch (const DomainError& e) {
            got = "error " + QString::number(e.code());
        }
        QCOMPARE(got, c.expected);
        spinUntil([&] { return !state.account().isRefreshing(); });
    }

    // A new card cancels the old card's timer; a tip's card stays its full 9 s.
    void nudgeTimersReplaceEachOther() {
        Fixture f;
        HotkeyTips tips(f.state);
        tips.showShortTapTip();
        f.app.clock.advance(5.0);
        tips.showLongHoldTip();
        f.app.clock.advance(8.99);
        QCOMPARE(f.cardTitle(), "Кнопку можно не держать");
        f.app.clock.advance(0.01);
        QVERIFY(!f.state.pendingNudge());

        f.state.showNudge(nudges::idleCard("FN"), 9.0);
        f.state.dismissNudge();
        QVERIFY(!f.state.pendingNudge());
        QCOMPARE(f.app.clock.pendingTimers(), 0);
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
        if (shows)
            QCOMPARE(f.tracked.propertiesOf(event), (QVariantMap{{"hotkey", "FN"}}));
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

    // With no custom shortcut set, a card names the hotkey in words; a shortcut's text lists
    // every modifier in one order.
    void hotkeyNameInCards() {
        Fixture f;
        f.settings.setUseFnHotkey(false);
        const QString body = nudges::idleCard(nudges::hotkeyDisplayName(f.state)).body;
        QVERIFY2(body.contains("горячую клавишу записи"), qPrintable(body));
        QCOMPARE((KeyboardShortcuts::Shortcut{0x09, KeyboardShortcuts::CarbonModifier::all}.screenText()),
                 "Ctrl+Alt+Shift+Super+Fn+V");
    }
};

TAMVEX_TEST_CLASS(AppStateTest)
#include "AppStateTest.moc"
