// The account API over the wire, the account store that keeps its session, analytics and the sign-in form.
#include "account/AccountStore.h"
#include "account/AnalyticsService.h"
#include "account/InlineLoginForm.h"
#include "account/OAuthCallbacks.h"
#include "account/PhoneNumbers.h"
#include "account/SorvelAPI.h"
#include "support/ProcessFixtures.h"
#include "support/ServiceFixture.h"
#include "support/TestMain.h"
#include "support/TrackedEvents.h"

#include <QJsonDocument>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>
#include <QThread>
#include <QUrlQuery>

using namespace tamvex;
using namespace tamvex::test;
using devserver::Script;
using Phase = InlineLoginForm::Phase;

namespace {
const UserDTO kUserDTO{7, "+79990001122", 1000.0, 1700000000};
const QByteArray kUser = R"({"user":{"id":7,"phone":"+79990001122","balance_tokens":1234.5,"created_at":1700000000}})";
// The account sandbox with analytics reporting to its dev server.
struct AnalyticsEnv : AccountEnv {
    AnalyticsEnv() { AnalyticsService::shared().configure(*sandbox.defaults, f.network, f.clock, f.server.baseUrl()); }
    ~AnalyticsEnv() {
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
// A sign-in form against a fresh dev server, with a browser that only notes what it was sent to.
// The poll has a clock of its own, so that its one timer is the poll's sleep.
struct FormEnv {
    AccountEnv env;
    ManualClock pollClock;
    AccountStore account{*env.sandbox.defaults, env.api};
    OAuthCallbacks callbacks;
    QList<QUrl> opened;
    InlineLoginForm form{env.api,
                         account,
                         pollClock,
                         env.f.server.baseUrl(),
                         [this](const QUrl& url) {
                             opened << url;
                             return true;
                         },
                         &callbacks};
    TrackedEvents tracked;

    int checks() const { return int(env.f.server.received("/api/auth/check-activation").size()); }
    // One 2 s poll round: the clock moves, the check goes over real loopback, and the poll
    // is asleep again (or done).
    bool pollRound() {
        const int before = checks();
        pollClock.advance(InlineLoginForm::pollIntervalSec);
        return spinUntil([&] { return checks() > before && (pollClock.pendingTimers() == 1 || !form.polling()); });
    }
};

// What a browser does with the authorize URL: one GET, and the redirect's target.
QUrl browserRedirect(const QUrl& url) {
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    std::unique_ptr<QNetworkReply> reply(sharedNetworkManager().get(request));
    spinUntil([&] { return reply->isFinished(); }, 10000);
    return QUrl::fromEncoded(reply->rawHeader("Location"));
}
} // namespace

class AccountTest : public QObject {
    Q_OBJECT

    using Env = AccountEnv;

private slots:
    // Reports kept before configuration by an earlier test would reach the next test's server.
    void init() { AnalyticsService::shared().unconfigure(); }

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

    void withoutTokenRefreshSendsNothingAndAStoredTokenAloneIsNoSignIn() {
        Env env;
        AccountStore store(*env.sandbox.defaults, env.api);
        QSignalSpy changes(&store, &AccountStore::changed);
        syncWait(store.refresh());
        QCOMPARE(changes.count(), 0);
        QVERIFY(!store.isLoggedIn());

        env.sandbox.defaults->setString("sorvel_access_token", "stored");
        AccountStore restarted(*env.sandbox.defaults, env.api);
        QCOMPARE(restarted.accessToken(), std::optional<QString>("stored"));
        QVERIFY(!restarted.isLoggedIn());
        QVERIFY(env.f.server.received().isEmpty()); // neither refresh nor creation made a call
    }

    void serverErrorKeepsEverythingAndLogsOnce() {
        Env env;
        AccountStore store(*env.sandbox.defaults, env.api);
        store.setSession("tok", kUserDTO);
        env.f.server.script("/api/me", Script{500, "boom"});
        LogCapture log;
        bool sawRefreshing = false;
        connect(&store, &AccountStore::changed, [&] { sawRefreshing |= store.isRefreshing(); });
        syncWait(store.refresh());
        QVERIFY(sawRefreshing);
        QVERIFY(!store.isRefreshing());
        QCOMPARE(store.accessToken(), std::optional<QString>("tok"));
        QCOMPARE(store.user(), std::optional<UserDTO>(kUserDTO));
        QCOMPARE(log.lines(), QStringList{"error: AccountStore.refresh: Сервер вернул 500: boom"});
        QCOMPARE(env.sandbox.defaults->readString("sorvel_access_token").value, QString("tok"));
    }

    void offlineRelaunchKeepsTheTokenWithoutUser() {
        Env env;
        env.sandbox.defaults->setString("sorvel_access_token", "tok");
        SorvelAPI offline(env.f.network, env.f.clock, *env.sandbox.defaults, QUrl("http://127.0.0.1:1"));
        AccountStore store(*env.sandbox.defaults, offline);
        LogCapture log;
        syncWait(store.refresh());
        QCOMPARE(store.accessToken(), std::optional<QString>("tok"));
        QVERIFY(!store.user().has_value());
        QCOMPARE(log.lines().size(), 1);
        QVERIFY(log.hasPrefix("AccountStore.refresh: "));
    }

    void unauthorizedSignsOutAndReportsLogoutOnceWithTheOldToken() {
        AnalyticsEnv env;
        AccountStore store(*env.sandbox.defaults, env.api);
        AnalyticsService::shared().setAccount(&store);
        store.setSession("old-token", kUserDTO);
        TrackedEvents tracked;
        env.f.server.script("/api/me", Script{401, ""});

        syncWait(store.refresh());
        QCOMPARE(tracked.names(), QStringList{"logout"});
        QVERIFY(!store.accessToken().has_value());
        QVERIFY(!store.user().has_value());
        QCOMPARE(env.sandbox.defaults->readString("sorvel_access_token").state, ValueState::Absent);
        // The event still carried the ending session's token.
        QVERIFY(spinUntil([&] { return !env.f.server.received("/api/analytics/event").isEmpty(); }));
        QCOMPARE(env.f.server.received("/api/analytics/event").at(0).header("Authorization"),
                 QByteArray("Bearer old-token"));
    }

    void setSessionSignsInAtOnceAndSetTokenRefreshes() {
        Env env;
        AccountStore store(*env.sandbox.defaults, env.api);
        store.setSession("tok", kUserDTO);
        QVERIFY(store.isLoggedIn());
        QVERIFY(env.f.server.received().isEmpty());
        QCOMPARE(env.sandbox.defaults->readString("sorvel_access_token").value, QString("tok"));

        store.lowerShownBalance(250.0);
        QCOMPARE(store.balanceTokens(), 750.0);
        store.lowerShownBalance(5000.0);
        QCOMPARE(store.balanceTokens(), 0.0);

        const QString migrated = env.f.server.addUser("+15550001111", 42.0);
        store.setToken(migrated);
        QCOMPARE(env.sandbox.defaults->readString("sorvel_access_token").value, migrated);
        QVERIFY(spinUntil([&] { return store.phone() == "+15550001111"; }));
        QCOMPARE(store.balanceTokens(), 42.0);

        store.signOut();
        QVERIFY(!store.isLoggedIn());
        store.lowerShownBalance(1.0); // no user: nothing happens
        QCOMPARE(store.balanceTokens(), 0.0);
    }

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
        AnalyticsEnv env;
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
        AnalyticsEnv env;
        auto store = std::make_unique<AccountStore>(*env.sandbox.defaults, env.api);
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
        AnalyticsEnv env;
        // Only this server's replies count; earlier tests' sends may still be ending.
        QList<QNetworkReply*> finishedReplies;
        connect(&env.f.network, &QNetworkAccessManager::finished, &env.f.server, [&](QNetworkReply* reply) {
            if (reply->url().port() == env.f.server.baseUrl().port() || reply->url().port() == 1)
                finishedReplies.append(reply);
        });
        // The server sits on the answer; no bytes move after the upload.
        env.f.server.script("/api/analytics/event", Script{200, "{}", "application/json", 5000});
        TrackedEvents tracked;
        AnalyticsService::track("slow");
        QCOMPARE(tracked.names(), QStringList{"slow"}); // emitted synchronously, nothing awaited
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
        const int sending = AnalyticsService::shared().pendingSends();
        AnalyticsService::track("nan", {{"x", std::nan("")}});
        QCOMPARE(AnalyticsService::shared().pendingSends(), sending); // no request was started
        QVERIFY(spinUntil([&] { return finishedReplies.size() == 2; }, 5000));
        QVERIFY(log.lines().isEmpty());
    }

    void reportsFromAnotherThreadArriveOnTheServiceThread() {
        AnalyticsEnv env;
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
        TrackedEvents tracked;
        AnalyticsService::track("early", {{"n", 1}});
        for (int i = 0; i < AnalyticsService::maxEarlyEvents; ++i)
            AnalyticsService::track("overflow");
        QCOMPARE(tracked.count(), AnalyticsService::maxEarlyEvents + 1);
        AnalyticsEnv env; // configures
        // The kept ones are bounded: the last report beyond the bound is dropped, never sent.
        QCOMPARE(AnalyticsService::shared().pendingSends(), AnalyticsService::maxEarlyEvents);
        const QJsonObject first = env.event(0);
        QCOMPARE(first.value("event").toString(), QString("early"));
        QCOMPARE(first.value("event_properties").toObject().value("n").toInt(), 1);
        QVERIFY(spinUntil(
            [&] { return env.f.server.received("/api/analytics/event").size() == AnalyticsService::maxEarlyEvents; }));
    }

    void phoneMaskAndNormalisation() {
        struct Case {
            QString input, shown, normalized;
        } cases[] = {
            {"8 999 123-45-67", "+7 (999) 123-45-67", "+79991234567"},
            {"+1 415 555 1234", "+14155551234", "+14155551234"},
            {"79991234567890", "+7 (999) 123-45-67", "+79991234567890"}, // the field drops the 12th digit on
            {"+44 1234 5678 9012 3456", "+441234567890123", "+441234567890123456"},
            {"abc", "", ""},
            {"7", "+7", "+7"},
            {"89", "+7 (9", "+79"},
            {"7999", "+7 (999)", "+7999"},
            {"79991", "+7 (999) 1", "+79991"},
            {"7999123456", "+7 (999) 123-45-6", "+7999123456"},
            {"٨٩٩٩", "+7 (999)", "+7999"}, // Arabic-Indic digits count as numbers
        };
        for (const Case& c : cases) {
            QCOMPARE(formatPhoneInput(c.input), c.shown);
            QCOMPARE(normalizePhone(c.input), c.normalized);
        }
        QCOMPARE(normalizePhone(formatPhoneInput("8 999 123-45-67")), QString("+79991234567"));
        QCOMPARE(phoneCountry("+79991234567"), QString("RU"));
        QCOMPARE(phoneCountry("+14155551234"), QString("US"));
        QCOMPARE(phoneCountry("+441234"), QString("44"));
        QCOMPARE(phoneCountry(""), QString("unknown"));
    }

    void phoneSignInThroughAWrongCodeAndARefusal() {
        FormEnv e;
        e.form.setPhone("8 999 12");
        QCOMPARE(e.form.phone(), QString("+7 (999) 12"));
        QVERIFY(!e.form.canRequestCode()); // six digits
        e.form.setPhone("8 999 123");
        QVERIFY(e.form.canRequestCode()); // seven
        e.form.setPhone("8 (999) 765-43-21");
        syncWait(e.form.requestCodeTask());
        QCOMPARE(e.form.phase(), Phase::enterCode);
        QCOMPARE(e.form.botUsername(), QString("tamvex_dev_bot"));
        const QString devCode = e.form.code();
        QCOMPARE(devCode.size(), 6); // dev_code prefills the field
        QCOMPARE(e.tracked.names(), (QStringList{"login_code_requested", "login_code_delivered"}));
        QCOMPARE(e.tracked.propertiesOf("login_code_requested"), (QVariantMap{{"phone_country", "RU"}}));
        QCOMPARE(e.tracked.propertiesOf("login_code_delivered"), (QVariantMap{{"channel", "telegram"}}));

        e.form.setCode("123");
        QVERIFY(!e.form.canVerify());
        e.form.setCode("  12");
        QVERIFY(e.form.canVerify()); // four characters, spaces count
        e.form.setCode("0000");
        syncWait(e.form.verifyTask());
        QVERIFY(!e.account.isLoggedIn());
        QVERIFY2(e.form.errorText().contains("invalid code"), qPrintable(e.form.errorText()));
        QCOMPARE(e.tracked.propertiesOf("login_failed"), (QVariantMap{{"error", e.form.errorText()}}));
        QCOMPARE(e.form.phase(), Phase::enterCode);

        // The wrong code did not spend the right one.
        e.form.setCode("  " + devCode + " ");
        syncWait(e.form.verifyTask());
        QVERIFY(e.account.isLoggedIn());
        QCOMPARE(e.account.phone(), QString("+79997654321"));
        QCOMPARE(e.tracked.names().last(), QString("login_success"));
        QCOMPARE(e.tracked.propertiesOf("login_success").value("phone_country"), QVariant("RU"));
        QVERIFY(e.tracked.propertiesOf("login_success").contains("balance_tokens"));
        QVERIFY(!e.form.loading());

        // A refused request keeps the phase and says why.
        e.form.editPhone();
        e.env.f.server.script("/api/auth/request-code", Script{500, R"({"error":"bot down"})"});
        syncWait(e.form.requestCodeTask());
        QCOMPARE(e.form.phase(), Phase::enterPhone);
        QCOMPARE(e.tracked.propertiesOf("login_code_failed"), (QVariantMap{{"error", e.form.errorText()}}));
        QVERIFY(!e.form.loading());
    }

    void botActivationPollSurvivesFailuresAndSignsIn() {
        FormEnv e;
        const QUrl base = e.env.f.server.baseUrl();
        QCOMPARE(devCall(base, "POST", "/__dev/bot", {{"require_activation", true}})["ok"], QJsonValue(true));
        e.form.setPhone("+7 999 555 44 33");
        syncWait(e.form.requestCodeTask());
        QCOMPARE(e.form.phase(), Phase::needBotActivation);
        QCOMPARE(e.tracked.names().last(), QString("login_bot_activation_required"));
        QVERIFY(e.form.code().isEmpty());

        e.env.f.server.script("/api/auth/check-activation", Script{200, "not json", "application/json", 0, 1});
        e.form.startPolling();
        e.pollClock.advance(1.99);
        QCOMPARE(e.pollClock.pendingTimers(), 1); // still asleep: the first check comes after 2 s
        e.pollClock.advance(0.01);
        QVERIFY(spinUntil([&] { return e.checks() == 1 && e.pollClock.pendingTimers() == 1; })); // fails: ignored
        QVERIFY(e.pollRound());                                                                  // not activated yet
        QCOMPARE(e.form.phase(), Phase::needBotActivation);
        QVERIFY(e.form.errorText().isEmpty());

        // The user presses "Поделиться номером" in Telegram.
        const QString code = devCall(base, "POST", "/__dev/activate", {{"phone", "+79995554433"}})["code"].toString();
        QCOMPARE(code.size(), 6);
        QVERIFY(e.pollRound());
        QVERIFY(spinUntil([&] { return e.form.phase() == Phase::enterCode; }));
        QVERIFY(!e.form.polling());
        QCOMPARE(e.pollClock.pendingTimers(), 0); // nothing is left to send a check after success

        e.form.setCode(code);
        syncWait(e.form.verifyTask());
        QVERIFY(e.account.isLoggedIn());
    }

    void thePollStopsWithItsView() {
        FormEnv e;
        e.env.f.server.setBotActivationRequired(true);
        e.form.setPhone("+79990001122");
        e.form.startPolling();
        e.form.backToPhone(); // "Изменить номер"
        QVERIFY(!e.form.polling());
        auto form = std::make_unique<InlineLoginForm>(e.env.api, e.account, e.pollClock, QUrl(), nullptr);
        form->setPhone("+79990001122");
        form->startPolling();
        form.reset();                             // the view went away
        QCOMPARE(e.pollClock.pendingTimers(), 0); // no sleep left to wake a check
        QCOMPARE(e.checks(), 0);
    }

    void yandexRoadThroughTheBrowserAndTheHandOver() {
        FormEnv e;
        e.form.signInWithYandex();
        QVERIFY(e.form.yandexInFlight());
        QCOMPARE(e.opened.size(), 1);
        const QUrl authorize = e.opened.at(0);
        QCOMPARE(authorize.path(), QString("/authorize"));
        QCOMPARE(authorize.query(), QString("response_type=code&client_id=0f3a9c41d2b87e65c1a04d7f96e2b358"
                                            "&redirect_uri=tamvex://oauth/yandex&force_confirm=yes"));
        const QUrl back = browserRedirect(authorize);
        QCOMPARE(back.scheme() + "://" + back.host() + back.path(), QString("tamvex://oauth/yandex"));

        // The browser starts a second tamvex with the link; the running one gets it handed over.
        e.callbacks.deliver({"tamvex", back.toString()}, {back.toString()});
        QVERIFY(spinUntil([&] { return e.account.isLoggedIn(); }));
        QVERIFY(spinUntil([&] { return !e.form.yandexInFlight(); }));
        QCOMPARE(e.tracked.names(), (QStringList{"yandex_signin_tapped", "yandex_signin_success"}));
        QVERIFY(e.tracked.propertiesOf("yandex_signin_success").contains("is_new"));
        QCOMPARE(e.env.f.server.received("/api/oauth/yandex/exchange").size(), 1);
    }

    void yandexCancelAndFailures() {
        FormEnv e;
        e.form.signInWithYandex();
        e.form.cancelYandex(); // "Отмена" while the browser is open
        QVERIFY(!e.form.yandexInFlight());
        QVERIFY(e.form.errorText().isEmpty());
        QCOMPARE(e.tracked.names().last(), QString("yandex_signin_canceled"));
        // A late return after the cancel is not taken.
        QVERIFY(!e.form.handleYandexCallback(QUrl("tamvex://oauth/yandex?code=late")));

        e.form.signInWithYandex();
        QVERIFY(e.form.handleYandexCallback(QUrl("tamvex://oauth/yandex?error=access_denied")));
        QCOMPARE(e.form.errorText(), QString("Yandex: Yandex не вернул code"));
        QCOMPARE(e.tracked.propertiesOf("yandex_signin_failed"), (QVariantMap{{"error", "Yandex не вернул code"}}));

        e.env.f.server.script("/api/oauth/yandex/exchange", Script{400, R"({"error":"bad code"})"});
        e.form.signInWithYandex();
        QVERIFY(e.form.errorText().isEmpty());
        QVERIFY(e.form.handleYandexCallback(QUrl("tamvex://oauth/yandex?code=x")));
        QVERIFY(spinUntil([&] { return !e.form.yandexInFlight(); }));
        QVERIFY(e.form.errorText().startsWith("Не удалось войти через Яндекс: "));
        QVERIFY(e.tracked.propertiesOf("yandex_signin_exchange_failed").contains("error"));
        QVERIFY(!e.account.isLoggedIn());

        InlineLoginForm noHost(e.env.api, e.account, e.pollClock, QUrl(), nullptr);
        noHost.signInWithYandex();
        QCOMPARE(noHost.errorText(), QString("Yandex: Не удалось построить Yandex URL"));
        QVERIFY(!noHost.yandexInFlight());
    }
};

TAMVEX_TEST_CLASS(AccountTest)
#include "AccountTest.moc"
