// The road of a dictation after the drop rules, against the dev server on loopback, in
// virtual time: every outcome with the state, entry, audio file and books it leaves.
#include "DevServer.h"
#include "account/AccountStore.h"
#include "account/Network.h"
#include "core/RecordingCoordinator.h"
#include "desktop/AudioInputFile.h"
#include "desktop/AudioTestSupport.h"
#include "desktop/TextInjector.h"
#include "history/HistoryStore.h"
#include "pipelines/BackendSelector.h"
#include "shell/SettingsStore.h"
#include "support/AppFixture.h"
#include "support/ChatAnswers.h"
#include "support/TestMain.h"
#include "support/TrackedEvents.h"

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;
using devserver::Script;

namespace {

const QString kPhone = "+79990001122";
const QString kTimeoutText = "LLM не ответил за 25 сек. Жми «Повторить» в истории — отправим запись ещё раз.";

// One server for the whole run: the hosts are read from the environment once per process.
devserver::DevServer* gServer = nullptr;

struct RunRig {
    explicit RunRig(bool signedIn = true)
        : fixture([this] { return std::make_unique<FileAudioInput>(fixture.clock, tonePath, 1.0); }) {
        tonePath = fixture.env.root.filePath("tone.wav");
        writeWav(tonePath, sine(220.0, 0.5, 90.0, 16000), 16000, 1);
        fixture.front.window = FocusedWindow{"navigator", "firefox"};
        selector = std::make_unique<BackendSelector>(*fixture.env.defaults, fixture.clock, sharedNetworkManager());
        BackendSelector::setShared(selector.get());
        OpenRouterService::clearModelCache();
        gServer->clearScripts();
        gServer->clearReceived();
        gServer->setRecommend("fast-audio", "google/gemini-2.5-flash", 600);
        coordinator = std::make_unique<RecordingCoordinator>(
            state(), std::make_unique<TextInjector>(fixture.clock, clipboard, keys, access));
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
    int sent(const QString& path) { return gServer->received(path).size(); }
    /// Holds the key for `seconds` of virtual time; the run starts when the release is handled.
    void dictate(double seconds) {
        coordinator->handleKeyDown();
        fixture.clock.advance(seconds);
        coordinator->handleKeyUp();
        QCoreApplication::processEvents();
    }
    bool waitUntilSent(const QString& path, int count) {
        return spinUntil([&] { return sent(path) >= count; }, 10000);
    }
    /// Whether the slow flag is still down at `seconds` - 0.01 from now and up at `seconds`.
    bool slowRisesAfter(double seconds) {
        fixture.clock.advance(seconds - 0.01);
        const bool early = state().slowProcessing();
        fixture.clock.advance(0.01);
        return !early && state().slowProcessing();
    }
    bool waitForEnd() {
        return spinUntil([&] { return !recState().is(RecordingState::Case::processing); }, 10000);
    }
    QStringList tempRecordings() { return QDir(fixture.env.paths.tempDir).entryList({"sorvel-*.m4a"}, QDir::Files); }
    QString keptFolder() { return fixture.env.paths.dataFile("audio"); }

    QString tonePath;
    AppFixture fixture;
    FakeClipboard clipboard;
    FakeKeys keys;
    FakeAccess access;
    std::unique_ptr<BackendSelector> selector;
    std::unique_ptr<RecordingCoordinator> coordinator;
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

    void outcomes_data() {
        QTest::addColumn<bool>("ownKey");
        QTest::addColumn<double>("seconds");
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<bool>("keysWork");
        QTest::addColumn<QString>("message"); // empty: idle
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("entryError");
        const auto row = [](const char* name, bool ownKey, double seconds, int status, const QByteArray& body,
                            bool keysWork, const QString& message, const QString& text, const QString& entryError) {
            QTest::newRow(name) << ownKey << seconds << status << body << keysWork << message << text << entryError;
        };
        const QString hello = "Привет, мир.", seven = "раз два три четыре пять шесть семь";
        const QString tooFast = "Слишком быстро или ошибка распознавания";
        const QString down = "OpenRouter ответил 500: upstream down";
        row("pasted", false, 2.0, 200, chatAnswer(hello), true, "", hello, "");
        row("own key books 0.0 without usage", true, 2.0, 200, chatAnswer("Привет.", false), true, "", "Привет.", "");
        row("empty text: nothing pasted", false, 2.0, 200, chatAnswer("  \n "), true, "", "", "");
        row("paste fails: text stays on the clipboard", false, 2.0, 200, chatAnswer(hello), false,
            "Текст в буфере, Ctrl+V вставит. Дай Доступ к вводу для авто-вставки.", hello, "");
        row("7 words in 1.3 s is a hallucination", false, 1.3, 200, chatAnswer(seven), true, tooFast, "",
            tooFast + ". Текст не вставлен.");
        row("pipeline error is retryable", false, 2.0, 500, "upstream down", true, down, "", down);
    }

    void outcomes() {
        QFETCH(bool, ownKey);
        QFETCH(double, seconds);
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(bool, keysWork);
        QFETCH(QString, message);
        QFETCH(QString, text);
        QFETCH(QString, entryError);
        RunRig rig(!ownKey);
        if (ownKey)
            rig.ownKey();
        rig.keys.works = keysWork;
        const QString path = ownKey ? kDirectPath : kProxyPath;
        rig.reply(path, status, body);
        rig.reply(path, 200, chatAnswer("other")); // the classifier, if it asks
        rig.dictate(seconds);
        QVERIFY(rig.waitForEnd());

        QCOMPARE(rig.recState(), message.isEmpty() ? RecordingState::idle() : RecordingState::error(message));
        QCOMPARE(rig.state().history().entries().size(), 1);
        const HistoryEntry e = rig.entry();
        QCOMPARE(e.text, text);
        QCOMPARE(e.errorMessage.value_or(QString()), entryError);
        QCOMPARE(e.appContext, std::optional<QString>("firefox"));
        QCOMPARE(e.modelUsed, std::optional<QString>("Быстрая"));
        // An answer is booked at its own cost, 0 without usage; a failure books nothing.
        const bool paid = status == 200 && !ownKey;
        QCOMPARE(e.costUSD, status == 200 ? std::optional<double>(paid ? 0.001 : 0.0) : std::nullopt);
        QCOMPARE(e.durationSec, entryError.isEmpty() || e.costUSD ? seconds : 0.0);
        // Only a failure keeps its audio, for a retry; nothing stays in the temporary folder.
        QVERIFY(rig.tempRecordings().isEmpty());
        QCOMPARE(e.audioPath.has_value(), status != 200);
        if (e.audioPath)
            QVERIFY(e.audioPath->startsWith(rig.keptFolder() + "/sorvel-") && QFile::exists(*e.audioPath));
        QCOMPARE(rig.keys.chords.size(), text.isEmpty() ? 0 : 1);
        if (!keysWork)
            QCOMPARE(rig.clipboard.items, (ClipboardSnapshot{{{"text/plain", text.toUtf8()}}}));
        // Every answered run stamps the last request; only usage counts towards the totals.
        QCOMPARE(rig.state().settings().lastRequestAt().has_value(), status == 200);
        QCOMPARE(rig.state().settings().totalSpentUSD(), paid ? 0.001 : 0.0);
        if (message.isEmpty()) // no virtual time passed while the server answered
            QCOMPARE(rig.tracked.propertiesOf("transcription_success"),
                     (QVariantMap{{"duration_sec", seconds},
                                  {"client_latency_ms", 0},
                                  {"word_count", text.split(' ', Qt::SkipEmptyParts).size()},
                                  {"cost_usd", paid ? 0.001 : 0.0},
                                  {"preset", "Быстрая"},
                                  {"mode_proxy", !ownKey},
                                  {"preset_local", false}}));
        if (status != 200)
            QCOMPARE(rig.tracked.propertiesOf("transcription_failed"),
                     (QVariantMap{{"error", message}, {"is_retryable", true}}));
        rig.fixture.clock.advance(3.0); // any error clears
        QCOMPARE(rig.recState(), RecordingState::idle());
    }

    void spendingLowersTheBalanceAtOnceThenRefreshes() {
        QList<double> balances; // outlives the rig, whose teardown may still change the account
        RunRig rig;
        connect(&rig.state().account(), &AccountStore::changed, this,
                [&] { balances.append(rig.state().account().balanceTokens()); });
        rig.reply(kProxyPath, 200, chatAnswer("Привет, мир."));
        rig.dictate(2.0);
        QVERIFY(rig.waitForEnd());
        QCOMPARE(balances.value(0), 100000.0 - 250.0); // before the refresh
        QCOMPARE(rig.state().lastTranscription(), QString("Привет, мир."));
        QVERIFY(spinUntil([&] { return !gServer->received("/api/me").isEmpty(); }));
    }

    void timeLimitAndSlowFlagAtTheirEdges() {
        RunRig rig;
        // Run one ends at once, but its 5 s slow task still sleeps and raises the flag for run two.
        rig.reply(kProxyPath, 200, chatAnswer("Первый."));
        rig.dictate(2.0);
        QVERIFY(rig.waitForEnd());
        rig.reply(kProxyPath, 200, chatAnswer("Второй."), 1500);
        rig.dictate(2.0);
        QVERIFY(rig.waitUntilSent(kProxyPath, 2));
        QVERIFY(rig.slowRisesAfter(3.0)); // 5 s after run one
        QVERIFY(rig.waitForEnd());
        rig.fixture.clock.advance(10.0); // the early slow tasks have long fired

        // 24.99 s: the answer still counts; the run's own slow flag rises at 5 s.
        rig.reply(kProxyPath, 200, chatAnswer("Успели."), 1500);
        rig.dictate(2.0);
        QVERIFY(rig.waitUntilSent(kProxyPath, 3));
        QVERIFY(rig.slowRisesAfter(5.0));
        rig.fixture.clock.advance(19.99);
        QVERIFY(rig.waitForEnd());
        QCOMPARE(rig.entry().text, QString("Успели."));
        QVERIFY(!rig.state().slowProcessing());
        rig.fixture.clock.advance(10.0);

        // 25 s: the request is aborted and the audio kept for a retry.
        rig.reply(kProxyPath, 200, chatAnswer("Поздно."), 3000);
        rig.dictate(2.0);
        QVERIFY(rig.waitUntilSent(kProxyPath, 4));
        rig.fixture.clock.advance(25.0);
        QVERIFY(rig.waitForEnd());
        QCOMPARE(rig.recState(), RecordingState::error(kTimeoutText));
        const HistoryEntry e = rig.entry();
        QCOMPARE(e.errorMessage, std::optional<QString>(kTimeoutText));
        QVERIFY(e.audioPath && e.audioPath->startsWith(rig.keptFolder()) && QFile::exists(*e.audioPath));
        QCOMPARE(rig.tracked.propertiesOf("transcription_failed"),
                 (QVariantMap{{"error", kTimeoutText}, {"is_retryable", true}}));
    }

    void hangingModelLookupEndsWithTheTimeLimit() {
        // Own key: the "preset:" label is looked up first, and that lookup hangs.
        RunRig rig(false);
        rig.ownKey();
        gServer->script("/api/router/recommend", Script{0, {}, "application/json", 5000, 1});
        rig.dictate(2.0);
        QVERIFY(rig.waitUntilSent("/api/router/recommend", 1));
        rig.fixture.clock.advance(25.0); // the lookup's own limit would be 60 s
        QVERIFY(rig.waitForEnd());
        QCOMPARE(rig.recState(), RecordingState::error(kTimeoutText));
        QCOMPARE(rig.sent(kDirectPath), 0);
    }

    void keptFolderUnusable() {
        // A file where the folder should be: nothing can be moved there.
        for (const bool timeout : {false, true}) {
            RunRig rig;
            QDir().mkpath(QFileInfo(rig.keptFolder()).path());
            QFile blocker(rig.keptFolder());
            QVERIFY(blocker.open(QIODevice::WriteOnly));
            blocker.close();
            rig.reply(kProxyPath, timeout ? 200 : 500, chatAnswer("x"), timeout ? 3000 : 0);
            rig.dictate(2.0);
            QVERIFY(rig.waitUntilSent(kProxyPath, 1));
            if (timeout)
                rig.fixture.clock.advance(25.0);
            QVERIFY(rig.waitForEnd());
            QCOMPARE(rig.tempRecordings().size(), 1);
            // Only the time limit stays retryable, from the temporary file.
            const std::optional<QString> kept = rig.fixture.env.paths.tempDir + "/" + rig.tempRecordings().first();
            QCOMPARE(rig.entry().audioPath, timeout ? kept : std::nullopt);
        }
    }

    void classificationAfterACloudRun() {
        RunRig rig;
        rig.reply(kProxyPath, 200, chatAnswer("Раз два три четыре пять шесть семь восемь девять десять одиннадцать."));
        rig.reply(kProxyPath, 200, chatAnswer(" Docs. \n"));
        QSignalSpy classified(rig.coordinator.get(), &RecordingCoordinator::classificationFinished);
        rig.dictate(4.0);
        QVERIFY(rig.waitForEnd());
        // The classification may already have finished while the run was awaited.
        QVERIFY(test::spinUntil([&] { return classified.count() == 1; }, 20000));
        QCOMPARE(rig.entry().category, std::optional<TextCategory>(TextCategory::docs));
        // The run picks the classifier's own light model, not the one that cleaned the text.
        const QJsonObject asked = QJsonDocument::fromJson(gServer->received(kProxyPath).value(1).body).object();
        QCOMPARE(asked.value("model").toString(), QString("google/gemini-2.5-flash-lite"));
        QCOMPARE(rig.coordinator->pendingClassifications(), 0);
    }

    void retry() {
        RunRig rig;
        rig.reply(kProxyPath, 500, "down");
        rig.dictate(2.0);
        QVERIFY(rig.waitForEnd());
        const HistoryEntry failed = rig.entry();
        QVERIFY(failed.audioPath);
        rig.fixture.clock.advance(3.0);
        QSignalSpy finished(rig.coordinator.get(), &RecordingCoordinator::retryFinished);

        // A time-out: the message is replaced and the kept file stays where it is for another try.
        rig.reply(kProxyPath, 200, chatAnswer("x"), 3000);
        auto timed = rig.coordinator->retryTranscription(failed.id);
        QVERIFY(rig.waitUntilSent(kProxyPath, 2));
        rig.fixture.clock.advance(25.0);
        syncWait(std::move(timed));
        QCOMPARE(rig.entry().errorMessage, std::optional<QString>(kTimeoutText));
        QCOMPARE(rig.entry().audioPath, failed.audioPath);
        QVERIFY(QFile::exists(*failed.audioPath));
        rig.fixture.clock.advance(3.0);

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
        QCOMPARE(finished.last().value(1), QVariant(true));
        // The recording's release still ends it as usual.
        rig.fixture.clock.advance(2.0);
        rig.reply(kDirectPath, 200, chatAnswer("Новая запись."));
        rig.coordinator->handleKeyUp();
        QVERIFY(spinUntil([&] { return rig.state().history().entries().size() == 2; }));

        // No audio any more: aborted, nothing changes.
        syncWait(rig.coordinator->retryTranscription(failed.id));
        QCOMPARE(rig.tracked.propertiesOf("retry_aborted"), (QVariantMap{{"reason", "no_audio"}}));
        QCOMPARE(rig.state().history().entry(failed.id)->text, QString("Повтор удался."));
        QCOMPARE(finished.last().value(1), QVariant(false));
    }
};

TAMVEX_TEST_CLASS(DictationRunTest)
#include "DictationRunTest.moc"
