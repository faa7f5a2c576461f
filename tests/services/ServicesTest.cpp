// The services over real loopback HTTP: the chat client against one to three dev servers, what it
// and the account API make of hostile answers, the dev server itself as a self-hoster runs it,
// and the backend selector's pick (its probes from a table, then over HTTP).
#include "account/SorvelAPI.h"
#include "pipelines/BackendSelector.h"
#include "pipelines/OpenRouterService.h"
#include "support/ChatAnswers.h"
#include "support/ProcessFixtures.h"
#include "support/ServiceFixture.h"
#include "support/TestMain.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QTest>
#include <QTimeZone>

using namespace tamvex;
using namespace tamvex::test;
using devserver::Script;
using Kind = OpenRouterError::Kind;

namespace {

QByteArray answerWith(const QString& usage) {
    return QString(R"({"choices":[{"message":{"role":"assistant","content":"Привет"}}]%1})").arg(usage).toUtf8();
}

// Main host on 127.0.0.1, the speech host on "localhost", OpenRouter on a third server.
struct Hosts {
    ServiceFixture mainHost;
    devserver::DevServer stt;
    devserver::DevServer openRouter;
    TestEnv sandbox;
    std::unique_ptr<BackendSelector> selector;

    explicit Hosts(const QString& pick = "main") {
        if (stt.start() == 0 || openRouter.start() == 0)
            throw std::runtime_error("servers did not start");
        sandbox.defaults->setData(BackendSelector::cacheKey,
                                  BackendSelector::CachedChoice{pick, mainHost.clock.currentDateTime(), 1, 1}.encode());
        selector = std::make_unique<BackendSelector>(*sandbox.defaults, mainHost.clock, mainHost.network,
                                                     ServiceHosts{mainHost.server.baseUrl(), stt.localhostUrl(),
                                                                  openRouter.baseUrl(), mainHost.server.baseUrl()});
        OpenRouterService::clearModelCache();
    }
};

HttpAnswer get(const QUrl& url) {
    ManualClock clock;
    return syncWait(sendRequest(sharedNetworkManager(), clock, QNetworkRequest(url), "GET", {}));
}

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

QList<ChatMessage> textMessages() {
    return {{"system", {ChatContent::makeText("Системный")}}, {"user", {ChatContent::makeText("Текст")}}};
}

} // namespace

class ServicesTest : public QObject {
    Q_OBJECT

    static OpenRouterService::ChatResult proxyChat(Hosts& h, const QByteArray& answer, int status = 200,
                                                   int timeoutMs = 20000) {
        h.mainHost.server.script(kProxyPath, Script{status, answer});
        OpenRouterService service(OpenRouterService::Mode::proxy("tok"), *h.selector);
        return syncWait(service.chat("preset:fast-audio", textMessages(), 0.2), timeoutMs);
    }
    static OpenRouterError proxyFailure(Hosts& h, const QByteArray& answer, int status = 200) {
        h.mainHost.server.script(kProxyPath, Script{status, answer});
        OpenRouterService service(OpenRouterService::Mode::proxy("tok"), *h.selector);
        return failureOf<OpenRouterError>(service.chat("preset:fast-audio", textMessages(), 0.2)).value();
    }

private slots:
    void answerShapesAndUsage() {
        Hosts h;
        LogCapture log;
        const auto r = proxyChat(
            h,
            answerWith(
                R"(,"usage":{"prompt_tokens":10,"completion_tokens":2,"total_tokens":99,"cost":0.001,"cost_usd":0.002,"cost_tokens":500})"));
        QCOMPARE(r.text, QString("Привет"));
        QCOMPARE(r.usage, std::optional<UsageInfo>(UsageInfo{10, 2, 99, 0.002}));
        QVERIFY(log.has("OpenRouter usage: prompt=10, completion=2, cost=0.002$, cost_tokens=500.0"));

        // Without cost_usd the cost stands in; absent counts are 0.
        QCOMPARE(proxyChat(h, answerWith(R"(,"usage":{"cost":0.001})")).usage,
                 std::optional(UsageInfo{0, 0, 0, 0.001}));
        QCOMPARE(proxyChat(h, answerWith(R"(,"usage":null)")).usage, std::nullopt);
        // A mistyped usage field fails the whole answer.
        QCOMPARE(proxyFailure(h, answerWith(R"(,"usage":{"prompt_tokens":"ten"})")).kind(), Kind::decodingFailed);

        QCOMPARE(proxyFailure(h, R"({"choices":[]})").kind(), Kind::noContent);
        QCOMPARE(proxyFailure(h, R"({"choices":[{"message":{"content":null}}]})").kind(), Kind::noContent);
        QCOMPARE(proxyFailure(h, R"({"choices":[{"message":{"content":""}}]})").kind(), Kind::noContent);
        const auto wrongType = proxyFailure(h, R"({"choices":[{"message":{"content":["a"]}}]})");
        QCOMPARE(wrongType.kind(), Kind::decodingFailed);
        QCOMPARE(wrongType.description(), QString("Не удалось распарсить ответ OpenRouter."));
        QCOMPARE(proxyFailure(h, R"({"data":[]})").kind(), Kind::decodingFailed);
        // White space is text here; trimming is the pipeline's business.
        QCOMPARE(proxyChat(h, R"({"choices":[{"message":{"content":"  \n"}}]})").text, QString("  \n"));
        QCOMPARE(proxyChat(h, answerWith(""), 299).text, QString("Привет"));
    }

    void refusalsAndWhichOnesMarkTheSpeechHost() {
        Hosts h("stt");
        auto chatOn = [&](int status, const QByteArray& body) {
            h.stt.script(kProxyPath, Script{status, body});
            OpenRouterService service(OpenRouterService::Mode::proxy("tok"), *h.selector);
            if (service.chatEndpoint().host() != "localhost")
                throw std::runtime_error("expected the speech host");
            return failureOf<OpenRouterError>(service.chat("preset:fast-audio", textMessages(), 0.2)).value();
        };
        LogCapture log;
        OpenRouterError e = chatOn(404, R"({"error":{"message":"Model NOT Found: x"}})");
        QCOMPARE(e.kind(), Kind::invalidModel);
        QCOMPARE(e.description(), "Модель «preset:fast-audio» не найдена в OpenRouter. Проверь имя на " +
                                      h.openRouter.baseUrl().toString() +
                                      "/models или очисти поле «Своя модель» в Настройках.");
        QCOMPARE(chatOn(400, "No Endpoints Found for that").kind(), Kind::invalidModel);
        QCOMPARE(chatOn(404, "nothing here").kind(), Kind::badResponse);
        QCOMPARE(chatOn(401, "invalid model").kind(), Kind::badResponse); // only 400 and 404 name a model
        QCOMPARE(chatOn(300, "").kind(), Kind::badResponse);
        QCOMPARE(h.selector->currentEndpoint(), h.selector->sttEndpoint()); // nothing so far marked it

        const QByteArray long600 = numberedBody(600);
        e = chatOn(503, "invalid model " + long600);
        QCOMPARE(e.kind(), Kind::badResponse);
        QCOMPARE(e.detail().size(), 614);
        QCOMPARE(e.description(),
                 "OpenRouter ответил 503: " + ("invalid model " + QString::fromLatin1(long600)).left(300));
        QCOMPARE(h.selector->currentEndpoint(), h.selector->mainEndpoint());

        // A 500 from the main host marks nothing.
        h.mainHost.clock.advance(BackendSelector::unhealthySec);
        log.clear();
        Hosts onMain("main");
        QCOMPARE(proxyFailure(onMain, "boom", 500).kind(), Kind::badResponse);
        QVERIFY(!log.hasPrefix("BackendSelector"));
    }

    void requestWireFormatAndHeadersPerMode() {
        Hosts h;
        // A self-hosted server named by its full chat endpoint is sent to as it is.
        const QUrl endpoint(h.openRouter.baseUrl().toString() + "/v1/chat/completions");
        BackendSelector selector(*h.sandbox.defaults, h.mainHost.clock, h.mainHost.network,
                                 ServiceHosts{h.mainHost.server.baseUrl(), h.stt.localhostUrl(), endpoint, {}});
        h.openRouter.script("/v1/chat/completions", Script{200, answerWith("")});
        OpenRouterService direct(OpenRouterService::Mode::direct("  sk-key\n"), selector);
        const QList<ChatMessage> messages{{"system", {ChatContent::makeText("Промпт \"в кавычках\"\n")}},
                                          {"user", {ChatContent::inputAudio("QUJD", "m4a")}}};
        syncWait(direct.chat("google/gemini", messages, 0.0));
        const auto sent = h.openRouter.received("/v1/chat/completions").at(0);
        QCOMPARE(sent.header("Authorization"), QByteArray("Bearer sk-key"));
        QCOMPARE(sent.header("HTTP-Referer"), QByteArray("https://localhost"));
        QCOMPARE(sent.header("X-Title"), QByteArray("Tamvex"));
        QCOMPARE(sent.header("Content-Type"), QByteArray("application/json"));
        // \u0022 is the quote; moc misreads an escaped quote in a raw string.
        const QByteArray expected =
            R"({"model":"google/gemini","messages":[)"
            R"({"role":"system","content":[{"type":"text","text":"Промпт \u0022в кавычках\u0022\n"}]},)"
            R"({"role":"user","content":[{"type":"input_audio",)"
            R"("input_audio":{"data":"QUJD","format":"m4a"}}]}],)"
            R"("temperature":0.0,"usage":{"include":true}})";
        QCOMPARE(QJsonDocument::fromJson(sent.body).object(), QJsonDocument::fromJson(expected).object());

        // Proxy: the token as it stands, the label as it stands, no OpenRouter headers.
        h.mainHost.server.script(kProxyPath, Script{200, answerWith("")});
        OpenRouterService proxy(OpenRouterService::Mode::proxy(" tok "), *h.selector);
        syncWait(proxy.chat("preset:cheap-cleanup", textMessages(), std::nullopt));
        const auto viaProxy = h.mainHost.server.received(kProxyPath).at(0);
        QCOMPARE(viaProxy.header("Authorization"), QByteArray("Bearer  tok")); // HTTP drops only the trailing space
        QVERIFY(!viaProxy.hasHeader("HTTP-Referer"));
        QVERIFY(!QJsonDocument::fromJson(viaProxy.body).object().contains("temperature"));
        QVERIFY(h.stt.received().isEmpty()); // no recommend call in proxy mode
    }

    void missingKeys() {
        Hosts h;
        OpenRouterService direct(OpenRouterService::Mode::direct("\n\n"), *h.selector);
        auto e = failureOf<OpenRouterError>(direct.chat("google/gemini", textMessages(), 0.2));
        QCOMPARE(e->kind(), Kind::missingApiKey);
        QCOMPARE(e->description(), QString("Не задан API-ключ OpenRouter. Открой Настройки и добавь его."));

        OpenRouterService proxy(OpenRouterService::Mode::proxy(""), *h.selector);
        QCOMPARE(failureOf<OpenRouterError>(proxy.chat("preset:fast-audio", textMessages(), 0.2))->kind(),
                 Kind::missingApiKey);
        QVERIFY(h.mainHost.server.received().isEmpty());
        QVERIFY(h.openRouter.received().isEmpty());

        // With a label the recommend call comes first, and its failure wins.
        h.stt.script("/api/router/recommend", Script{500, "down"});
        e = failureOf<OpenRouterError>(direct.chat("preset:fast-audio", textMessages(), 0.2));
        QCOMPARE(e->description(), QString("OpenRouter ответил 500: recommend: down"));
    }

    void recommendAndItsSharedCache() {
        Hosts h;
        h.stt.setRecommend("fast-audio", "vendor/fast-model", std::nullopt);
        h.openRouter.script(kDirectPath, Script{200, answerWith("")});
        LogCapture log;
        OpenRouterService direct(OpenRouterService::Mode::direct("sk"), *h.selector);
        syncWait(direct.chat("preset:fast-audio", textMessages(), 0.2));
        const auto ask = h.stt.received("/api/router/recommend").at(0);
        QCOMPARE(ask.query, QString("preset=fast-audio"));
        QVERIFY(!ask.hasHeader("Authorization"));
        QCOMPARE(
            QJsonDocument::fromJson(h.openRouter.received(kDirectPath).at(0).body).object().value("model").toString(),
            QString("vendor/fast-model"));

        // Another instance shares the cache until the 60 s are over (expiry strictly after now).
        OpenRouterService other(OpenRouterService::Mode::direct("sk"), *h.selector);
        h.mainHost.clock.advance(59.99);
        QCOMPARE(syncWait(other.resolveModel("preset:fast-audio")), QString("vendor/fast-model"));
        QCOMPARE(h.stt.received("/api/router/recommend").size(), 1);
        h.mainHost.clock.advance(0.01);
        h.stt.setRecommend("fast-audio", "vendor/newer", std::nullopt);
        QCOMPARE(syncWait(other.resolveModel("preset:fast-audio")), QString("vendor/newer"));
        QCOMPARE(h.stt.received("/api/router/recommend").size(), 2);

        // Failures: a status, a bad answer, a name no URL can hold, a dead host (not marked).
        h.stt.script("/api/router/recommend", Script{404, numberedBody(300)});
        auto e = failureOf<OpenRouterError>(other.resolveModel("preset:precise-audio"));
        QCOMPARE(e->description(), "OpenRouter ответил 404: recommend: " + QString::fromLatin1(numberedBody(200)));
        e = failureOf<OpenRouterError>(other.resolveModel("preset:bad name"));
        QCOMPARE(e->detail(), QString("bad recommend url"));
        h.stt.stop();
        log.clear();
        QVERIFY(failureOf<NetworkError>(other.resolveModel("preset:cheap-audio")).has_value());
        QVERIFY(!log.hasPrefix("BackendSelector"));
    }

    void aCancelledOrTimedOutSendFailsAtOnceAndMarksTheSpeechHost() {
        Hosts h("stt");
        h.stt.script(kProxyPath, Script{200, answerWith(""), "application/json", 10000});
        OpenRouterService service(OpenRouterService::Mode::proxy("tok"), *h.selector);
        Cancellation cancel;
        LogCapture log;
        Watched<NetworkError> cancelled;
        auto task = watch(service.chat("preset:fast-audio", textMessages(), 0.2, cancel), cancelled);
        QVERIFY(spinUntil([&] { return h.stt.received(kProxyPath).size() == 1; }));
        cancel.cancel();
        // Well before the 10 s answer.
        QVERIFY(spinUntil([&] { return cancelled.done; }));
        QCOMPARE(cancelled.error->kind(), NetworkError::Kind::Cancelled);
        QVERIFY(log.has("BackendSelector: STT marked unhealthy for 5 min"));

        // The 60 s limit, read from the clock, ends a send the same way.
        h.mainHost.clock.advance(BackendSelector::unhealthySec);
        OpenRouterService again(OpenRouterService::Mode::proxy("tok"), *h.selector);
        QCOMPARE(again.chatEndpoint().host(), QString("localhost"));
        Watched<NetworkError> timed;
        auto second = watch(again.chat("preset:fast-audio", textMessages(), 0.2), timed);
        QVERIFY(spinUntil([&] { return h.stt.received(kProxyPath).size() == 2; }));
        h.mainHost.clock.advance(59.9);
        QCoreApplication::processEvents();
        QVERIFY(!timed.done);
        h.mainHost.clock.advance(0.1);
        QVERIFY(spinUntil([&] { return timed.done; }));
        QCOMPARE(timed.error->kind(), NetworkError::Kind::TimedOut);
        QCOMPARE(h.selector->currentEndpoint(), h.selector->mainEndpoint());
    }

    // Bodies a broken or hostile server might send, each through every decoder the endpoints use:
    // each refuses without crashing.
    void hostileAnswersFailAsDecodingErrors() {
        Hosts h;
        SorvelAPI api(h.mainHost.network, h.mainHost.clock, *h.sandbox.defaults, h.mainHost.server.baseUrl());
        const QByteArray user = R"({"user":{"id":1,"phone":"+7","balance_tokens":2,"created_at":3}})";
        const QByteArray chat = R"({"choices":[{"message":{"content":"ok"}}],"usage":{"cost":1}})";
        const std::pair<const char*, QByteArray> bodies[] = {
            {"empty", {}},
            {"user truncated by one", user.chopped(1)},
            {"chat truncated by one", chat.chopped(1)},
            {"deep array", QByteArray(200000, '[')},
            {"deep inside", R"({"user":)" + QByteArray(5000, '[') + QByteArray(5000, ']') + "}"},
            {"huge garbage", QByteArray(10 * 1024 * 1024, '\x01')},
            {"not utf-8", "{\"user\":\"\xff\xfe\",\"choices\":\"\xc3\x28\"}"},
            {"array root", "[]"},
            {"number overflow",
             R"({"user":{"id":1e400,"phone":"+7","balance_tokens":1e999,"created_at":99999999999999999999999}})"}};
        for (const auto& [name, body] : bodies) {
            h.mainHost.server.script("/api/me", Script{200, body});
            auto error = failureOf<APIError>(api.me("tok"), 20000);
            QVERIFY2(error && error->kind() == APIError::Kind::decode, name);
            // The 402 mapping never fails on its body.
            error = thrown<APIError>([&] { SorvelAPI::checkAnswer(HttpAnswer{402, body, {}}); });
            QVERIFY2(error && error->kind() == APIError::Kind::insufficientBalance && error->balance() == 0.0, name);
            h.mainHost.server.script("/api/auth/check-activation", Script{200, body});
            QVERIFY2(failureOf<DecodingError>(api.checkActivation("+7"), 20000), name);
            QVERIFY_THROWS_EXCEPTION(APIError, SorvelAPI::decodeAnswer<RequestCodeResponse>(body));
            QVERIFY_THROWS_EXCEPTION(APIError, SorvelAPI::decodeAnswer<VerifyResponse>(body));
            QVERIFY_THROWS_EXCEPTION(APIError, SorvelAPI::decodeAnswer<AppleExchangeResponse>(body));
            QVERIFY_THROWS_EXCEPTION(APIError, SorvelAPI::decodeAnswer<OkResponse>(body));
            const auto e = thrown<OpenRouterError>([&] { decodeChatResponse(body); });
            QVERIFY2(e && e->kind() == OpenRouterError::Kind::decodingFailed, name);
            QVERIFY_THROWS_EXCEPTION(OpenRouterError, decodeRecommend(body));
            QVERIFY2(!BackendSelector::CachedChoice::decode(body), name);
        }
        // A huge but well-formed answer is simply text, over real HTTP.
        const QByteArray big(10 * 1024 * 1024, 'a');
        QCOMPARE(proxyChat(h, R"({"choices":[{"message":{"content":")" + big + R"("}}]})", 200, 30000).text,
                 QString(big));
        // A stored pick with absurd numbers is no pick.
        QVERIFY(!BackendSelector::CachedChoice::decode(
            R"({"endpoint":"stt","measuredAt":1e300,"mainLatencyMs":1,"sttLatencyMs":1})"));
        QVERIFY(!BackendSelector::CachedChoice::decode(
            R"({"endpoint":"stt","measuredAt":1,"mainLatencyMs":1.5,"sttLatencyMs":1})"));
    }

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
            SorvelAPI api(sharedNetworkManager(), clock, *sandbox.defaults, server.base);
            const auto code = syncWait(api.requestCode("+79991234567"));
            QVERIFY(code.dev_code.has_value());
            token = syncWait(api.verify("+79991234567", *code.dev_code)).access_token;
            // It holds the tokens now: the owner's alone.
            QCOMPARE(QFileInfo(accounts).permissions() & ~(QFileDevice::ReadUser | QFileDevice::WriteUser),
                     QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        }
        // Accounts are kept in the data folder.
        DevServerProcess again(TAMVEX_DEVSERVER_EXE, data.path());
        SorvelAPI api(sharedNetworkManager(), clock, *sandbox.defaults, again.base);
        QCOMPARE(syncWait(api.me(token)).user.phone, QString("+79991234567"));
        // The models route serves nothing outside its folder.
        QVERIFY(get(QUrl(again.base.toString() + "/models/..%2Faccounts.json")).body.contains("no such model"));
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
        QCOMPARE(proxy.user("+15550001111")->balanceTokens, 500.0);
        const auto forwarded = upstream.received("/api/v1/chat/completions").at(0);
        QCOMPARE(forwarded.header("Authorization"), QByteArray("Bearer sk-upstream"));
        QCOMPARE(QJsonDocument::fromJson(forwarded.body).object().value("model").toString(), QString("vendor/fast"));
    }

    void theSpeechHostMustBeMoreThan30msFasterAndThePickIsKept() {
        Scripted s;
        QCOMPARE(s.pickAfterRefresh(0.100, 0.069), QString("stt"));
        QCOMPARE(s.pickAfterRefresh(0.25 + BackendSelector::sttMarginSec, 0.25), QString("main")); // exactly equal
        QCOMPARE(s.pickAfterRefresh(-1.0, 0.5), QString("stt"));
        QCOMPARE(s.pickAfterRefresh(0.01, -1.0), QString("main"));

        // The pick is kept with seconds since 2001.
        s.probes = 0;
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

    void aPickIsGoodFor600SecondsAndGarbageIsNone() {
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

        // What does not decode is for the hostile bodies above; here, that it is no pick and is left alone.
        const QByteArray junk(R"({"endpoint":"stt"})");
        s.sandbox.defaults->setData(BackendSelector::cacheKey, junk);
        s.reopen();
        QVERIFY(!s.selector->current().has_value());
        QCOMPARE(s.sandbox.defaults->readData(BackendSelector::cacheKey).value, junk);
        QCOMPARE(s.selector->currentEndpoint(), kMain); // and a refresh makes a pick
        QVERIFY(spinUntil([&] { return s.selector->current().has_value(); }));

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
        Hosts h;
        auto [mainHost, sttServer] = std::tie(h.mainHost, h.stt);
        BackendSelector& selector = *h.selector;

        // Latency is read from the clock between sending and the answer.
        mainHost.server.script("/api/health", Script{0, {}, {}, 300, 1});
        auto probe = selector.measureLatency(mainHost.server.baseUrl());
        QVERIFY(spinUntil([&] { return mainHost.server.received("/api/health").size() == 1; }));
        mainHost.clock.advance(0.25);
        QCOMPARE(syncWait(std::move(probe)), 0.25);
        QVERIFY(!mainHost.server.received("/api/health").at(0).hasHeader("Authorization"));

        // Only exactly 200 counts; a host that does not answer in 3 s counts as dead.
        sttServer.script("/api/health", Script{204, ""});
        QCOMPARE(syncWait(selector.measureLatency(sttServer.localhostUrl())), -1.0);

        mainHost.server.script("/api/health", Script{0, {}, {}, 5000, 1});
        auto slow = selector.measureLatency(mainHost.server.baseUrl());
        QVERIFY(spinUntil([&] { return mainHost.server.received("/api/health").size() == 2; }));
        mainHost.clock.advance(2.99);
        QCoreApplication::processEvents();
        QVERIFY(!slow.isReady());
        mainHost.clock.advance(0.01);
        QCOMPARE(syncWait(std::move(slow), 2000), -1.0);

        // A selector that goes, its clock after it, while its probes wait for answers: the
        // probes end with it, so the late answers touch neither (the sanitizer build sees a use
        // after free otherwise).
        mainHost.server.script("/api/health", Script{0, {}, {}, 300, 1});
        const auto asked = mainHost.server.received("/api/health").size();
        {
            ManualClock clock;
            TestEnv sandbox;
            BackendSelector gone(*sandbox.defaults, clock, mainHost.network, selector.hosts());
            gone.currentEndpoint(); // no pick stored: a refresh starts
            QVERIFY(spinUntil([&] { return mainHost.server.received("/api/health").size() == asked + 1; }));
        }
        // Sent after the probe and answered after its 300 ms: the probe's answer came meanwhile.
        mainHost.server.script("/api/health", Script{0, {}, {}, 600, 1});
        QCOMPARE(get(ServiceHosts::join(mainHost.server.baseUrl(), "/api/health")).status, 200);
    }

    // Last: it leaves overrides in this process's environment.
    void theEnvironmentOverridesTheCompiledHosts() {
        qputenv("TAMVEX_MAIN_URL", " http://127.0.0.1:8080/ignored/path ");
        qputenv("TAMVEX_OPENROUTER_URL", "ftp://example.com");
        LogCapture log;
        const ServiceHosts hosts = ServiceHosts::fromEnvironment();
        QCOMPARE(hosts.main, QUrl("http://127.0.0.1:8080"));
        // A bad override keeps the compiled host and says why.
        QCOMPARE(hosts.openRouter, QUrl(TAMVEX_DEFAULT_OPENROUTER_URL));
        QCOMPARE(
            log.lines(),
            QStringList{"error: ServiceHosts: ignoring TAMVEX_OPENROUTER_URL=ftp://example.com, not an http(s) URL"});

        QCOMPARE(ServiceHosts::join(QUrl("https://h.example/base/"), "/api/me").toString(),
                 QString("https://h.example/base/api/me"));
    }
};

TAMVEX_TEST_CLASS(ServicesTest)
#include "ServicesTest.moc"
