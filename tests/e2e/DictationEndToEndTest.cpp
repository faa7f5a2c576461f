// One dictation as a user makes it, with the built programs as separate processes: the
// application under a private X server and session bus, its services played by the
// development server, and a text field of another application in focus.
#include "../input/PasteTargetProcess.h"
#include "../input/XkbLayout.h"
#include "../input/XvfbSession.h"
#include "platform/Defaults.h"
#include "support/TestSupport.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QProcess>
#include <QScopeGuard>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <functional>
#include <memory>

using namespace tamvex;

namespace {

const QString kServiceName = QStringLiteral("org.tamvex.Tamvex");
const QString kSpeech = QStringLiteral(TAMVEX_TESTDATA_DIR "/speech-ru-16k.wav");
const QString kClipboardBefore = QStringLiteral("буфер до диктовки");

struct Result {
    int exitCode = -1;
    QString out;
    QString err;
};

/// Runs a command to its end; a command that hangs counts as failed.
Result runCommand(const QString& program, const QStringList& args, const QProcessEnvironment& env,
                  const QByteArray& input = {}) {
    QProcess process;
    process.setProcessEnvironment(env);
    process.start(program, args);
    if (!input.isNull()) {
        process.write(input);
        process.closeWriteChannel();
    }
    if (!process.waitForFinished(30000)) {
        process.kill();
        process.waitForFinished();
        return {-1, {}, program + " did not finish"};
    }
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()), QString::fromUtf8(process.readAllStandardError())};
}

/// Polls `until` with a pause between tries: each try may start a process, and a tight
/// loop of those would starve the programs under test on a loaded machine.
bool pollUntil(const std::function<bool()>& until, int ms) {
    QDeadlineTimer deadline(ms);
    while (!until()) {
        if (deadline.hasExpired())
            return false;
        QTest::qWait(100);
    }
    return true;
}

/// A daemon of our own for the run: a session bus.
class SessionBus {
public:
    SessionBus() {
        const QString daemon = QStandardPaths::findExecutable("dbus-daemon");
        if (daemon.isEmpty()) {
            reason = "dbus-daemon is not installed (package dbus-daemon)";
            return;
        }
        m_process.start(daemon, {"--session", "--nofork", "--nopidfile", "--print-address=1"});
        QDeadlineTimer deadline(15000);
        while (!m_process.canReadLine() && !deadline.hasExpired() && m_process.state() != QProcess::NotRunning)
            m_process.waitForReadyRead(200);
        address = QString::fromUtf8(m_process.readLine()).trimmed();
        if (address.isEmpty())
            reason = "dbus-daemon did not start: " + QString::fromUtf8(m_process.readAllStandardError());
    }
    ~SessionBus() {
        QDBusConnection::disconnectFromBus("e2e");
        m_process.terminate();
        if (!m_process.waitForFinished(5000))
            m_process.kill();
    }
    bool ok() const { return !address.isEmpty(); }
    /// Whether `name` has an owner on the bus.
    bool hasOwner(const QString& name) const {
        QDBusConnection bus = QDBusConnection::connectToBus(address, "e2e");
        return bus.isConnected() && bus.interface()->isServiceRegistered(name).value();
    }

    QString address;
    QString reason;

private:
    QProcess m_process;
};

/// tamvex-devserver on a free port, scripted over HTTP.
class DevService {
public:
    explicit DevService(const QString& dataDir) {
        m_process.setStandardErrorFile(dataDir + "/requests.log");
        m_process.start(QStringLiteral(TAMVEX_DEVSERVER_PATH), {"--port", "0", "--data", dataDir});
        QDeadlineTimer deadline(15000);
        while (!m_process.canReadLine() && !deadline.hasExpired() && m_process.state() != QProcess::NotRunning)
            m_process.waitForReadyRead(200);
        base = QUrl(QString::fromUtf8(m_process.readLine()).trimmed());
        m_network.setProxy(QNetworkProxy::NoProxy);
    }
    ~DevService() {
        m_process.terminate();
        if (!m_process.waitForFinished(5000))
            m_process.kill();
    }
    bool ok() const { return base.isValid() && base.port() > 0; }
    /// The same service under the other loopback name, so two hosts are told apart.
    QString localhostBase() const { return "http://localhost:" + QString::number(base.port()); }

    /// One control call; the answer's JSON, or null when the call failed.
    QJsonDocument call(const QByteArray& method, const QString& path, const QJsonObject& body = {}) {
        QNetworkRequest request(QUrl(base.toString() + path));
        request.setHeader(QNetworkRequest::ContentTypeHeader, "application/json");
        std::unique_ptr<QNetworkReply> reply(m_network.sendCustomRequest(
            request, method, body.isEmpty() ? QByteArray() : QJsonDocument(body).toJson(QJsonDocument::Compact)));
        test::spinUntil([&] { return reply->isFinished(); }, 10000);
        if (!reply->isFinished() || reply->error() != QNetworkReply::NoError)
            return {};
        return QJsonDocument::fromJson(reply->readAll());
    }
    bool script(const QString& route, int status, const QJsonObject& body) {
        return !call("POST", "/__dev/script", {{"route", route}, {"status", status}, {"body", body}, {"times", -1}})
                    .isNull();
    }
    bool clearScripts() { return !call("DELETE", "/__dev/script").isNull(); }
    QJsonArray requests(const QString& path) {
        QJsonArray found;
        for (const QJsonValue& r : call("GET", "/__dev/requests").array())
            if (r["path"].toString() == path)
                found.append(r);
        return found;
    }

    QUrl base;

private:
    QProcess m_process;
    QNetworkAccessManager m_network;
};

/// A chat-completions answer whose only choice says `text`.
QJsonObject chatAnswer(const QString& text) {
    return {{"id", "e2e"},
            {"object", "chat.completion"},
            {"model", "google/gemini-2.5-flash"},
            {"choices", QJsonArray{QJsonObject{{"index", 0},
                                               {"message", QJsonObject{{"role", "assistant"}, {"content", text}}},
                                               {"finish_reason", "stop"}}}},
            {"usage", QJsonObject{{"prompt_tokens", 100}, {"completion_tokens", 10}, {"total_tokens", 110},
                                  {"cost", 0.0002}}}};
}

/// One user's machine: home and XDG folders of its own, and the environment every program
/// of the user starts with.
struct UserSandbox {
    UserSandbox(const QProcessEnvironment& base) : env(base) {
        const QString root = dir.path();
        for (const char* sub : {"home", "data", "config", "runtime"})
            QDir(root).mkpath(sub);
        QFile::setPermissions(root + "/runtime", QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                                     QFileDevice::ExeOwner);
        env.insert("HOME", root + "/home");
        env.insert("XDG_DATA_HOME", root + "/data");
        env.insert("XDG_CONFIG_HOME", root + "/config");
        env.insert("XDG_RUNTIME_DIR", root + "/runtime");
    }
    QString audioDir() const { return dir.path() + "/data/Tamv/audio"; }
    QString settingsFile() const { return dir.path() + "/config/Tamvex/Tamvex.json"; }

    QTemporaryDir dir;
    QProcessEnvironment env;
};

/// The running application, its output kept for the failure report.
class App {
public:
    App(const QProcessEnvironment& env, const QString& logPath) : m_logPath(logPath) {
        m_process.setProcessEnvironment(env);
        m_process.setProcessChannelMode(QProcess::MergedChannels);
        m_process.setStandardOutputFile(logPath);
        m_process.start(QStringLiteral(TAMVEX_APP_PATH), {"--audio-input", kSpeech});
        m_process.waitForStarted();
    }
    ~App() {
        m_process.terminate();
        if (!m_process.waitForFinished(10000))
            m_process.kill();
        m_process.waitForFinished();
    }
    bool running() const { return m_process.state() == QProcess::Running; }
    QString log() const {
        QFile file(m_logPath);
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    }

private:
    QString m_logPath;
    QProcess m_process;
};

struct Globals {
    test::XvfbSession* xvfb = nullptr;
    SessionBus* bus = nullptr;
    QString locale; // ru_RU.UTF-8 when the machine has it
};
Globals g;

bool hasRussianLocale() {
    QProcess locales;
    locales.start("locale", {"-a"});
    if (!locales.waitForFinished(5000))
        return false;
    const QString all = QString::fromUtf8(locales.readAllStandardOutput()).toLower();
    return all.contains("ru_ru.utf8") || all.contains("ru_ru.utf-8");
}

} // namespace

class DictationEndToEndTest : public QObject {
    Q_OBJECT
private:
    QProcessEnvironment m_base;
    std::unique_ptr<QTemporaryDir> m_serviceData;
    std::unique_ptr<DevService> m_service;

    /// `tamvex history list --json`, newest first.
    QJsonArray history(const QProcessEnvironment& env) {
        const Result r = runCommand(TAMVEX_APP_PATH, {"history", "list", "--json"}, env);
        return r.exitCode == 0 ? QJsonDocument::fromJson(r.out.toUtf8()).array() : QJsonArray();
    }
    QString clipboard(const QProcessEnvironment& env) {
        return runCommand("xclip", {"-selection", "clipboard", "-o"}, env).out;
    }

private slots:
    void initTestCase() {
        if (!g.xvfb->ok())
            QSKIP(qPrintable("no X server for the end-to-end dictation: " + g.xvfb->reason));
        if (!g.bus->ok())
            QSKIP(qPrintable("no session bus for the end-to-end dictation: " + g.bus->reason));
        if (QStandardPaths::findExecutable("xclip").isEmpty())
            QSKIP("xclip is not installed (package xclip): the clipboard cannot be checked from outside");
        if (QStandardPaths::findExecutable("setxkbmap").isEmpty())
            QSKIP("setxkbmap is not installed (package x11-xkb-utils): no Russian layout to dictate under");
        m_serviceData = std::make_unique<QTemporaryDir>();
        m_service = std::make_unique<DevService>(m_serviceData->path());
        QVERIFY2(m_service->ok(), "tamvex-devserver did not print its URL");

        m_base = QProcessEnvironment::systemEnvironment();
        m_base.insert("DISPLAY", g.xvfb->display);
        m_base.insert("DBUS_SESSION_BUS_ADDRESS", g.bus->address);
        m_base.insert("QT_QPA_PLATFORM", "xcb");
        m_base.remove("WAYLAND_DISPLAY");
        m_base.insert("QT_LOGGING_RULES", "com.dovra.tamv.Tamvex.info=true");
        m_base.insert("TAMVEX_MAIN_URL", m_service->base.toString());
        m_base.insert("TAMVEX_STT_URL", m_service->localhostBase());
        m_base.insert("TAMVEX_OPENROUTER_URL", m_service->base.toString());
        if (!g.locale.isEmpty()) {
            m_base.insert("LANG", g.locale);
            m_base.remove("LC_ALL");
            m_base.remove("LANGUAGE");
        }
    }

    void dictatesFailsAndRetries_data() {
        QTest::addColumn<bool>("ownKey");
        QTest::addColumn<QString>("chatRoute");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("retriedText");
        QTest::addColumn<QStringList>("layouts"); // setxkbmap's arguments
        QTest::addColumn<int>("group");           // the layout switched to
        // Our users type with a Russian layout active: the paste chord must land all the same.
        QTest::newRow("through the service, us,ru switched to Russian")
            << false << "/api/openrouter/v1/chat/completions" << "Привет, это диктовка через сервис."
            << "Повтор через сервис удался." << QStringList{"-layout", "us,ru"} << 1;
        QTest::newRow("own key, Russian only") << true << "/api/v1/chat/completions" << "Своим ключом, напрямую."
                                               << "Повтор своим ключом удался." << QStringList{"ru"} << 0;
    }

    void dictatesFailsAndRetries() {
        QFETCH(bool, ownKey);
        QFETCH(QString, chatRoute);
        QFETCH(QString, text);
        QFETCH(QString, retriedText);
        QFETCH(QStringList, layouts);
        QFETCH(int, group);
        UserSandbox user(m_base);
        const QProcessEnvironment& env = user.env;
        QVERIFY(m_service->clearScripts());

        // Settings as the user makes them; the service token as signing in stores it.
        const auto set = [&](const QString& key, const QString& value) {
            const Result r = runCommand(TAMVEX_APP_PATH, {"settings", "set", key, value}, env);
            QVERIFY2(r.exitCode == 0, qPrintable(r.err));
        };
        set("onboarding_done_v2", "true");
        set("use_embedded_key", ownKey ? "false" : "true");
        const QString apiKey = QStringLiteral("sk-or-e2e-own-key");
        QString token;
        if (ownKey) {
            set("openrouter_api_key", apiKey);
        } else {
            const QJsonDocument signedIn =
                m_service->call("POST", "/__dev/users", {{"phone", "+79990001122"}, {"balance_tokens", 100000}});
            token = signedIn["access_token"].toString();
            QVERIFY(!token.isEmpty());
            Defaults(user.settingsFile()).setString("sorvel_access_token", token); // AccountStore's key
        }

        auto usLayoutAgain = qScopeGuard([] { test::useKeyboardLayout({"us"}, 0); });
        QCOMPARE(test::useKeyboardLayout(layouts, group), group);
        test::PasteTargetProcess target(QStringLiteral(TAMVEX_PASTE_TARGET_PATH));
        QVERIFY(target.ready);
        QCOMPARE(runCommand("xclip", {"-selection", "clipboard", "-i"}, env, kClipboardBefore.toUtf8()).exitCode, 0);
        QVERIFY(pollUntil([&] { return clipboard(env) == kClipboardBefore; }, 5000));
        QVERIFY(m_service->script(chatRoute, 200, chatAnswer(text)));

        App tamvex(env, user.dir.path() + "/tamvex.log");
        const auto withLog = [&](const QString& what) { return what + "\n--- tamvex log ---\n" + tamvex.log(); };
        pollUntil([&] { return g.bus->hasOwner(kServiceName) || !tamvex.running(); }, 30000);
        QVERIFY2(tamvex.running() && g.bus->hasOwner(kServiceName),
                 qPrintable(withLog("tamvex did not take its D-Bus name")));
        if (!ownKey)
            QVERIFY2(pollUntil([&] { return !m_service->requests("/api/me").isEmpty(); }, 15000),
                     qPrintable(withLog("tamvex did not load the signed-in account")));

        // One dictation: key down, the phrase, key up.
        const auto dictate = [&] {
            const Result press = runCommand(TAMVEX_APP_PATH, {"ctl", "press"}, env);
            QVERIFY2(press.exitCode == 0, qPrintable(press.err));
            // The key is held while the user speaks: the file plays in real time.
            QTest::qWait(3000);
            const Result release = runCommand(TAMVEX_APP_PATH, {"ctl", "release"}, env);
            QVERIFY2(release.exitCode == 0, qPrintable(release.err));
        };
        dictate();
        if (QTest::currentTestFailed())
            return;
        QVERIFY2(pollUntil([&] { return target.text() == text; }, 30000),
                 qPrintable(withLog("the text did not arrive in the focused field; it holds «" + target.text() + "»")));
        QVERIFY(pollUntil([&] { return clipboard(env) == kClipboardBefore; }, 10000));
        QJsonArray entries = history(env);
        QCOMPARE(entries.size(), 1);
        const QJsonObject done = entries.first().toObject();
        QCOMPARE(done["text"].toString(), text);
        QCOMPARE(done["appContext"].toString(), QStringLiteral("input_paste_target"));
        QVERIFY(!done.contains("errorMessage"));
        QVERIFY(!done.contains("audioPath"));
        // The request went where the road leads, with the road's credentials.
        const QJsonArray sent = m_service->requests(chatRoute);
        QCOMPARE(sent.size(), 1);
        QCOMPARE(sent.first().toObject()["headers"].toObject()["authorization"].toString(),
                 "Bearer " + (ownKey ? apiKey : token));

        // The service fails: the dictation is kept for a retry, nothing is pasted.
        QVERIFY(m_service->script(chatRoute, 500, {{"error", QJsonObject{{"message", "upstream is down"}}}}));
        dictate();
        if (QTest::currentTestFailed())
            return;
        QVERIFY2(pollUntil([&] { return history(env).size() == 2; }, 30000),
                 qPrintable(withLog("the failed dictation did not reach the history")));
        entries = history(env);
        const QJsonObject failed = entries.first().toObject();
        QVERIFY(!failed["errorMessage"].toString().isEmpty());
        QCOMPARE(failed["text"].toString(), QString());
        QCOMPARE(failed["appContext"].toString(), QStringLiteral("input_paste_target"));
        const QString audio = failed["audioPath"].toString();
        QCOMPARE(QFileInfo(audio).absolutePath(), user.audioDir());
        QVERIFY2(QFileInfo::exists(audio), qPrintable(audio));
        QCOMPARE(target.text(), text);
        QCOMPARE(clipboard(env), kClipboardBefore);

        // The service is back: the retry from the kept audio rewrites the entry.
        QVERIFY(m_service->clearScripts());
        QVERIFY(m_service->script(chatRoute, 200, chatAnswer(retriedText)));
        const Result usage = runCommand(TAMVEX_APP_PATH, {"history"}, env);
        if (!(usage.out + usage.err).contains("history retry"))
            QSKIP("this build has no `tamvex history retry`: the retry step waits for it");
        const QString id = failed["id"].toString();
        const Result retry = runCommand(TAMVEX_APP_PATH, {"history", "retry", id.left(8)}, env);
        QVERIFY2(retry.exitCode == 0, qPrintable(withLog("tamvex history retry failed: " + retry.out + retry.err)));
        QVERIFY2(retry.out.contains(retriedText), qPrintable(retry.out));
        QJsonObject rewritten;
        pollUntil(
            [&] {
                entries = history(env);
                for (const QJsonValue& e : std::as_const(entries))
                    if (e.toObject()["id"].toString() == id)
                        rewritten = e.toObject();
                return rewritten["text"].toString() == retriedText;
            },
            10000);
        QCOMPARE(entries.size(), 2);
        QCOMPARE(rewritten["text"].toString(), retriedText);
        QVERIFY(!rewritten.contains("errorMessage"));
        QVERIFY(!rewritten.contains("audioPath"));
        QVERIFY(!QFileInfo::exists(audio));
    }
};

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    // The helpers this process starts (the paste target) want a runtime folder of their own.
    QTemporaryDir runtime;
    QFile::setPermissions(runtime.path(), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    qputenv("XDG_RUNTIME_DIR", runtime.path().toLocal8Bit());
    test::XvfbSession xvfb;
    SessionBus bus;
    g.xvfb = &xvfb;
    g.bus = &bus;
    if (hasRussianLocale())
        g.locale = QStringLiteral("ru_RU.UTF-8");
    DictationEndToEndTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "DictationEndToEndTest.moc"
