#include "shell/Migration.h"
#include "account/AccountStore.h"
#include "history/HistoryDB.h"
#include "shell/SettingsStore.h"
#include "support/AppFixture.h"
#include "support/TestMain.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;

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
        QDir().mkpath(QFileInfo(migration.exportFile()).path());
        QFile file(migration.exportFile());
        if (!file.open(QIODevice::WriteOnly) || file.write(body) != body.size())
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

class MigrationTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() {
        qputenv("TAMVEX_MAIN_URL", "http://127.0.0.1:9"); // the imported token's refresh goes nowhere
    }

    void fullFileOnAFirstStart() {
        Rig rig;
        QVERIFY(rig.migration.exportFile().endsWith("/Sorvel/migrate-tamv.json"));
        rig.settings().setLaunchAtLogin(true);
        QVERIFY(QFileInfo::exists(rig.f.env.paths.autostartEntry()));
        rig.write(fullPayload());
        rig.migration.offerMigration();

        QCOMPARE(rig.alerts.shown.size(), 2);
        QCOMPARE(rig.alerts.shown[0].message, QString("Нашли вашу Sorvel-установку"));
        QCOMPARE(rig.alerts.shown[0].buttons, (QStringList{"Перенести и продолжить", "Начать с нуля"}));
        QCOMPARE(rig.alerts.shown[1].message, QString("Перенесли"));
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

    void outcomes_data() {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("closing"); // the closing alert's informative text, or its start
        QTest::addColumn<bool>("fileStays");
        QTest::addColumn<bool>("settingsChanged");
        QJsonObject tooNew = fullPayload();
        tooNew["version"] = 2;
        QJsonObject noDate = fullPayload();
        noDate.remove("exportedAt");
        QJsonObject badType = fullPayload();
        badType["version"] = "1";
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
        QTest::newRow("wrong type") << QJsonDocument(badType).toJson() << corrupt << false << false;
        QTest::newRow("empty token, unknown values, no old database")
            << QJsonDocument(minimal).toJson()
            << "История, аккаунт и настройки на месте. Старый Sorvel можно удалить из списка программ." << false
            << true;
    }

    void outcomes() {
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

    void noFileNoAlert() {
        Rig rig;
        rig.migration.offerMigration();
        QVERIFY(rig.alerts.shown.isEmpty());
    }

    void earlierDatabaseWithItsWal() {
        Rig rig;
        QTemporaryDir old;
        const QString oldPath = old.filePath("history.db");
        HistoryEntry e;
        e.id = QUuid::createUuid();
        e.createdAt = QDateTime::currentDateTimeUtc();
        e.text = "из старой базы";
        HistoryDB oldDb(oldPath);
        oldDb.upsert(e); // stays in the WAL while the connection is open
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
};

TAMVEX_TEST_CLASS(MigrationTest)
#include "MigrationTest.moc"
