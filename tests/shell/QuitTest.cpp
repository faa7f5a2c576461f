#include "shell/QuitController.h"
#include "shell/SettingsStore.h"
#include "platform/LoginItem.h"
#include "support/TestSupport.h"

#include <QTest>

using namespace tamvex;
using B = SettingsStore::CmdQBehavior;
using A = QuitController::Answer;

class QuitTest : public QObject {
    Q_OBJECT

    struct Fixture {
        test::TestEnv env;
        ManualClock clock;
        AutostartLoginItem login{env.paths.autostartEntry(), "/usr/bin/tamvex"};
        SettingsStore settings{*env.defaults, clock, login};
        QuitController::DialogResult answer;
        int asked = 0, closed = 0, terminated = 0;
        QuitController quit{settings, [this] { ++asked; return answer; }, [this] { ++closed; },
                            [this] { ++terminated; }};
    };

private slots:
    void eachBehaviourAndAnswer_data() {
        QTest::addColumn<B>("behaviour");
        QTest::addColumn<int>("answer");
        QTest::addColumn<bool>("box");
        QTest::addColumn<bool>("dockBefore");
        QTest::addColumn<bool>("terminateNow");
        QTest::addColumn<int>("asked");
        QTest::addColumn<int>("terminated");
        QTest::addColumn<int>("closed");
        QTest::addColumn<B>("stored");
        QTest::addColumn<bool>("dockAfter");
        // behaviour, dialog answer (1000 minimise, 1001 quit, 1002 cancel), box, dock before →
        // answer to the platform, dialogs, terminations, windows closed, stored, dock after.
        QTest::newRow("quit: at once, no dialog") << B::quit << 0 << false << true << true << 0 << 0 << 0 << B::quit << true;
        QTest::newRow("minimize: never ends") << B::minimize << 0 << false << true << false << 0 << 0 << 1 << B::minimize << false;
        QTest::newRow("ask, Выйти") << B::ask << 1001 << false << false << false << 1 << 1 << 0 << B::ask << false;
        QTest::newRow("ask, Выйти, box on") << B::ask << 1001 << true << false << false << 1 << 1 << 0 << B::quit << false;
        QTest::newRow("ask, Свернуть") << B::ask << 1000 << false << true << false << 1 << 0 << 1 << B::ask << false;
        QTest::newRow("ask, Свернуть, box on") << B::ask << 1000 << true << false << false << 1 << 0 << 1 << B::minimize << false;
        QTest::newRow("ask, Отмена") << B::ask << 1002 << false << true << false << 1 << 0 << 0 << B::ask << true;
        QTest::newRow("ask, Отмена, box on stores nothing") << B::ask << 1002 << true << true << false << 1 << 0 << 0 << B::ask << true;
    }
    void eachBehaviourAndAnswer() {
        QFETCH(B, behaviour);
        QFETCH(int, answer);
        QFETCH(bool, box);
        QFETCH(bool, dockBefore);
        Fixture f;
        f.settings.setCmdQBehavior(behaviour);
        f.settings.setShowInDock(dockBefore);
        f.answer = {static_cast<A>(answer), box};
        QTEST(f.quit.applicationShouldTerminate(), "terminateNow");
        QTEST(f.asked, "asked");
        QTEST(f.terminated, "terminated");
        QTEST(f.closed, "closed");
        QTEST(f.settings.cmdQBehavior(), "stored");
        QTEST(f.settings.showInDock(), "dockAfter");
        // What was stored survives a restart.
        f.env.reopenDefaults();
        SettingsStore reread(*f.env.defaults, f.clock, f.login);
        QTEST(reread.cmdQBehavior(), "stored");
    }
};

QTEST_MAIN(QuitTest)
#include "QuitTest.moc"
