#include "core/AppState.h"
#include "shell/MenuBarController.h"
#include "shell/SettingsStore.h"
#include "shell/SymbolIcons.h"
#include "support/AppFixture.h"

#include <QMenu>
#include <QTest>

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
        MenuBarController menus{*app.state,
                                {[this] { calls << "toggle"; }, [this] { calls << "main:" + app.state->mainSectionRaw(); },
                                 [this] { calls << "welcome"; }, [this] { calls << "updates"; },
                                 [this] { calls << "terminate"; }}};
    };

private slots:
    void statusMenuInOrderWithItsKeysAndActions() {
        Fixture f;
        QCOMPARE(describe(f.menus.statusMenu()),
                 (QStringList{"Запись (зажми горячую клавишу)", "-", "Открыть Sorvel… [Ctrl+,]", "Проверить обновления…",
                              "-", "Выйти из Sorvel [Ctrl+Q]"}));
        for (const char* title : {"Запись (зажми горячую клавишу)", "Открыть Sorvel…", "Проверить обновления…",
                                  "Выйти из Sorvel"})
            find(f.menus.statusMenu(), title)->trigger();
        QCOMPARE(f.calls, (QStringList{"toggle", "main:home", "updates", "terminate"}));
    }

    void pointerMenuInOrderAndEachOpensItsSection() {
        Fixture f;
        auto menu = f.menus.buildPointerMenu();
        QCOMPARE(describe(*menu), (QStringList{"Sorvel · 0 ø · 0 req (off)", "-", "Главная", "История [Ctrl+H]", "Инсайты",
                                               "Аккаунт", "Настройки [Ctrl+,]", "-", "Онбординг…",
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
        QCOMPARE(f.menus.buildPointerMenu()->actions().first()->text(),
                 MenuBarController::usageLine(0.0052, 2));
        QCOMPARE(MenuBarController::usageLine(0.0052, 2), "Sorvel · 1 300 ø · 2 req");
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

    void withoutTrayTheLogSaysSoOnce() {
        test::LogCapture log;
        Fixture f;
        QVERIFY(!f.menus.trayIcon()); // no StatusNotifierWatcher on the test's bus
        QCOMPARE(log.lines().filter("No system tray").size(), 1);
    }
};

QTEST_MAIN(MenuBarTest)
#include "MenuBarTest.moc"
