#include "account/SorvelAPI.h"
#include "support/ServiceFixture.h"
#include "support/TestMain.h"

#include <QJsonDocument>
#include <QTest>
#include <QUrlQuery>

using namespace tamvex;
using namespace tamvex::test;
using devserver::Script;

namespace {
const QByteArray kUser = R"({"user":{"id":7,"phone":"+79990001122","balance_tokens":1234.5,"created_at":1700000000}})";
}

class SorvelAPITest : public QObject {
    Q_OBJECT

    using Env = AccountEnv;

private slots:
    void successDecodesAndSendsTheBearerOnlyWithAToken() {
        Env env;
        env.f.server.script("/api/me", Script{200, kUser});
        const MeResponse me = syncWait(env.api.me("tok-1"));
        QCOMPARE(me.user, (UserDTO{7, "+79990001122", 1234.5, 1700000000}));
        QCOMPARE(env.f.server.received("/api/me").at(0).header("Authorization"), QByteArray("Bearer tok-1"));

        // No token: the header is absent, not empty.
        env.f.server.script(
            "/api/auth/verify",
            Script{200, R"({"access_token":"t","user":{"id":1,"phone":"+1","balance_tokens":0,"created_at":5}})"});
        const VerifyResponse verified = syncWait(env.api.verify("+1", "1234"));
        QCOMPARE(verified.access_token, QString("t"));
        const auto sent = env.f.server.received("/api/auth/verify").at(0);
        QVERIFY(!sent.hasHeader("Authorization"));
        QCOMPARE(sent.header("Content-Type"), QByteArray("application/json"));
        QCOMPARE(QJsonDocument::fromJson(sent.body).object(), (QJsonObject{{"phone", "+1"}, {"code", "1234"}}));
    }

    void answerMappingFollowsItsOrder() {
        Env env;
        auto meFails = [&](const Script& script) {
            env.f.server.script("/api/me", script);
            auto error = failureOf<APIError>(env.api.me("tok"));
            if (!error)
                throw std::runtime_error("expected an APIError");
            return *error;
        };

        // 401 never looks at the body.
        APIError e = meFails(Script{401, "{\"balance\": 5}"});
        QCOMPARE(e.kind(), APIError::Kind::unauthorized);
        QCOMPARE(e.description(), QString("Сессия истекла. Войди заново."));

        e = meFails(Script{402, R"({"error":"insufficient_balance","balance":12.5})"});
        QCOMPARE(e.kind(), APIError::Kind::insufficientBalance);
        QCOMPARE(e.description(), QString("Баланс 12.5000 ø — пополни счёт."));
        for (const QByteArray& body : {QByteArray("<html>no</html>"), QByteArray(R"({"error":"x"})")}) {
            e = meFails(Script{402, body});
            QCOMPARE(e.kind(), APIError::Kind::insufficientBalance);
            QCOMPARE(e.balance(), 0.0);
            QCOMPARE(e.description(), QString("Баланс 0.0000 ø — пополни счёт."));
        }

        // A long body is kept whole; only the words shown are cut to 200 characters.
        const QByteArray long300 = numberedBody(300);
        e = meFails(Script{500, long300});
        QCOMPARE(e.kind(), APIError::Kind::http);
        QCOMPARE(e.status(), 500);
        QCOMPARE(e.responseText().size(), 300);
        QCOMPARE(e.description(), "Сервер вернул 500: " + QString::fromLatin1(long300.left(200)));

        // A body that is not UTF-8 reads as the empty text.
        e = meFails(Script{503, QByteArray("\xff\xfe\xfd", 3)});
        QCOMPARE(e.description(), QString("Сервер вернул 503: "));

        // 2xx with a missing required field is a decode error.
        e = meFails(Script{200, R"({"user":{"id":7,"phone":"+7","balance_tokens":1}})"});
        QCOMPARE(e.kind(), APIError::Kind::decode);
        QCOMPARE(e.description(), QString("Не удалось разобрать ответ сервера."));
        e = meFails(Script{299, R"({"user":{"id":"7","phone":"+7","balance_tokens":1,"created_at":1}})"});
        QCOMPARE(e.kind(), APIError::Kind::decode);
    }

    void statusesOutsideTheSuccessRangeTakeTheHttpPath() {
        // Over the wire a 1xx answer has no body by HTTP's rules, so the mapping is checked directly.
        auto e = thrown<APIError>([] { SorvelAPI::checkAnswer(HttpAnswer{199, "early", {}}); });
        QVERIFY(e && e->kind() == APIError::Kind::http);
        QCOMPARE(e->description(), QString("Сервер вернул 199: early"));
        SorvelAPI::checkAnswer(HttpAnswer{200, {}, {}});
        SorvelAPI::checkAnswer(HttpAnswer{299, {}, {}});
        e = thrown<APIError>([] { SorvelAPI::checkAnswer(HttpAnswer{-1, {}, {}}); });
        QVERIFY(e && e->kind() == APIError::Kind::other);
        QCOMPARE(e->description(), QString("no response"));
    }

    void transportFailuresPassUnmapped() {
        Env env;
        SorvelAPI offline(env.f.network, env.f.clock, *env.sandbox.defaults, QUrl("http://127.0.0.1:1"));
        QCOMPARE(failureOf<NetworkError>(offline.me("tok")).value().kind(), NetworkError::Kind::Transport);

        // The 60 s limit is read from the clock: 59.9 s keeps waiting, 60 s aborts.
        env.f.server.script("/api/me", Script{200, kUser, "application/json", 3000});
        Watched<NetworkError> late;
        auto task = watch(env.api.me("tok"), late);
        QVERIFY(spinUntil([&] { return env.f.server.received("/api/me").size() == 1; }));
        env.f.clock.advance(59.9);
        QCoreApplication::processEvents();
        QVERIFY(!late.done);
        env.f.clock.advance(0.1);
        QVERIFY(spinUntil([&] { return late.done; }));
        QCOMPARE(late.error.value().kind(), NetworkError::Kind::TimedOut);
    }

    void checkActivationIgnoresTheStatusAndKeepsThePlus() {
        Env env;
        env.f.server.script("/api/auth/check-activation", Script{500, R"({"activated":true,"code_ready":false})"});
        const auto status = syncWait(env.api.checkActivation("+7 999&x=1"));
        QVERIFY(status.activated);
        QVERIFY(!status.code_ready);
        const auto sent = env.f.server.received("/api/auth/check-activation").at(0);
        QVERIFY(!sent.hasHeader("Authorization"));
        QVERIFY2(sent.query.startsWith("phone=+7"), qPrintable(sent.query));
        // The separator in the value is escaped, so the server sees one item.
        QCOMPARE(QUrlQuery(sent.query).queryItemValue("phone", QUrl::FullyDecoded), QString("+7 999&x=1"));

        // An HTML error page fails as a decoding error of the platform, never as `http`.
        env.f.server.script("/api/auth/check-activation",
                            Script{500, "<html><body>Bad gateway</body></html>", "text/html"});
        QVERIFY(failureOf<DecodingError>(env.api.checkActivation("+7")).has_value());
    }

    void requestBodiesCarryTheDeviceIdAndFixedLiterals() {
        Env env;
        const QByteArray codeAnswer = R"({"ok":true,"phone":"+7","bot_username":"b","bot_link":"l","dev_code":"4242"})";
        env.f.server.script("/api/auth/request-code", Script{200, codeAnswer});
        const auto first = syncWait(env.api.requestCode("+7"));
        QCOMPARE(first.dev_code, std::optional<QString>("4242"));
        QCOMPARE(first.status, std::nullopt);
        // No device id stored yet: exactly the keys phone and app.
        QCOMPARE(QJsonDocument::fromJson(env.f.server.received("/api/auth/request-code").at(0).body).object(),
                 (QJsonObject{{"phone", "+7"}, {"app", "tamv"}}));

        env.sandbox.defaults->setString("sorvel_device_id", "dev-1");
        syncWait(env.api.requestCode("+7"));
        QCOMPARE(QJsonDocument::fromJson(env.f.server.received("/api/auth/request-code").at(1).body).object(),
                 (QJsonObject{{"phone", "+7"}, {"app", "tamv"}, {"device_id", "dev-1"}}));

        env.f.server.script(
            "/api/oauth/yandex/exchange",
            Script{
                200,
                R"({"access_token":"y","user":{"id":2,"phone":"+7","balance_tokens":3,"created_at":4},"is_new":null})"});
        const auto exchanged = syncWait(env.api.exchangeYandex("abc"));
        QCOMPARE(exchanged.is_new, std::nullopt);
        QCOMPARE(QJsonDocument::fromJson(env.f.server.received("/api/oauth/yandex/exchange").at(0).body).object(),
                 (QJsonObject{{"code", "abc"}, {"redirect_uri", "tamvex://oauth/yandex"}, {"device_id", "dev-1"}}));
    }
};

TAMVEX_TEST_CLASS(SorvelAPITest)
#include "SorvelAPITest.moc"
