#include "support/TestMain.h"
#include "account/AnalyticsService.h"
#include "account/SorvelAPI.h"
#include "pipelines/BackendSelector.h"
#include "pipelines/OpenRouterService.h"
#include "services/ServiceFixture.h"
#include "support/ProcessFixtures.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkReply>
#include <QProcess>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;

namespace {

HttpAnswer send(const QUrl& url, const QByteArray& verb, const QByteArray& body, const QByteArray& authorization = {}) {
    ManualClock clock;
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    if (!authorization.isEmpty())
        request.setRawHeader("Authorization", authorization);
    return syncWait(sendRequest(sharedNetworkManager(), clock, request, verb, body));
}

QByteArray fetch(const QUrl& url, const QByteArray& verb = "GET", const QByteArray& body = {}) {
    return send(url, verb, body).body;
}

QJsonObject objectOf(const QByteArray& body) {
    return QJsonDocument::fromJson(body).object();
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
        {
            DevServerProcess server(TAMVEX_DEVSERVER_EXE, data.path());
            QVERIFY(server.ok());
            QCOMPARE(server.base.host(), QString("127.0.0.1"));

            ManualClock clock;
            TestEnv sandbox;
            SorvelAPI api(sharedNetworkManager(), clock, *sandbox.defaults, server.base);
            const auto code = syncWait(api.requestCode("+79991234567"));
            QVERIFY(code.dev_code.has_value());
            QCOMPARE(code.status, std::optional<QString>("code_sent"));
            QCOMPARE(failureOf<APIError>(api.verify("+79991234567", "wrong"))->status(), 400);
            const auto session = syncWait(api.verify("+79991234567", *code.dev_code));
            token = session.access_token;
            // It holds the tokens now: the owner's alone.
            QCOMPARE(QFileInfo(accounts).permissions() & ~(QFileDevice::ReadUser | QFileDevice::WriteUser),
                     QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        }
        // Accounts are kept in the data folder.
        DevServerProcess again(TAMVEX_DEVSERVER_EXE, data.path());
        ManualClock clock;
        TestEnv sandbox;
        SorvelAPI api(sharedNetworkManager(), clock, *sandbox.defaults, again.base);
        QCOMPARE(syncWait(api.me(token)).user.phone, QString("+79991234567"));
        QCOMPARE(failureOf<APIError>(api.me("stale"))->kind(), APIError::Kind::unauthorized);
    }

    void analyticsModelsAndScriptingByHand() {
        QTemporaryDir data;
        QVERIFY(writeFile(data.filePath("models/ggml-tiny.bin"), QByteArray(300000, 'm')));
        QVERIFY(writeFile(data.filePath("devserver.json"), R"({"openrouter_keys":["sk-from-file"]})"));
        DevServerProcess server(TAMVEX_DEVSERVER_EXE, data.path(), {"--openrouter-key", "sk-from-option"});
        QVERIFY(server.ok());

        TestEnv sandbox;
        ManualClock clock;
        AnalyticsService::shared().configure(*sandbox.defaults, sharedNetworkManager(), clock, server.base);
        AnalyticsService::track("app_launched", {{"version", "0.1.0"}, {"logged_in", false}});
        QVERIFY(spinUntil([] { return AnalyticsService::shared().pendingSends() == 0; }));
        AnalyticsService::shared().unconfigure();
        const QList<QByteArray> lines = fileBytes(data.filePath("analytics.jsonl")).split('\n');
        QCOMPARE(lines.size(), 2); // one line and the final newline
        QCOMPARE(QJsonDocument::fromJson(lines[0]).object(),
                 (QJsonObject{{"event", "app_launched"},
                              {"device_id", AnalyticsService::shared().deviceId()},
                              {"event_properties", QJsonObject{{"version", "0.1.0"}, {"logged_in", false}}}}));

        QCOMPARE(fetch(QUrl(server.base.toString() + "/models/ggml-tiny.bin")), QByteArray(300000, 'm'));
        QVERIFY(fetch(QUrl(server.base.toString() + "/models/..%2Faccounts.json")).contains("no such model"));

        // Scripting from outside: one scripted answer, then the real one again.
        fetch(QUrl(server.base.toString() + "/__dev/script"), "POST",
              R"({"route":"/api/health","status":503,"body":{"down":true},"times":1})");
        QCOMPARE(fetch(QUrl(server.base.toString() + "/api/health")), QByteArray(R"({"down":true})"));
        QCOMPARE(fetch(QUrl(server.base.toString() + "/api/health")), QByteArray(R"({"status":"ok"})"));

        // OpenRouter keys from the file and the option, then replaced from outside.
        const QUrl chat(server.base.toString() + "/api/v1/chat/completions");
        auto statusWith = [&](const QByteArray& key) {
            return send(chat, "POST", R"({"model":"m","messages":[]})", "Bearer " + key).status;
        };
        QCOMPARE(statusWith("sk-from-file"), 200);
        QCOMPARE(statusWith("sk-from-option"), 200);
        fetch(QUrl(server.base.toString() + "/__dev/openrouter-keys"), "POST", R"({"keys":["sk-new"]})");
        QCOMPARE(statusWith("sk-from-file"), 401);
        QCOMPARE(statusWith("sk-new"), 200);
        const QJsonArray seen =
            QJsonDocument::fromJson(fetch(QUrl(server.base.toString() + "/__dev/requests"))).array();
        QStringList paths;
        for (const QJsonValue& v : seen)
            paths.append(v.toObject().value("path").toString());
        QCOMPARE(paths,
                 (QStringList{"/api/analytics/event", "/models/ggml-tiny.bin", "/models/../accounts.json",
                              "/api/health", "/api/health", "/api/v1/chat/completions", "/api/v1/chat/completions",
                              "/api/v1/chat/completions", "/api/v1/chat/completions"}));
    }

    void openRouterPathAnswersLikeOpenRouter() {
        ServiceFixture f;
        f.server.setOpenRouterKeys({"sk-or-good"});
        f.server.setRecommend("fast-audio", "vendor/fast", 60.0);
        f.server.setChatAnswer("Прямой ответ", 0.003);
        const QUrl chat(f.server.baseUrl().toString() + "/api/v1/chat/completions");
        const QByteArray good = "Bearer sk-or-good";
        struct Case {
            QByteArray authorization;
            QByteArray body;
            int status;
            QJsonObject answer; // the error body, or the model and usage of a success
        };
        auto refusal = [](int code, const QString& message) {
            return QJsonObject{{"error", QJsonObject{{"message", message}, {"code", code}}}};
        };
        const QJsonObject usage{
            {"prompt_tokens", 120}, {"completion_tokens", 12}, {"total_tokens", 132}, {"cost", 0.003}};
        const QList<Case> cases{
            {{}, R"({"model":"m","messages":[]})", 401, refusal(401, "No auth credentials found")},
            {"Bearer sk-or-bad", R"({"model":"m","messages":[]})", 401, refusal(401, "User not found.")},
            {good, R"({"model":"","messages":[]})", 400,
             refusal(400, R"(Input required: specify "model" and "messages")")},
            {good, "not json", 400, refusal(400, R"(Input required: specify "model" and "messages")")},
            {good, R"({"model":"preset:nope","messages":[]})", 400,
             refusal(400, "preset:nope is not a valid model ID")},
            {good,
             R"({"model":"someone/any-model","messages":[]})",
             200,
             {{"model", "someone/any-model"}, {"usage", usage}}},
            {good, R"({"model":"preset:fast-audio","messages":[]})", 200, {{"model", "vendor/fast"}, {"usage", usage}}},
        };
        for (const Case& c : cases) {
            const HttpAnswer answer = send(chat, "POST", c.body, c.authorization);
            QCOMPARE(answer.status, c.status);
            QJsonObject got = objectOf(answer.body);
            if (c.status == 200)
                got = {{"model", got["model"]}, {"usage", got["usage"]}};
            QCOMPARE(got, c.answer);
        }

        // Scripting and delays are the proxy's: one scripted answer, then the real one again.
        f.server.script("/api/v1/chat/completions", devserver::Script{503, "{}", "application/json", 50, 1});
        QCOMPARE(send(chat, "POST", R"({"model":"m","messages":[]})", good).status, 503);
        QCOMPARE(send(chat, "POST", R"({"model":"m","messages":[]})", good).status, 200);
    }

    void theSpeechProxyForwardsToAnUpstreamAndPricesItsAnswer() {
        ServiceFixture proxy;
        devserver::DevServer upstream;
        QVERIFY(upstream.start() != 0);
        const QByteArray upstreamAnswer =
            R"({"choices":[{"message":{"content":"С апстрима"}}],"usage":{"prompt_tokens":5,"cost":0.002}})";
        upstream.script("/api/v1/chat/completions", devserver::Script{200, upstreamAnswer});
        proxy.server.setUpstream(QUrl(upstream.baseUrl().toString() + "/api/v1/chat/completions"), "sk-upstream");
        proxy.server.setRecommend("fast-audio", "vendor/fast", 60.0);
        const QString token = proxy.server.addUser("+15550001111", 1000.0);

        TestEnv sandbox;
        BackendSelector selector(*sandbox.defaults, proxy.clock, proxy.network, ServiceHosts::allAt(proxy.server.baseUrl()));
        OpenRouterService service(OpenRouterService::Mode::proxy(token), selector);
        const auto result = syncWait(service.chat("preset:fast-audio", {{"user", {ChatContent::makeText("x")}}}, 0.2));
        QCOMPARE(result.text, QString("С апстрима"));
        QCOMPARE(result.usage->costUSD, 0.002);
        QCOMPARE(proxy.server.user("+15550001111")->balanceTokens, 500.0);
        const auto forwarded = upstream.received("/api/v1/chat/completions").at(0);
        QCOMPARE(forwarded.header("Authorization"), QByteArray("Bearer sk-upstream"));
        QCOMPARE(QJsonDocument::fromJson(forwarded.body).object().value("model").toString(), QString("vendor/fast"));

        // OpenRouter's own path forwards too, with the upstream key, and charges nobody.
        proxy.server.setOpenRouterKeys({"sk-or-own"});
        const HttpAnswer direct = send(QUrl(proxy.server.baseUrl().toString() + "/api/v1/chat/completions"), "POST",
                                       R"({"model":"preset:fast-audio","messages":[]})", "Bearer sk-or-own");
        QCOMPARE(direct.body, upstreamAnswer);
        QCOMPARE(upstream.received("/api/v1/chat/completions").at(1).header("Authorization"),
                 QByteArray("Bearer sk-upstream"));
        QCOMPARE(proxy.server.user("+15550001111")->balanceTokens, 500.0);
    }

    void anAbortedDelayedAnswerDoesNotHurtTheServer() {
        ServiceFixture f;
        f.server.script("/api/health", devserver::Script{200, "{}", "application/json", 300, 1});
        Cancellation cancel;
        Watched<NetworkError> aborted;
        auto task = watch(sendRequest(f.network, f.clock, QNetworkRequest(QUrl(f.server.baseUrl().toString() + "/api/health")),
                                      "GET", {}, {}, cancel),
                          aborted);
        QVERIFY(spinUntil([&] { return f.server.received().size() == 1; }));
        cancel.cancel();
        QVERIFY(spinUntil([&] { return aborted.done; }));
        QTest::qWait(400); // the delayed write finds the client gone
        QCOMPARE(fetch(QUrl(f.server.baseUrl().toString() + "/api/health")), QByteArray(R"({"status":"ok"})"));
    }
};

TAMVEX_TEST_CLASS(DevServerTest)
#include "DevServerTest.moc"
