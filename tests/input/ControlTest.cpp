// D-Bus control on a private session bus (the test runs under dbus-run-session).
#include "InputTestSupport.h"
#include "desktop/ControlService.h"
#include "desktop/PortalShortcuts.h"
#include "support/TestMain.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVirtualObject>
#include <QSignalSpy>
#include <QTest>

using namespace tamvex;

namespace {

/// Runs the client process while our event loop serves the bus.
test::CommandOutput runClient(const QStringList& args) {
    return test::runProcess(QCoreApplication::applicationDirPath() + "/input_control_client", args,
                            QProcessEnvironment::systemEnvironment());
}

/// A stand-in for the desktop's GlobalShortcuts portal, on its own bus connection. It reads
/// the raw messages, so the test does not share the client's marshalling code.
class FakePortal : public QDBusVirtualObject {
public:
    QStringList boundIds;

    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& bus) override {
        const QList<QVariant> args = message.arguments();
        QVariantMap results;
        if (message.member() == "CreateSession") {
            results.insert("session_handle",
                           QVariant::fromValue(QDBusObjectPath("/org/freedesktop/portal/desktop/session/t/s")));
        } else if (message.member() == "BindShortcuts") {
            QList<std::pair<QString, QVariantMap>> shortcuts;
            args.value(1).value<QDBusArgument>() >> shortcuts;
            for (const auto& [id, properties] : shortcuts)
                boundIds << id;
        } else {
            return false;
        }
        const auto options = qdbus_cast<QVariantMap>(args.value(message.member() == "CreateSession" ? 0 : 3));
        const QString sender = message.service().mid(1).replace('.', '_');
        const QString path =
            "/org/freedesktop/portal/desktop/request/" + sender + "/" + options.value("handle_token").toString();
        bus.send(message.createReply(QVariant::fromValue(QDBusObjectPath(path))));
        QDBusMessage response = QDBusMessage::createSignal(path, "org.freedesktop.portal.Request", "Response");
        response << uint(0) << results;
        bus.send(response);
        return true;
    }
};

/// A shortcut's edge, as the portal signals it.
void emitEdge(QDBusConnection bus, const QString& member, const QString& session, const QString& id) {
    QDBusMessage signal =
        QDBusMessage::createSignal("/org/freedesktop/portal/desktop", "org.freedesktop.portal.GlobalShortcuts", member);
    signal << QVariant::fromValue(QDBusObjectPath(session)) << id << qulonglong(1) << QVariantMap();
    bus.send(signal);
}

} // namespace

class ControlTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() {
        if (!QDBusConnection::sessionBus().isConnected())
            QSKIP("no session bus: run under dbus-run-session");
    }

    void ctlAndASecondStartReachTheRunningInstance() {
        test::CoordinatorRig rig;
        auto service = std::make_unique<ControlService>(*rig.coordinator);
        QVERIFY(service->registerOn());
        // A second owner is refused: this is the single-instance guard.
        ControlService second(*rig.coordinator);
        QVERIFY(!second.registerOn(QDBusConnection::connectToBus(QDBusConnection::SessionBus, "second")));

        // A second start hands its arguments over, and its links apart.
        QSignalSpy activated(service.get(), &ControlService::activated);
        QCOMPARE(runClient({"forward", "--flag", "tamvex://oauth/yandex?code=42"}).code, 0);
        const QStringList links{"tamvex://oauth/yandex?code=42"};
        QCOMPARE(activated, (QList<QVariantList>{{QStringList{"--flag"} + links, links}}));

        // Gone with its owner: the name is free again, and the client says no instance runs.
        service.reset();
        const test::CommandOutput result = runClient({"ctl", "toggle"});
        QCOMPARE(result.code, 1);
        QVERIFY2(result.err.contains("Tamvex не запущен"), qPrintable(result.err));
        QCOMPARE(runClient({"forward", "tamvex://oauth/yandex?code=1"}).code, 3); // now the first instance
    }

    void portalShortcutsDriveTheCustomShortcut() {
        QDBusConnection portalBus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, "portal");
        FakePortal portal;
        QVERIFY(portalBus.registerVirtualObject("/org/freedesktop/portal/desktop", &portal));
        QVERIFY(portalBus.registerService("org.freedesktop.portal.Desktop"));

        test::ShortcutRig rig;
        QStringList& calls = rig.edges;
        rig.registry.storeShortcut(KeyboardShortcuts::sorvelRecordAlternative,
                                   KeyboardShortcuts::Shortcut{0x60, KeyboardShortcuts::CarbonModifier::control});
        rig.registry.onKeyDown({"marker", std::nullopt}, [&] { calls << "marker"; });
        PortalShortcuts shortcuts(rig.registry);
        shortcuts.start();
        QVERIFY(test::spinUntil([&] { return shortcuts.isBound(); }, 20000));
        portal.boundIds.sort();
        QCOMPARE(portal.boundIds, (QStringList{"marker", "sorvelRecordAlternative"}));

        // Another session's edge is ignored. Signals from one connection arrive in order, so the
        // marker's press, sent last, comes after every other edge.
        emitEdge(portalBus, "Activated", shortcuts.sessionHandle(), "sorvelRecordAlternative");
        emitEdge(portalBus, "Deactivated", shortcuts.sessionHandle(), "sorvelRecordAlternative");
        emitEdge(portalBus, "Activated", "/some/other/session", "sorvelRecordAlternative");
        emitEdge(portalBus, "Activated", shortcuts.sessionHandle(), "marker");
        QVERIFY(test::spinUntil([&] { return calls.contains("marker"); }, 20000));
        QCOMPARE(calls, (QStringList{"down", "up", "marker"}));
    }
};

TAMVEX_TEST_CLASS(ControlTest)
#include "ControlTest.moc"
