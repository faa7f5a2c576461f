#include "KeyboardShortcuts/ShortcutRegistry.h"
#include "WindowFixture.h"
#include "shell/QmlModule.h"
#include "shell/main/HistoryListModel.h"
#include "shell/main/MainWindowModel.h"
#include "support/TestMain.h"
#include "support/TrackedEvents.h"

#include <QDirIterator>
#include <QFile>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QSignalSpy>
#include <QTest>

#include <functional>

using namespace tamvex;
using namespace tamvex::test;

namespace {
// Every QML warning fails the test that caused it.
QStringList g_qmlWarnings;
QtMessageHandler g_previous = nullptr;
void catchQmlWarnings(QtMsgType type, const QMessageLogContext& context, const QString& message) {
    if (type >= QtWarningMsg && (message.contains("qrc:/") || QByteArray(context.category).startsWith("qt.qml")))
        g_qmlWarnings << message;
    g_previous(type, context, message);
}

// The parts under `root` that the software renderer the program runs on cannot draw (a shader)
// or draws in the window's corner (the style's ripple), by class name.
QStringList undrawableParts(QObject* root) {
    QStringList found;
    QSet<QObject*> seen;
    std::function<void(QObject*)> visit = [&](QObject* object) {
        if (!object || seen.contains(object))
            return;
        seen.insert(object);
        const QString name = object->metaObject()->className();
        if (object->inherits("QQuickShaderEffect") || name.contains("Ripple"))
            found << name;
        for (QObject* child : object->children())
            visit(child);
        if (auto* item = qobject_cast<QQuickItem*>(object))
            for (QQuickItem* child : item->childItems())
                visit(child);
        // A closed popup's parts hang off it, outside the window's items.
        for (const char* part : {"background", "contentItem", "header", "footer", "indicator"})
            visit(object->property(part).value<QQuickItem*>());
    };
    visit(root);
    return found;
}

/// The main window opened on a pane by `open`, once it is on screen.
QQuickWindow* shownOn(WindowFixture& fx, void (ShellWindows::*open)()) {
    (fx.windows.*open)();
    QQuickWindow* window = fx.windows.mainWindow().window();
    return window && QTest::qWaitForWindowExposed(window) ? window : nullptr;
}

QQuickItem* currentPane(QQuickWindow* window) {
    QQuickItem* panes = findItem(window->contentItem(), "panes");
    return panes ? panes->childItems().value(panes->property("currentIndex").toInt()) : nullptr;
}
} // namespace

class MainWindowTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { g_previous = qInstallMessageHandler(catchQmlWarnings); }
    void init() { g_qmlWarnings.clear(); }
    void cleanup() { QVERIFY2(g_qmlWarnings.isEmpty(), qPrintable(g_qmlWarnings.join('\n'))); }

    // Every file of the module loads and builds: a typo in a property name or an import only
    // shows up as a warning at run time.
    void everyModuleFileLoads_data() {
        QTest::addColumn<QString>("file");
        QVERIFY(QFile::exists(":/Tamvex/Common/Theme.qml")); // the module is where the rows are read
        QDirIterator it(":/Tamvex", {"*.qml"}, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString file = it.next().mid(QStringLiteral(":/Tamvex/").size());
            QTest::newRow(qPrintable(file)) << file;
        }
    }
    void everyModuleFileLoads() {
        QFETCH(QString, file);
        QQmlEngine engine;
        setUpQmlEngine(engine);
        // A singleton is reached through the module, not instantiated from its file.
        QQmlComponent component(&engine);
        if (file == "Common/Theme.qml")
            component.setData("import QtQuick\nimport Tamvex\nQtObject { property color c: Theme.recordingAccent }",
                              QUrl("qrc:/probe.qml"));
        else
            component.loadUrl(qmlModuleUrl(file));
        QVERIFY2(component.isReady(), qPrintable(component.errorString()));
        QFile source(":/Tamvex/" + file);
        QVERIFY(source.open(QIODevice::ReadOnly));
        if (source.readAll().contains("required property"))
            return; // built, with its required properties, by the tests of the window that holds it
        const std::unique_ptr<QObject> object(component.create());
        QVERIFY2(object, qPrintable(component.errorString()));
        // Bindings that fail later (a null read after the first frame) warn on the next turns.
        if (auto* window = qobject_cast<QQuickWindow*>(object.get()))
            window->show();
        QTest::qWait(100);
    }

    void everyPaneShowsItsTexts() {
        WindowFixture fx;
        fx.seedSampleData();
        TrackedEvents tracked;
        fx.windows.openSettingsAction(); // chosen before the window exists
        QQuickWindow* window = fx.windows.mainWindow().window();
        QVERIFY(window && QTest::qWaitForWindowExposed(window));

        const struct {
            void (ShellWindows::*open)();
            QString section;
            QStringList texts;
        } panes[] = {
            {&ShellWindows::openHomeAction, "home", {"Привет, я Sorvel", "ИСТОРИЯ", "СЕГОДНЯ", "ВЧЕРА"}},
            {&ShellWindows::openInsightsAction, "insights", {"Категории", "Много"}},
            {&ShellWindows::openAccountAction, "account", {"Войти через Яндекс ID"}},
            {&ShellWindows::openSettingsAction, "settings", {"Связь с автором"}},
        };
        for (const auto& pane : panes) {
            (fx.windows.*pane.open)();
            QCOMPARE(fx.windows.mainWindow().window(), window); // one window, reused
            QTRY_COMPARE(fx.windows.mainWindow().model()->section(), pane.section);
            const QStringList texts = visibleTexts(currentPane(window));
            for (const QString& expected : pane.texts)
                QVERIFY2(texts.contains(expected), qPrintable(pane.section + ": no " + expected));
            QVERIFY2(colourCount(window->grabWindow()) > 20, qPrintable(pane.section + " looks blank"));
        }
        QStringList opened;
        for (const auto& args : tracked)
            if (args.at(0).toString() == "section_opened")
                opened << args.at(1).toMap().value("section").toString();
        QCOMPARE(opened, (QStringList{"settings", "home", "insights", "account", "settings"}));
        QVERIFY2(undrawableParts(window).isEmpty(), qPrintable(undrawableParts(window).join(' ')));
    }

    void settingsPaneShowsItsCardsAndFollowsTheMachine() {
        WindowFixture fx;
        fx.input.trusted = false;
        fx.microphone.current = MicrophoneAccess::Status::noDevice;
        QQuickWindow* window = shownOn(fx, &ShellWindows::openSettingsAction);
        QVERIFY(window);
        QQuickItem* pane = currentPane(window);
        SettingsPaneModel* settings = fx.windows.mainWindow().model()->settingsPane();

        // The missing microphone, and the Linux words of the application card.
        const QStringList texts = visibleTexts(pane);
        for (const QString& expected :
             QStringList{"активна", MicrophoneAccess::explanation(MicrophoneAccess::Status::noDevice),
                         "Показывать в панели задач", "При нажатии Ctrl+Q"})
            QVERIFY2(texts.contains(expected), qPrintable("no " + expected));

        // No keyboard here sends FN: the FN choice says so and points to the custom shortcut.
        fx.app.state->setFunctionKeyAvailable(false);
        QTRY_VERIFY(visibleTexts(pane).contains(settings->functionKeyNote()));
        QVERIFY(!visibleTexts(pane).contains("активна"));
        fx.app.state->settings().setUseFnHotkey(false);
        const KeyboardShortcuts::Shortcut ctrlAltD{0x02, KeyboardShortcuts::CarbonModifier::control |
                                                             KeyboardShortcuts::CarbonModifier::option};
        fx.app.state->shortcuts().storeShortcut(KeyboardShortcuts::sorvelRecordAlternative, ctrlAltD);
        QTRY_VERIFY(visibleTexts(pane).contains("Ctrl+Alt+D"));
        // A press the recorder refuses shows on the field, then passes; the shortcut stays.
        auto* field = pane->findChild<QQuickItem*>("shortcutField");
        QVERIFY(field);
        field->forceActiveFocus();
        QTest::keyClick(field->window(), Qt::Key_A);
        QVERIFY(field->property("refused").toBool());
        QTRY_VERIFY(!field->property("refused").toBool());
        QCOMPARE(fx.app.state->shortcuts().storedShortcut(KeyboardShortcuts::sorvelRecordAlternative), ctrlAltD);

        // Input access: the button shows the commands; the poll turns the row to the check mark.
        PermissionRow* input = settings->input();
        QVERIFY(!visibleTexts(pane).contains(InputAccess::grantCommands()));
        input->request();
        QTRY_VERIFY(visibleTexts(pane).contains(InputAccess::grantCommands()));
        // Pasted into any terminal, the commands work: a rule they copy is named by a full path.
        for (const QString& line : InputAccess::grantCommands().split('\n'))
            if (line.startsWith("sudo cp "))
                QVERIFY2(QFile::exists(line.section(' ', 2, 2)), qPrintable(line));
        fx.input.trusted = true;
        fx.app.clock.advance(1.0);
        QVERIFY(input->granted() && !input->polling());
        QTRY_VERIFY(!visibleTexts(pane).contains(InputAccess::grantCommands()));

        // Leaving the pane ends a running poll.
        settings->microphone()->request();
        QVERIFY(settings->microphone()->polling());
        fx.windows.openHomeAction();
        QTRY_VERIFY(!settings->microphone()->polling());
        // So does closing the window; reopened on the pane, the rows read the machine again.
        fx.windows.openSettingsAction();
        settings->microphone()->request();
        window->close();
        QTRY_VERIFY(!settings->microphone()->polling());
        fx.microphone.current = MicrophoneAccess::Status::authorized;
        fx.windows.openMainWindow();
        QTRY_VERIFY(settings->microphone()->granted());
    }

    // The list asks for every later page as the user drags to its end, not only the second; the
    // pages are appended and a rewritten entry changes its row in place, so the view keeps its place.
    void historyLoadsEveryPageAsTheUserScrolls() {
        WindowFixture fx;
        HistoryStore& store = fx.app.state->history();
        const int total = 2 * HistoryStore::pageSize + 50;
        const QDateTime now = fx.app.clock.currentDateTime();
        for (int i = 0; i < total; ++i)
            store.add(entryAt(now.addSecs(-3600 * 5 - i), QStringLiteral("запись %1").arg(i)));
        store.init(); // a fresh start: the first page only
        QCOMPARE(HistoryListModel(store, fx.app.clock).rowCount(), HistoryStore::pageSize);
        QQuickWindow* window = shownOn(fx, &ShellWindows::openHomeAction);
        QVERIFY(window);
        QQuickItem* list = findItem(window->contentItem(), "history");
        QVERIFY(list);
        HistoryListModel* rows = fx.windows.mainWindow().model()->history();
        const int shownFirst = rows->rowCount(); // the view may ask for a page as it opens
        QVERIFY(shownFirst < total);
        QSignalSpy inserted(rows, &QAbstractItemModel::rowsInserted);
        QSignalSpy reset(rows, &QAbstractItemModel::modelReset);
        for (int step = 0; step < 200 && rows->rowCount() < total; ++step) {
            list->setProperty("contentY", list->property("originY").toDouble() +
                                              list->property("contentHeight").toDouble() - list->height());
            QTest::qWait(10);
        }
        QCOMPARE(rows->rowCount(), total);
        QVERIFY(!rows->canFetchMore({}));
        QCOMPARE(inserted.size(), (total - shownFirst + HistoryStore::pageSize - 1) / HistoryStore::pageSize);
        QCOMPARE(reset.size(), 0);
        const auto title = [&](int row) {
            return rows->data(rows->index(row), HistoryListModel::TitleRole).toString();
        };
        QCOMPARE(title(total - 1), QStringLiteral("запись %1").arg(total - 1));

        QSignalSpy changed(rows, &QAbstractItemModel::dataChanged);
        store.applyRetrySuccess(rows->entryAt(0).id, "новый текст", std::nullopt, std::nullopt, std::nullopt);
        QCOMPARE(changed.size(), 1);
        QCOMPARE(title(0), QString("новый текст"));
        store.clearAll();
        QVERIFY(rows->isEmpty());
    }

    // A later page holding the same day and month of an earlier year joins that heading above,
    // as the whole list is grouped, instead of showing the heading a second time at the end.
    void aLaterPageJoinsTheHeadingItSharesAbove() {
        WindowFixture fx;
        HistoryStore& store = fx.app.state->history();
        const QDateTime day = fx.app.clock.currentDateTime().addDays(-3);
        for (int i = 0; i < HistoryStore::pageSize + 10; ++i) {
            const QDateTime at = i < 100 ? day : i < HistoryStore::pageSize ? day.addDays(-1) : day.addYears(-1);
            store.add(entryAt(at.addSecs(-i), QStringLiteral("запись %1").arg(i)));
        }
        store.init();
        HistoryListModel paged(store, fx.app.clock);
        QSignalSpy reset(&paged, &QAbstractItemModel::modelReset);
        paged.fetchMore({});
        QCOMPARE(reset.size(), 0);
        const HistoryListModel whole(store, fx.app.clock);
        QCOMPARE(paged.rowCount(), HistoryStore::pageSize + 10);
        QCOMPARE(whole.groupAt(100), whole.groupAt(0)); // the year-old entries, under the first heading
        for (int row = 0; row < whole.rowCount(); ++row) {
            QCOMPARE(paged.entryAt(row).id, whole.entryAt(row).id);
            QCOMPARE(paged.groupAt(row), whole.groupAt(row));
        }
    }

    // Reopened the next day, the same window files the retried row under "ВЧЕРА".
    void retryFromTheRowRewritesTheEntryOnScreen() {
        WindowFixture fx;
        HistoryStore& history = fx.app.state->history();
        const HistoryEntry failed = entryAt(fx.app.clock.currentDateTime(), {}, "Сервер не ответил");
        history.add(failed);
        fx.app.state->setRetryTranscriptionHook([&](QUuid id) -> QCoro::Task<void> {
            co_await fx.app.clock.sleep(1.0);
            history.applyRetrySuccess(id, QStringLiteral("Распознанный заново текст"), std::nullopt, std::nullopt,
                                      std::nullopt);
        });
        QQuickWindow* window = shownOn(fx, &ShellWindows::openHomeAction);
        QVERIFY(window);
        QTRY_VERIFY(visibleTexts(currentPane(window)).contains("Ошибка: Сервер не ответил"));
        MainWindowModel* model = fx.windows.mainWindow().model();
        model->tapEntry(uuidText(failed.id));
        model->retryEntry(uuidText(failed.id));
        QCOMPARE(model->retrying()->idTexts(), QStringList{uuidText(failed.id)});
        fx.app.clock.advance(1.0);
        QTRY_VERIFY(visibleTexts(currentPane(window)).contains("Распознанный заново текст"));
        QVERIFY(model->retrying()->idTexts().isEmpty());
        QVERIFY(visibleTexts(currentPane(window)).contains("СЕГОДНЯ"));
        window->close();
        fx.app.clock.advance(24 * 3600.0);
        fx.windows.openMainWindow();
        QCOMPARE(fx.windows.mainWindow().window(), window); // closing only hides
        QTRY_VERIFY(visibleTexts(currentPane(window)).contains("ВЧЕРА"));
    }

    // The pane computes on coming into view and on its refresh button, at most once an hour.
    void insightsPaneComputesWhenItAppears() {
        WindowFixture fx;
        InsightsStore& insights = fx.app.state->insights();
        const auto dictate = [&](const QString& text) {
            fx.app.state->history().add(entryAt(fx.app.clock.currentDateTime(), text));
        };
        const auto totalWords = [&] { return insights.insights() ? insights.insights()->totalWords : -1; };
        dictate("раз два три");
        QQuickWindow* window = shownOn(fx, &ShellWindows::openInsightsAction);
        QVERIFY(window);
        QTRY_COMPARE(totalWords(), 3);
        QTRY_VERIFY(!visibleTexts(currentPane(window)).contains("Пока недостаточно данных"));
        // Three short words: nothing for the word list; all of today's words in the last bar.
        QVERIFY(visibleTexts(currentPane(window)).contains("Недостаточно данных для разбора"));
        MainWindowModel* model = fx.windows.mainWindow().model();
        QCOMPARE(model->weekBars(), (QVariantList{0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 1.0}));

        QQuickItem* refresh = findItem(window->contentItem(), "refreshInsights");
        QVERIFY(refresh);
        const auto pressRefresh = [&] {
            QTest::mouseClick(window, Qt::LeftButton, {},
                              refresh->mapToScene(QPointF(refresh->width() / 2, refresh->height() / 2)).toPoint());
        };
        dictate("четыре");
        QCOMPARE(model->weeklyGoalMap().value("label"), QVariant("3 / 2000")); // the snapshot as it stands
        fx.app.clock.advance(3600.0);
        pressRefresh(); // exactly an hour: not yet
        fx.windows.openHomeAction();
        fx.windows.openInsightsAction();
        QCOMPARE(totalWords(), 3);
        fx.app.clock.advance(0.01);
        pressRefresh();
        QCOMPARE(totalWords(), 4);

        // Opened again after its window was closed, the pane counts anew.
        dictate("пять");
        fx.app.clock.advance(3600.01);
        window->close();
        fx.windows.openMainWindow();
        QTRY_COMPARE(totalWords(), 5);
    }

    void welcomeWindowWalksItsSteps() {
        WindowFixture fx;
        fx.windows.showWelcomeIfNeeded();
        QQuickWindow* window = fx.windows.welcomeWindow().window();
        QVERIFY(window && QTest::qWaitForWindowExposed(window));
        WelcomeFlow* flow = fx.windows.welcomeWindow().flow();
        const QString headings[] = {"Привет!",
                                    "Как записывать?",
                                    "Для чего будешь использовать?",
                                    "Войти в Tamvex",
                                    "Tamvex нужно два разрешения",
                                    "Готово!"};
        for (int step = 0; step < 6; ++step) {
            QTRY_COMPARE(flow->step(), step);
            QVERIFY2(visibleTexts(window->contentItem()).contains(headings[step]), qPrintable(headings[step]));
            QVERIFY(colourCount(window->grabWindow()) > 10);
            if (step == 2)
                flow->toggleUseCase("ai");
            if (step < 5)
                flow->advance();
        }
        QVERIFY2(undrawableParts(window).isEmpty(), qPrintable(undrawableParts(window).join(' ')));
        fx.app.state->setLastTranscription("Проверка связи");
        QTRY_VERIFY(visibleTexts(window->contentItem()).contains("Проверка связи"));
        flow->advance(); // "Готово": the welcome window goes, the main window comes
        QTRY_VERIFY(!window->isVisible());
        QVERIFY(fx.windows.mainWindow().window() && fx.windows.mainWindow().window()->isVisible());
    }
};

TAMVEX_GUI_TEST_CLASS(MainWindowTest)
#include "MainWindowTest.moc"
