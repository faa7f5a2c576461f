#include "core/AppState.h"
#include "shell/MenuBarController.h"
#include "shell/SettingsStore.h"
#include "shell/SymbolIcons.h"
#include "support/AppFixture.h"
#include "support/ProcessFixtures.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QMenu>
#include <QMutex>
#include <QProcess>
#include <QSystemTrayIcon>
#include <QTest>
#include <QThread>

using namespace tamvex;

namespace {
/// Each action's title and shortcut, "-" for a separator; disabled lines end in " (off)".
QStringList describe(const QMenu& menu) {
    QStringList rows;
    for (const QAction* a : menu.actions()) {
        if (a->isSeparator()) {
            rows << "-";
            continue;
        }
        QString row = a->text();
        if (!a->shortcut().isEmpty())
            row += " [" + a->shortcut().toString() + "]";
        if (!a->isEnabled())
            row += " (off)";
        rows << row;
    }
    return rows;
}

/// The desktop's tray host as the StatusNotifierItem protocol sees it: icons register here.
/// It answers from a thread of its own, as a panel would from its own process, because Qt
/// asks it with blocking calls.
class FakeTrayHost : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(bool IsStatusNotifierHostRegistered READ hostRegistered)
    Q_PROPERTY(int ProtocolVersion READ protocolVersion)
    Q_PROPERTY(QStringList RegisteredStatusNotifierItems READ items)
public:
    bool hostRegistered() const { return true; }
    int protocolVersion() const { return 0; }
    QStringList items() const {
        QMutexLocker lock(&m_mutex);
        return m_registered;
    }
public slots:
    void RegisterStatusNotifierItem(const QString& service) {
        QMutexLocker lock(&m_mutex);
        m_registered << service;
    }
    void RegisterStatusNotifierHost(const QString&) {}

private:
    mutable QMutex m_mutex;
    QStringList m_registered;
};

test::XvfbSession* gXvfb = nullptr;
test::SessionBus* gBus = nullptr;
FakeTrayHost* gTrayHost = nullptr;

QAction* find(const QMenu& menu, const QString& title) {
    for (QAction* a : menu.actions())
        if (a->text() == title)
            return a;
    return nullptr;
}
} // namespace

class MenuBarTest : public QObject {
    Q_OBJECT

    struct Fixture {
        test::AppFixture app;
        QStringList calls;
        MenuBarController menus{
            *app.state,
            {[this] { calls << "toggle"; }, [this] { calls << "main:" + app.state->mainSectionRaw(); },
             [this] { calls << "welcome"; }, [this] { calls << "updates"; }, [this] { calls << "terminate"; }}};
    };

private slots:
    void statusMenuInOrderWithItsKeysAndActions() {
        Fixture f;
        QCOMPARE(describe(f.menus.statusMenu()),
                 (QStringList{"Запись (зажми горячую клавишу)", "-", "Открыть Sorvel… [Ctrl+,]",
                              "Проверить обновления…", "-", "Выйти из Sorvel [Ctrl+Q]"}));
        for (const char* title :
             {"Запись (зажми горячую клавишу)", "Открыть Sorvel…", "Проверить обновления…", "Выйти из Sorvel"})
            find(f.menus.statusMenu(), title)->trigger();
        QCOMPARE(f.calls, (QStringList{"toggle", "main:home", "updates", "terminate"}));
    }

    void pointerMenuInOrderAndEachOpensItsSection() {
        Fixture f;
        auto menu = f.menus.buildPointerMenu();
        QCOMPARE(describe(*menu), (QStringList{"Sorvel · 0 ø · 0 req (off)", "-", "Главная", "История [Ctrl+H]",
                                               "Инсайты", "Аккаунт", "Настройки [Ctrl+,]", "-", "Онбординг…",
                                               "Проверить обновления…", "-", "Выйти из Sorvel [Ctrl+Q]"}));
        for (const char* title : {"Инсайты", "История", "Аккаунт", "Настройки", "Главная", "Онбординг…",
                                  "Проверить обновления…", "Выйти из Sorvel"})
            find(*menu, title)->trigger();
        QCOMPARE(f.calls, (QStringList{"main:insights", "main:home", "main:account", "main:settings", "main:home",
                                       "welcome", "updates", "terminate"}));
    }

    // The numbers of the first line are read at each opening, not when the menu was first made.
    void firstLineIsCurrentAtEachOpening() {
        Fixture f;
        SettingsStore& settings = f.app.state->settings();
        QCOMPARE(f.menus.buildPointerMenu()->actions().first()->text(), "Sorvel · 0 ø · 0 req");
        settings.recordUsage({100, 50, 150, 0.004});
        settings.recordUsage({100, 50, 150, 0.0012});
        QCOMPARE(f.menus.buildPointerMenu()->actions().first()->text(), "Sorvel · 1 300 ø · 2 req");
    }

    void iconPerState() {
        using C = RecordingState::Case;
        QCOMPARE(MenuBarController::iconSymbol(C::idle, true), "TrayIcon");
        QCOMPARE(MenuBarController::iconSymbol(C::idle, false), "circle.fill");
        QCOMPARE(MenuBarController::iconSymbol(C::recording, true), "pawprint.circle.fill");
        QCOMPARE(MenuBarController::iconSymbol(C::processing, true), "waveform");
        QCOMPARE(MenuBarController::iconSymbol(C::error, true), "exclamationmark.triangle.fill");
        // Every symbol a state can show is one of our icons and draws.
        for (C c : {C::idle, C::recording, C::processing, C::error})
            for (bool tray : {true, false}) {
                const QString symbol = MenuBarController::iconSymbol(c, tray);
                QVERIFY2(!SymbolIcons::icon(symbol, Qt::white).isNull(), qPrintable(symbol));
                QVERIFY(!SymbolIcons::pathData(symbol).isEmpty());
            }
        QVERIFY(SymbolIcons::icon("no.such.symbol", Qt::white).isNull());
    }

    // A desktop with a tray host: the icon registers with it and its menu is the status menu,
    // read back over D-Bus as the panel reads it.
    void trayIconReachesTheDesktopsTrayHost() {
        if (!gTrayHost)
            QSKIP("no private X server and session bus for the tray host");
        test::LogCapture log;
        Fixture f;
        QVERIFY(f.menus.trayIcon());
        QVERIFY(log.lines().filter("No system tray").isEmpty());
        // Icons of the earlier tests registered too and are gone with their names: ours is
        // the one registered name that still has an owner.
        QString ours;
        QVERIFY(test::spinUntil([&] {
            const QStringList items = gTrayHost->items();
            const auto alive =
                std::count_if(items.begin(), items.end(), [](const QString& n) { return gBus->hasOwner(n); });
            if (alive == 1)
                ours = *std::find_if(items.begin(), items.end(), [](const QString& n) { return gBus->hasOwner(n); });
            return alive == 1;
        }));
        QProcess layout;
        layout.start("dbus-send", {"--session", "--print-reply", "--dest=" + ours, "/MenuBar",
                                   "com.canonical.dbusmenu.GetLayout", "int32:0", "int32:-1", "array:string:"});
        // The reply comes from this very thread: keep the event loop turning while it waits.
        QVERIFY(test::spinUntil([&] { return layout.state() == QProcess::NotRunning; }, 15000));
        const QString reply = QString::fromUtf8(layout.readAllStandardOutput() + layout.readAllStandardError());
        qsizetype at = 0;
        for (const char* label :
             {"Запись (зажми горячую клавишу)", "Открыть Sorvel…", "Проверить обновления…", "Выйти из Sorvel"}) {
            at = reply.indexOf(QString("string \"%1\"").arg(label), at);
            QVERIFY2(at >= 0, qPrintable(QString(label) + " not in order in\n" + reply));
        }
    }

    void withoutTrayTheLogSaysSoOnce() {
        if (gTrayHost) {
            QDBusConnection::connectToBus(gBus->address, "tray-host")
                .unregisterService("org.kde.StatusNotifierWatcher");
            QVERIFY(test::spinUntil([] { return !QSystemTrayIcon::isSystemTrayAvailable(); }));
        }
        test::LogCapture log;
        Fixture f;
        QVERIFY(!f.menus.trayIcon());
        QCOMPARE(log.lines().filter("No system tray").size(), 1);
    }
};

int main(int argc, char** argv) {
    test::XvfbSession xvfb;
    test::SessionBus bus;
    gXvfb = &xvfb;
    gBus = &bus;
    const bool desktop = xvfb.ok() && bus.ok();
    if (desktop)
        qputenv("DBUS_SESSION_BUS_ADDRESS", bus.address.toUtf8());
    // The tray needs the X platform's theme; offscreen has none.
    qputenv("QT_QPA_PLATFORM", desktop ? "xcb" : "offscreen");
    QApplication app(argc, argv);
    QThread hostThread;
    FakeTrayHost host;
    host.moveToThread(&hostThread);
    hostThread.start();
    QDBusConnection hostBus = QDBusConnection::connectToBus(bus.address, "tray-host");
    if (desktop && hostBus.registerService("org.kde.StatusNotifierWatcher") &&
        hostBus.registerObject("/StatusNotifierWatcher", &host,
                               QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllProperties))
        gTrayHost = &host;
    MenuBarTest test;
    const int failures = QTest::qExec(&test, argc, argv);
    hostThread.quit();
    hostThread.wait();
    return failures;
}

#include "MenuBarTest.moc"
