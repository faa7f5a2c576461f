#include "shell/SettingsStore.h"
#include "support/AppFixture.h"
#include "support/TestMain.h"

#include <QSignalSpy>
#include <QTest>

using namespace tamvex;

class AppStateTest : public QObject {
    Q_OBJECT
private slots:
    void slowFlagOnlyLivesDuringProcessing() {
        test::AppFixture f;
        AppState& s = *f.state;
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
        test::AppFixture f;
        AppState& s = *f.state;
        const NudgeContent first{"hand.tap", "Первый", "текст", "FN"};
        const NudgeContent second{"timer", "Второй", "текст", "FN"};
        s.showNudge(first, 9.0);
        f.clock.advance(5.0);
        s.showNudge(second, 9.0);
        f.clock.advance(8.99);
        // The first timer would have fired at 9 s; the second card keeps its full time.
        QCOMPARE(s.pendingNudge(), std::optional<NudgeContent>(second));
        f.clock.advance(0.01);
        QVERIFY(!s.pendingNudge());

        s.showNudge(first, 9.0);
        s.dismissNudge();
        QVERIFY(!s.pendingNudge());
        QCOMPARE(f.clock.pendingTimers(), 0);
    }

    // Blanks and tabs are no key; any other character, even a line break, is one.
    void serviceBalanceByKey() {
        test::AppFixture f;
        AppState& s = *f.state;
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
};

TAMVEX_TEST_CLASS(AppStateTest)
#include "AppStateTest.moc"
