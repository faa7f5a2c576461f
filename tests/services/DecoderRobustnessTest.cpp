#include "account/SorvelAPI.h"
#include "pipelines/BackendSelector.h"
#include "pipelines/OpenRouterService.h"
#include "support/ServiceFixture.h"
#include "support/TestMain.h"

#include <QTest>

using namespace tamvex;
using namespace tamvex::test;
using devserver::Script;

namespace {

// Bodies that a broken or hostile server might send.
QList<QPair<QString, QByteArray>> hostileBodies(const QByteArray& valid) {
    QByteArray deepArray(200000, '[');
    QByteArray deepInside = R"({"user":)" + QByteArray(5000, '[') + QByteArray(5000, ']') + "}";
    return {{"empty", QByteArray()},
            {"truncated by one", valid.left(valid.size() - 1)},
            {"deep array", deepArray},
            {"deep inside", deepInside},
            {"huge garbage", QByteArray(10 * 1024 * 1024, '\x01')},
            {"not utf-8", QByteArray("{\"user\":\"\xff\xfe\",\"choices\":\"\xc3\x28\"}")},
            {"array root", "[]"},
            {"number overflow",
             R"({"user":{"id":1e400,"phone":"+7","balance_tokens":1e999,"created_at":99999999999999999999999}})"}};
}

} // namespace

class DecoderRobustnessTest : public QObject {
    Q_OBJECT
private slots:
    void serviceAnswersFailAsDecodeErrors() {
        AccountEnv env;
        auto& [f, sandbox, api] = env;
        const QByteArray valid = R"({"user":{"id":1,"phone":"+7","balance_tokens":2,"created_at":3}})";
        for (const auto& [name, body] : hostileBodies(valid)) {
            f.server.script("/api/me", Script{200, body});
            auto error = failureOf<APIError>(api.me("tok"), 20000);
            QVERIFY2(error && error->kind() == APIError::Kind::decode, qPrintable(name));
            // The 402 mapping never fails on its body.
            f.server.script("/api/me", Script{402, body});
            error = failureOf<APIError>(api.me("tok"), 20000);
            QVERIFY2(error && error->kind() == APIError::Kind::insufficientBalance && error->balance() == 0.0,
                     qPrintable(name));
            f.server.script("/api/auth/check-activation", Script{200, body});
            QVERIFY2(failureOf<DecodingError>(api.checkActivation("+7"), 20000), qPrintable(name));
            // The other records share the field readers; each must refuse without crashing.
            QVERIFY_THROWS_EXCEPTION(APIError, SorvelAPI::decodeAnswer<RequestCodeResponse>(body));
            QVERIFY_THROWS_EXCEPTION(APIError, SorvelAPI::decodeAnswer<VerifyResponse>(body));
            QVERIFY_THROWS_EXCEPTION(APIError, SorvelAPI::decodeAnswer<AppleExchangeResponse>(body));
            QVERIFY_THROWS_EXCEPTION(APIError, SorvelAPI::decodeAnswer<OkResponse>(body));
        }
    }

    void chatAndRecommendAnswersFailAsDecodingFailed() {
        const QByteArray valid = R"({"choices":[{"message":{"content":"ok"}}],"usage":{"cost":1}})";
        for (const auto& [name, body] : hostileBodies(valid)) {
            const auto e = thrown<OpenRouterError>([&] { decodeChatResponse(body); });
            QVERIFY2(e && e->kind() == OpenRouterError::Kind::decodingFailed, qPrintable(name));
            QVERIFY_THROWS_EXCEPTION(OpenRouterError, decodeRecommend(body));
            QVERIFY2(!BackendSelector::CachedChoice::decode(body), qPrintable(name));
        }
        // A huge but well-formed answer is simply text, over real HTTP.
        SelectorEnv env;
        const QString big(10 * 1024 * 1024, QChar('a'));
        env.host.server.script("/api/openrouter/v1/chat/completions",
                               Script{200, R"({"choices":[{"message":{"content":")" + big.toLatin1() + R"("}}]})"});
        OpenRouterService service(OpenRouterService::Mode::proxy("tok"), env.selector);
        const auto result =
            syncWait(service.chat("preset:fast-audio", {{"user", {ChatContent::makeText("x")}}}, 0.2), 30000);
        QCOMPARE(result.text.size(), big.size());

        // A stored pick with absurd numbers is no pick.
        QVERIFY(!BackendSelector::CachedChoice::decode(
            R"({"endpoint":"stt","measuredAt":1e300,"mainLatencyMs":1,"sttLatencyMs":1})"));
        QVERIFY(!BackendSelector::CachedChoice::decode(
            R"({"endpoint":"stt","measuredAt":1,"mainLatencyMs":1.5,"sttLatencyMs":1})"));
    }
};

TAMVEX_TEST_CLASS(DecoderRobustnessTest)
#include "DecoderRobustnessTest.moc"
