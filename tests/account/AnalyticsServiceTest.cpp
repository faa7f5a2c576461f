#include "account/AnalyticsService.h"
#include "account/AccountStore.h"
#include "account/SorvelAPI.h"
#include "support/ServiceFixture.h"
#include "support/TestMain.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>
#include <QThread>

using namespace tamvex;
using namespace tamvex::test;
using devserver::Script;

class AnalyticsServiceTest : public QObject {
    Q_OBJECT

    struct Env {
        ServiceFixture f;
        TestEnv sandbox;
        Env() { AnalyticsService::shared().configure(*sandbox.defaults, f.network, f.clock, f.server.baseUrl()); }
        ~Env() {
            // Sends still in flight use this clock: let them end before it goes.
            f.clock.advance(AnalyticsService::resourceTimeoutSec);
            spinUntil([] { return AnalyticsService::shared().pendingSends() == 0; }, 5000);
            AnalyticsService::shared().unconfigure();
            AnalyticsService::shared().setAccount(nullptr);
        }
        // Waits for the n-th event to reach the server and gives its body.
        QJsonObject event(int n) {
            if (!spinUntil([&] { return f.server.received("/api/analytics/event").size() > n; }))
                throw std::runtime_error("event did not arrive");
            return QJsonDocument::fromJson(f.server.received("/api/analytics/event").at(n).body).object();
        }
    };

private slots:
    void firstRunMakesOneLowerCaseDeviceId() {
        TestEnv sandbox;
        const QString id = AnalyticsService::ensureDeviceId(*sandbox.defaults);
        QVERIFY(
            QRegularExpression("^[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}$").match(id).hasMatch());
        QCOMPARE(sandbox.defaults->readString("sorvel_device_id").value, id);
        sandbox.reopenDefaults();
        QCOMPARE(AnalyticsService::ensureDeviceId(*sandbox.defaults), id);
    }

    void wireBodiesHoldOnlyWhatIsThere() {
        Env env;
        const QString device = AnalyticsService::shared().deviceId();

        AnalyticsService::track("retry_clicked");
        QCOMPARE(env.event(0), (QJsonObject{{"event", "retry_clicked"}, {"device_id", device}}));

        // A null property disappears, and with it the now empty object.
        AnalyticsService::track("section_opened", {{"section", QVariant::fromValue(nullptr)}});
        QCOMPARE(env.event(1), (QJsonObject{{"event", "section_opened"}, {"device_id", device}}));

        // Kept as they are: text (also empty), integer, float, boolean; an array becomes its text.
        AnalyticsService::track("transcription_success",
                                {{"preset", "Быстрая"},
                                 {"note", QString()},
                                 {"word_count", 12},
                                 {"client_latency_ms", qint64(1234567890123)},
                                 {"cost_usd", 0.0025},
                                 {"mode_proxy", true},
                                 {"apps", QStringList{"a", "b"}},
                                 {"gone", QVariant()}},
                                {{"plan", "free"}});
        const QJsonObject expected{{"event", "transcription_success"},
                                   {"device_id", device},
                                   {"event_properties", QJsonObject{{"preset", "Быстрая"},
                                                                    {"note", ""},
                                                                    {"word_count", 12},
                                                                    {"client_latency_ms", qint64(1234567890123)},
                                                                    {"cost_usd", 0.0025},
                                                                    {"mode_proxy", true},
                                                                    {"apps", "[\"a\", \"b\"]"}}},
                                   {"user_properties", QJsonObject{{"plan", "free"}}}};
        QCOMPARE(env.event(2), expected);
        const auto sent = env.f.server.received("/api/analytics/event").at(2);
        QCOMPARE(sent.header("Content-Type"), QByteArray("application/json"));
        QVERIFY(!sent.hasHeader("Authorization")); // no account: no header
    }

    void authorizationFollowsTheAccountAtReportTime() {
        Env env;
        SorvelAPI api(env.f.network, env.f.clock, *env.sandbox.defaults, env.f.server.baseUrl());
        auto store = std::make_unique<AccountStore>(*env.sandbox.defaults, api);
        AnalyticsService::shared().setAccount(store.get());

        AnalyticsService::track("signed_out_event");
        store->setSession("tok-9", UserDTO{1, "+7", 1, 1});
        AnalyticsService::track("signed_in_event");
        store.reset(); // the account is held weakly
        AnalyticsService::track("after_store_gone");

        QVERIFY(spinUntil([&] { return env.f.server.received("/api/analytics/event").size() == 3; }));
        QMap<QString, devserver::Received> byEvent;
        for (const auto& r : env.f.server.received("/api/analytics/event"))
            byEvent.insert(QJsonDocument::fromJson(r.body).object().value("event").toString(), r);
        QVERIFY(!byEvent["signed_out_event"].hasHeader("Authorization"));
        QCOMPARE(byEvent["signed_in_event"].header("Authorization"), QByteArray("Bearer tok-9"));
        QVERIFY(!byEvent["after_store_gone"].hasHeader("Authorization"));
    }

    void trackNeverWaitsAndGivesUpAtItsOwnLimits() {
        Env env;
        // Only this server's replies count; earlier tests' sends may still be ending.
        QList<QNetworkReply*> finishedReplies;
        connect(&env.f.network, &QNetworkAccessManager::finished, &env.f.server, [&](QNetworkReply* reply) {
            if (reply->url().port() == env.f.server.baseUrl().port() || reply->url().port() == 1)
                finishedReplies.append(reply);
        });
        // The server sits on the answer; no bytes move after the upload.
        env.f.server.script("/api/analytics/event", Script{200, "{}", "application/json", 5000});
        QSignalSpy tracked(&AnalyticsService::shared(), &AnalyticsService::tracked);
        AnalyticsService::track("slow");
        QCOMPARE(tracked.count(), 1); // emitted synchronously, nothing awaited
        QVERIFY(spinUntil([&] { return env.f.server.received("/api/analytics/event").size() == 1; }));
        env.f.clock.advance(AnalyticsService::requestTimeoutSec - 0.01);
        QCoreApplication::processEvents();
        QCOMPARE(finishedReplies.size(), 0);
        env.f.clock.advance(0.01);
        QVERIFY(spinUntil([&] { return finishedReplies.size() == 1; }, 2000));
        QCOMPARE(finishedReplies.at(0)->error(), QNetworkReply::OperationCanceledError);

        // A dead server and an unserializable value are dropped in silence.
        LogCapture log;
        AnalyticsService::shared().configure(*env.sandbox.defaults, env.f.network, env.f.clock,
                                             QUrl("http://127.0.0.1:1"));
        AnalyticsService::track("nowhere");
        AnalyticsService::track("nan", {{"x", std::nan("")}});
        QVERIFY(spinUntil([&] { return finishedReplies.size() == 2; }, 5000));
        QVERIFY(!spinUntil([&] { return finishedReplies.size() > 2; }, 200));
        QVERIFY(log.lines().isEmpty());
    }

    void reportsFromAnotherThreadArriveOnTheServiceThread() {
        Env env;
        QThread* seenOn = nullptr;
        connect(&AnalyticsService::shared(), &AnalyticsService::tracked, &env.f.server,
                [&](const QString&, const QVariantMap&) { seenOn = QThread::currentThread(); });
        std::unique_ptr<QThread> worker(QThread::create([] { AnalyticsService::track("from_worker"); }));
        worker->start();
        QVERIFY(worker->wait(5000));
        QCOMPARE(env.event(0).value("event").toString(), QString("from_worker"));
        QCOMPARE(seenOn, QThread::currentThread());
    }

    void eventsBeforeConfigureAreSentOnConfigure() {
        AnalyticsService::shared().unconfigure();
        QSignalSpy tracked(&AnalyticsService::shared(), &AnalyticsService::tracked);
        AnalyticsService::track("early", {{"n", 1}});
        for (int i = 0; i < AnalyticsService::maxEarlyEvents; ++i)
            AnalyticsService::track("overflow");
        QCOMPARE(tracked.count(), AnalyticsService::maxEarlyEvents + 1);
        Env env; // configures
        const QJsonObject first = env.event(0);
        QCOMPARE(first.value("event").toString(), QString("early"));
        QCOMPARE(first.value("event_properties").toObject().value("n").toInt(), 1);
        // The kept ones are bounded: the last report beyond the bound is dropped.
        QVERIFY(spinUntil(
            [&] { return env.f.server.received("/api/analytics/event").size() == AnalyticsService::maxEarlyEvents; }));
        QVERIFY(!spinUntil(
            [&] { return env.f.server.received("/api/analytics/event").size() > AnalyticsService::maxEarlyEvents; },
            200));
    }
};

TAMVEX_TEST_CLASS(AnalyticsServiceTest)
#include "AnalyticsServiceTest.moc"
