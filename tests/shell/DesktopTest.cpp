#include "core/AppState.h"
#include "shell/MenuBarController.h"
#include "shell/SettingsStore.h"
#include "shell/SymbolIcons.h"
#include "shell/hud/RecordingHUDController.h"
#include "support/AppFixture.h"
#include "support/ProcessFixtures.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDir>
#include <QMenu>
#include <QMutex>
#include <QProcess>
#include <QQuickWindow>
#include <QScopeGuard>
#include <QScreen>
#include <QSystemTrayIcon>
#include <QPainter>
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

template <class Pred> int countPixels(const QImage& image, Pred pred) {
    const QImage img = image.convertToFormat(QImage::Format_ARGB32);
    int count = 0;
    for (int y = 0; y < img.height(); ++y)
        for (int x = 0; x < img.width(); ++x)
            count += pred(img.pixel(x, y));
    return count;
}

/// Pixels within a small distance of `color`, ignoring nearly transparent ones.
int pixelsNear(const QImage& image, const QColor& color) {
    return countPixels(image, [&](QRgb p) {
        return qAlpha(p) > 200 && qAbs(qRed(p) - color.red()) < 24 && qAbs(qGreen(p) - color.green()) < 24 &&
               qAbs(qBlue(p) - color.blue()) < 24;
    });
}

int opaquePixels(const QImage& image) {
    return countPixels(image, [](QRgb p) { return qAlpha(p) > 0; });
}

const QColor recordingAccent = QColor::fromRgbF(1.0f, 0.55f, 0.45f);
const QColor processingAccent = QColor::fromRgbF(0.65f, 0.55f, 0.95f);
const QColor orange = QColor::fromRgbF(1.0f, 0.584f, 0.0f);
} // namespace

// The shell on a desktop: the menus and the tray icon, read back over D-Bus as the panel reads
// them, and the HUD as a user sees it on a private X server: a window the window manager keeps
// above everything, at the bottom centre, drawing each state.
class DesktopTest : public QObject {
    Q_OBJECT

    struct MenuFixture {
        test::AppFixture app;
        QStringList calls;
        MenuBarController menus{
            *app.state,
            {[this] { calls << "toggle"; }, [this] { calls << "main:" + app.state->mainSectionRaw(); },
             [this] { calls << "welcome"; }, [this] { calls << "updates"; }, [this] { calls << "terminate"; }}};
    };

    struct HudFixture {
        test::AppFixture app;
        bool exposed = false;
        RecordingHUDController hud{*app.state, nullptr, [] {}};
        HudFixture() {
            hud.show();
            if (hud.window())
                exposed = QTest::qWaitForWindowExposed(hud.window());
        }
        QRect available() const { return QGuiApplication::primaryScreen()->availableGeometry(); }
        QImage grab() { return hud.window()->grabWindow(); }
        int bottomGap() const { return available().bottom() - hud.window()->geometry().bottom(); }
        bool centred() const { return qAbs(hud.window()->geometry().center().x() - available().center().x()) <= 1; }
        /// What an X tool says of the window; empty when the tool is not installed.
        QString ask(const QString& tool) const {
            return test::runProcess(tool, {"-id", QString::number(hud.window()->winId())},
                                    QProcessEnvironment::systemEnvironment())
                .out;
        }
    };

private slots:
    void init() {
        if (QByteArray(QTest::currentTestFunction()).startsWith("hud") && !gXvfb->ok())
            QSKIP(qPrintable("no private X server: " + gXvfb->reason));
    }

    // The status menu and the pointer menu, in order with their keys, and what each line does.
    void menusInOrderWithTheirKeysAndActions() {
        MenuFixture f;
        QCOMPARE(describe(f.menus.statusMenu()),
                 (QStringList{"Запись (зажми горячую клавишу)", "-", "Открыть Sorvel… [Ctrl+,]",
                              "Проверить обновления…", "-", "Выйти из Sorvel [Ctrl+Q]"}));
        // Its other lines call the same actions as the pointer menu's, checked below.
        find(f.menus.statusMenu(), "Запись (зажми горячую клавишу)")->trigger();

        auto menu = f.menus.buildPointerMenu();
        QCOMPARE(describe(*menu), (QStringList{"Sorvel · 0 ø · 0 req (off)", "-", "Главная", "История [Ctrl+H]",
                                               "Инсайты", "Аккаунт", "Настройки [Ctrl+,]", "-", "Онбординг…",
                                               "Проверить обновления…", "-", "Выйти из Sorvel [Ctrl+Q]"}));
        for (const char* title : {"Инсайты", "История", "Аккаунт", "Настройки", "Главная", "Онбординг…",
                                  "Проверить обновления…", "Выйти из Sorvel"})
            find(*menu, title)->trigger();
        QCOMPARE(f.calls, (QStringList{"toggle", "main:insights", "main:home", "main:account", "main:settings",
                                       "main:home", "welcome", "updates", "terminate"}));
        // The numbers of the first line are read at each opening, not when the menu was first made.
        f.app.state->settings().recordUsage({100, 50, 150, 0.004});
        f.app.state->settings().recordUsage({100, 50, 150, 0.0012});
        QCOMPARE(f.menus.buildPointerMenu()->actions().first()->text(), "Sorvel · 1 300 ø · 2 req");
    }

    // Each state shows a symbol of its own, and every symbol a state can show is one of our icons
    // and draws; the processing and error icons stand out on a light panel as on a dark one.
    void iconPerState() {
        using C = RecordingState::Case;
        // Pixels of the icon laid on `panel` that differ clearly from the panel.
        const auto visibleOn = [](const QIcon& icon, QColor panel) {
            QImage image(32, 32, QImage::Format_ARGB32);
            image.fill(panel);
            QPainter painter(&image);
            icon.paint(&painter, image.rect());
            painter.end();
            int count = 0;
            for (int y = 0; y < 32; ++y)
                for (int x = 0; x < 32; ++x)
                    count += qAbs(qGray(image.pixel(x, y)) - qGray(panel.rgb())) > 80;
            return count;
        };
        QSet<QString> symbols;
        for (C c : {C::idle, C::recording, C::processing, C::error})
            for (bool tray : {true, false}) {
                const QString symbol = MenuBarController::iconSymbol(c, tray);
                const QIcon icon = MenuBarController::stateIcon(c, tray);
                QVERIFY2(!icon.isNull(), qPrintable(symbol));
                QVERIFY(!SymbolIcons::pathData(symbol).isEmpty());
                if (c == C::processing || c == C::error)
                    for (QColor panel : {QColor(Qt::white), QColor(0xee, 0xee, 0xee), QColor(0x20, 0x20, 0x24)})
                        QVERIFY2(visibleOn(icon, panel) > 40, qPrintable(symbol + " on " + panel.name()));
                symbols << symbol;
            }
        QCOMPARE(symbols.size(), 5); // idle without our tray picture falls back to a dot
    }

    // A desktop with a tray host: the icon registers with it, with no word of a missing tray.
    void trayIconReachesTheDesktopsTrayHost() {
        if (!gTrayHost)
            QSKIP("no private X server and session bus for the tray host");
        test::LogCapture log;
        MenuFixture f;
        QVERIFY(f.menus.trayIcon());
        QVERIFY(log.lines().filter("No system tray").isEmpty());
        // Icons of the earlier tests registered too and are gone with their names: ours is
        // the one registered name that still has an owner.
        QVERIFY(test::spinUntil([&] {
            QStringList alive = gTrayHost->items();
            alive.removeIf([](const QString& n) { return !gBus->hasOwner(n); });
            return alive.size() == 1;
        }));
    }

    void withoutTrayTheLogSaysSoOnce() {
        if (gTrayHost) {
            QDBusConnection::connectToBus(gBus->address, "tray-host")
                .unregisterService("org.kde.StatusNotifierWatcher");
            QVERIFY(test::spinUntil([] { return !QSystemTrayIcon::isSystemTrayAvailable(); }));
        }
        test::LogCapture log;
        MenuFixture f;
        QVERIFY(!f.menus.trayIcon());
        QCOMPARE(log.lines().filter("No system tray").size(), 1);
    }

    // Where X itself has the window: the bottom centre, 6 above the bottom, 28 with a nudge; and
    // the hints that keep it above everything, on every desktop, never focused.
    void hudWindowFloatsAtTheBottomCentre() {
        HudFixture f;
        QVERIFY(f.exposed);
        QTRY_VERIFY(f.centred());
        QTRY_COMPARE(f.bottomGap(), 6);
        const QString info = f.ask("xwininfo");
        if (!info.isEmpty())
            QVERIFY2(info.contains(QString("Absolute upper-left X:  %1\n").arg(f.hud.window()->x())), qPrintable(info));
        f.app.state->showNudge({"pawprint.fill", "Зажми и говори", "Отпусти — текст появится в поле.", "FN"}, 60);
        QTRY_COMPARE(f.bottomGap(), 28);
        QTRY_VERIFY(f.centred());
        f.app.state->dismissNudge();
        QTRY_COMPARE(f.bottomGap(), 6);

        const QString props = f.ask("xprop");
        if (props.isEmpty())
            QSKIP("xprop is not installed (package x11-utils)");
        for (const char* state :
             {"_NET_WM_STATE_ABOVE", "_NET_WM_STATE_STICKY", "_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER"})
            QVERIFY2(props.contains(state), qPrintable(props));
        QVERIFY2(props.contains("_NET_WM_DESKTOP(CARDINAL) = 4294967295"), qPrintable(props));
        QVERIFY2(props.contains("Client accepts input or input focus: False"), qPrintable(props));
    }

    // Through XWayland the compositor's window manager may ignore the place and the hints:
    // the window is left unmanaged there and placed by the same arithmetic as on X.
    void hudUnmanagedThroughXWayland() {
        qputenv("WAYLAND_DISPLAY", "wayland-0");
        const auto unset = qScopeGuard([] { qunsetenv("WAYLAND_DISPLAY"); });
        HudFixture f;
        QVERIFY(f.exposed);
        QVERIFY(f.hud.window()->flags().testFlag(Qt::X11BypassWindowManagerHint));
        const QString info = f.ask("xwininfo");
        if (!info.isEmpty())
            QVERIFY2(info.contains("Override Redirect State: yes"), qPrintable(info));
    }

    // Every state draws, each in a look of its own: the idle handle has no accent, recording the
    // warm one, processing the violet one without orange, an error orange.
    void hudDrawsEachState() {
        HudFixture f;
        QVERIFY(f.exposed);
        QImage idle;
        QTRY_VERIFY((idle = f.grab(), opaquePixels(idle) > 100));
        QCOMPARE(pixelsNear(idle, recordingAccent), 0);
        const struct {
            RecordingState state;
            QColor color, absent;
            const char* name;
        } states[] = {
            {RecordingState::recording(), recordingAccent, processingAccent, "recording"},
            {RecordingState::processing(), processingAccent, orange, "processing"},
            {RecordingState::error(QString("Не удалось распознать речь")), orange, processingAccent, "error"},
        };
        for (const auto& c : states) {
            f.app.state->setRecordingState(c.state);
            QImage image;
            QTRY_VERIFY_WITH_TIMEOUT((image = f.grab(), pixelsNear(image, c.color) >= 60), 5000);
            QVERIFY2(pixelsNear(image, c.absent) == 0, c.name);
        }
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
    // The tray needs the X platform's theme, the HUD's tests the X server itself; offscreen has neither.
    qputenv("QT_QPA_PLATFORM", xvfb.ok() ? "xcb" : "offscreen");
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
    DesktopTest test;
    const int failures = QTest::qExec(&test, argc, argv);
    hostThread.quit();
    hostThread.wait();
    return failures;
}

#include "DesktopTest.moc"
