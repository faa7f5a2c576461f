#include "core/RecordingCoordinator.h"
#include "core/DropRules.h"
#include "core/LevelReader.h"
#include "desktop/AudioInputFile.h"
#include "desktop/AudioTestSupport.h"
#include "history/HistoryStore.h"
#include "platform/AudioDecoder.h"
#include "support/AppFixture.h"
#include "support/TestMain.h"
#include "support/TrackedEvents.h"

#include <QDir>
#include <QSignalSpy>
#include <QTest>

using namespace tamvex;
using Mode = RecordingCoordinator::Mode;

namespace {

/// A coordinator whose microphone plays a sine of RMS level `toneDb` dBFS, `seconds` long, or
/// a missing file.
struct Rig {
    explicit Rig(double toneDb = -9.0, double seconds = 70.0, bool brokenInput = false)
        : fixture([this] { return std::make_unique<FileAudioInput>(fixture.clock, inputPath, 1.0); }) {
        inputPath = fixture.env.root.filePath(brokenInput ? "missing.wav" : "tone.wav");
        const double amplitude = toneDb <= -160 ? 0.0 : std::sqrt(2.0) * std::pow(10.0, toneDb / 20.0);
        if (!brokenInput)
            test::writeWav(inputPath, test::sine(220.0, amplitude, seconds, 16000), 16000, 1);
    }
    AppState& state() { return *fixture.state; }
    RecordingState recState() { return fixture.state->recordingState(); }
    QStringList played() { return fixture.sounds.played; }
    void advance(double s) { fixture.clock.advance(s); }
    /// A press held for `held` seconds of virtual time.
    void press(double held) {
        coordinator->handleKeyDown();
        advance(held);
        coordinator->handleKeyUp();
    }
    /// Lets queued tasks (finish, discard) run.
    void settle() {
        for (int i = 0; i < 5; ++i)
            QCoreApplication::processEvents();
    }
    QStringList recordings() { return QDir(fixture.env.paths.tempDir).entryList({"sorvel-*.m4a"}, QDir::Files); }

    QString inputPath;
    test::AppFixture fixture;
    // The input is opened at the first press, by then `inputPath` is set.
    std::unique_ptr<RecordingCoordinator> coordinator = std::make_unique<RecordingCoordinator>(*fixture.state);
    QSignalSpy tip{coordinator.get(), &RecordingCoordinator::shortTapTipRequested};
    test::TrackedEvents tracked;
};

} // namespace

class RecordingCoordinatorTest : public QObject {
    Q_OBJECT
private slots:
    void holdAtExactlyHalfASecondIsAHold() {
        Rig rig;
        rig.coordinator->handleKeyDown();
        QCOMPARE(rig.recState(), RecordingState::recording());
        QCOMPARE(rig.coordinator->currentMode(), std::optional<Mode>(Mode::holdPending));
        rig.advance(0.5);
        rig.coordinator->handleKeyUp();
        QVERIFY(!rig.coordinator->currentMode());
        // The stop runs as its own task: until then a press finds recording with no mode.
        QCOMPARE(rig.recState(), RecordingState::recording());
        rig.coordinator->handleKeyDown();
        QCOMPARE(rig.played(), (QStringList{"Pop@0.35", "Bottle@0.3"}));
        rig.settle();
        QCOMPARE(rig.recState(), RecordingState::error("Слишком коротко — подержи FN дольше"));
        QVERIFY(rig.recordings().isEmpty());
        QVERIFY(rig.state().history().entries().isEmpty()); // a dropped recording leaves no entry
        rig.advance(2.99);
        QVERIFY(rig.recState().isError());
        rig.advance(0.01);
        QCOMPARE(rig.recState(), RecordingState::idle());
    }

    void doubleTapKeepsTheTapsAudio() {
        Rig rig;
        rig.press(0.49);
        QCOMPARE(rig.coordinator->currentMode(), std::optional<Mode>(Mode::awaitingDoubleTap));
        rig.advance(0.49);
        rig.coordinator->handleKeyDown();
        QCOMPARE(rig.coordinator->currentMode(), std::optional<Mode>(Mode::toggleSticky));
        QVERIFY(!rig.coordinator->currentRecordingWasHold());
        rig.advance(0.2);
        rig.coordinator->handleKeyUp(); // release of the second press: nothing
        QCOMPARE(rig.coordinator->currentMode(), std::optional<Mode>(Mode::toggleSticky));
        rig.advance(2.32);
        QCOMPARE(rig.tip.count(), 0); // the cancelled wait never fired
        rig.press(0);                 // the stopping press; its release does nothing
        QVERIFY(!rig.coordinator->currentMode());
        rig.settle();
        QCOMPARE(rig.played(), (QStringList{"Pop@0.35", "Purr@0.4", "Bottle@0.3"}));
        // Signed out: the pipeline can't be built and the file stays in the temporary folder.
        QCOMPARE(rig.recState(), RecordingState::error(notSignedInError().description()));
        QCOMPARE(rig.recordings().size(), 1);
        // The file holds everything from the first press on.
        AudioFileDecoder decoder(rig.fixture.env.paths.tempDir + "/" + rig.recordings().first(), 16000);
        QVERIFY(std::abs(decoder.durationSeconds() - 3.5) <= 0.05);
    }

    void unansweredTapIsDiscarded() {
        Rig rig;
        rig.press(0.1);
        rig.advance(0.49);
        QCOMPARE(rig.recState(), RecordingState::recording());
        QCOMPARE(rig.recordings().size(), 1);
        rig.advance(0.01);
        QCOMPARE(rig.tip.count(), 1);
        QVERIFY(!rig.coordinator->currentMode());
        rig.settle();
        QCOMPARE(rig.recState(), RecordingState::idle());
        QVERIFY(rig.recordings().isEmpty());
        QVERIFY(!rig.coordinator->recorder().isRecording());
        // A tap that was discarded leaves the hold flag as it was.
        QVERIFY(rig.coordinator->currentRecordingWasHold());
    }

    void failedStartThenShortAndLongPress() {
        Rig rig(-9.0, 1.0, /*brokenInput=*/true);
        rig.coordinator->handleKeyDown();
        QVERIFY(rig.recState().message().startsWith("Не удалось начать запись: "));
        QCOMPARE(rig.coordinator->currentMode(), std::optional<Mode>(Mode::holdPending));
        QVERIFY(rig.played().isEmpty());
        // Short release: the wait runs out, the tip may show, the discard finds no recording.
        rig.advance(0.1);
        rig.coordinator->handleKeyUp();
        rig.advance(0.5);
        rig.settle();
        QCOMPARE(rig.tip.count(), 1);
        QVERIFY(rig.recState().isError());
        rig.advance(2.4);
        QCOMPARE(rig.recState(), RecordingState::idle());

        // Long release after another failed start: a failed dictation, "not recording".
        rig.press(1.0);
        rig.settle();
        QCOMPARE(rig.recState(), RecordingState::error("Запись не запущена."));
        QCOMPARE(rig.played(), QStringList{"Bottle@0.3"});
        QCOMPARE(rig.tracked.names(), QStringList{"transcription_failed"});
        QCOMPARE(rig.tracked.propertiesOf("transcription_failed"),
                 (QVariantMap{{"error", "Запись не запущена."}, {"is_retryable", false}}));
        // The failed dictation is in the history, with no audio and no duration.
        QCOMPARE(rig.state().history().entries().size(), 1);
        const HistoryEntry entry = rig.state().history().entries().first();
        QCOMPARE(entry.errorMessage, std::optional<QString>("Запись не запущена."));
        QCOMPARE(entry.modelUsed, std::optional<QString>("Быстрая"));
        QCOMPARE(entry.durationSec, 0.0);
        QVERIFY(entry.text.isEmpty() && !entry.audioPath && !entry.costUSD);
        // The start's own clear task ends the later error early: nothing cancels it.
        rig.advance(2.0);
        QCOMPARE(rig.recState(), RecordingState::idle());
    }

    void toggleDuringDoubleTapWaitStopsWithoutTipOrDiscard() {
        Rig rig;
        rig.press(0.3);
        rig.advance(0.1);
        rig.coordinator->toggleRecording();
        QVERIFY(!rig.coordinator->currentMode());
        rig.settle();
        rig.advance(1.0); // past the end of the double-tap window
        rig.settle();
        QCOMPARE(rig.tip.count(), 0);
        // 0.4 s of audio is short: dropped by the rules, not discarded silently.
        QCOMPARE(rig.recState(), RecordingState::error("Слишком коротко — подержи FN дольше"));
        QVERIFY(rig.state().history().entries().isEmpty());
        QCOMPARE(rig.played(), QStringList{"Pop@0.35"});
    }

    void toggleStartsStickyAndAHotkeyPressStopsIt() {
        Rig rig;
        rig.coordinator->toggleRecording();
        QCOMPARE(rig.recState(), RecordingState::recording());
        QCOMPARE(rig.coordinator->currentMode(), std::optional<Mode>(Mode::toggleSticky));
        QVERIFY(rig.played().isEmpty());
        rig.advance(4.0);
        rig.coordinator->handleKeyDown();
        rig.settle();
        QCOMPARE(rig.played(), QStringList{"Bottle@0.3"});
        QCOMPARE(rig.state().history().entries().size(), 1);
        QCOMPARE(rig.recordings().size(), 1);
    }

    void pressesAndTogglesDuringProcessingAndErrorAreLost() {
        Rig rig;
        rig.state().setRecordingState(RecordingState::processing());
        rig.press(1.0);
        rig.coordinator->toggleRecording();
        QCOMPARE(rig.recState(), RecordingState::processing());
        QVERIFY(!rig.coordinator->currentMode());
        QVERIFY(rig.recordings().isEmpty());

        rig.state().setRecordingState(RecordingState::error("x"));
        rig.coordinator->handleKeyDown();
        rig.state().setRecordingState(RecordingState::idle());
        // Still held when the error clears: the release finds no mode, nothing starts.
        rig.coordinator->handleKeyUp();
        QCOMPARE(rig.recState(), RecordingState::idle());
        QVERIFY(rig.played().isEmpty());
        QVERIFY(!rig.coordinator->recorder().isRecording());
    }

    void dropAndSpeedRulesAtTheirEdges() {
        QVERIFY(!judgeRecording(1.2, -10.0f).dropped());
        QVERIFY(judgeRecording(1.19, -10.0f).isShort);
        QVERIFY(!judgeRecording(5.0, -40.0f).isQuiet);
        QVERIFY(judgeRecording(5.0, -40.01f).isQuiet);
        QVERIFY(!judgeRecording(3.0, -25.0f).dropped());
        QVERIFY(!judgeRecording(2.9, -20.0f).dropped());
        QCOMPARE(judgeRecording(2.9, -25.0f).message(), QString("Похоже на тишину — запись отброшена"));
        QCOMPARE(judgeRecording(1.0, -50.0f).message(), QString("Слишком коротко и тихо — попробуй ещё раз"));
        QCOMPARE(judgeRecording(1.0, -10.0f).message(), QString("Слишком коротко — подержи FN дольше"));
        QCOMPARE(judgeRecording(70.0, -50.0f).message(), QString("Слишком тихо — говори ближе к микрофону"));
        // Exactly 300 words a minute passes; words are runs of letters and digits.
        const QString ten = "Один, два, три, четыре, пять, шесть, семь, восемь, девять, 10.";
        QCOMPARE(judgeSpeed(ten, 2.0).words, qint64(10));
        QVERIFY(!judgeSpeed(ten, 2.0).hallucinated);
        QVERIFY(judgeSpeed(ten, 1.99).hallucinated);
    }

    // Peak -25 dB: dropped as suspicious at 2.9 s (edges in dropAndSpeedRulesAtTheirEdges), with
    // the level reader's own peak in the report.
    void quietishShortRecordingIsDroppedWithItsReport() {
        Rig rig(-25.0, 10.0);
        rig.press(2.9);
        rig.settle();
        QCOMPARE(rig.recState(), RecordingState::error("Похоже на тишину — запись отброшена"));
        QVERIFY(rig.recordings().isEmpty());
        QCOMPARE(rig.tracked.names(), QStringList{"record_dropped"});
        QVariantMap props = rig.tracked.propertiesOf("record_dropped");
        QVERIFY(std::abs(props.take("peak_db").toDouble() - (-25.0)) <= 1.0);
        QCOMPARE(
            props,
            (QVariantMap{
                {"duration_sec", 2.9}, {"reason_short", false}, {"reason_quiet", false}, {"reason_suspicious", true}}));
    }

    void silentLongHoldIsDroppedAfterTheLongHoldTip() {
        Rig rig(-200.0, 80.0);
        QSignalSpy longTip(rig.coordinator.get(), &RecordingCoordinator::longHoldTipRequested);
        QSignalSpy levels(&rig.coordinator->levelReader(), &LevelReader::levelChanged);
        rig.press(70.0);
        rig.settle();
        QCOMPARE(longTip.count(), 1);
        QCOMPARE(rig.recState(), RecordingState::error("Слишком тихо — говори ближе к микрофону"));
        QVERIFY(!rig.coordinator->currentRecordingWasHold());
        // One reading every 0.06 s while recording, and none after.
        QVERIFY(levels.count() >= 1160 && levels.count() <= 1167);
        const int readings = levels.count();
        rig.advance(1.0);
        QCOMPARE(levels.count(), readings);
    }
};

TAMVEX_TEST_CLASS(RecordingCoordinatorTest)
#include "RecordingCoordinatorTest.moc"
