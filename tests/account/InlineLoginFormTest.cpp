#include "account/InlineLoginForm.h"
#include "account/AccountStore.h"
#include "account/AnalyticsService.h"
#include "account/OAuthCallbacks.h"
#include "account/PhoneNumbers.h"
#include "support/ProcessFixtures.h"
#include "support/ServiceFixture.h"
#include "support/TestMain.h"

#include <QJsonDocument>
#include <QNetworkReply>
#include <QSignalSpy>
#include <QTest>
#include <QUrlQuery>

using namespace tamvex;
using namespace tamvex::test;
using devserver::Script;
using Phase = InlineLoginForm::Phase;

namespace {
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
    QSignalSpy tracked{&AnalyticsService::shared(), &AnalyticsService::tracked};

    QStringList events() const {
        QStringList names;
        for (const auto& args : tracked)
            names << args.at(0).toString();
        return names;
    }
    QVariantMap propertiesOf(const QString& event) const {
        for (const auto& args : tracked)
            if (args.at(0).toString() == event)
                return args.at(1).toMap();
        return {};
    }
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

class InlineLoginFormTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { AnalyticsService::shared().unconfigure(); }

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
        QCOMPARE(e.events(), (QStringList{"login_code_requested", "login_code_delivered"}));
        QCOMPARE(e.propertiesOf("login_code_requested"), (QVariantMap{{"phone_country", "RU"}}));
        QCOMPARE(e.propertiesOf("login_code_delivered"), (QVariantMap{{"channel", "telegram"}}));

        e.form.setCode("123");
        QVERIFY(!e.form.canVerify());
        e.form.setCode("  12");
        QVERIFY(e.form.canVerify()); // four characters, spaces count
        e.form.setCode("0000");
        syncWait(e.form.verifyTask());
        QVERIFY(!e.account.isLoggedIn());
        QVERIFY2(e.form.errorText().contains("invalid code"), qPrintable(e.form.errorText()));
        QCOMPARE(e.propertiesOf("login_failed"), (QVariantMap{{"error", e.form.errorText()}}));
        QCOMPARE(e.form.phase(), Phase::enterCode);

        // The wrong code did not spend the right one.
        e.form.setCode("  " + devCode + " ");
        syncWait(e.form.verifyTask());
        QVERIFY(e.account.isLoggedIn());
        QCOMPARE(e.account.phone(), QString("+79997654321"));
        QCOMPARE(e.events().last(), QString("login_success"));
        QCOMPARE(e.propertiesOf("login_success").value("phone_country"), QVariant("RU"));
        QVERIFY(e.propertiesOf("login_success").contains("balance_tokens"));
        QVERIFY(!e.form.loading());

        // A refused request keeps the phase and says why.
        e.form.editPhone();
        e.env.f.server.script("/api/auth/request-code", Script{500, R"({"error":"bot down"})"});
        syncWait(e.form.requestCodeTask());
        QCOMPARE(e.form.phase(), Phase::enterPhone);
        QCOMPARE(e.propertiesOf("login_code_failed"), (QVariantMap{{"error", e.form.errorText()}}));
        QVERIFY(!e.form.loading());
    }

    void botActivationPollSurvivesFailuresAndSignsIn() {
        FormEnv e;
        const QUrl base = e.env.f.server.baseUrl();
        QCOMPARE(devCall(base, "POST", "/__dev/bot", {{"require_activation", true}})["ok"], QJsonValue(true));
        e.form.setPhone("+7 999 555 44 33");
        syncWait(e.form.requestCodeTask());
        QCOMPARE(e.form.phase(), Phase::needBotActivation);
        QCOMPARE(e.events().last(), QString("login_bot_activation_required"));
        QVERIFY(e.form.code().isEmpty());

        e.form.startPolling();
        e.pollClock.advance(1.99);
        spinUntil([] { return false; }, 100);
        QCOMPARE(e.checks(), 0); // the first check comes after 2 s
        e.env.f.server.script("/api/auth/check-activation", Script{200, "not json", "application/json", 0, 1});
        QVERIFY(e.pollRound()); // fails: ignored
        QVERIFY(e.pollRound()); // not activated yet
        QCOMPARE(e.form.phase(), Phase::needBotActivation);
        QVERIFY(e.form.errorText().isEmpty());

        // The user presses "Поделиться номером" in Telegram.
        const QString code = devCall(base, "POST", "/__dev/activate", {{"phone", "+79995554433"}})["code"].toString();
        QCOMPARE(code.size(), 6);
        QVERIFY(e.pollRound());
        QVERIFY(spinUntil([&] { return e.form.phase() == Phase::enterCode; }));
        QVERIFY(!e.form.polling());
        const int checks = e.checks();
        e.pollClock.advance(10.0);
        spinUntil([] { return false; }, 100);
        QCOMPARE(e.checks(), checks); // no request after success

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
        form.reset(); // the view went away
        e.pollClock.advance(20.0);
        spinUntil([] { return false; }, 100);
        QCOMPARE(e.checks(), 0);
        QCOMPARE(e.pollClock.pendingTimers(), 0);
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
        QCOMPARE(e.events(), (QStringList{"yandex_signin_tapped", "yandex_signin_success"}));
        QVERIFY(e.propertiesOf("yandex_signin_success").contains("is_new"));
        QCOMPARE(e.env.f.server.received("/api/oauth/yandex/exchange").size(), 1);
    }

    void yandexCancelAndFailures() {
        FormEnv e;
        e.form.signInWithYandex();
        e.form.cancelYandex(); // "Отмена" while the browser is open
        QVERIFY(!e.form.yandexInFlight());
        QVERIFY(e.form.errorText().isEmpty());
        QCOMPARE(e.events().last(), QString("yandex_signin_canceled"));
        // A late return after the cancel is not taken.
        QVERIFY(!e.form.handleYandexCallback(QUrl("tamvex://oauth/yandex?code=late")));

        e.form.signInWithYandex();
        QVERIFY(e.form.handleYandexCallback(QUrl("tamvex://oauth/yandex?error=access_denied")));
        QCOMPARE(e.form.errorText(), QString("Yandex: Yandex не вернул code"));
        QCOMPARE(e.propertiesOf("yandex_signin_failed"), (QVariantMap{{"error", "Yandex не вернул code"}}));

        e.env.f.server.script("/api/oauth/yandex/exchange", Script{400, R"({"error":"bad code"})"});
        e.form.signInWithYandex();
        QVERIFY(e.form.errorText().isEmpty());
        QVERIFY(e.form.handleYandexCallback(QUrl("tamvex://oauth/yandex?code=x")));
        QVERIFY(spinUntil([&] { return !e.form.yandexInFlight(); }));
        QVERIFY(e.form.errorText().startsWith("Не удалось войти через Яндекс: "));
        QVERIFY(e.propertiesOf("yandex_signin_exchange_failed").contains("error"));
        QVERIFY(!e.account.isLoggedIn());

        InlineLoginForm noHost(e.env.api, e.account, e.pollClock, QUrl(), nullptr);
        noHost.signInWithYandex();
        QCOMPARE(noHost.errorText(), QString("Yandex: Не удалось построить Yandex URL"));
        QVERIFY(!noHost.yandexInFlight());
    }
};

TAMVEX_TEST_CLASS(InlineLoginFormTest)
#include "InlineLoginFormTest.moc"
