// The application state and the cards it shows: the tips, the idle nudge and their timers.
#include "KeyboardShortcuts/ShortcutRegistry.h"
#include "core/Nudges.h"
#include "shell/SettingsStore.h"
#include "support/AppFixture.h"
#include "support/TestMain.h"
#include "support/TrackedEvents.h"

#include <QSignalSpy>
#include <QTest>

using namespace tamvex;

class AppStateTest : public QObject {
    Q_OBJECT

    struct Fixture {
        test::AppFixture app;
        AppState& state = *app.state;
        SettingsStore& settings = app.state->settings();
        test::TrackedEvents tracked;
        QDateTime ago(double seconds) const { return app.clock.currentDateTime().addMSecs(-qint64(seconds * 1000)); }
        QString cardTitle() const { return state.pendingNudge() ? state.pendingNudge()->title : QString(); }
    };

private slots:
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
        AppState& s = f.state;
        QVERIFY(s.usesServiceBalance());
        s.settings().setUseEmbeddedKey(false);
        QVERIFY(s.usesServiceBalance());
        s.settings().setApiKey(" \t \t");
        QVERIFY(s.usesServiceBalance());
        s.settings().setApiKey("\n");
        QVERIFY(!s.usesServiceBalance());
        s.settings().setApiKey("\tk ");
        QVERIFY(!s.usesServiceBalance());
        s.settings().setUseEmbeddedKey(true);
        QVERIFY(s.usesServiceBalance());
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
