// D-Bus control on a private session bus (the test runs under dbus-run-session).
#include "InputTestSupport.h"
#include "desktop/ControlService.h"
#include "KeyboardShortcuts/KeyCodes.h"
#include "desktop/PortalShortcuts.h"
#include "support/TestMain.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusMetaType>
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

using PortalList = QList<std::pair<QString, QVariantMap>>;

/// A stand-in for the desktop's GlobalShortcuts portal, on its own bus connection, answering as
/// the real ones do. It reads the raw messages, so the test does not share the client's
/// marshalling code.
class FakePortal : public QDBusVirtualObject {
public:
    enum class Style {
        plasma527, ///< a string session handle; binds what CreateSession carries, ignores BindShortcuts' list
        newer,     ///< an object-path handle; binds what BindShortcuts carries (GNOME 48+, Plasma 6)
        bindsNone, ///< answers 0 with an empty list: nothing is bound
        refuses,   ///< the user said no in the desktop's dialog (response 1)
    };
    explicit FakePortal(Style style) : style(style) {
        qDBusRegisterMetaType<std::pair<QString, QVariantMap>>();
        qDBusRegisterMetaType<PortalList>();
    }

    Style style;
    QMap<QString, QString> assigned; // id → trigger, as the desktop words it
    QStringList calls;
    QString session;

    /// "CTRL+ALT+D" as KDE and GNOME describe it back: "Ctrl+Alt+D".
    static QString describe(const QString& trigger) {
        QStringList parts = trigger.split('+');
        for (QString& part : parts)
            if (part.size() > 1 && part.at(0) != 'F')
                part = part.at(0) + part.mid(1).toLower();
        return parts.join('+');
    }
    void take(const QVariant& list) {
        PortalList shortcuts;
        list.value<QDBusArgument>() >> shortcuts;
        for (const auto& [id, properties] : shortcuts)
            if (!assigned.contains(id)) // the desktop keeps what it bound first, as KDE does
                assigned.insert(id, describe(properties.value("preferred_trigger").toString()));
    }
    QVariant list() const {
        PortalList shortcuts;
        for (auto it = assigned.cbegin(); it != assigned.cend(); ++it)
            shortcuts.append({it.key(), QVariantMap{{"description", "x"}, {"trigger_description", it.value()}}});
        return QVariant::fromValue(shortcuts);
    }

    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& bus) override {
        const QList<QVariant> args = message.arguments();
        calls << message.member();
        if (message.member() == "Close") {
            bus.send(message.createReply());
            return true;
        }
        QVariantMap results;
        uint code = 0;
        QVariantMap options;
        if (message.member() == "CreateSession") {
            options = qdbus_cast<QVariantMap>(args.value(0));
            session = "/org/freedesktop/portal/desktop/session/t/" + options.value("session_handle_token").toString();
            results.insert("session_handle", style == Style::newer ? QVariant::fromValue(QDBusObjectPath(session))
                                                                   : QVariant(session));
            if (style == Style::plasma527) {
                take(options.value("shortcuts"));
                results.insert("shortcuts", list());
            }
        } else if (message.member() == "BindShortcuts") {
            options = qdbus_cast<QVariantMap>(args.value(3));
            if (style == Style::newer)
                take(args.value(1));
            code = style == Style::refuses ? 1 : 0;
            results.insert("shortcuts", list());
        } else {
            return false;
        }
        const QString sender = message.service().mid(1).replace('.', '_');
        const QString path =
            "/org/freedesktop/portal/desktop/request/" + sender + "/" + options.value("handle_token").toString();
        bus.send(message.createReply(QVariant::fromValue(QDBusObjectPath(path))));
        QDBusMessage response = QDBusMessage::createSignal(path, "org.freedesktop.portal.Request", "Response");
        response << code << results;
        bus.send(response);
        return true;
    }
    /// The user picks another trigger in the desktop's settings.
    void changeOnDesktop(QDBusConnection bus, const QString& id, const QString& trigger) {
        assigned[id] = trigger;
        QDBusMessage signal = QDBusMessage::createSignal("/org/freedesktop/portal/desktop",
                                                         "org.freedesktop.portal.GlobalShortcuts", "ShortcutsChanged");
        signal << QVariant::fromValue(QDBusObjectPath(session)) << list();
        bus.send(signal);
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

    // The portal as Plasma 5.27 and a newer desktop answer it, and the answers that bind
    // nothing: only a list of our shortcuts in the answer counts as bound.
    void portalBindsAsTheDesktopAnswers() {
        using Style = FakePortal::Style;
        using namespace KeyboardShortcuts;
        const struct {
            Style style;
            bool bound;
            QString reason;
        } rows[] = {
            {Style::plasma527, true, {}},
            {Style::newer, true, {}},
            {Style::bindsNone, false, "bound no shortcut"},
            {Style::refuses, false, "the user refused"},
        };
        for (const auto& row : rows) {
            const QString name = QString::number(int(row.style));
            QDBusConnection portalBus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, "portal" + name);
            FakePortal portal(row.style);
            QVERIFY(portalBus.registerVirtualObject("/org/freedesktop/portal/desktop", &portal, QDBusConnection::SubPath));
            QVERIFY(portalBus.registerService("org.freedesktop.portal.Desktop"));
            test::ShortcutRig rig;
            rig.registry.storeShortcut(sorvelRecordAlternative, Shortcut{0x60, CarbonModifier::control});
            auto source = std::make_unique<PortalShortcuts>(rig.registry);
            PortalShortcuts& shortcuts = *source;
            const auto input = test::keyInput(rig.registry, rig.clock, true, std::move(source));
            input->start();
            QVERIFY(shortcuts.isPending());
            QVERIFY2(test::spinUntil([&] { return !shortcuts.isPending(); }, 20000), qPrintable(name));
            QCOMPARE(shortcuts.isAvailable(), row.bound);
            QVERIFY2(shortcuts.unavailableReason().contains(row.reason), qPrintable(shortcuts.unavailableReason()));
            if (!row.bound) {
                QCOMPARE(input->activeSource(), KeyInput::Source::none);
                QCOMPARE(rig.registry.delivery(), Delivery::none);
                portalBus.unregisterService("org.freedesktop.portal.Desktop");
                QDBusConnection::disconnectFromBus("portal" + name);
                continue;
            }
            QCOMPARE(input->activeSource(), KeyInput::Source::portal);
            QCOMPARE(rig.registry.desktopTrigger(sorvelRecordAlternative), QStringLiteral("Ctrl+F5"));

            // Another session's edge is ignored. Signals from one connection arrive in order, so
            // the last press comes after every other edge.
            const QString session = shortcuts.sessionHandle();
            emitEdge(portalBus, "Activated", session, "sorvelRecordAlternative");
            emitEdge(portalBus, "Deactivated", session, "sorvelRecordAlternative");
            emitEdge(portalBus, "Activated", "/some/other/session", "sorvelRecordAlternative");
            emitEdge(portalBus, "Activated", session, "sorvelRecordAlternative");
            QVERIFY(test::spinUntil([&] { return rig.edges.size() == 3; }, 20000));
            QCOMPARE(rig.edges, (QStringList{"down", "up", "down"}));

            // The user rebinds it on the desktop: that is what the settings pane shows.
            portal.changeOnDesktop(portalBus, "sorvelRecordAlternative", "Ctrl+Alt+X");
            QVERIFY(test::spinUntil(
                [&] { return rig.registry.desktopTrigger(sorvelRecordAlternative) == "Ctrl+Alt+X"; }, 20000));

            if (row.style == Style::newer) {
                // A shortcut recorded in the settings pane is bound anew; a newer desktop takes it.
                portal.assigned.clear();
                rig.registry.storeShortcut(sorvelRecordAlternative,
                                           Shortcut{0x02, CarbonModifier::control | CarbonModifier::option});
                QVERIFY(test::spinUntil(
                    [&] { return rig.registry.desktopTrigger(sorvelRecordAlternative) == "Ctrl+Alt+D"; }, 20000));
                QCOMPARE(portal.calls.count("BindShortcuts"), 2);
                // Quitting closes the session; the held shortcut is let go.
                input->stop();
                QCOMPARE(rig.edges.last(), QStringLiteral("up"));
                QVERIFY(test::spinUntil([&] { return portal.calls.contains("Close"); }, 20000));
            } else {
                // The desktop closes the session: the held shortcut is let go and nothing serves.
                QDBusMessage closed =
                    QDBusMessage::createSignal(session, "org.freedesktop.portal.Session", "Closed");
                closed << QVariantMap();
                portalBus.send(closed);
                QVERIFY(test::spinUntil([&] { return input->activeSource() == KeyInput::Source::none; }, 20000));
                QCOMPARE(rig.edges.last(), QStringLiteral("up"));
                QCOMPARE(rig.registry.delivery(), Delivery::none);
            }
            portalBus.unregisterService("org.freedesktop.portal.Desktop");
            QDBusConnection::disconnectFromBus("portal" + name);
        }
    }

    // The trigger offered to the desktop is the stored shortcut in the portal's syntax.
    void preferredTriggerSyntax() {
        using namespace KeyboardShortcuts;
        const struct {
            Shortcut shortcut;
            QString trigger;
        } rows[] = {
            {{0x02, CarbonModifier::control | CarbonModifier::option}, "CTRL+ALT+D"},
            {{KeyCode::space, CarbonModifier::command | CarbonModifier::shift}, "SHIFT+LOGO+space"},
            {{0x60, 0}, "F5"},
            {{0x02, CarbonModifier::control | CarbonModifier::function}, ""}, // FN is no trigger
        };
        for (const auto& row : rows)
            QCOMPARE(PortalShortcuts::preferredTrigger(row.shortcut), row.trigger);
        QCOMPARE(PortalShortcuts::preferredTrigger(std::nullopt), QString());
    }
};

TAMVEX_TEST_CLASS(ControlTest)
#include "ControlTest.moc"
