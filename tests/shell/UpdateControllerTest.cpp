#include "shell/UpdateController.h"
#include "DevServer.h"
#include "account/AnalyticsService.h"
#include "account/Network.h"
#include "support/TestMain.h"
#include "support/TestSupport.h"

#include <QSignalSpy>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;
using devserver::Script;

namespace {

QByteArray feed(const QStringList& builds) {
    QByteArray items;
    for (const QString& b : builds)
        items += QString(R"(<item><title>Tamvex</title><sparkle:version>%1</sparkle:version>
<sparkle:shortVersionString>0.%1.0</sparkle:shortVersionString>
<sparkle:releaseNotesLink>https://example.org/notes/%1</sparkle:releaseNotesLink>
<description><![CDATA[<p>Быстрее &amp; точнее</p>]]></description>
<enclosure url="https://example.org/tamvex_%1.deb" length="1" type="application/octet-stream"/></item>)")
                     .arg(b)
                     .toUtf8();
    return R"(<?xml version="1.0"?><rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel>)" +
           items + "</channel></rss>";
}

class FakePrompter final : public UpdatePrompter {
public:
    bool offerUpdate(const UpdateItem& item, const QString&) override {
        offered.append(item);
        return accept;
    }
    void showUpToDate(const QString&) override { ++upToDate; }
    void showCheckFailed(const QString& message) override { failures.append(message); }
    void openDownload(const QUrl& url) override { opened.append(url); }
    bool accept = true;
    QList<UpdateItem> offered;
    int upToDate = 0;
    QStringList failures;
    QList<QUrl> opened;
};

struct Rig {
    devserver::DevServer server;
    const quint16 port = server.start(); // before the controller reads the address
    ManualClock clock;
    TestEnv env;
    FakePrompter prompter;
    UpdateController updates{clock,
                             *env.defaults,
                             sharedNetworkManager(),
                             prompter,
                             QUrl(server.baseUrl().toString() + "/appcast.xml"),
                             "0.5.0",
                             "5"};
    void serve(const QByteArray& body, int delayMs = 0) {
        server.script("/appcast.xml", Script{200, body, "application/rss+xml", delayMs});
    }
    void checkFromMenu() {
        QSignalSpy done(&updates, &UpdateController::checkFinished);
        updates.checkForUpdates();
        QVERIFY(done.count() == 1 || done.wait(10000));
    }
    int fetches() { return server.received("/appcast.xml").size(); }
};

} // namespace

class UpdateControllerTest : public QObject {
    Q_OBJECT
private slots:
    void feedAgainstOurBuild_data() {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("offered"); // the build offered, or "" for none
        QTest::addColumn<bool>("upToDate");
        QTest::addColumn<bool>("failed");
        QTest::newRow("newer build") << feed({"4", "6", "5"}) << "6" << false << false;
        QTest::newRow("newer by its second number") << feed({"5.1"}) << "5.1" << false << false;
        QTest::newRow("same build") << feed({"5"}) << "" << true << false;
        QTest::newRow("older build") << feed({"3", "4"}) << "" << true << false;
        QTest::newRow("no release") << feed({}) << "" << true << false;
        QTest::newRow("malformed") << QByteArray("<rss><channel><item>") << "" << false << true;
        QTest::newRow("not a feed") << QByteArray("{\"json\": true}") << "" << false << true;
    }

    void feedAgainstOurBuild() {
        QFETCH(QByteArray, body);
        QFETCH(QString, offered);
        QFETCH(bool, upToDate);
        QFETCH(bool, failed);
        Rig rig;
        QSignalSpy tracked(&AnalyticsService::shared(), &AnalyticsService::tracked);
        rig.serve(body);
        rig.checkFromMenu();
        QCOMPARE(rig.prompter.offered.size(), offered.isEmpty() ? 0 : 1);
        QCOMPARE(rig.prompter.upToDate, upToDate ? 1 : 0);
        QCOMPARE(rig.prompter.failures.size(), failed ? 1 : 0);
        QCOMPARE(tracked.size(), offered.isEmpty() ? 0 : 1);
        if (!offered.isEmpty()) {
            const UpdateItem& item = rig.prompter.offered[0];
            QCOMPARE(item.version, offered);
            QCOMPARE(item.notes, QString("Быстрее & точнее"));
            QCOMPARE(rig.prompter.opened, QList<QUrl>{QUrl("https://example.org/tamvex_" + offered + ".deb")});
            QCOMPARE(tracked[0][0].toString(), QString("update_available_shown"));
            QCOMPARE(tracked[0][1].toMap(), (QVariantMap{{"current_version", "0.5.0"},
                                                         {"current_build", "5"},
                                                         {"new_version", "0." + offered + ".0"},
                                                         {"new_build", offered}}));
        }
    }

    void backgroundChecksSayNothingButAFind() {
        Rig rig;
        rig.serve(QByteArray("garbage"));
        syncWait(rig.updates.check(false));
        QVERIFY(rig.prompter.failures.isEmpty() && rig.prompter.upToDate == 0);
        rig.prompter.accept = false; // "Позже"
        rig.serve(feed({"9"}));
        syncWait(rig.updates.check(false));
        QCOMPARE(rig.prompter.offered.size(), 1);
        QVERIFY(rig.prompter.opened.isEmpty());
    }

    void feedThatNeverAnswersGivesUpOnTheClock() {
        Rig rig;
        rig.serve(feed({"9"}), 60000);
        QSignalSpy done(&rig.updates, &UpdateController::checkFinished);
        rig.updates.checkForUpdates();
        QVERIFY(spinUntil([&] { return rig.fetches() == 1; }));
        rig.clock.advance(29.9);
        QCoreApplication::processEvents();
        QCOMPARE(done.count(), 0);
        rig.clock.advance(0.1);
        QVERIFY(done.count() == 1 || done.wait(5000));
        QCOMPARE(rig.prompter.failures.size(), 1);
    }

    void onceADay() {
        Rig rig;
        rig.serve(feed({"5"}));
        const QUrl url(rig.server.baseUrl().toString() + "/appcast.xml");
        const auto fetchesAfter = [&](double seconds, int expected) {
            rig.clock.advance(seconds);
            return spinUntil([&] { return rig.fetches() == expected; }, 3000) && rig.fetches() == expected;
        };
        {
            UpdateController first(rig.clock, *rig.env.defaults, sharedNetworkManager(), rig.prompter, url, "0.5.0",
                                   "5");
            first.start();
            QVERIFY(fetchesAfter(59.9, 0));
            QVERIFY(fetchesAfter(0.1, 1)); // a minute after launch
            QVERIFY(fetchesAfter(86399.9, 1));
            QVERIFY(fetchesAfter(0.1, 2)); // a day later
        }
        // Restarted an hour later: the next check comes a day after the last one kept in the settings.
        rig.clock.advance(3600.0);
        UpdateController second(rig.clock, *rig.env.defaults, sharedNetworkManager(), rig.prompter, url, "0.5.0", "5");
        second.start();
        QVERIFY(fetchesAfter(60.0, 2));
        QVERIFY(fetchesAfter(86400.0 - 3600.0 - 60.0 - 0.1, 2));
        QVERIFY(fetchesAfter(0.1, 3));
        QCOMPARE(rig.prompter.offered.size() + rig.prompter.upToDate + rig.prompter.failures.size(), qsizetype(0));
    }
};

TAMVEX_TEST_CLASS(UpdateControllerTest)
#include "UpdateControllerTest.moc"
