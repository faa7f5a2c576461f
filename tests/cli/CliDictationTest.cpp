// `tamvex transcribe` and `tamvex history retry` as a user runs them: the built program,
// its hosts pointed at a dev server in this process, its folders in a sandbox.
#include "DevServer.h"
#include "core/AppState.h"
#include "core/RecordingCoordinator.h"
#include "desktop/AudioTestSupport.h"
#include "desktop/ControlService.h"
#include "history/HistoryStore.h"
#include "pipelines/OpenRouterWire.h"
#include "platform/AudioDecoder.h"
#include "platform/AudioEncoder.h"
#include "shell/SettingsStore.h"
#include "support/AppFixture.h"
#include "support/ChatAnswers.h"

#include <QDBusConnection>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;
using devserver::Script;

namespace {

const QString kNineWords = "Раз два три четыре пять шесть семь восемь девять.";

devserver::DevServer* gServer = nullptr;

const QByteArray kServerFailure = R"({"error":{"message":"upstream down"}})";

/// A user's machine: settings, history and kept audio under a temporary folder.
struct Machine {
    Machine() {
        // What is in the audio is the scripted server's business: a tone of speech's length.
        QVERIFY(writeWav(wav, sine(220.0, 0.3, 2.3, 16000), 16000, 1));
        gServer->clearScripts();
        gServer->clearReceived();
    }
    AppState& state() { return *app.state; }
    void ownKey() {
        state().settings().setUseEmbeddedKey(false);
        state().settings().setApiKey("sk-own");
    }
    void signIn() {
        // The token alone, as a restart finds it: the command must load the user itself.
        token = gServer->addUser("+79990001122", 100000);
        app.env.defaults->setString("sorvel_access_token", token);
    }
    void reply(const QString& path, int status, const QByteArray& body, int delayMs = 0) {
        gServer->script(path, Script{status, body, "application/json", delayMs, 1});
    }
    /// Runs `tamvex ARGS` while this process serves the dev server (and the bus).
    CommandOutput tamvex(const QStringList& args) {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        const QString root = app.env.root.path();
        env.insert("XDG_DATA_HOME", root + "/data");
        env.insert("XDG_CONFIG_HOME", root + "/config");
        env.insert("TMPDIR", app.env.paths.tempDir);
        env.remove("QT_LOGGING_RULES"); // as in a user's terminal
        return runProcess(TAMVEX_PROGRAM, args, env);
    }
    /// A failed entry whose audio (an encoded tone) waits in the kept folder.
    /// A failed entry whose audio (an encoded tone) waits in the kept folder.
    HistoryEntry failedEntry() {
        HistoryEntry e{.id = QUuid::createUuid(), .createdAt = QDateTime::currentDateTimeUtc(), .errorMessage = "сбой"};
        QDir().mkpath(app.env.paths.dataFile("audio"));
        e.audioPath = app.env.paths.dataFile("audio/" + uuidText(e.id) + ".m4a");
        AudioFileEncoder encoder(*e.audioPath);
        const std::vector<float> tone = sine(220.0, 0.3, 2.0, AudioFileEncoder::sampleRate);
        encoder.write(tone.data(), qsizetype(tone.size()));
        encoder.finish();
        state().history().add(e);
        return e;
    }

    AppFixture app;
    QString token;
    QString wav = app.env.root.filePath("speech.wav");
};

/// The audio of a chat request, the last part of its last message, written back to a file.
QString sentAudio(const devserver::Received& request, const QString& folder) {
    const QJsonArray messages = QJsonDocument::fromJson(request.body)["messages"].toArray();
    const QJsonObject audio = messages.last()["content"].toArray().last()["input_audio"].toObject();
    QFile file(folder + "/sent." + audio["format"].toString());
    if (!file.open(QIODevice::WriteOnly))
        return {};
    file.write(QByteArray::fromBase64(audio["data"].toString().toLatin1()));
    return file.fileName();
}

} // namespace

class CliDictationTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() {
        gServer = new devserver::DevServer({}, this);
        QVERIFY(gServer->start() != 0);
        pointHostsAt(gServer->baseUrl());
        gServer->setRecommend("fast-audio", "google/gemini-2.5-flash", 600);
        gServer->setRecommend("precise-audio", "google/gemini-2.5-pro", 600);
    }

    void transcribe_data() {
        QTest::addColumn<QString>("road"); // "own key" or "token"
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<int>("delayMs");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("err");

        QTest::newRow("own key") << "own key" << QStringList{} << 0 << 0 << "";
        QTest::newRow("signed in, another preset, json")
            << "token" << QStringList{"--preset", "precise", "--json"} << 0 << 0 << "";
        QTest::newRow("time limit") << "own key" << QStringList{"--timeout", "1"} << 4000 << 1
                                    << "LLM не ответил за 1 сек.\n";
        QTest::newRow("unknown preset") << "own key" << QStringList{"--preset", "turbo"} << 0 << 2
                                        << "Неизвестный пресет «turbo»: нужен fast, cheap, precise или local.\n";
    }

    void transcribe() {
        QFETCH(QString, road);
        QFETCH(QStringList, options);
        QFETCH(int, delayMs);
        QFETCH(int, code);
        QFETCH(QString, err);
        Machine m;
        if (road == "own key")
            m.ownKey();
        else
            m.signIn();
        const QString path = road == "token" ? kProxyPath : kDirectPath;
        m.reply(path, 200, chatAnswer("Привет, мир."), delayMs);

        const CommandOutput r = m.tamvex(QStringList{"transcribe", m.wav} + options);
        QCOMPARE(r.code, code);
        if (code != 0) {
            QVERIFY2(r.err.startsWith(err), qPrintable(r.err));
        } else if (options.contains("--json")) {
            QJsonObject o = QJsonDocument::fromJson(r.out.toUtf8()).object();
            QVERIFY(o.take("latency_ms").toInt(-1) >= 0);
            const QJsonObject usage{
                {"prompt_tokens", 120}, {"completion_tokens", 12}, {"total_tokens", 132}, {"cost_usd", 0.001}};
            QCOMPARE(o, (QJsonObject{{"text", "Привет, мир."}, {"preset", "precise"}, {"usage", usage}}));
        } else {
            QCOMPARE(r.out, QString("Привет, мир.\n"));
        }
        if (code == 2) {
            QVERIFY(gServer->received(path).isEmpty());
            return;
        }
        const QList<devserver::Received> sent = gServer->received(path);
        QCOMPARE(sent.size(), 1);
        QCOMPARE(sent[0].header("Authorization"), "Bearer " + (road == "token" ? m.token : "sk-own").toUtf8());
        // The WAV went out as the recorder's AAC .m4a, the whole speech in it.
        const QString audio = sentAudio(sent[0], m.app.env.root.path());
        QVERIFY(audio.endsWith(".m4a"));
        AudioFileDecoder sentDecoder(audio, 0);
        QCOMPARE(sentDecoder.codecName(), QString("aac"));
        QVERIFY(std::abs(sentDecoder.durationSeconds() - AudioFileDecoder(m.wav, 0).durationSeconds()) < 0.1);
        // Nothing booked, nothing stored, nothing left behind.
        const QJsonDocument listed = QJsonDocument::fromJson(m.tamvex({"history", "list", "--json"}).out.toUtf8());
        QVERIFY(listed.isArray() && listed.array().isEmpty());
        QCOMPARE(QDir(m.app.env.paths.tempDir).entryList(QDir::NoDotAndDotDot | QDir::AllEntries), QStringList{});
        m.app.env.reopenDefaults();
        QVERIFY(!m.app.env.defaults->readString(SettingsKeys::preset).optional().has_value());
    }

    // What a retry does to the entry and its audio is the coordinator's (dictation_run_test):
    // here, that the command runs it in its own process, or asks the running instance, and says so.
    void retryWithoutARunningInstance() {
        Machine m;
        m.ownKey();
        const HistoryEntry failed = m.failedEntry();
        m.reply(kDirectPath, 200, chatAnswer(kNineWords));
        m.reply(kDirectPath, 200, chatAnswer("code")); // the classifier's answer

        const CommandOutput r = m.tamvex({"history", "retry", uuidText(failed.id).left(8), "--json"});
        QCOMPARE(r.code, 0);
        const HistoryEntry after =
            HistoryEntry::fromJson(QJsonDocument::fromJson(r.out.toUtf8()).object()).value_or(HistoryEntry{});
        QCOMPARE(after.text, kNineWords);
        QCOMPARE(after.category, std::optional(TextCategory::code)); // the command waited for it
        QVERIFY(!after.errorMessage && !after.audioPath && !QFileInfo::exists(*failed.audioPath));
        QCOMPARE(gServer->received(kDirectPath).size(), 2);
        // Its audio is gone with the success: a second retry says so and sends nothing.
        const CommandOutput again = m.tamvex({"history", "retry", uuidText(failed.id).left(8)});
        QCOMPARE(again.code, 1);
        QCOMPARE(again.err, QString("Запись для повтора не сохранилась.\n"));
        QCOMPARE(gServer->received(kDirectPath).size(), 2);
    }

    void retryAsksTheRunningInstance() {
        QDBusConnection bus = QDBusConnection::sessionBus();
        if (!bus.isConnected())
            QSKIP("no session bus: run under dbus-run-session");
        Machine m;
        m.ownKey();
        RecordingCoordinator coordinator(m.state());
        ControlService control(coordinator);
        QVERIFY(control.registerOn(bus));
        const HistoryEntry failed = m.failedEntry();
        // A slow failure: the client waits for the retry's outcome, not for the call's acceptance.
        m.reply(kDirectPath, 500, kServerFailure, 1500);

        const CommandOutput r = m.tamvex({"history", "retry", uuidText(failed.id)});
        const QString message = OpenRouterError::badResponse(500, kServerFailure).description();
        QCOMPARE(r.code, 1);
        QCOMPARE(r.err, message + "\n");
        // This process, the instance, did the retry: its own loaded entry changed.
        QCOMPARE(m.state().history().entry(failed.id)->errorMessage, std::optional(message));
        QVERIFY(QFileInfo::exists(*failed.audioPath));
    }
};

QTEST_MAIN(CliDictationTest)
#include "CliDictationTest.moc"
