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
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>
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

} // namespace

class AccountTest : public QObject {
    Q_OBJECT

private slots:
    // Reports kept before configuration by an earlier test would reach the next test's server.
    void init() { AnalyticsService::shared().unconfigure(); }

    void requestsOnTheWire() {
        AccountEnv env;
        env.f.server.script("/api/me", Script{200, kUser});
        const MeResponse me = syncWait(env.api.me("tok-1"));
        QCOMPARE(me.user, (UserDTO{7, "+79990001122", 1234.5, 1700000000}));
        QCOMPARE(env.f.server.received("/api/me").at(0).header("Authorization"), QByteArray("Bearer tok-1"));

        // No token: the header is absent, not empty.
        env.f.server.script(
            "/api/auth/verify",
            Script{200, R"({"access_token":"t","user":{"id":1,"phone":"+1","balance_tokens":0,"created_at":5}})"});
        syncWait(env.api.verify("+1", "1234"));
        const auto sent = env.f.server.received("/api/auth/verify").at(0);
        QVERIFY(!sent.hasHeader("Authorization"));
        QCOMPARE(sent.header("Content-Type"), QByteArray("application/json"));
        QCOMPARE(QJsonDocument::fromJson(sent.body).object(), (QJsonObject{{"phone", "+1"}, {"code", "1234"}}));

        // No device id stored yet: exactly the keys phone and app.
        const QByteArray codeAnswer = R"({"ok":true,"phone":"+7","bot_username":"b","bot_link":"l","dev_code":"4242"})";
        env.f.server.script("/api/auth/request-code", Script{200, codeAnswer});
        QCOMPARE(syncWait(env.api.requestCode("+7")).dev_code, std::optional<QString>("4242"));
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
        QCOMPARE(syncWait(env.api.exchangeYandex("abc")).is_new, std::nullopt);
        QCOMPARE(QJsonDocument::fromJson(env.f.server.received("/api/oauth/yandex/exchange").at(0).body).object(),
                 (QJsonObject{{"code", "abc"}, {"redirect_uri", "tamvex://oauth/yandex"}, {"device_id", "dev-1"}}));

        // The activation check ignores the status, and escapes the separator but not the plus.
        env.f.server.script("/api/auth/check-activation", Script{500, R"({"activated":true,"code_ready":false})"});
        const auto status = syncWait(env.api.checkActivation("+7 999&x=1"));
        QVERIFY(status.activated && !status.code_ready);
        const auto check = env.f.server.received("/api/auth/check-activation").at(0);
        QVERIFY(!check.hasHeader("Authorization"));
        QVERIFY2(check.query.startsWith("phone=+7"), qPrintable(check.query));
        QCOMPARE(QUrlQuery(check.query).queryItemValue("phone", QUrl::FullyDecoded), QString("+7 999&x=1"));
    }

    // The mapping of every answer, in its order; over the wire the same mapping runs (see the
    // hostile bodies of the services tests), and a 1xx answer has no body there by HTTP's rules.
    void answerMappingFollowsItsOrder() {
        using K = APIError::Kind;
        const QByteArray long300 = numberedBody(300);
        const struct Case {
            int status;
            QByteArray body;
            K kind;
            QString shown;
        } cases[] = {
            {401, R"({"balance": 5})", K::unauthorized, "Сессия истекла. Войди заново."}, // the body is not read
            {402, R"({"error":"insufficient_balance","balance":12.5})", K::insufficientBalance,
             "Баланс 12.5000 ø — пополни счёт."},
            // A long body is kept whole; only the words shown are cut to 200 characters.
            {500, long300, K::http, "Сервер вернул 500: " + QString::fromLatin1(long300.left(200))},
            {503, QByteArray("\xff\xfe\xfd", 3), K::http, "Сервер вернул 503: "}, // not UTF-8: empty text
            {199, "early", K::http, "Сервер вернул 199: early"},
            {-1, {}, K::other, "no response"},
            // A success with a missing required field.
            {299, R"({"user":{"id":7,"phone":"+7","balance_tokens":1}})", K::decode,
             "Не удалось разобрать ответ сервера."},
        };
        for (const Case& c : cases) {
            const auto e = thrown<APIError>([&] {
                SorvelAPI::checkAnswer(HttpAnswer{c.status, c.body, {}});
                SorvelAPI::decodeAnswer<MeResponse>(c.body);
            });
            QVERIFY2(e && e->kind() == c.kind, qPrintable(QString::number(c.status)));
            QCOMPARE(e->description(), c.shown);
            if (c.status == 500)
                QCOMPARE(e->responseText(), QString::fromLatin1(long300));
        }
    }

    void transportFailuresPassUnmapped() {
        AccountEnv env;
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

    void theSessionThroughRefreshesAndARelaunch() {
        AccountEnv env;
        AccountStore store(*env.sandbox.defaults, env.api);
        syncWait(store.refresh()); // no token: nothing is sent
        store.setSession("tok", kUserDTO);
        QVERIFY(store.isLoggedIn()); // at once, without a request
        QVERIFY(env.f.server.received().isEmpty());

        // A failed refresh keeps the session and logs once.
        env.f.server.script("/api/me", Script{500, "boom", "text/plain", 0, 1});
        LogCapture log;
        bool sawRefreshing = false;
        connect(&store, &AccountStore::changed, [&] { sawRefreshing |= store.isRefreshing(); });
        syncWait(store.refresh());
        QVERIFY(sawRefreshing);
        QVERIFY(!store.isRefreshing());
        QCOMPARE(store.user(), std::optional<UserDTO>(kUserDTO));
        QCOMPARE(log.lines(), QStringList{"error: AccountStore.refresh: Сервер вернул 500: boom"});

        // An offline relaunch: the stored token alone is no sign-in, and a transport failure keeps it.
        SorvelAPI offline(env.f.network, env.f.clock, *env.sandbox.defaults, QUrl("http://127.0.0.1:1"));
        AccountStore relaunched(*env.sandbox.defaults, offline);
        QVERIFY(!relaunched.isLoggedIn());
        syncWait(relaunched.refresh());
        QCOMPARE(relaunched.accessToken(), std::optional<QString>("tok"));
        QVERIFY(!relaunched.user().has_value());
        QCOMPARE(log.lines().size(), 2);

        store.lowerShownBalance(5000.0); // never below zero
        QCOMPARE(store.balanceTokens(), 0.0);
        const QString migrated = env.f.server.addUser("+15550001111", 42.0);
        store.setToken(migrated);
        QCOMPARE(env.sandbox.defaults->readString("sorvel_access_token").value, migrated);
        QVERIFY(spinUntil([&] { return store.phone() == "+15550001111"; }));
        QCOMPARE(store.balanceTokens(), 42.0);

        store.signOut();
        store.lowerShownBalance(1.0); // no user: nothing happens
        QCOMPARE(store.balanceTokens(), 0.0);
    }

    // The report carries the token the account holds when it is made.
    void unauthorizedSignsOutAndReportsLogoutWithTheOldToken() {
        AnalyticsEnv env;
        auto store = std::make_unique<AccountStore>(*env.sandbox.defaults, env.api);
        AnalyticsService::shared().setAccount(store.get());
        store->setSession("old-token", kUserDTO);
        TrackedEvents tracked;
        env.f.server.script("/api/me", Script{401, ""});
        syncWait(store->refresh());
        QCOMPARE(tracked.names(), QStringList{"logout"});
        QVERIFY(!store->accessToken().has_value());
        QVERIFY(!store->user().has_value());
        QCOMPARE(env.sandbox.defaults->readString("sorvel_access_token").state, ValueState::Absent);

        AnalyticsService::track("signed_out_event");
        store.reset(); // the account is held weakly
        AnalyticsService::track("after_store_gone");
        QVERIFY(spinUntil([&] { return env.f.server.received("/api/analytics/event").size() == 3; }));
        QMap<QString, devserver::Received> byEvent;
        for (const auto& r : env.f.server.received("/api/analytics/event"))
            byEvent.insert(QJsonDocument::fromJson(r.body).object().value("event").toString(), r);
        QCOMPARE(byEvent["logout"].header("Authorization"), QByteArray("Bearer old-token"));
        QVERIFY(!byEvent["signed_out_event"].hasHeader("Authorization"));
        QVERIFY(!byEvent["after_store_gone"].hasHeader("Authorization"));
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

    void wireBodiesHoldOnlyWhatIsThereAndTrackNeverWaits() {
        AnalyticsEnv env;
        const QString device = AnalyticsService::shared().deviceId();

        // A null property disappears, and with it the now empty object.
        AnalyticsService::track("section_opened", {{"section", QVariant::fromValue(nullptr)}});
        QCOMPARE(env.event(0), (QJsonObject{{"event", "section_opened"}, {"device_id", device}}));

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
        QCOMPARE(env.event(1), expected);
        const auto sent = env.f.server.received("/api/analytics/event").at(1);
        QCOMPARE(sent.header("Content-Type"), QByteArray("application/json"));
        QVERIFY(!sent.hasHeader("Authorization")); // no account: no header

        // The server sits on the answer; no bytes move after the upload.
        QVERIFY(spinUntil([] { return AnalyticsService::shared().pendingSends() == 0; }));
        env.f.server.script("/api/analytics/event", Script{200, "{}", "application/json", 5000});
        TrackedEvents tracked;
        AnalyticsService::track("slow");
        QCOMPARE(tracked.names(), QStringList{"slow"}); // emitted synchronously, nothing awaited
        env.event(2);
        env.f.clock.advance(AnalyticsService::requestTimeoutSec - 0.01);
        QCoreApplication::processEvents();
        QCOMPARE(AnalyticsService::shared().pendingSends(), 1);
        // Given up well before the server's answer would come.
        env.f.clock.advance(0.01);
        QVERIFY(spinUntil([&] { return AnalyticsService::shared().pendingSends() == 0; }, 2000));

        // An unserializable value is dropped in silence.
        LogCapture log;
        AnalyticsService::track("nan", {{"x", std::nan("")}});
        QCOMPARE(AnalyticsService::shared().pendingSends(), 0); // no request was started
        QVERIFY(log.lines().isEmpty());
    }

    void eventsBeforeConfigureAreKeptUpToTheCap() {
        AnalyticsService::shared().unconfigure();
        for (int i = 0; i <= AnalyticsService::maxEarlyEvents; ++i)
            AnalyticsService::track(i == 0 ? "early" : "overflow");
        AnalyticsEnv env; // configures
        // One past the cap: the newest is dropped, the oldest is sent.
        QCOMPARE(AnalyticsService::shared().pendingSends(), AnalyticsService::maxEarlyEvents);
        QCOMPARE(env.event(0).value("event").toString(), QString("early"));
    }

    // One row where the bracket opens, where it closes without a space, at the last dash, and at each cap.
    void phoneMaskAndNormalisation() {
        struct Case {
            QString input, shown, normalized;
        } cases[] = {
            {"abc", "", ""},
            {"89", "+7 (9", "+79"},
            {"7999", "+7 (999)", "+7999"},
            {"7999123456", "+7 (999) 123-45-6", "+7999123456"},
            {"79991234567890", "+7 (999) 123-45-67", "+79991234567890"}, // the field drops the 12th digit on
            {"+44 1234 5678 9012 3456", "+441234567890123", "+441234567890123456"},
        };
        for (const Case& c : cases) {
            QCOMPARE(formatPhoneInput(c.input), c.shown);
            QCOMPARE(normalizePhone(c.input), c.normalized);
        }
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
        const QString devCode = e.form.code();
        QVERIFY(!devCode.isEmpty()); // dev_code prefills the field
        QCOMPARE(e.tracked.names(), (QStringList{"login_code_requested", "login_code_delivered"}));
        QCOMPARE(e.tracked.propertiesOf("login_code_requested"), (QVariantMap{{"phone_country", "RU"}}));

        e.form.setCode("123");
        QVERIFY(!e.form.canVerify());
        e.form.setCode("  12");
        QVERIFY(e.form.canVerify()); // four characters, spaces count
        e.form.setCode("0000");
        syncWait(e.form.verifyTask());
        QVERIFY(!e.account.isLoggedIn());
        QVERIFY2(e.form.errorText().contains("invalid code"), qPrintable(e.form.errorText()));
        QCOMPARE(e.tracked.propertiesOf("login_failed"), (QVariantMap{{"error", e.form.errorText()}}));

        // The wrong code did not spend the right one.
        e.form.setCode("  " + devCode + " ");
        syncWait(e.form.verifyTask());
        QVERIFY(e.account.isLoggedIn());
        QCOMPARE(e.account.phone(), QString("+79997654321"));
        QVERIFY(e.tracked.propertiesOf("login_success").contains("balance_tokens"));

        // A refused request keeps the phase and says why.
        e.form.editPhone();
        e.env.f.server.script("/api/auth/request-code", Script{500, R"({"error":"bot down"})"});
        syncWait(e.form.requestCodeTask());
        QCOMPARE(e.form.phase(), Phase::enterPhone);
        QCOMPARE(e.tracked.propertiesOf("login_code_failed"), (QVariantMap{{"error", e.form.errorText()}}));
        QVERIFY(!e.form.loading());
    }

    void botActivationPollSurvivesFailuresSignsInAndStopsWithItsView() {
        FormEnv e;
        const QUrl base = e.env.f.server.baseUrl();
        e.env.f.server.setBotActivationRequired(true);
        e.form.setPhone("+7 999 555 44 33");
        syncWait(e.form.requestCodeTask());
        QCOMPARE(e.form.phase(), Phase::needBotActivation);
        QCOMPARE(e.tracked.names().last(), QString("login_bot_activation_required"));

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
        devCall(base, "POST", "/__dev/activate", {{"phone", "+79995554433"}});
        QVERIFY(e.pollRound());
        QVERIFY(spinUntil([&] { return e.form.phase() == Phase::enterCode; }));
        QVERIFY(!e.form.polling());
        QCOMPARE(e.pollClock.pendingTimers(), 0); // nothing is left to send a check after success

        // The poll stops with its view: on "Изменить номер", and when the view goes away.
        e.form.startPolling();
        e.form.backToPhone();
        QVERIFY(!e.form.polling());
        auto form = std::make_unique<InlineLoginForm>(e.env.api, e.account, e.pollClock, QUrl(), nullptr);
        form->setPhone("+79990001122");
        form->startPolling();
        form.reset();
        QCOMPARE(e.pollClock.pendingTimers(), 0); // no sleep left to wake a check
    }

    void yandexCancelFailureAndTheRoadThroughTheBrowser() {
        FormEnv e;
        e.form.signInWithYandex();
        e.form.cancelYandex(); // "Отмена" while the browser is open
        QVERIFY(!e.form.yandexInFlight());
        // A late return after the cancel is not taken.
        QVERIFY(!e.form.handleYandexCallback(QUrl("tamvex://oauth/yandex?code=late")));

        // A return without a code fails with the reason composed into the form's text.
        e.form.signInWithYandex();
        QVERIFY(e.form.handleYandexCallback(QUrl("tamvex://oauth/yandex?error=access_denied")));
        QCOMPARE(e.form.errorText(), QString("Yandex: Yandex не вернул code"));
        // "code=" has a value, empty: it goes to the service, which refuses it.
        e.form.signInWithYandex();
        QVERIFY(e.form.handleYandexCallback(QUrl("tamvex://oauth/yandex?code=&state=x")));
        QVERIFY(spinUntil([&] { return !e.form.yandexInFlight(); }));
        QVERIFY(e.form.errorText().startsWith("Не удалось войти через Яндекс: "));
        QCOMPARE(e.env.f.server.received("/api/oauth/yandex/exchange").size(), 1);

        e.form.signInWithYandex();
        const QUrl authorize = e.opened.last();
        QCOMPARE(authorize.path(), QString("/authorize"));
        QCOMPARE(authorize.query(), QString("response_type=code&client_id=0f3a9c41d2b87e65c1a04d7f96e2b358"
                                            "&redirect_uri=tamvex://oauth/yandex&force_confirm=yes"));
        // The browser starts a second tamvex with the link; the running one gets it handed over.
        const QString back = "tamvex://oauth/yandex?code=dev-1";
        e.callbacks.deliver({"tamvex", back}, {back});
        QVERIFY(spinUntil([&] { return e.account.isLoggedIn(); }));
        QVERIFY(spinUntil([&] { return !e.form.yandexInFlight(); }));
        QCOMPARE(e.tracked.names().last(), QString("yandex_signin_success"));
        QCOMPARE(e.env.f.server.received("/api/oauth/yandex/exchange").size(), 2);
    }
};

TAMVEX_TEST_CLASS(AccountTest)
#include "AccountTest.moc"
