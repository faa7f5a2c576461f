#include "account/AnalyticsService.h"
#include "account/SorvelAPI.h"
#include "pipelines/BackendSelector.h"
#include "pipelines/OpenRouterService.h"
#include "support/ProcessFixtures.h"
#include "support/ServiceFixture.h"
#include "support/TestMain.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QNetworkReply>
#include <QProcess>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;

namespace {

HttpAnswer send(const QUrl& url, const QByteArray& verb = "GET", const QByteArray& body = {},
                const QByteArray& authorization = {}) {
    ManualClock clock;
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    if (!authorization.isEmpty())
        request.setRawHeader("Authorization", authorization);
    return syncWait(sendRequest(sharedNetworkManager(), clock, request, verb, body));
}

} // namespace

class DevServerTest : public QObject {
    Q_OBJECT
private slots:
    void signInFlowAgainstTheExecutableSurvivesARestart() {
        QTemporaryDir data;
        QVERIFY(writeFile(data.filePath("accounts.json"), "{}")); // an older file, readable by everyone
        QFile accounts(data.filePath("accounts.json"));
        QVERIFY(accounts.setPermissions(accounts.permissions() | QFileDevice::ReadOther | QFileDevice::ReadGroup));
        QString token;
        ManualClock clock;
        TestEnv sandbox;
        {
            DevServerProcess server(TAMVEX_DEVSERVER_EXE, data.path());
            QVERIFY(server.ok());
            QCOMPARE(server.base.host(), QString("127.0.0.1"));
            SorvelAPI api(sharedNetworkManager(), clock, *sandbox.defaults, server.base);
            const auto code = syncWait(api.requestCode("+79991234567"));
            QVERIFY(code.dev_code.has_value());
            QCOMPARE(code.status, std::optional<QString>("code_sent"));
            QCOMPARE(failureOf<APIError>(api.verify("+79991234567", "wrong"))->status(), 400);
            token = syncWait(api.verify("+79991234567", *code.dev_code)).access_token;
            // It holds the tokens now: the owner's alone.
            QCOMPARE(QFileInfo(accounts).permissions() & ~(QFileDevice::ReadUser | QFileDevice::WriteUser),
                     QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        }
        // Accounts are kept in the data folder.
        DevServerProcess again(TAMVEX_DEVSERVER_EXE, data.path());
        SorvelAPI api(sharedNetworkManager(), clock, *sandbox.defaults, again.base);
        QCOMPARE(syncWait(api.me(token)).user.phone, QString("+79991234567"));
        QCOMPARE(failureOf<APIError>(api.me("stale"))->kind(), APIError::Kind::unauthorized);
    }

    void analyticsModelsAndKeysOfASelfHostedServer() {
        QTemporaryDir data;
        QVERIFY(writeFile(data.filePath("devserver.json"), R"({"openrouter_keys":["sk-from-file"]})"));
        DevServerProcess server(TAMVEX_DEVSERVER_EXE, data.path(), {"--openrouter-key", "sk-from-option"});
        QVERIFY(server.ok());

        TestEnv sandbox;
        ManualClock clock;
        AnalyticsService::shared().configure(*sandbox.defaults, sharedNetworkManager(), clock, server.base);
        AnalyticsService::track("app_launched", {{"version", "0.1.0"}});
        QVERIFY(spinUntil([] { return AnalyticsService::shared().pendingSends() == 0; }));
        AnalyticsService::shared().unconfigure();
        const QList<QByteArray> lines = fileBytes(data.filePath("analytics.jsonl")).split('\n');
        QCOMPARE(lines.size(), 2); // one line and the final newline
        QCOMPARE(QJsonDocument::fromJson(lines[0]).object().value("event").toString(), QString("app_launched"));

        QVERIFY(send(QUrl(server.base.toString() + "/models/..%2Faccounts.json")).body.contains("no such model"));

        // OpenRouter keys from the file and the option, then replaced from outside.
        const QUrl chat(server.base.toString() + "/api/v1/chat/completions");
        auto statusWith = [&](const QByteArray& key) {
            return send(chat, "POST", R"({"model":"m","messages":[]})", "Bearer " + key).status;
        };
        QCOMPARE(statusWith("sk-from-file"), 200);
        QCOMPARE(statusWith("sk-from-option"), 200);
        send(QUrl(server.base.toString() + "/__dev/openrouter-keys"), "POST", R"({"keys":["sk-new"]})");
        QCOMPARE(statusWith("sk-from-file"), 401);
        QCOMPARE(statusWith("sk-new"), 200);
    }

    void theSpeechProxyForwardsToAnUpstreamAndPricesItsAnswer() {
        SelectorEnv env;
        devserver::DevServer& proxy = env.host.server;
        devserver::DevServer upstream;
        QVERIFY(upstream.start() != 0);
        const QByteArray upstreamAnswer =
            R"({"choices":[{"message":{"content":"С апстрима"}}],"usage":{"prompt_tokens":5,"cost":0.002}})";
        upstream.script("/api/v1/chat/completions", devserver::Script{200, upstreamAnswer});
        proxy.setUpstream(QUrl(upstream.baseUrl().toString() + "/api/v1/chat/completions"), "sk-upstream");
        proxy.setRecommend("fast-audio", "vendor/fast", 60.0);
        const QString token = proxy.addUser("+15550001111", 1000.0);

        OpenRouterService service(OpenRouterService::Mode::proxy(token), env.selector);
        const auto result = syncWait(service.chat("preset:fast-audio", {{"user", {ChatContent::makeText("x")}}}, 0.2));
        QCOMPARE(result.text, QString("С апстрима"));
        QCOMPARE(result.usage->costUSD, 0.002);
        QCOMPARE(proxy.user("+15550001111")->balanceTokens, 500.0);
        const auto forwarded = upstream.received("/api/v1/chat/completions").at(0);
        QCOMPARE(forwarded.header("Authorization"), QByteArray("Bearer sk-upstream"));
        QCOMPARE(QJsonDocument::fromJson(forwarded.body).object().value("model").toString(), QString("vendor/fast"));

        // OpenRouter's own path forwards too, with the upstream key, and charges nobody.
        proxy.setOpenRouterKeys({"sk-or-own"});
        const HttpAnswer direct = send(QUrl(proxy.baseUrl().toString() + "/api/v1/chat/completions"), "POST",
                                       R"({"model":"preset:fast-audio","messages":[]})", "Bearer sk-or-own");
        QCOMPARE(direct.body, upstreamAnswer);
        QCOMPARE(upstream.received("/api/v1/chat/completions").at(1).header("Authorization"),
                 QByteArray("Bearer sk-upstream"));
        QCOMPARE(proxy.user("+15550001111")->balanceTokens, 500.0);
    }

    void anAbortedDelayedAnswerDoesNotHurtTheServer() {
        ServiceFixture f;
        const QUrl health(f.server.baseUrl().toString() + "/api/health");
        f.server.script("/api/health", devserver::Script{200, "{}", "application/json", 300, 1});
        Cancellation cancel;
        Watched<NetworkError> aborted;
        auto task = watch(sendRequest(f.network, f.clock, QNetworkRequest(health), "GET", {}, {}, cancel), aborted);
        QVERIFY(spinUntil([&] { return f.server.received().size() == 1; }));
        cancel.cancel();
        QVERIFY(spinUntil([&] { return aborted.done; }));
        // A later delayed answer is written after the aborted one's turn has come: the server lived through it.
        f.server.script("/api/health", devserver::Script{200, R"({"after":true})", "application/json", 400, 1});
        QCOMPARE(send(health).body, QByteArray(R"({"after":true})"));
    }
};

TAMVEX_TEST_CLASS(DevServerTest)
#include "DevServerTest.moc"
