#include "WindowFixture.h"
#include "cli/SettingsCommands.h"
#include "history/HistoryDB.h"
#include "platform/LoginItem.h"
#include "shell/Migration.h"
#include "shell/QuitController.h"
#include "shell/SettingsStore.h"
#include "support/TestMain.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;
namespace K = SettingsKeys;

namespace {

/// Answers with the buttons it is given, in order, and keeps every alert it was shown.
class ScriptedAlerts final : public MigrationAlerts {
public:
    int run(const MigrationAlert& alert) override {
        shown.append(alert);
        return answers.isEmpty() ? 1000 : answers.takeFirst();
    }
    QList<int> answers;
    QList<MigrationAlert> shown;
};

QJsonObject fullPayload() {
    return {{"version", 1},
            {"exportedAt", "2026-03-01T10:00:00Z"},
            {"fromBundleId", "ru.sorvel.app"},
            {"bearerToken", "old-token"},
            {"deviceId", "DEV-1"},
            {"settings", QJsonObject{{"useFnHotkey", false},
                                     {"useEmbeddedKey", false},
                                     {"preset", "cheap"},
                                     {"useCases", QJsonArray{"docs", "poetry", "ai"}},
                                     {"customModelId", "my/model"},
                                     {"showInDock", true},
                                     {"launchAtLogin", false},
                                     {"cmdQBehavior", "quit"},
                                     {"onboardingCompleted", true},
                                     {"firstLaunchDate", "2025-01-02T03:04:05Z"},
                                     {"totalSpentUSD", 1.5},
                                     {"totalRequests", 42},
                                     {"lastRequestAt", "2026-02-28T12:00:00Z"}}}};
}

struct Rig {
    Rig() : migration(*f.state, alerts) {}
    void write(const QByteArray& body) {
        if (!writeFile(migration.exportFile(), body))
            throw std::runtime_error("cannot write the export");
    }
    void write(const QJsonObject& o) { write(QJsonDocument(o).toJson()); }
    bool exportExists() { return QFileInfo::exists(migration.exportFile()); }
    SettingsStore& settings() { return f.state->settings(); }

    AppFixture f;
    ScriptedAlerts alerts;
    Migration migration;
};

} // namespace

// The settings store, the settings command, the quit choice, and the import of an earlier installation.
class SettingsTest : public QObject {
    Q_OBJECT

    struct Fixture {
        TestEnv env;
        ManualClock clock{QDateTime(QDate(2026, 1, 31), QTime(23, 30), Qt::LocalTime)};
        AutostartLoginItem login{env.paths.autostartEntry(), "/usr/bin/tamvex"};
        std::unique_ptr<SettingsStore> store() { return std::make_unique<SettingsStore>(*env.defaults, clock, login); }
    };

private slots:
    void initTestCase() {
        qputenv("TAMVEX_MAIN_URL", "http://127.0.0.1:9"); // the imported token's refresh goes nowhere
    }

    void migrationOfAFullFileOnAFirstStart() {
        Rig rig;
        QVERIFY(rig.migration.exportFile().endsWith("/Sorvel/migrate-tamv.json"));
        rig.migration.offerMigration(); // no file yet: nothing to offer
        QVERIFY(rig.alerts.shown.isEmpty());
        rig.settings().setLaunchAtLogin(true);
        QVERIFY(QFileInfo::exists(rig.f.env.paths.autostartEntry()));
        rig.write(fullPayload());
        rig.migration.offerMigration();

        QCOMPARE(rig.alerts.shown.size(), 2);
        QCOMPARE(rig.alerts.shown[0].message, QString("Нашли вашу Sorvel-установку"));
        QVERIFY(!rig.exportExists());
        SettingsStore& s = rig.settings();
        QVERIFY(!s.useFnHotkey() && !s.useEmbeddedKey() && s.showInDock() && s.onboardingCompleted());
        QCOMPARE(s.preset(), PipelinePreset::cheap);
        QCOMPARE(s.useCases(), (QSet<UseCase>{UseCase::docs, UseCase::ai}));
        QCOMPARE(s.customModelId(), QString("my/model"));
        QCOMPARE(s.cmdQBehavior(), SettingsStore::CmdQBehavior::quit);
        QVERIFY(!QFileInfo::exists(rig.f.env.paths.autostartEntry())); // launch at login off
        QCOMPARE(rig.f.state->account().accessToken(), std::optional<QString>("old-token"));
        Defaults& d = *rig.f.env.defaults;
        QCOMPARE(d.readString(SettingsKeys::deviceId).valueOr(""), QString("DEV-1"));
        QCOMPARE(d.readDouble(SettingsKeys::totalSpentUSD).valueOr(0), 1.5);
        QCOMPARE(d.readInt(SettingsKeys::totalRequests).valueOr(0), qint64(42));
        QVERIFY(d.readDate(SettingsKeys::lastRequestAt).present());
        QCOMPARE(s.totalSpentUSD(), 0.0); // the store keeps its old figure until the next start
        spinUntil([&] { return !rig.f.state->account().isRefreshing(); });
    }

    void migrationOutcomes_data() {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("closing"); // the closing alert's informative text, or its start
        QTest::addColumn<bool>("fileStays");
        QTest::addColumn<bool>("settingsChanged");
        QJsonObject tooNew = fullPayload();
        tooNew["version"] = 2;
        QJsonObject noDate = fullPayload();
        noDate.remove("exportedAt");
        QJsonObject minimal = fullPayload();
        minimal["bearerToken"] = "";
        minimal["historyDBPath"] = "/nonexistent/history.db";
        QJsonObject settings = minimal["settings"].toObject();
        settings["preset"] = "turbo";
        settings["cmdQBehavior"] = "explode";
        minimal["settings"] = settings;
        const QString corrupt = "Файл переноса повреждён: не удалось распарсить migrate-tamv.json";
        QTest::newRow("newer format") << QJsonDocument(tooNew).toJson()
                                      << "У вас более новый формат экспорта (v2, мы поддерживаем v1). Обновите "
                                         "Tamvex до последней версии."
                                      << true << false;
        QTest::newRow("invalid JSON") << QByteArray("{not json") << corrupt << false << false;
        QTest::newRow("no exportedAt") << QJsonDocument(noDate).toJson() << corrupt << false << false;
        QTest::newRow("empty token, unknown values, no old database")
            << QJsonDocument(minimal).toJson()
            << "История, аккаунт и настройки на месте. Старый Sorvel можно удалить из списка программ." << false
            << true;
    }

    void migrationOutcomes() {
        QFETCH(QByteArray, file);
        QFETCH(QString, closing);
        QFETCH(bool, fileStays);
        QFETCH(bool, settingsChanged);
        Rig rig;
        rig.f.state->account().setSession("present", UserDTO{1, "+7", 0, 0});
        rig.settings().setCmdQBehavior(SettingsStore::CmdQBehavior::minimize);
        rig.write(file);
        rig.migration.offerMigration();
        QCOMPARE(rig.alerts.shown.size(), 2);
        QCOMPARE(rig.alerts.shown[1].informativeText, closing);
        QCOMPARE(rig.exportExists(), fileStays);
        QCOMPARE(rig.settings().useEmbeddedKey(), !settingsChanged);
        // Unknown preset and behaviour, and an empty token, leave what was there.
        QCOMPARE(rig.settings().preset(), PipelinePreset::fast);
        QCOMPARE(rig.settings().cmdQBehavior(), SettingsStore::CmdQBehavior::minimize);
        QCOMPARE(rig.f.state->account().accessToken(), std::optional<QString>("present"));
        if (fileStays) { // offered again at the next start
            rig.alerts.answers = {1001};
            rig.migration.offerMigration();
            QCOMPARE(rig.alerts.shown.size(), 3);
            QVERIFY(!rig.exportExists()); // "Начать с нуля" ends it
        }
    }

    void migrationCopiesTheEarlierDatabaseWithItsWal() {
        Rig rig;
        QTemporaryDir old;
        const QString oldPath = old.filePath("history.db");
        HistoryDB oldDb(oldPath);
        oldDb.upsert(entryAt(QDateTime::currentDateTimeUtc(),
                             "из старой базы")); // stays in the WAL while the connection is open
        QVERIFY(QFileInfo::exists(oldPath + "-wal"));

        // An existing database is never overwritten, even an empty one.
        LogCapture log;
        rig.migration.copyHistoryDB(oldPath);
        QVERIFY(log.has("Migration: history.db уже существует в Tamv/, пропускаем копию"));

        const QString target = rig.f.env.paths.dataFile("history.db");
        for (const char* suffix : {"", "-wal", "-shm"})
            QFile::remove(target + suffix);
        rig.migration.copyHistoryDB(oldPath);
        QVERIFY(QFileInfo::exists(target + "-wal"));
        HistoryDB copy(target);
        QCOMPARE(copy.fetch().value(0).text, QString("из старой базы"));
    }

    void wrongTypedAndUnknownValues() {
        Fixture f;
        Defaults& d = *f.env.defaults;
        d.setString(K::useFnHotkey, "no");
        d.setString(K::localSpeechDetection, "off");
        d.setString(K::onboardingCompleted, "true");
        d.setString(K::preset, "turbo");
        d.setString(K::cmdQBehavior, "explode");
        d.setStringArray(K::useCases, {"ai", "foo"});
        d.setString(K::lastRequestAt, "2026-01-01T00:00:00Z");
        d.setString(K::remainingCreditsUSD, "lots");
        d.setString(K::totalSpentUSD, "12");
        auto s = f.store();
        QVERIFY(s->useFnHotkey() && s->localSpeechDetection());
        QVERIFY(!s->onboardingCompleted());
        QCOMPARE(s->preset(), PipelinePreset::fast);
        QCOMPARE(s->cmdQBehavior(), SettingsStore::CmdQBehavior::ask);
        QCOMPARE(s->useCases(), QSet<UseCase>{UseCase::ai});
        QVERIFY(!s->lastRequestAt());
        // Present but unreadable as a number: a value of zero, not no value.
        QCOMPARE(s->remainingCreditsUSD(), std::optional<double>(0.0));
        QCOMPARE(s->totalSpentUSD(), 0.0);
        QCOMPARE(d.readString(K::preset).value, QString("turbo")); // reading rewrites nothing
    }

    void assignmentsPersistAcrossARestart() {
        Fixture f;
        {
            auto s = f.store();
            s->setApiKey("  sk-1 ");
            s->setUseCases({UseCase::writing, UseCase::messengers, UseCase::ai, UseCase::docs});
            s->setCmdQBehavior(SettingsStore::CmdQBehavior::minimize);
            s->setLastShortTapTipAt(f.clock.currentDateTime());
            s->setLastIdleNudgeAt(f.clock.currentDateTime());
            s->setLastIdleNudgeAt(std::nullopt);
        }
        f.env.reopenDefaults();
        auto s = f.store();
        QCOMPARE(s->apiKey(), QString("  sk-1 "));
        // Sorted, so that the file does not change with the set's order.
        QCOMPARE(f.env.defaults->readStringArray(K::useCases).value,
                 (QStringList{"ai", "docs", "messengers", "writing"}));
        QCOMPARE(s->cmdQBehavior(), SettingsStore::CmdQBehavior::minimize);
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
        LogCapture log;
        auto s = f.store();
        const QString entry = f.env.paths.autostartEntry();
        s->syncLaunchAtLogin();
        QVERIFY(fileBytes(entry).contains("Exec=/usr/bin/tamvex"));
        s->setLaunchAtLogin(false);
        QVERIFY(!QFile::exists(entry));

        // A file where the autostart folder should be makes registration fail: logged, the choice kept.
        QVERIFY(QDir(f.env.paths.autostartDir).removeRecursively() && writeFile(f.env.paths.autostartDir, {}));
        s->setLaunchAtLogin(true);
        QVERIFY(s->launchAtLogin());
        QCOMPARE(f.env.defaults->readBool(K::launchAtLogin).value, true);
        QVERIFY(log.hasPrefix("Launch at login register failed: Не удалось"));
    }

    // `tamvex settings`: a refused value leaves the file as it was, and the whole listing shows
    // the API key only masked.
    void settingsCommandByKey() {
        TestEnv env; // `tamvex settings` finds its file through XDG_CONFIG_HOME
        qputenv("XDG_CONFIG_HOME", QFileInfo(env.paths.configDir).path().toUtf8());
        auto unset = qScopeGuard([] { qunsetenv("XDG_CONFIG_HOME"); });
        const auto run = [](const QStringList& args, QString input = {}) {
            return captureCommand([&](QTextStream& out, QTextStream& err) {
                QTextStream in(&input);
                return runSettingsCommand(args, in, out, err);
            });
        };
        const QString key = "sk-or-v1-0123456789abcdef";
        QCOMPARE(run({"set", "api_key", "-"}, key + "\n").code, 0);
        QCOMPARE(run({"set", "pipeline_preset", "cheap"}).code, 0);
        const QByteArray before = fileBytes(env.paths.settingsFile());
        // A value out of range; nothing on standard input for the key.
        for (const QStringList& refused :
             {QStringList{"set", "pipeline_preset", "turbo"}, QStringList{"set", "api_key", "-"}})
            QCOMPARE(run(refused).code, 2);
        QCOMPARE(fileBytes(env.paths.settingsFile()), before);
        const CommandOutput listing = run({"get"});
        QVERIFY2(listing.out.contains("openrouter_api_key = …cdef\n") && !listing.out.contains(key),
                 qPrintable(listing.out));
    }

    // Minimizing closes the windows and takes the application off the task bar.
    void quitFollowsTheBehaviourAndTheAnswer() {
        using B = SettingsStore::CmdQBehavior;
        using A = QuitController::Answer;
        const struct {
            const char* name;
            B behaviour;
            QuitController::DialogResult answer;
            bool terminateNow;
            int terminated, closed;
            B stored;
        } cases[] = {
            {"quit: at once, no dialog", B::quit, {}, true, 0, 0, B::quit},
            {"minimize: never ends", B::minimize, {}, false, 0, 1, B::minimize},
            {"ask, Выйти", B::ask, {A::quit, false}, false, 1, 0, B::ask},
            {"ask, Выйти, box on", B::ask, {A::quit, true}, false, 1, 0, B::quit},
            {"ask, Свернуть", B::ask, {A::minimize, false}, false, 0, 1, B::ask},
            {"ask, Свернуть, box on", B::ask, {A::minimize, true}, false, 0, 1, B::minimize},
            {"ask, Отмена, box on stores nothing", B::ask, {A::cancel, true}, false, 0, 0, B::ask},
        };
        for (const auto& c : cases) {
            Fixture f;
            auto s = f.store();
            s->setCmdQBehavior(c.behaviour);
            s->setShowInDock(true);
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
            QVERIFY2(s->cmdQBehavior() == c.stored && s->showInDock() == (c.closed == 0), qPrintable(what));
        }
    }
};

TAMVEX_TEST_CLASS(SettingsTest)
#include "SettingsTest.moc"
