#include "pipelines/BackendSelector.h"
#include "support/ServiceFixture.h"
#include "support/TestMain.h"

#include <QJsonDocument>
#include <QTest>
#include <QTimeZone>

using namespace tamvex;
using namespace tamvex::test;
using devserver::Script;

namespace {

const QUrl kMain("http://main.invalid");
const QUrl kStt("http://stt.invalid");

// A selector whose probes answer from a table and are counted.
struct Scripted {
    TestEnv sandbox;
    ManualClock clock;
    std::unique_ptr<BackendSelector> selector;
    double mainSec = 0.1;
    double sttSec = 0.1;
    int probes = 0;

    Scripted() { reopen(); }
    void reopen() {
        selector = std::make_unique<BackendSelector>(*sandbox.defaults, clock, sharedNetworkManager(),
                                                     ServiceHosts{kMain, kStt, kMain, kMain});
        selector->setLatencyMeasurer([this](QUrl url) -> QCoro::Task<double> {
            ++probes;
            co_return url == kMain ? mainSec : sttSec;
        });
    }
    void store(const QString& endpoint, const QDateTime& at) {
        sandbox.defaults->setData(BackendSelector::cacheKey,
                                  BackendSelector::CachedChoice{endpoint, at, 10, 5}.encode());
        reopen();
    }
    QString pickAfterRefresh(double main, double stt) {
        mainSec = main;
        sttSec = stt;
        syncWait(selector->refresh());
        return selector->current()->endpoint;
    }
};

} // namespace

class BackendSelectorTest : public QObject {
    Q_OBJECT
private slots:
    void theSpeechHostMustBeMoreThan30msFaster() {
        Scripted s;
        QCOMPARE(s.pickAfterRefresh(0.100, 0.0715), QString("main"));
        QCOMPARE(s.pickAfterRefresh(0.100, 0.069), QString("stt"));
        QCOMPARE(s.pickAfterRefresh(0.25 + BackendSelector::sttMarginSec, 0.25), QString("main")); // exactly equal
        QCOMPARE(s.pickAfterRefresh(-1.0, 0.5), QString("stt"));
        QCOMPARE(s.pickAfterRefresh(-1.0, -1.0), QString("main"));
        QCOMPARE(s.pickAfterRefresh(0.01, -1.0), QString("main"));
    }

    void aPickIsLoggedAndPersistedWith2001Dates() {
        Scripted s;
        s.pickAfterRefresh(0.5, 0.25);

        const QByteArray stored = s.sandbox.defaults->readData(BackendSelector::cacheKey).value;
        const QDateTime epoch(QDate(2001, 1, 1), QTime(0, 0), QTimeZone::utc());
        QCOMPARE(QJsonDocument::fromJson(stored).object(),
                 (QJsonObject{{"endpoint", "stt"},
                              {"mainLatencyMs", 500},
                              {"measuredAt", epoch.msecsTo(s.clock.currentDateTime()) / 1000.0},
                              {"sttLatencyMs", 250}}));

        // A relaunch reads the pick back and uses it as if just made.
        s.sandbox.reopenDefaults();
        s.reopen();
        QCOMPARE(s.selector->current()->endpoint, QString("stt"));
        QCOMPARE(s.selector->currentEndpoint(), kStt);
        QCOMPARE(s.probes, 2);
    }

    void aPickIsGoodFor600Seconds() {
        Scripted s;
        const QDateTime now = s.clock.currentDateTime();
        // Stale at 600 s: both hosts are probed in the background. A date in the future (clock set
        // back) counts as fresh; any other endpoint text is "main", while fresh.
        const std::tuple<QString, int, QUrl, int> cases[] = {
            {"stt", -599, kStt, 0}, {"stt", -600, kMain, 2}, {"stt", 3600, kStt, 0}, {"eu-west", 0, kMain, 0}};
        for (const auto& [endpoint, age, expected, probes] : cases) {
            s.probes = 0;
            s.store(endpoint, now.addSecs(age));
            QCOMPARE(s.selector->currentEndpoint(), expected);
            QCOMPARE(s.probes, probes);
        }
    }

    void storedGarbageIsNoPickUntilOverwritten() {
        Scripted s;
        // What does not decode is ServicesTest's (hostile bodies); here, that it is no pick and is left alone.
        const QByteArray junk(R"({"endpoint":"stt"})");
        s.sandbox.defaults->setData(BackendSelector::cacheKey, junk);
        s.reopen();
        QVERIFY(!s.selector->current().has_value());
        QCOMPARE(s.sandbox.defaults->readData(BackendSelector::cacheKey).value, junk);
        s.sttSec = 0.0;
        s.mainSec = 1.0;
        QCOMPARE(s.selector->currentEndpoint(), kMain);
        QVERIFY(spinUntil([&] { return s.selector->current().has_value(); }));
        QVERIFY(BackendSelector::CachedChoice::decode(s.sandbox.defaults->readData(BackendSelector::cacheKey).value));
        QCOMPARE(s.selector->currentEndpoint(), kStt);

        // A value of another type under the key is no pick either.
        s.sandbox.defaults->setString(BackendSelector::cacheKey, "stt");
        s.reopen();
        QVERIFY(!s.selector->current().has_value());
    }

    void anUnhealthySpeechHostIsAvoidedFor300SecondsWithoutProbes() {
        Scripted s;
        s.store("stt", s.clock.currentDateTime());
        s.selector->markSTTUnhealthy();
        QCOMPARE(s.selector->currentEndpoint(), kMain);
        s.clock.advance(299.99);
        QCOMPARE(s.selector->currentEndpoint(), kMain);
        QCOMPARE(s.probes, 0);
        // The mark is over and the pick is still fresh: back to the speech host without measuring.
        s.clock.advance(0.01);
        QCOMPARE(s.selector->currentEndpoint(), kStt);
        QCOMPARE(s.probes, 0);

        // Stale pick during the mark: still no probe.
        s.selector->markSTTUnhealthy();
        s.clock.advance(BackendSelector::cacheTTL);
        s.selector->markSTTUnhealthy();
        QCOMPARE(s.selector->currentEndpoint(), kMain);
        QCOMPARE(s.probes, 0);
    }

    void healthProbesOverHttp() {
        ServiceFixture mainHost;
        devserver::DevServer sttServer;
        QVERIFY(sttServer.start() != 0);
        TestEnv sandbox;
        BackendSelector selector(*sandbox.defaults, mainHost.clock, mainHost.network,
                                 ServiceHosts{mainHost.server.baseUrl(), sttServer.localhostUrl(),
                                              mainHost.server.baseUrl(), mainHost.server.baseUrl()});

        // Latency is read from the clock between sending and the answer.
        mainHost.server.script("/api/health", Script{0, {}, {}, 300, 1});
        auto probe = selector.measureLatency(mainHost.server.baseUrl());
        QVERIFY(spinUntil([&] { return mainHost.server.received("/api/health").size() == 1; }));
        mainHost.clock.advance(0.25);
        QCOMPARE(syncWait(std::move(probe)), 0.25);
        QVERIFY(!mainHost.server.received("/api/health").at(0).hasHeader("Authorization"));

        // Only exactly 200 counts; so does a dead host and the 3 s limit.
        sttServer.script("/api/health", Script{204, ""});
        QCOMPARE(syncWait(selector.measureLatency(sttServer.localhostUrl())), -1.0);
        QCOMPARE(syncWait(selector.measureLatency(QUrl("http://127.0.0.1:1"))), -1.0);

        mainHost.server.script("/api/health", Script{0, {}, {}, 5000, 1});
        auto slow = selector.measureLatency(mainHost.server.baseUrl());
        QVERIFY(spinUntil([&] { return mainHost.server.received("/api/health").size() == 2; }));
        mainHost.clock.advance(2.99);
        QCoreApplication::processEvents();
        QVERIFY(!slow.isReady());
        mainHost.clock.advance(0.01);
        QCOMPARE(syncWait(std::move(slow), 2000), -1.0);

        // A whole refresh: the speech host is down, so main wins with stt at -1.
        syncWait(selector.refresh());
        QCOMPARE(selector.current(),
                 std::optional(BackendSelector::CachedChoice{"main", mainHost.clock.currentDateTime(), 0, -1}));
    }

    // Last: it leaves overrides in this process's environment.
    void theEnvironmentOverridesTheCompiledHosts() {
        for (const char* name :
             {"TAMVEX_MAIN_URL", "TAMVEX_STT_URL", "TAMVEX_OPENROUTER_URL", "TAMVEX_YANDEX_OAUTH_URL"})
            qunsetenv(name);
        const ServiceHosts compiled = ServiceHosts::fromEnvironment();
        QCOMPARE(compiled.main, QUrl(TAMVEX_DEFAULT_MAIN_URL));
        QCOMPARE(compiled.openRouter, QUrl(TAMVEX_DEFAULT_OPENROUTER_URL));

        qputenv("TAMVEX_MAIN_URL", "http://127.0.0.1:8080/ignored/path");
        qputenv("TAMVEX_STT_URL", " http://localhost:9 ");
        qputenv("TAMVEX_OPENROUTER_URL", "not a url");
        qputenv("TAMVEX_YANDEX_OAUTH_URL", "ftp://example.com");
        LogCapture log;
        const ServiceHosts hosts = ServiceHosts::fromEnvironment();
        QCOMPARE(hosts.main, QUrl("http://127.0.0.1:8080"));
        QCOMPARE(hosts.stt, QUrl("http://localhost:9"));
        // Bad overrides keep the compiled host and say why.
        QCOMPARE(hosts.openRouter, compiled.openRouter);
        QCOMPARE(hosts.yandexOAuth, compiled.yandexOAuth);
        QCOMPARE(log.lines().size(), 2);
        QVERIFY(log.hasPrefix("ServiceHosts: ignoring TAMVEX_OPENROUTER_URL=not a url"));

        QCOMPARE(ServiceHosts::join(hosts.main, "/api/me").toString(), QString("http://127.0.0.1:8080/api/me"));
        QCOMPARE(ServiceHosts::join(QUrl("https://h.example/base/"), "/api/me").toString(),
                 QString("https://h.example/base/api/me"));
    }
};

TAMVEX_TEST_CLASS(BackendSelectorTest)
#include "BackendSelectorTest.moc"
