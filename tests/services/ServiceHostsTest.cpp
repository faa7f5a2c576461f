#include "support/TestMain.h"
#include "pipelines/ServiceHosts.h"
#include "support/TestSupport.h"

#include <QTest>

using namespace tamvex;

class ServiceHostsTest : public QObject {
    Q_OBJECT
private slots:
    void theEnvironmentOverridesTheCompiledHosts() {
        qunsetenv("TAMVEX_MAIN_URL");
        qunsetenv("TAMVEX_STT_URL");
        qunsetenv("TAMVEX_OPENROUTER_URL");
        qunsetenv("TAMVEX_YANDEX_OAUTH_URL");
        const ServiceHosts compiled = ServiceHosts::fromEnvironment();
        QCOMPARE(compiled.main, QUrl(TAMVEX_DEFAULT_MAIN_URL));
        QCOMPARE(compiled.openRouter, QUrl(TAMVEX_DEFAULT_OPENROUTER_URL));

        qputenv("TAMVEX_MAIN_URL", "http://127.0.0.1:8080/ignored/path");
        qputenv("TAMVEX_STT_URL", " http://localhost:9 ");
        qputenv("TAMVEX_OPENROUTER_URL", "not a url");
        qputenv("TAMVEX_YANDEX_OAUTH_URL", "ftp://example.com");
        test::LogCapture log;
        const ServiceHosts hosts = ServiceHosts::fromEnvironment();
        QCOMPARE(hosts.main, QUrl("http://127.0.0.1:8080"));
        QCOMPARE(hosts.stt, QUrl("http://localhost:9"));
        // Bad overrides keep the compiled host and say why.
        QCOMPARE(hosts.openRouter, compiled.openRouter);
        QCOMPARE(hosts.yandexOAuth, compiled.yandexOAuth);
        QCOMPARE(log.lines().size(), 2);
        QVERIFY(log.hasPrefix("ServiceHosts: ignoring TAMVEX_OPENROUTER_URL=not a url"));

        QCOMPARE(ServiceHosts::join(hosts.main, "/api/me").toString(), QString("http://127.0.0.1:8080/api/me"));
        QCOMPARE(ServiceHosts::join(QUrl("https://h.example/base/"), "/api/me").toString(),
                 QString("https://h.example/base/api/me"));
    }
};

TAMVEX_TEST_CLASS(ServiceHostsTest)
#include "ServiceHostsTest.moc"
