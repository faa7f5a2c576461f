#include "DevServer.h"
#include "KeyboardShortcuts/ShortcutRegistry.h"
#include "WindowFixture.h"
#include "account/InlineLoginForm.h"
#include "shell/Migration.h"
#include "shell/QmlModule.h"
#include "shell/main/HistoryListModel.h"
#include "shell/main/MainWindowModel.h"
#include "support/ChatAnswers.h"
#include "support/TestMain.h"
#include "support/TrackedEvents.h"

#include "shell/welcome/OnboardingRoad.h"
#include "shell/welcome/PermissionsCheck.h"

#include <QApplication>
#include <QCryptographicHash>
#include <QDirIterator>
#include <QKeyEvent>
#include <QTemporaryDir>
#include <QFile>
#include <QMessageBox>
#include <QPushButton>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQmlProperty>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

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

// The texts of buttons under `root` whose labels the style would set in capitals.
QStringList capitalisedButtons(QQuickItem* root) {
    QStringList found;
    if (!root)
        return found;
    if (root->inherits("QQuickAbstractButton") &&
        root->property("font").value<QFont>().capitalization() != QFont::MixedCase)
        found << root->property("text").toString();
    for (QQuickItem* child : root->childItems())
        found << capitalisedButtons(child);
    return found;
}

// A click in the middle of a visible item, as the pointer makes it, once the layout has put it
// inside its window (a step just brought forward is laid out on the next frame).
bool clickOn(QQuickItem* item) {
    if (!item || !item->isVisible() || !item->window())
        return false;
    const auto inside = [item] {
        const QPointF centre = item->mapToScene(QPointF(item->width() / 2, item->height() / 2));
        return item->window()->contentItem()->contains(centre);
    };
    if (!QTest::qWaitFor(inside, 2000))
        return false;
    QTest::mouseClick(item->window(), Qt::LeftButton, {},
                      item->mapToScene(QPointF(item->width() / 2, item->height() / 2)).toPoint());
    return true;
}

QQuickItem* currentPane(QQuickWindow* window) {
    QQuickItem* panes = findItem(window->contentItem(), "panes");
    return panes ? panes->childItems().value(panes->property("currentIndex").toInt()) : nullptr;
}
} // namespace

class MainWindowTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() {
        g_previous = qInstallMessageHandler(catchQmlWarnings);
        // The account's requests go to the dev server on loopback; the hosts are read once per process.
        m_server = new devserver::DevServer({}, this);
        QVERIFY(m_server->start() != 0);
        pointHostsAt(m_server->baseUrl());
    }
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
            QTRY_COMPARE(fx.windows.mainWindow().model()->section(), pane.section);
            const QStringList texts = visibleTexts(currentPane(window));
            for (const QString& expected : pane.texts)
                QVERIFY2(texts.contains(expected), qPrintable(pane.section + ": no " + expected));
            QVERIFY2(colourCount(window->grabWindow()) > 20, qPrintable(pane.section + " looks blank"));
            QCOMPARE(capitalisedButtons(currentPane(window)), QStringList());
        }
        QStringList opened;
        for (const auto& args : tracked)
            if (args.at(0).toString() == "section_opened")
                opened << args.at(1).toMap().value("section").toString();
        QCOMPARE(opened, (QStringList{"settings", "home", "insights", "account", "settings"}));
        QVERIFY2(undrawableParts(window).isEmpty(), qPrintable(undrawableParts(window).join(' ')));
    }

    // A press the shortcut field refuses shows on it, then passes, and the shortcut stays; closing
    // the window ends a running permission poll.
    void settingsPaneRefusesAPressAndStopsPollingOnClose() {
        WindowFixture fx;
        fx.microphone.current = MicrophoneAccess::Status::noDevice;
        QQuickWindow* window = shownOn(fx, &ShellWindows::openSettingsAction);
        QVERIFY(window);
        QQuickItem* pane = currentPane(window);
        fx.app.state->settings().setUseFnHotkey(false);
        const KeyboardShortcuts::Shortcut ctrlAltD{0x02, KeyboardShortcuts::CarbonModifier::control |
                                                             KeyboardShortcuts::CarbonModifier::option};
        fx.app.state->shortcuts().storeShortcut(KeyboardShortcuts::sorvelRecordAlternative, ctrlAltD);
        QTRY_VERIFY(visibleTexts(pane).contains("Ctrl+Alt+D"));
        auto* field = pane->findChild<QQuickItem*>("shortcutField");
        QVERIFY(field);
        field->forceActiveFocus();
        QTest::keyClick(field->window(), Qt::Key_A);
        QVERIFY(field->property("refused").toBool());
        QTRY_VERIFY(!field->property("refused").toBool());
        QCOMPARE(fx.app.state->shortcuts().storedShortcut(KeyboardShortcuts::sorvelRecordAlternative), ctrlAltD);

        PermissionRow* microphone = fx.windows.mainWindow().model()->settingsPane()->microphone();
        microphone->request();
        QVERIFY(microphone->polling());
        window->close();
        QTRY_VERIFY(!microphone->polling());
    }

    // The list asks for every later page as the user drags to its end, not only the second, and
    // inserts each without a reset, so the view keeps its place; a page holding the same day and
    // month of an earlier year joins that heading above instead of showing it a second time.
    void historyLoadsEveryPageAsTheUserScrolls() {
        WindowFixture fx;
        HistoryStore& store = fx.app.state->history();
        const int total = 2 * HistoryStore::pageSize + 50;
        const QDateTime day = fx.app.clock.currentDateTime().addDays(-3);
        for (int i = 0; i < total; ++i) {
            const QDateTime at = i < 100 ? day : i < 2 * HistoryStore::pageSize ? day.addDays(-1) : day.addYears(-1);
            store.add(entryAt(at.addSecs(-i), QStringLiteral("запись %1").arg(i)));
        }
        store.init(); // a fresh start: the first page only
        QQuickWindow* window = shownOn(fx, &ShellWindows::openHomeAction);
        QVERIFY(window);
        QQuickItem* list = findItem(window->contentItem(), "history");
        QVERIFY(list);
        HistoryListModel* rows = fx.windows.mainWindow().model()->history();
        QVERIFY(rows->rowCount() < total); // the view may ask for a page as it opens, not for all
        QSignalSpy reset(rows, &QAbstractItemModel::modelReset);
        for (int step = 0; step < 200 && rows->rowCount() < total; ++step) {
            list->setProperty("contentY", list->property("originY").toDouble() +
                                              list->property("contentHeight").toDouble() - list->height());
            QTest::qWait(10);
        }
        QCOMPARE(rows->rowCount(), total);
        QCOMPARE(reset.size(), 0);
        QStringList headings;
        for (int row = 0; row < total; ++row)
            if (headings.value(headings.size() - 1) != rows->groupAt(row))
                headings << rows->groupAt(row);
        QCOMPARE(headings.size(), 2); // the year-old page sits under the first heading
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
        fx.app.clock.advance(1.0);
        QTRY_VERIFY(visibleTexts(currentPane(window)).contains("Распознанный заново текст"));
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

    // The offer of an earlier installation's export: only its second button starts from scratch;
    // Escape or closing the dialog leaves the file for the next start.
    void migrationOfferClosedLeavesTheExport() {
        const struct {
            const char* how;
            std::function<void(QMessageBox&)> answer;
            bool fileStays;
        } cases[] = {
            {"Escape", [](QMessageBox& box) { QTest::keyClick(&box, Qt::Key_Escape); }, true},
            {"close", [](QMessageBox& box) { box.close(); }, true},
            {"Начать с нуля",
             [](QMessageBox& box) {
                 for (QAbstractButton* button : box.buttons())
                     if (button->text() == "Начать с нуля")
                         button->click();
             },
             false},
        };
        for (const auto& c : cases) {
            AppFixture fx;
            MessageBoxMigrationAlerts alerts;
            Migration migration(*fx.state, alerts);
            QVERIFY(writeFile(migration.exportFile(), "{}"));
            int answered = 0;
            QStringList shown; // the dialog's own way out stays out of sight
            QTimer poll;
            connect(&poll, &QTimer::timeout, this, [&] {
                auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
                if (!box || !box->isVisible())
                    return;
                if (answered++) { // still open two seconds after the answer: end it, and fail below
                    if (answered > 100)
                        box->done(-1);
                    return;
                }
                for (QAbstractButton* button : box->buttons())
                    if (button->isVisible())
                        shown << button->text();
                c.answer(*box);
            });
            poll.start(20);
            migration.offerMigration();
            QVERIFY2(answered == 1, c.how); // the dialog closed on the answer
            QCOMPARE(shown, (QStringList{"Перенести и продолжить", "Начать с нуля"}));
            QVERIFY2(QFileInfo::exists(migration.exportFile()) == c.fileStays, c.how);
        }
    }

    // The sign-in form's buttons carry symbols that are there to draw, and "Войти" shows a spinner
    // while the code is checked.
    void signInFormShowsItsSymbolsAndProgress() {
        WindowFixture fx;
        QQuickWindow* window = shownOn(fx, &ShellWindows::openAccountAction);
        QVERIFY(window);
        QQuickItem* pane = currentPane(window);
        QQuickItem* formItem = findItem(pane, "loginForm");
        QVERIFY(formItem);
        for (const char* button : {"requestCodeButton", "openBotButton"}) {
            const QUrl source = QQmlProperty(findItem(formItem, button), "icon.source").read().toUrl();
            QVERIFY2(source.path().endsWith(".svg") && QFile::exists(":" + source.path()), button);
        }
        auto* form = qobject_cast<InlineLoginForm*>(formItem->property("form").value<QObject*>());
        QVERIFY(form);
        form->setPhone("+79990001122");
        form->requestCode(); // the dev server sends the code at once, and shows it
        QTRY_COMPARE(form->phaseName(), QString("enterCode"));
        QQuickItem* progress = findItem(formItem, "verifyProgress");
        QVERIFY(progress && !progress->isVisible());
        m_server->script("/api/auth/verify", devserver::Script{0, {}, "application/json", 400, 1}); // a slow answer
        form->verify();
        QVERIFY(progress->isVisible());
        QTRY_VERIFY(fx.app.state->account().isLoggedIn());
        QTRY_VERIFY(!fx.app.state->account().isRefreshing());
    }

    // A second start shows the main window only when no window of ours is on screen.
    void secondStartShowsTheMainWindowOnlyWhenNoneIsVisible() {
        WindowFixture fx;
        fx.windows.openWelcomeAction();
        QQuickWindow* welcome = fx.windows.welcomeWindow().window();
        QVERIFY(welcome && QTest::qWaitForWindowExposed(welcome));
        fx.windows.handleActivation({}, {});
        QVERIFY(!fx.windows.mainWindow().window()); // the welcome window is there: nothing opens
        welcome->close();
        QTRY_VERIFY(!welcome->isVisible());
        fx.windows.handleActivation({}, {});
        QQuickWindow* main = fx.windows.mainWindow().window();
        QVERIFY(main && QTest::qWaitForWindowExposed(main));
    }

    // Each step shows its heading; the last one hands over to the main window.
    void welcomeWindowWalksItsSteps() {
        WindowFixture fx;
        fx.windows.showWelcomeIfNeeded();
        QQuickWindow* window = fx.windows.welcomeWindow().window();
        QVERIFY(window && QTest::qWaitForWindowExposed(window));
        WelcomeFlow* flow = fx.windows.welcomeWindow().flow();
        flow->toggleUseCase("ai"); // the third step waits for a choice
        for (const char* heading : {"Привет!", "Как записывать?", "Для чего будешь использовать?", "Войти в Tamvex",
                                    "Tamvex нужно два разрешения", "Готово!"}) {
            QTRY_VERIFY2(visibleTexts(window->contentItem()).contains(heading), heading);
            flow->advance();
        }
        QTRY_VERIFY(!window->isVisible());
        QVERIFY(fx.windows.mainWindow().window() && fx.windows.mainWindow().window()->isVisible());
        QCOMPARE(capitalisedButtons(window->contentItem()), QStringList());
    }

    // A new user on a machine without FN, signed out, with no key and no model: the hotkey step
    // records the hotkey in place, the permissions step shows the commands by itself and stops
    // asking when the window closes, and the last step sets up the local road, download and all.
    void onboardingEndsOnARoadThatWorks() {
        WindowFixture fx;
        QTemporaryDir served;
        const QByteArray body(4096, 'm');
        QDir(served.path()).mkpath("models");
        QFile file(served.filePath("models/model.bin"));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(body) == body.size());
        file.close();
        devserver::DevServer server(served.path());
        server.start();
        const QString digest = QCryptographicHash::hash(body, QCryptographicHash::Sha256).toHex();
        // The real model's name on disk, which the local preset looks for; small content.
        fx.describeModel = [&](WhisperModel model) {
            return ModelDescriptor{whisperModels::fileName(model), body.size(), digest,
                                   QUrl(server.baseUrl().toString() + "/models/model.bin")};
        };
        fx.app.state->setFunctionKeyAvailable(false);
        fx.input.trusted = false;
        SettingsStore& settings = fx.app.state->settings();
        fx.windows.showWelcomeIfNeeded();
        QQuickWindow* window = fx.windows.welcomeWindow().window();
        QVERIFY(window && QTest::qWaitForWindowExposed(window));
        WelcomeFlow* flow = fx.windows.welcomeWindow().flow();

        flow->setStep(1);
        QQuickItem* note = findItem(window->contentItem(), "noFunctionKey");
        QTRY_VERIFY(note && note->isVisible());
        QQuickItem* field = findItem(window->contentItem(), "shortcutField");
        QVERIFY(field && field->isVisible());
        QVERIFY(clickOn(field));
        QTRY_VERIFY(field->hasActiveFocus());
        // Ctrl+Alt+D as the X server sends it: the field reads the key by its scan code.
        const auto mods = Qt::ControlModifier | Qt::AltModifier;
        QKeyEvent press(QEvent::KeyPress, Qt::Key_D, mods, 32 + 8, 0, 0, "d");
        QKeyEvent release(QEvent::KeyRelease, Qt::Key_D, mods, 32 + 8, 0, 0, "d");
        QGuiApplication::sendEvent(window, &press);
        QGuiApplication::sendEvent(window, &release);
        QTRY_VERIFY(visibleTexts(window->contentItem()).contains("Ctrl+Alt+D"));
        QVERIFY(!settings.useFnHotkey()); // the shortcut just recorded is the hotkey

        // Input access is asked for by itself half a second after the step shows: its commands
        // appear in place, with the copy button.
        PermissionsCheck* check = fx.windows.welcomeWindow().permissions();
        flow->setStep(4);
        QTRY_VERIFY(check->isRunning());
        fx.app.clock.advance(0.5);
        QTRY_VERIFY(visibleTexts(window->contentItem()).contains(InputAccess::grantCommands()));
        QVERIFY(visibleTexts(window->contentItem()).contains("Копировать"));
        QCOMPARE(fx.input.promptCount(), 0); // no second window over the step
        const int before = fx.microphone.reads;
        fx.app.clock.advance(3.0);
        QVERIFY(fx.microphone.reads >= before + 3);
        window->close();
        QTRY_VERIFY(!check->isRunning());
        const int closed = fx.microphone.reads;
        fx.app.clock.advance(10.0);
        QCOMPARE(fx.microphone.reads, closed);

        // The last step: no road, two ways offered; the local one fetches its model here.
        fx.windows.openWelcomeAction();
        QVERIFY(QTest::qWaitForWindowExposed(window));
        QTRY_VERIFY(check->isRunning()); // back on the permissions step, it reads again
        flow->setStep(5);
        QVERIFY(!check->isRunning());
        OnboardingRoad* road = fx.windows.welcomeWindow().road();
        QCOMPARE(road->roadRaw(), QString("none"));
        QTRY_VERIFY(visibleTexts(window->contentItem()).contains("Распознавать на этом компьютере"));
        QVERIFY(visibleTexts(window->contentItem()).contains("Ввести свой ключ OpenRouter"));
        QVERIFY(clickOn(findItem(window->contentItem(), "chooseLocal")));
        QCOMPARE(settings.preset(), PipelinePreset::local);
        QTRY_COMPARE_WITH_TIMEOUT(road->roadRaw(), QString("local"), 15000);
        QTRY_VERIFY(visibleTexts(window->contentItem()).join(' ').contains("на этом компьютере"));
        QCOMPARE(server.received("/models/model.bin").size(), 1);

        // The own key is stored as the settings pane stores it, and leaves the service's key.
        settings.setPreset(PipelinePreset::fast);
        QVERIFY(clickOn(findItem(window->contentItem(), "enterKey")));
        QQuickItem* key = findItem(window->contentItem(), "ownKey");
        QTRY_VERIFY(key && key->isVisible());
        QVERIFY(clickOn(key));
        for (char c : QByteArray("sk-or-v1-abc"))
            QTest::keyClick(window, c);
        QCOMPARE(settings.apiKey(), QString("sk-or-v1-abc"));
        QVERIFY(!settings.useEmbeddedKey());
        QCOMPARE(road->roadRaw(), QString("ownKey"));
    }

    // A paste without input access opens one window that says why and how, however often it
    // fails in a launch; its check and copy button are the settings row's.
    void inputAccessPromptOpensOncePerLaunch() {
        WindowFixture fx;
        fx.input.trusted = false;
        fx.input.prompt();
        QQuickWindow* window = fx.windows.inputAccessPrompt().window();
        QVERIFY(window && QTest::qWaitForWindowExposed(window));
        const QStringList texts = visibleTexts(window->contentItem());
        QVERIFY(texts.contains("Вставке нужен доступ к вводу"));
        QVERIFY(texts.contains(InputAccess::grantCommands()));
        QVERIFY(texts.contains("Копировать"));
        QCOMPARE(capitalisedButtons(window->contentItem()), QStringList());
        QVERIFY(clickOn(findItem(window->contentItem(), "done")));
        QTRY_VERIFY(!window->isVisible());
        QTRY_VERIFY(!fx.windows.inputAccessPrompt().row()->polling());
        fx.input.prompt();
        fx.input.prompt();
        QVERIFY(!window->isVisible());
        QCOMPARE(fx.windows.inputAccessPrompt().timesShown(), 1);
    }

private:
    devserver::DevServer* m_server = nullptr;
};

TAMVEX_GUI_TEST_CLASS(MainWindowTest)
#include "MainWindowTest.moc"
