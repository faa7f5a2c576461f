#include "account/AccountStore.h"
#include "account/AnalyticsService.h"
#include "account/SorvelAPI.h"
#include "support/ServiceFixture.h"
#include "support/TestMain.h"

#include <QSignalSpy>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;
using devserver::Script;

namespace {
const UserDTO kUser{7, "+79990001122", 1000.0, 1700000000};
}

class AccountStoreTest : public QObject {
    Q_OBJECT

    using Env = AccountEnv;

private slots:
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
        store.setSession("tok", kUser);
        env.f.server.script("/api/me", Script{500, "boom"});
        LogCapture log;
        bool sawRefreshing = false;
        connect(&store, &AccountStore::changed, [&] { sawRefreshing |= store.isRefreshing(); });
        syncWait(store.refresh());
        QVERIFY(sawRefreshing);
        QVERIFY(!store.isRefreshing());
        QCOMPARE(store.accessToken(), std::optional<QString>("tok"));
        QCOMPARE(store.user(), std::optional<UserDTO>(kUser));
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
        QVERIFY(store.accessToken().has_value());
        QVERIFY(!store.user().has_value());
        QVERIFY(!store.isLoggedIn());
        QCOMPARE(log.lines().size(), 1);
        QVERIFY(log.hasPrefix("AccountStore.refresh: "));
    }

    void unauthorizedSignsOutAndReportsLogoutOnceWithTheOldToken() {
        Env env;
        AnalyticsService::shared().configure(*env.sandbox.defaults, env.f.network, env.f.clock, env.f.server.baseUrl());
        AccountStore store(*env.sandbox.defaults, env.api);
        AnalyticsService::shared().setAccount(&store);
        store.setSession("old-token", kUser);
        QSignalSpy tracked(&AnalyticsService::shared(), &AnalyticsService::tracked);
        env.f.server.script("/api/me", Script{401, ""});

        syncWait(store.refresh());
        QCOMPARE(tracked.count(), 1);
        QCOMPARE(tracked.at(0).at(0).toString(), QString("logout"));
        QVERIFY(!store.accessToken().has_value());
        QVERIFY(!store.user().has_value());
        QCOMPARE(env.sandbox.defaults->readString("sorvel_access_token").state, ValueState::Absent);
        // The event still carried the ending session's token.
        QVERIFY(spinUntil([&] { return !env.f.server.received("/api/analytics/event").isEmpty(); }));
        QCOMPARE(env.f.server.received("/api/analytics/event").at(0).header("Authorization"),
                 QByteArray("Bearer old-token"));
        QVERIFY(spinUntil([] { return AnalyticsService::shared().pendingSends() == 0; }));
        AnalyticsService::shared().unconfigure();
        AnalyticsService::shared().setAccount(nullptr);
    }

    void setSessionSignsInAtOnceAndSetTokenRefreshes() {
        Env env;
        AccountStore store(*env.sandbox.defaults, env.api);
        store.setSession("tok", kUser);
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
};

TAMVEX_TEST_CLASS(AccountStoreTest)
#include "AccountStoreTest.moc"
