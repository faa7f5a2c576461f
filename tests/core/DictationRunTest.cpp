// The road of a dictation from the key to its outcome, against the dev server on loopback, in
// virtual time: the gestures and drop rules, then every outcome with the state, entry, audio
// file and books it leaves.
#include "DevServer.h"
#include "account/AccountStore.h"
#include "account/Network.h"
#include "core/DropRules.h"
#include "history/HistoryStore.h"
#include "pipelines/BackendSelector.h"
#include "platform/AudioDecoder.h"
#include "shell/SettingsStore.h"
#include "support/ChatAnswers.h"
#include "support/CoordinatorRig.h"
#include "support/TestMain.h"
#include "support/TrackedEvents.h"

#include <QDir>
#include <QSignalSpy>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;
using devserver::Script;
using Mode = RecordingCoordinator::Mode;

// The server's answer to a dictation of `seconds`, and what the run leaves.
struct Outcome {
    double seconds = 0;
    int status = 0;
    QByteArray body;
    bool keysWork = true;
    QString message, text, entryError;    // message empty: idle
    std::optional<TextCategory> category; // a kept text is classified, a short one without asking
};
Q_DECLARE_METATYPE(Outcome)

namespace {

const QString kPhone = "+79990001122";
const QString kTimeoutText = "LLM не ответил за 25 сек. Жми «Повторить» в истории — отправим запись ещё раз.";

// One server for the whole run: the hosts are read from the environment once per process.
devserver::DevServer* gServer = nullptr;

/// The shared rig against the dev server: signed in or not, pasting into firefox over a
/// clipboard that holds something of its own.
struct RunRig : CoordinatorRig {
    explicit RunRig(bool signedIn = true, double toneDb = -9.0, double seconds = 10.0, bool missingFile = false)
        : CoordinatorRig(toneDb, seconds, missingFile) {
        fixture.front.window = FocusedWindow{"navigator", "firefox"};
        selector = std::make_unique<BackendSelector>(*fixture.env.defaults, fixture.clock, sharedNetworkManager());
        BackendSelector::setShared(selector.get());
        OpenRouterService::clearModelCache();
        gServer->clearScripts();
        gServer->clearReceived();
        gServer->setRecommend("fast-audio", "google/gemini-2.5-flash", 600);
        clipboard.items = {{{"text/html", "<b>раньше</b>"}}};
        if (signedIn) {
            const QString token = gServer->addUser(kPhone, 100000);
            state().account().setSession(token, UserDTO::fromJson(gServer->user(kPhone)->toJson()));
        }
    }
    ~RunRig() {
        // Background work reads the clock and the stores: let it end before they go.
        spinUntil([&] { return coordinator->pendingClassifications() == 0 && !state().account().isRefreshing(); });
        BackendSelector::setShared(nullptr);
    }

    AppState& state() { return *fixture.state; }
    RecordingState recState() { return state().recordingState(); }
    HistoryEntry entry() { return state().history().entries().value(0); }
    void ownKey() {
        state().settings().setUseEmbeddedKey(false);
        state().settings().setApiKey("sk-own");
    }
    void reply(const QString& path, int status, const QByteArray& body, int delayMs = 0) {
        gServer->script(path, Script{status, body, "application/json", delayMs, 1});
    }
    QStringList played() { return fixture.sounds.played; }
    void advance(double s) { fixture.clock.advance(s); }
    /// A press held for `held` seconds of virtual time.
    void press(double held) {
        coordinator->handleKeyDown();
        advance(held);
        coordinator->handleKeyUp();
    }
    /// Holds the key for `seconds`; the run starts when the release is handled.
    void dictate(double seconds) {
        press(seconds);
        QCoreApplication::processEvents();
    }
    /// Lets queued tasks (finish, discard) run.
    void settle() {
        for (int i = 0; i < 5; ++i)
            QCoreApplication::processEvents();
    }
    bool waitUntilSent(const QString& path, int count) {
        return spinUntil([&] { return gServer->received(path).size() >= count; }, 10000);
    }
    bool waitForEnd() {
        return spinUntil([&] { return !recState().is(RecordingState::Case::processing); }, 10000);
    }
    QStringList tempRecordings() { return QDir(fixture.env.paths.tempDir).entryList({"sorvel-*.m4a"}, QDir::Files); }
    QString keptFolder() { return fixture.env.paths.dataFile("audio"); }

    std::unique_ptr<BackendSelector> selector;
    QSignalSpy tip{coordinator.get(), &RecordingCoordinator::shortTapTipRequested};
    TrackedEvents tracked;
};

} // namespace

class DictationRunTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() {
        gServer = new devserver::DevServer({}, this);
        QVERIFY(gServer->start() != 0);
        pointHostsAt(gServer->baseUrl());
    }

    void holdAtExactlyHalfASecondIsAHold() {
        RunRig rig(false);
        rig.coordinator->handleKeyDown();
        rig.advance(0.5);
        rig.coordinator->handleKeyUp();
        QVERIFY(!rig.coordinator->currentMode());
        // The stop runs as its own task: until then a press finds recording with no mode.
        QCOMPARE(rig.recState(), RecordingState::recording());
        rig.coordinator->handleKeyDown();
        QCOMPARE(rig.played(), (QStringList{"Pop@0.35", "Bottle@0.3"}));
        rig.settle();
        QCOMPARE(rig.recState(), RecordingState::error("Слишком коротко — подержи FN дольше"));
        QVERIFY(rig.state().history().entries().isEmpty()); // dropped: no entry (its file: droppedRecordings)
        rig.advance(2.99);
        QVERIFY(rig.recState().isError());
        rig.advance(0.01);
        QCOMPARE(rig.recState(), RecordingState::idle());
    }

    void doubleTapKeepsTheTapsAudio() {
        RunRig rig(false);
        rig.press(0.49);
        QCOMPARE(rig.coordinator->currentMode(), std::optional<Mode>(Mode::awaitingDoubleTap));
        rig.advance(0.49);
        rig.coordinator->handleKeyDown();
        QCOMPARE(rig.coordinator->currentMode(), std::optional<Mode>(Mode::toggleSticky));
        rig.advance(0.2);
        rig.coordinator->handleKeyUp(); // release of the second press: nothing (else the stop below starts anew)
        rig.advance(2.32);
        QCOMPARE(rig.tip.count(), 0); // the cancelled wait never fired
        rig.press(0);                 // the stopping press; its release does nothing
        QVERIFY(!rig.coordinator->currentMode());
        rig.settle();
        QCOMPARE(rig.played(), (QStringList{"Pop@0.35", "Purr@0.4", "Bottle@0.3"}));
        // Signed out: the pipeline can't be built and the file stays in the temporary folder.
        QCOMPARE(rig.recState(), RecordingState::error(notSignedInError().description()));
        QCOMPARE(rig.tempRecordings().size(), 1);
        // The file holds everything from the first press on.
        AudioFileDecoder decoder(rig.fixture.env.paths.tempDir + "/" + rig.tempRecordings().first(), 16000);
        QVERIFY(std::abs(decoder.durationSeconds() - 3.5) <= 0.05);
    }

    void unansweredTapIsDiscarded() {
        RunRig rig(false);
        rig.press(0.1);
        rig.advance(0.49);
        QCOMPARE(rig.recState(), RecordingState::recording());
        QCOMPARE(rig.tempRecordings().size(), 1);
        rig.advance(0.01);
        QCOMPARE(rig.tip.count(), 1);
        rig.settle();
        QCOMPARE(rig.recState(), RecordingState::idle());
        QVERIFY(rig.tempRecordings().isEmpty());
        QVERIFY(!rig.coordinator->recorder().isRecording());
    }

    void failedStartThenShortAndLongPress() {
        RunRig rig(false, -9.0, 1.0, true);
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
        rig.advance(2.4); // the error clears

        // Long release after another failed start: a failed dictation, "not recording".
        rig.press(1.0);
        rig.settle();
        QCOMPARE(rig.recState(), RecordingState::error("Запись не запущена."));
        QCOMPARE(rig.played(), QStringList{"Bottle@0.3"});
        // The failed dictation is in the history, with no audio and no duration.
        const HistoryEntry entry = rig.entry();
        QCOMPARE(entry, (HistoryEntry{.id = entry.id,
                                      .createdAt = entry.createdAt,
                                      .errorMessage = "Запись не запущена.",
                                      .modelUsed = "Быстрая",
                                      .appContext = "firefox"}));
    }

    // From idle the toggle starts a sticky recording without a sound; a hotkey press stops it.
    // While processing, presses and toggles are lost.
    void toggleStartsStickyAndNothingStartsWhileProcessing() {
        RunRig rig(false);
        rig.coordinator->toggleRecording();
        QCOMPARE(rig.coordinator->currentMode(), std::optional<Mode>(Mode::toggleSticky));
        rig.advance(4.0);
        rig.coordinator->handleKeyDown();
        rig.settle();
        QCOMPARE(rig.played(), QStringList{"Bottle@0.3"});
        QCOMPARE(rig.state().history().entries().size(), 1);

        rig.state().setRecordingState(RecordingState::processing());
        rig.press(1.0);
        rig.coordinator->toggleRecording();
        QCOMPARE(rig.recState(), RecordingState::processing());
        QVERIFY(!rig.coordinator->recorder().isRecording());
    }

    void dropAndSpeedRulesAtTheirEdges() {
        QVERIFY(!judgeRecording(1.2, -10.0f).dropped());
        QVERIFY(judgeRecording(1.19, -10.0f).isShort);
        QVERIFY(!judgeRecording(5.0, -40.0f).isQuiet);
        QVERIFY(judgeRecording(5.0, -40.01f).isQuiet);
        QVERIFY(!judgeRecording(3.0, -25.0f).dropped());
        QVERIFY(!judgeRecording(2.9, -20.0f).dropped());
        // Short and quiet at once has its own message, before either reason's.
        QCOMPARE(judgeRecording(1.0, -50.0f).message(), QString("Слишком коротко и тихо — попробуй ещё раз"));
        // Exactly 300 words a minute passes; words are runs of letters and digits.
        const QString ten = "Один, два, три, четыре, пять, шесть, семь, восемь, девять, 10.";
        QCOMPARE(judgeSpeed(ten, 2.0).words, qint64(10));
        QVERIFY(!judgeSpeed(ten, 2.0).hallucinated);
        QVERIFY(judgeSpeed(ten, 1.99).hallucinated);
    }

    // A quiet-ish short hold is dropped as suspicious (edges in dropAndSpeedRulesAtTheirEdges);
    // a silent long one too, after the long-hold tip. Neither leaves a file.
    void droppedRecordings_data() {
        QTest::addColumn<double>("toneDb");
        QTest::addColumn<double>("held");
        QTest::addColumn<int>("longTips");
        QTest::addColumn<QString>("message");
        QTest::addColumn<double>("peakSent");
        QTest::newRow("peak -25.3 dB, 2.9 s") << -25.3 << 2.9 << 0 << "Похоже на тишину — запись отброшена" << -25.3;
        QTest::newRow("silence, 70 s") << -200.0 << 70.0 << 1 << "Слишком тихо — говори ближе к микрофону" << -160.0;
    }
    void droppedRecordings() {
        QFETCH(double, toneDb);
        QFETCH(double, held);
        QFETCH(int, longTips);
        QFETCH(QString, message);
        QFETCH(double, peakSent);
        RunRig rig(false, toneDb, 80.0);
        QSignalSpy longTip(rig.coordinator.get(), &RecordingCoordinator::longHoldTipRequested);
        rig.press(held);
        rig.settle();
        QCOMPARE(longTip.count(), longTips);
        QCOMPARE(rig.recState(), RecordingState::error(message));
        QVERIFY(rig.tempRecordings().isEmpty());
        // The peak goes out as its tenth (-25.3), not as the float widened (-25.299999237060547).
        QCOMPARE(rig.tracked.propertiesOf("record_dropped").value("peak_db"), QVariant(peakSent));
    }

    void outcomes_data() {
        QTest::addColumn<Outcome>("c");
        const QString hello = "Привет, мир.", seven = "раз два три четыре пять шесть семь";
        const QString nine = "Раз два три четыре пять шесть семь восемь девять.";
        const QString tooFast = "Слишком быстро или ошибка распознавания";
        const QString down = "OpenRouter ответил 500: upstream down";
        const QString onClipboard = "Текст в буфере, Ctrl+V вставит. Дай Доступ к вводу для авто-вставки.";
        QTest::newRow("pasted") << Outcome{2.0, 200, chatAnswer(hello), true, "", hello, "", TextCategory::other};
        QTest::newRow("no usage books nothing")
            << Outcome{2.0, 200, chatAnswer("Привет.", false), true, "", "Привет.", "", TextCategory::other};
        QTest::newRow("empty text: nothing pasted")
            << Outcome{2.0, 200, chatAnswer("  \n "), true, "", "", "", TextCategory::other};
        QTest::newRow("paste fails: text stays on the clipboard, classified")
            << Outcome{4.0, 200, chatAnswer(nine), false, onClipboard, nine, "", TextCategory::docs};
        QTest::newRow("7 words in 1.3 s is a hallucination")
            << Outcome{1.3, 200, chatAnswer(seven), true, tooFast, "", tooFast + ". Текст не вставлен."};
        QTest::newRow("pipeline error is retryable") << Outcome{2.0, 500, "upstream down", true, down, "", down};
    }

    void outcomes() {
        QFETCH(Outcome, c);
        QList<double> balances; // outlives the rig, whose teardown may still change the account
        RunRig rig(true, -9.3);
        connect(&rig.state().account(), &AccountStore::changed, this,
                [&] { balances.append(rig.state().account().balanceTokens()); });
        rig.keys.works = c.keysWork;
        rig.reply(kProxyPath, c.status, c.body);
        rig.reply(kProxyPath, 200, chatAnswer("docs")); // the classifier, if it asks
        // The recording has left the temporary folder (deleted, or kept for a retry) before its entry is written.
        std::optional<bool> tempGoneAtEntry;
        connect(&rig.state().history(), &HistoryStore::changed, this, [&] {
            if (!tempGoneAtEntry)
                tempGoneAtEntry = rig.tempRecordings().isEmpty();
        });
        rig.dictate(c.seconds);
        QVERIFY(rig.waitForEnd());

        QCOMPARE(rig.recState(), c.message.isEmpty() ? RecordingState::idle() : RecordingState::error(c.message));
        QCOMPARE(rig.state().history().entries().size(), 1);
        QCOMPARE(tempGoneAtEntry, std::optional<bool>(true));
        QCOMPARE(rig.tracked.propertiesOf("record_finished").value("peak_db"), QVariant(-9.3));
        QVERIFY(spinUntil([&] { return rig.coordinator->pendingClassifications() == 0; }));
        const HistoryEntry e = rig.entry();
        QCOMPARE(e.text, c.text);
        QCOMPARE(e.category, c.category);
        QCOMPARE(e.errorMessage.value_or(QString()), c.entryError);
        // An answer is booked at its own cost; a failure, or an answer without usage, books nothing.
        const bool paid = c.status == 200 && c.body.contains("usage");
        QCOMPARE(e.costUSD, paid ? std::optional<double>(0.001) : std::nullopt);
        QCOMPARE(e.durationSec, c.entryError.isEmpty() || e.costUSD ? c.seconds : 0.0);
        // Only a failure keeps its audio, for a retry; nothing stays in the temporary folder.
        QVERIFY(rig.tempRecordings().isEmpty());
        QCOMPARE(e.audioPath.has_value(), c.status != 200);
        if (e.audioPath)
            QVERIFY(e.audioPath->startsWith(rig.keptFolder() + "/sorvel-") && QFile::exists(*e.audioPath));
        QCOMPARE(rig.keys.chords.size(), c.text.isEmpty() ? 0 : 1);
        // Every answered run stamps the last request; only usage counts towards the totals.
        QCOMPARE(rig.state().settings().lastRequestAt().has_value(), c.status == 200);
        QCOMPARE(rig.state().settings().totalSpentUSD(), paid ? 0.001 : 0.0);
        QCOMPARE(rig.state().lastTranscription(), c.text);
        if (paid) { // the shown balance drops at once, then the account is refreshed
            QCOMPARE(balances.value(0), 100000.0 - 250.0);
            QVERIFY(spinUntil([&] { return !gServer->received("/api/me").isEmpty(); }));
        }
        if (c.message.isEmpty())
            QCOMPARE(rig.tracked.propertiesOf("transcription_success").value("word_count"),
                     QVariant(c.text.split(' ', Qt::SkipEmptyParts).size()));
    }

    void timeLimitAndSlowFlagAtTheirEdges() {
        RunRig rig;
        // 24.99 s: the answer still counts; the run's own slow flag rises at 5 s.
        rig.reply(kProxyPath, 200, chatAnswer("Успели."), 1500);
        rig.dictate(2.0);
        QVERIFY(rig.waitUntilSent(kProxyPath, 1));
        rig.advance(4.99);
        QVERIFY(!rig.state().slowProcessing());
        rig.advance(0.01);
        QVERIFY(rig.state().slowProcessing());
        rig.advance(19.99);
        QVERIFY(rig.waitForEnd());
        QCOMPARE(rig.entry().text, QString("Успели."));
        QVERIFY(!rig.state().slowProcessing());
        rig.advance(10.0);

        // 25 s: the request is aborted and the audio kept for a retry.
        rig.reply(kProxyPath, 200, chatAnswer("Поздно."), 3000);
        rig.dictate(2.0);
        QVERIFY(rig.waitUntilSent(kProxyPath, 2));
        rig.advance(25.0);
        QVERIFY(rig.waitForEnd());
        QCOMPARE(rig.recState(), RecordingState::error(kTimeoutText));
        const HistoryEntry e = rig.entry();
        QCOMPARE(e.errorMessage, std::optional<QString>(kTimeoutText));
        QVERIFY(e.audioPath && e.audioPath->startsWith(rig.keptFolder()) && QFile::exists(*e.audioPath));
    }

    void hangingModelLookupEndsWithTheTimeLimit() {
        // Own key: the "preset:" label is looked up first, and that lookup hangs.
        RunRig rig(false);
        rig.ownKey();
        gServer->script("/api/router/recommend", Script{0, {}, "application/json", 5000, 1});
        rig.dictate(2.0);
        QVERIFY(rig.waitUntilSent("/api/router/recommend", 1));
        rig.advance(25.0); // the lookup's own limit would be 60 s
        QVERIFY(rig.waitForEnd());
        QCOMPARE(rig.recState(), RecordingState::error(kTimeoutText));
        QVERIFY(gServer->received(kDirectPath).isEmpty());
    }

    void keptFolderUnusable() {
        // A file where the folder should be: nothing can be moved there.
        for (const bool timeout : {false, true}) {
            RunRig rig;
            QVERIFY(writeFile(rig.keptFolder(), ""));
            rig.reply(kProxyPath, timeout ? 200 : 500, chatAnswer("x"), timeout ? 3000 : 0);
            rig.dictate(2.0);
            QVERIFY(rig.waitUntilSent(kProxyPath, 1));
            if (timeout)
                rig.advance(25.0);
            QVERIFY(rig.waitForEnd());
            QCOMPARE(rig.tempRecordings().size(), 1);
            // Only the time limit stays retryable, from the temporary file.
            const std::optional<QString> kept = rig.fixture.env.paths.tempDir + "/" + rig.tempRecordings().first();
            QCOMPARE(rig.entry().audioPath, timeout ? kept : std::nullopt);
        }
    }

    // Whatever escapes a dictation or a retry (here a listener that throws once, as the state
    // turns to processing or as the entry is written) ends it with one entry and a state that
    // is not left at processing.
    void crashEndsTheRunOnce_data() {
        QTest::addColumn<bool>("retry");
        QTest::addColumn<bool>("atEntry"); // else as the state turns to processing
        QTest::addColumn<QString>("text"); // of the entry afterwards; empty: failed with the crash's text
        QTest::newRow("dictation, at processing") << false << false << "";
        QTest::newRow("dictation, at its success entry") << false << true << "Готово.";
        QTest::newRow("retry, at processing") << true << false << "";
        QTest::newRow("retry, at its success entry") << true << true << "Готово.";
    }
    void crashEndsTheRunOnce() {
        QFETCH(bool, retry);
        QFETCH(bool, atEntry);
        QFETCH(QString, text);
        RunRig rig;
        std::optional<HistoryEntry> failed;
        if (retry) {
            rig.reply(kProxyPath, 500, "down");
            rig.dictate(2.0);
            QVERIFY(rig.waitForEnd());
            failed = rig.entry();
            rig.advance(3.0);
        }
        rig.reply(kProxyPath, 200, chatAnswer("Готово."));
        rig.reply(kProxyPath, 200, chatAnswer("docs"));
        bool armed = true;
        const auto throwOnce = [&](bool now) {
            if (armed && now) {
                armed = false;
                throw std::runtime_error("слушатель упал");
            }
        };
        QObject listeners;
        connect(&rig.state(), &AppState::recordingStateChanged, &listeners,
                [&] { throwOnce(!atEntry && rig.recState().is(RecordingState::Case::processing)); });
        connect(&rig.state().history(), &HistoryStore::changed, &listeners, [&] {
            throwOnce(atEntry && !rig.state().history().entries().isEmpty() && !rig.entry().text.isEmpty());
        });
        QSignalSpy retried(rig.coordinator.get(), &RecordingCoordinator::retryFinished);
        if (retry)
            syncWait(rig.coordinator->retryTranscription(failed->id));
        else
            rig.dictate(2.0);
        QVERIFY(rig.waitForEnd());
        QVERIFY(!armed);
        QCOMPARE(rig.state().history().entries().size(), 1);
        const HistoryEntry e = rig.entry();
        QCOMPARE(e.text, text);
        QCOMPARE(e.errorMessage, text.isEmpty() ? std::optional<QString>("слушатель упал") : std::nullopt);
        QCOMPARE(rig.recState(), text.isEmpty() ? RecordingState::error("слушатель упал") : RecordingState::idle());
        if (retry) {
            QCOMPARE(retried.count(), 1);
            QCOMPARE(e.id, failed->id);
            QCOMPARE(e.audioPath.has_value(), text.isEmpty()); // a failed retry can be tried again
        }
        rig.advance(3.0);
        QCOMPARE(rig.recState(), RecordingState::idle());
    }

    // Log lines count characters as a reader does: an emoji is one, never cut in half.
    void logLinesCountCharacters() {
        const QString text = QString("а😀").repeated(50); // 50 words, 100 characters, 150 UTF-16 units
        RunRig rig;
        LogCapture log;
        rig.reply(kProxyPath, 200, chatAnswer(text));
        rig.dictate(2.0); // 50 words in 2 s: thrown away
        QVERIFY(rig.waitForEnd());
        QVERIFY(log.has("Hallucination dropped: dur=2.00s, words=50, wpm=1500, preview=\"" +
                        QString("а😀").repeated(40) + "\""));

        rig.advance(3.0);
        rig.reply(kProxyPath, 500, "down");
        rig.dictate(2.0);
        QVERIFY(rig.waitForEnd());
        rig.reply(kProxyPath, 200, chatAnswer(text));
        rig.reply(kProxyPath, 200, chatAnswer("docs"));
        syncWait(rig.coordinator->retryTranscription(rig.entry().id));
        QCOMPARE(rig.entry().text, text);
        QVERIFY(log.has("retry[" + uuidText(rig.entry().id).left(8) + "]: pipeline ok, text len=100"));
    }

    void retry() {
        RunRig rig;
        rig.reply(kProxyPath, 500, "down");
        rig.dictate(2.0);
        QVERIFY(rig.waitForEnd());
        const HistoryEntry failed = rig.entry();
        QVERIFY(failed.audioPath);
        rig.advance(3.0);

        // Signed out: the pipeline can't be built; no message on the HUD.
        rig.state().account().signOut();
        syncWait(rig.coordinator->retryTranscription(failed.id));
        QCOMPARE(rig.recState(), RecordingState::idle());
        QCOMPARE(rig.entry().errorMessage, std::optional<QString>(notSignedInError().description()));

        // Success while a new recording runs: the entry is rewritten, nothing is pasted.
        rig.ownKey();
        rig.reply(kDirectPath, 200, chatAnswer("Повтор удался."));
        rig.coordinator->handleKeyDown();
        syncWait(rig.coordinator->retryTranscription(failed.id));
        const HistoryEntry done = rig.entry();
        QCOMPARE(done.id, failed.id);
        QCOMPARE(done.text, QString("Повтор удался."));
        QVERIFY(!done.errorMessage && !done.audioPath);
        QCOMPARE(done.costUSD, std::optional<double>(0.0)); // own key
        QVERIFY(!QFile::exists(*failed.audioPath));
        QCOMPARE(rig.keys.chords.size(), 0);
        QCOMPARE(rig.state().lastTranscription(), QString("Повтор удался."));
        QCOMPARE(rig.recState(), RecordingState::idle());
        // The recording's release still ends it as usual.
        rig.advance(2.0);
        rig.reply(kDirectPath, 200, chatAnswer("Новая запись."));
        rig.coordinator->handleKeyUp();
        QVERIFY(spinUntil([&] { return rig.state().history().entries().size() == 2; }));
    }
};

TAMVEX_TEST_CLASS(DictationRunTest)
#include "DictationRunTest.moc"
