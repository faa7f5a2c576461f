#include "shell/SettingsStore.h"
#include "cli/SettingsCommands.h"
#include "platform/LoginItem.h"
#include "shell/QuitController.h"
#include "support/TestMain.h"
#include "support/TestSupport.h"

#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTest>

using namespace tamvex;
namespace K = SettingsKeys;

class SettingsStoreTest : public QObject {
    Q_OBJECT

    struct Fixture {
        test::TestEnv env;
        ManualClock clock{QDateTime(QDate(2026, 1, 31), QTime(23, 30), Qt::LocalTime)};
        AutostartLoginItem login{env.paths.autostartEntry(), "/usr/bin/tamvex"};
        std::unique_ptr<SettingsStore> store() { return std::make_unique<SettingsStore>(*env.defaults, clock, login); }
    };

private slots:
    void wrongTypedAndUnknownValues() {
        Fixture f;
        Defaults& d = *f.env.defaults;
        d.setString(K::useFnHotkey, "no");
        d.setString(K::useEmbeddedKey, "false");
        d.setBool(K::launchAtLogin, false);
        d.setString(K::onboardingCompleted, "true");
        d.setString(K::preset, "turbo");
        d.setString(K::cmdQBehavior, "explode");
        d.setString(K::lastRequestAt, "2026-01-01T00:00:00Z");
        d.setString(K::remainingCreditsUSD, "lots");
        d.setString(K::totalSpentUSD, "12");
        auto s = f.store();
        QVERIFY(s->useFnHotkey());
        QVERIFY(s->useEmbeddedKey());
        QVERIFY(!s->launchAtLogin());
        QVERIFY(!s->onboardingCompleted());
        QCOMPARE(s->preset(), PipelinePreset::fast);
        QCOMPARE(s->cmdQBehavior(), SettingsStore::CmdQBehavior::ask);
        QVERIFY(!s->lastRequestAt());
        // Present but unreadable as a number: a value of zero, not no value.
        QCOMPARE(s->remainingCreditsUSD(), std::optional<double>(0.0));
        QCOMPARE(s->totalSpentUSD(), 0.0);
        // "turbo" stays until the next assignment.
        QCOMPARE(d.readString(K::preset).value, QString("turbo"));
        s->setPreset(PipelinePreset::fast);
        QCOMPARE(d.readString(K::preset).value, QString("fast"));
    }

    void useCasesAreFilteredAndWrittenSorted() {
        Fixture f;
        f.env.defaults->setStringArray(K::useCases, {"ai", "foo", "docs"});
        auto s = f.store();
        QCOMPARE(s->useCases(), (QSet<UseCase>{UseCase::ai, UseCase::docs}));
        s->setUseCases(s->useCases());
        QCOMPARE(f.env.defaults->readStringArray(K::useCases).value, (QStringList{"ai", "docs"}));
        s->setUseCases({UseCase::writing, UseCase::messengers, UseCase::ai, UseCase::docs});
        QCOMPARE(f.env.defaults->readStringArray(K::useCases).value,
                 (QStringList{"ai", "docs", "messengers", "writing"}));
    }

    void assignmentsPersistAcrossARestart() {
        Fixture f;
        {
            auto s = f.store();
            QVERIFY(f.env.defaults->keys().isEmpty()); // loading writes nothing
            s->setApiKey("  sk-1 ");
            s->setPreset(PipelinePreset::local);
            s->setCmdQBehavior(SettingsStore::CmdQBehavior::minimize);
            s->setShowInDock(true);
            s->setLastShortTapTipAt(f.clock.currentDateTime());
            s->setLastIdleNudgeAt(f.clock.currentDateTime());
            s->setLastIdleNudgeAt(std::nullopt);
        }
        f.env.reopenDefaults();
        auto s = f.store();
        QCOMPARE(s->apiKey(), QString("  sk-1 "));
        QCOMPARE(s->preset(), PipelinePreset::local);
        QCOMPARE(s->cmdQBehavior(), SettingsStore::CmdQBehavior::minimize);
        QVERIFY(s->showInDock());
        QCOMPARE(s->lastShortTapTipAt(), std::optional<QDateTime>(f.clock.currentDateTime()));
        QVERIFY(!s->lastIdleNudgeAt());
        QVERIFY(!f.env.defaults->contains(K::lastIdleNudgeAt));
    }

    void hotkeyModeChangedOnEveryAssignment() {
        Fixture f;
        auto s = f.store();
        QSignalSpy mode(s.get(), &SettingsStore::hotkeyModeChanged);
        QSignalSpy changed(s.get(), &SettingsStore::changed);
        s->setUseFnHotkey(true);
        s->setUseFnHotkey(true);
        QCOMPARE(mode.count(), 2);
        QCOMPARE(changed.count(), 0);
        QCOMPARE(f.env.defaults->readBool(K::useFnHotkey).value, true);
        s->setUseFnHotkey(false);
        QCOMPARE(mode.count(), 3);
        QCOMPARE(changed.count(), 1);
    }

    void usageIsBookedPerCalendarMonth() {
        Fixture f;
        auto s = f.store();
        s->recordUsage({10, 20, 30, 0.25});
        s->recordUsage({1, 1, 2, 0.0});
        QCOMPARE(s->totalRequests(), 2);
        QCOMPARE(s->totalSpentUSD(), 0.25);
        QCOMPARE(f.env.defaults->readDouble("monthly_spent.2026-01").value, 0.25);
        const QDateTime firstStamp = *s->lastRequestAt();
        f.clock.advance(3600); // into February, local time
        s->recordUsage({0, 0, 0, 0.5});
        QCOMPARE(f.env.defaults->readDouble("monthly_spent.2026-01").value, 0.25);
        QCOMPARE(f.env.defaults->readDouble("monthly_spent.2026-02").value, 0.5);
        QCOMPARE(f.env.defaults->readInt(K::totalRequests).value, 3);
        QCOMPARE(f.env.defaults->readDouble(K::totalSpentUSD).value, 0.75);
        QCOMPARE(*s->lastRequestAt(), firstStamp.addSecs(3600));
        f.clock.advance(5);
        s->markRequest();
        f.env.reopenDefaults();
        auto reloaded = f.store();
        QCOMPARE(*reloaded->lastRequestAt(), firstStamp.addSecs(3605));
    }

    void launchAtLoginFollowsTheAutostartEntry() {
        Fixture f;
        test::LogCapture log;
        auto s = f.store();
        const QString entry = f.env.paths.autostartEntry();
        s->syncLaunchAtLogin();
        QVERIFY(QFile::exists(entry));
        QFile file(entry);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QVERIFY(file.readAll().contains("Exec=/usr/bin/tamvex"));
        file.close();
        log.clear();
        s->syncLaunchAtLogin(); // already enabled: nothing, not even a log line
        QVERIFY(log.lines().isEmpty());
        s->setLaunchAtLogin(false);
        QVERIFY(!QFile::exists(entry));
        log.clear();
        s->syncLaunchAtLogin(); // off and not registered: nothing
        QVERIFY(log.lines().isEmpty());
    }

    void launchAtLoginFailureIsLoggedAndChangesNothingElse() {
        Fixture f;
        // A file where the autostart folder should be makes registration fail.
        QDir().mkpath(QFileInfo(f.env.paths.autostartDir).absolutePath());
        QFile blocker(f.env.paths.autostartDir);
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();
        test::LogCapture log;
        auto s = f.store();
        s->setLaunchAtLogin(true);
        QVERIFY(s->launchAtLogin());
        QCOMPARE(f.env.defaults->readBool(K::launchAtLogin).value, true);
        QVERIFY(log.hasPrefix("Launch at login register failed: Не удалось"));
    }

    void settingsByKey() {
        Fixture f;
        auto s = f.store();
        QCOMPARE(s->assignFromText(K::preset, "cheap"), QString());
        QCOMPARE(s->preset(), PipelinePreset::cheap);
        QVERIFY(!s->assignFromText(K::preset, "turbo").isEmpty());
        QCOMPARE(s->preset(), PipelinePreset::cheap);
        QVERIFY(!s->assignFromText(K::totalRequests, "5").isEmpty());
        QVERIFY(!s->assignFromText("no_such_key", "1").isEmpty());
        QVERIFY(!s->assignFromText(K::showInDock, "maybe").isEmpty());
        QCOMPARE(s->assignFromText(K::useCases, "docs, ai"), QString());
        QCOMPARE(s->valueForKey(K::useCases).toStringList(), (QStringList{"ai", "docs"}));
        QCOMPARE(s->valueForKey(K::useFnHotkey), QVariant(true));
        QVERIFY(!s->valueForKey(K::lastRequestAt).isValid());
    }

    void settingsCommandReadsAKeyFromStandardInput() {
        test::TestEnv env; // `tamvex settings` finds its file through XDG_CONFIG_HOME
        qputenv("XDG_CONFIG_HOME", QFileInfo(env.paths.configDir).path().toUtf8());
        auto unset = qScopeGuard([] { qunsetenv("XDG_CONFIG_HOME"); });
        struct Row {
            QStringList args;
            QString input;
            int code;
            QString output;
            QString stored; // the key in the settings file afterwards
        };
        const QString key = "sk-or-v1-0123456789abcdef";
        const QList<Row> rows{
            {{"set", "api_key", "-"}, key + "\nnext line\n", 0, "openrouter_api_key = …cdef\n", key},
            {{"get", "api_key"}, {}, 0, key + "\n", key},
            {{"set", "api_key", "-"}, {}, 2, {}, key}, // nothing came: the key stays
            {{"set", "openrouter_api_key", "-"},
             "sk-windows-line\r\n",
             0,
             "openrouter_api_key = …ine\n",
             "sk-windows-line"},
            {{"set", "api_key", "-"}, "\n", 0, "openrouter_api_key = \n", ""},
            {{"set", "use_embedded_key", "-"}, "false\n", 0, "use_embedded_key = false\n", ""},
        };
        for (const Row& row : rows) {
            QString input = row.input, output, error;
            QTextStream in(&input), out(&output), err(&error);
            QCOMPARE(runSettingsCommand(row.args, in, out, err), row.code);
            out.flush();
            QCOMPARE(output, row.output);
            QCOMPARE(Defaults(env.paths.settingsFile()).readString(K::apiKey).valueOr({}), row.stored);
        }
    }

    void quitFollowsTheBehaviourAndTheAnswer() {
        using B = SettingsStore::CmdQBehavior;
        using A = QuitController::Answer;
        const struct {
            const char* name;
            B behaviour;
            QuitController::DialogResult answer;
            bool dockBefore, terminateNow;
            int terminated, closed;
            B stored;
            bool dockAfter;
        } cases[] = {
            {"quit: at once, no dialog", B::quit, {}, true, true, 0, 0, B::quit, true},
            {"minimize: never ends", B::minimize, {}, true, false, 0, 1, B::minimize, false},
            {"ask, Выйти", B::ask, {A::quit, false}, false, false, 1, 0, B::ask, false},
            {"ask, Выйти, box on", B::ask, {A::quit, true}, false, false, 1, 0, B::quit, false},
            {"ask, Свернуть", B::ask, {A::minimize, false}, true, false, 0, 1, B::ask, false},
            {"ask, Свернуть, box on", B::ask, {A::minimize, true}, false, false, 0, 1, B::minimize, false},
            {"ask, Отмена", B::ask, {A::cancel, false}, true, false, 0, 0, B::ask, true},
            {"ask, Отмена, box on stores nothing", B::ask, {A::cancel, true}, true, false, 0, 0, B::ask, true},
        };
        for (const auto& c : cases) {
            Fixture f;
            auto s = f.store();
            s->setCmdQBehavior(c.behaviour);
            s->setShowInDock(c.dockBefore);
            int asked = 0, terminated = 0, closed = 0;
            QuitController quit(
                *s,
                [&] {
                    ++asked;
                    return c.answer;
                },
                [&] { ++closed; }, [&] { ++terminated; });
            const QString what = c.name;
            QVERIFY2(quit.applicationShouldTerminate() == c.terminateNow, qPrintable(what));
            QVERIFY2(asked == (c.behaviour == B::ask ? 1 : 0), qPrintable(what));
            QVERIFY2(terminated == c.terminated && closed == c.closed, qPrintable(what));
            QVERIFY2(s->cmdQBehavior() == c.stored && s->showInDock() == c.dockAfter, qPrintable(what));
        }
    }
};

TAMVEX_TEST_CLASS(SettingsStoreTest)
#include "SettingsStoreTest.moc"
