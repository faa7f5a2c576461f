// One dictation as a user makes it, with the built programs as separate processes: the
// application under a private X server and session bus, its services played by the
// development server, and a text field of another application in focus.
#include "../input/PasteTargetProcess.h"
#include "../input/XkbLayout.h"
#include "desktop/AudioTestSupport.h"
#include "platform/Defaults.h"
#include "support/ChatAnswers.h"
#include "support/ProcessFixtures.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QScopeGuard>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;

namespace {

const QString kServiceName = QStringLiteral("org.tamvex.Tamvex");

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

XvfbSession* gXvfb = nullptr;
SessionBus* gBus = nullptr;

} // namespace

class DictationEndToEndTest : public QObject {
    Q_OBJECT
    QProcessEnvironment m_env;
    QTemporaryDir m_user; // home, XDG folders and the service's data of one user
    std::unique_ptr<DevServerProcess> m_service;

    CommandOutput tamvex(const QStringList& args) { return runProcess(TAMVEX_APP_PATH, args, m_env); }
    QJsonArray requests(const QString& path) {
        QJsonArray found;
        for (const QJsonValue& r : devCall(m_service->base, "GET", "/__dev/requests").array())
            if (r["path"].toString() == path)
                found.append(r);
        return found;
    }

private slots:
    void initTestCase() {
        if (!gXvfb->ok())
            QSKIP(qPrintable("no X server for the end-to-end dictation: " + gXvfb->reason));
        if (!gBus->ok())
            QSKIP(qPrintable("no session bus for the end-to-end dictation: " + gBus->reason));
        if (QStandardPaths::findExecutable("setxkbmap").isEmpty())
            QSKIP("setxkbmap is not installed (package x11-xkb-utils)");
        const QString root = m_user.path();
        for (const char* sub : {"home", "data", "config", "runtime", "service"})
            QDir(root).mkpath(sub);
        QFile::setPermissions(root + "/runtime",
                              QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        m_service = std::make_unique<DevServerProcess>(TAMVEX_DEVSERVER_PATH, root + "/service");
        QVERIFY2(m_service->ok(), "tamvex-devserver did not print its URL");

        m_env = QProcessEnvironment::systemEnvironment();
        m_env.insert("DISPLAY", gXvfb->display);
        m_env.insert("DBUS_SESSION_BUS_ADDRESS", gBus->address);
        m_env.insert("QT_QPA_PLATFORM", "xcb");
        m_env.remove("WAYLAND_DISPLAY");
        m_env.insert("QT_LOGGING_RULES", "com.dovra.tamv.Tamvex.info=true");
        m_env.insert("TAMVEX_MAIN_URL", m_service->base.toString());
        // The same service under the other loopback name, so the two hosts are told apart.
        m_env.insert("TAMVEX_STT_URL", "http://localhost:" + QString::number(m_service->base.port()));
        m_env.insert("TAMVEX_OPENROUTER_URL", m_service->base.toString());
        m_env.insert("HOME", root + "/home");
        m_env.insert("XDG_DATA_HOME", root + "/data");
        m_env.insert("XDG_CONFIG_HOME", root + "/config");
        m_env.insert("XDG_RUNTIME_DIR", root + "/runtime");
        if (runProcess("locale", {"-a"}, m_env).out.contains("ru_RU.utf8", Qt::CaseInsensitive)) {
            m_env.insert("LANG", "ru_RU.UTF-8");
            m_env.remove("LC_ALL");
            m_env.remove("LANGUAGE");
        }
    }

    void dictatesIntoTheFocusedField() {
        // Signed in to the service, as a restart finds it: the token alone.
        const QString token = devCall(m_service->base, "POST", "/__dev/users",
                                      {{"phone", "+79990001122"}, {"balance_tokens", 100000}})["access_token"]
                                  .toString();
        Defaults stored(m_user.path() + "/config/Tamvex/Tamvex.json");
        stored.setBool("onboarding_done_v2", true);
        stored.setBool("use_embedded_key", true);
        stored.setString("sorvel_access_token", token);

        // A Russian layout alone: no layout types a Latin "v", and the paste must land all the same.
        auto usLayoutAgain = qScopeGuard([] { useKeyboardLayout({"us"}, 0); });
        QCOMPARE(useKeyboardLayout({"ru"}, 0), 0);
        PasteTargetProcess target;
        QVERIFY(target.ready);
        const QString route = kProxyPath, text = "Привет, это диктовка через сервис.";
        const QJsonObject answer = QJsonDocument::fromJson(chatAnswer(text)).object();
        devCall(m_service->base, "POST", "/__dev/script", {{"route", route}, {"status", 200}, {"body", answer}});

        QProcess app;
        app.setProcessEnvironment(m_env);
        app.setProcessChannelMode(QProcess::MergedChannels);
        app.setStandardOutputFile(m_user.filePath("tamvex.log"));
        // The microphone: a tone of speech's length; the scripted server answers the words.
        const QString speech = m_user.filePath("speech.wav");
        QVERIFY(writeWav(speech, sine(220.0, 0.3, 2.3, 16000), 16000, 1));
        app.start(TAMVEX_APP_PATH, {"--audio-input", speech});
        auto quit = qScopeGuard([&] { endProcess(app); });
        const auto withLog = [&](const QString& what) {
            return what + "\n--- tamvex log ---\n" + QString::fromUtf8(fileBytes(m_user.filePath("tamvex.log")));
        };
        pollUntil([&] { return gBus->hasOwner(kServiceName) || app.state() == QProcess::NotRunning; }, 30000);
        QVERIFY2(app.state() == QProcess::Running && gBus->hasOwner(kServiceName),
                 qPrintable(withLog("tamvex did not take its D-Bus name")));
        QVERIFY2(pollUntil([&] { return !requests("/api/me").isEmpty(); }, 15000),
                 qPrintable(withLog("tamvex did not load the signed-in account")));

        // One dictation: key down, the phrase (the file plays in real time), key up once it is said.
        QCOMPARE(tamvex({"ctl", "press"}).code, 0);
        QVERIFY2(
            pollUntil([&] { return fileBytes(m_user.filePath("tamvex.log")).contains("file ended after"); }, 30000),
            qPrintable(withLog("the recording did not take in the whole phrase")));
        QCOMPARE(tamvex({"ctl", "release"}).code, 0);
        QVERIFY2(pollUntil([&] { return target.text() == text; }, 30000),
                 qPrintable(withLog("the text did not arrive in the focused field; it holds «" + target.text() + "»")));
        const QJsonArray entries = QJsonDocument::fromJson(tamvex({"history", "list", "--json"}).out.toUtf8()).array();
        QCOMPARE(entries.size(), 1);
        const QJsonObject done = entries[0].toObject();
        QCOMPARE(done["text"].toString(), text);
        QCOMPARE(done["appContext"].toString(), QStringLiteral("input_paste_target"));
        const QJsonArray sent = requests(route);
        QCOMPARE(sent.size(), 1);
        QCOMPARE(sent[0].toObject().value("headers")["authorization"].toString(), "Bearer " + token);
    }
};

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    // The helpers this process starts (the paste target) want a runtime folder of their own.
    QTemporaryDir runtime;
    QFile::setPermissions(runtime.path(), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    qputenv("XDG_RUNTIME_DIR", runtime.path().toLocal8Bit());
    XvfbSession xvfb;
    SessionBus bus;
    gXvfb = &xvfb;
    gBus = &bus;
    DictationEndToEndTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "DictationEndToEndTest.moc"
