#include "core/AppDelegate.h"
#include "core/AppState.h"
#include "core/LaunchRules.h"
#include "core/Nudges.h"
#include "shell/MainWindowController.h"
#include "shell/QuitController.h"
#include "shell/SettingsStore.h"
#include "shell/ShellWindows.h"
#include "shell/WelcomeWindowController.h"
#include "support/TestMain.h"
#include "support/TestSupport.h"
#include "support/TrackedEvents.h"

#include <QKeyEvent>
#include <QQuickWindow>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;

namespace {
bool visible(QQuickWindow* window) {
    return window && window->isVisible();
}
} // namespace

class LaunchTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_home;

    // A whole launch of the application in a sandboxed home, with every host unreachable.
    struct Launch {
        TrackedEvents tracked;
        AppDelegate app;
        Launch() { app.applicationDidFinishLaunching(); }
        QQuickWindow* mainWindow() { return app.windows().mainWindow().window(); }
        QQuickWindow* welcomeWindow() { return app.windows().welcomeWindow().window(); }
    };

private slots:
    void initTestCase() {
        QVERIFY(m_home.isValid());
        qputenv("HOME", m_home.path().toUtf8());
        qputenv("XDG_CONFIG_HOME", (m_home.path() + "/config").toUtf8());
        qputenv("XDG_DATA_HOME", (m_home.path() + "/data").toUtf8());
        qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + (m_home.path() + "/no-bus").toUtf8());
        qunsetenv("DISPLAY");
        qunsetenv("WAYLAND_DISPLAY");
        for (const char* host :
             {"TAMVEX_MAIN_URL", "TAMVEX_STT_URL", "TAMVEX_OPENROUTER_URL", "TAMVEX_UPDATE_FEED_URL"})
            qputenv(host, "http://127.0.0.1:9");
    }

    void seenVersionRule_data() {
        QTest::addColumn<QStringList>("stored"); // version, build; "-" for absent
        QTest::addColumn<QStringList>("current");
        QTest::addColumn<QString>("from"); // "from_version/from_build", empty when nothing is reported
        QTest::newRow("first launch ever") << QStringList{"-", "-"} << QStringList{"1.2", "7"} << "";
        QTest::newRow("same version and build") << QStringList{"1.2", "7"} << QStringList{"1.2", "7"} << "";
        QTest::newRow("new version") << QStringList{"1.1", "7"} << QStringList{"1.2", "7"} << "1.1/7";
        QTest::newRow("stored build absent, same version")
            << QStringList{"1.2", "-"} << QStringList{"1.2", "7"} << "1.2/unknown";
        QTest::newRow("current build unknown") << QStringList{"1.2", "7"} << QStringList{"1.2", ""} << "1.2/7";
    }
    void seenVersionRule() {
        QFETCH(QStringList, stored);
        QFETCH(QStringList, current);
        QFETCH(QString, from);
        TestEnv env;
        if (stored[0] != "-")
            env.defaults->setString(launch::lastSeenVersionKey, stored[0]);
        if (stored[1] != "-")
            env.defaults->setString(launch::lastSeenBuildKey, stored[1]);
        const auto update = launch::seenVersionUpdate(*env.defaults, {current[0], current[1]});
        const QString build = current[1].isEmpty() ? "unknown" : current[1];
        QCOMPARE(update.has_value(), !from.isEmpty());
        if (update)
            QCOMPARE(*update, (QVariantMap{{"from_version", from.section('/', 0, 0)},
                                           {"from_build", from.section('/', 1)},
                                           {"to_version", current[0]},
                                           {"to_build", build}}));
        // Stored in every case, so the next launch with the same build reports nothing.
        env.reopenDefaults();
        QCOMPARE(env.defaults->readString(launch::lastSeenVersionKey).value, current[0]);
        QCOMPARE(env.defaults->readString(launch::lastSeenBuildKey).value, build);
        QVERIFY(!launch::seenVersionUpdate(*env.defaults, {current[0], current[1]}));
    }

    void quitKeyMatchesByPositionToo() {
        const auto key = [](int code, Qt::KeyboardModifiers mods, quint32 scan) {
            return QuitShortcut::isQuitKey(QKeyEvent(QEvent::KeyPress, code, mods, scan, 0, 0));
        };
        QVERIFY(key(0x6ca /* й */, Qt::ControlModifier, 24)); // Russian layout active
        QVERIFY(!key(Qt::Key_Q, Qt::NoModifier, 24));
        QVERIFY(!key(Qt::Key_Q, Qt::ControlModifier | Qt::ShiftModifier, 24));
        QVERIFY(!key(Qt::Key_W, Qt::ControlModifier, 25));
    }

    // The first start: reported as launched, not as updated; the welcome window comes up; the
    // observers stay quiet until the settings change; the quit key follows cmdQBehavior.
    void firstLaunch() {
        Launch l;
        QCOMPARE(l.tracked.names().mid(0, 1), QStringList{"app_launched"});
        QCOMPARE(l.tracked[0][1].toMap().value("onboarding_completed"), QVariant(false));
        QVERIFY(QFile::exists(Paths::standard().autostartEntry())); // launch at login, on by default
        QVERIFY(visible(l.welcomeWindow()));
        QVERIFY(!l.mainWindow());
        // No keyboard here sends FN, and FN is the hotkey: the HUD's card says so once the key
        // source is decided (without a display, that no key is heard at all).
        QVERIFY(spinUntil([&] { return l.app.appState().pendingNudge().has_value(); }));
        QCOMPARE(l.app.appState().pendingNudge()->hotkey, QStringLiteral("FN"));

        SettingsStore& settings = l.app.appState().settings();
        settings.setShowInDock(true);
        QVERIFY(!l.mainWindow()); // not in the middle of the change
        QVERIFY(spinUntil([&] { return visible(l.mainWindow()); }));
        settings.setShowInDock(false);
        QVERIFY(spinUntil([&] { return !visible(l.mainWindow()); }));

        settings.setOnboardingCompleted(true);
        QVERIFY(spinUntil([&] { return visible(l.mainWindow()); }));

        // Ctrl+Q in the window, with "minimize": the windows close and the process stays.
        settings.setShowInDock(true);
        settings.setCmdQBehavior(SettingsStore::CmdQBehavior::minimize);
        QTest::keyClick(l.mainWindow(), Qt::Key_Q, Qt::ControlModifier);
        QVERIFY(!visible(l.mainWindow()));
    }
};

TAMVEX_GUI_TEST_CLASS(LaunchTest)
#include "LaunchTest.moc"
