#include "shell/QmlModule.h"

#include <QDirIterator>
#include <QFile>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QTest>

#include <memory>

using namespace tamvex;

// Every file of the QML module must load and build without a single warning: a typo in a
// property name or an import only shows up as a warning at run time.
class QmlModuleTest : public QObject {
    Q_OBJECT

    static QStringList moduleFiles() {
        QStringList files;
        QDirIterator it(":/Tamvex", {"*.qml"}, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext())
            files << it.next().mid(QStringLiteral(":/Tamvex/").size());
        files.sort();
        return files;
    }

private slots:
    void everyFileLoadsWithoutWarnings_data() {
        QTest::addColumn<QString>("file");
        const QStringList files = moduleFiles();
        QVERIFY2(files.contains("Common/Theme.qml"), qPrintable(files.join(", ")));
        for (const QString& file : files)
            QTest::newRow(qPrintable(file)) << file;
    }

    void everyFileLoadsWithoutWarnings() {
        QFETCH(QString, file);
        QQmlEngine engine;
        setUpQmlEngine(engine);
        engine.setOutputWarningsToStandardError(false);
        QStringList warnings;
        connect(&engine, &QQmlEngine::warnings, this, [&](const QList<QQmlError>& list) {
            for (const QQmlError& e : list)
                warnings << e.toString();
        });
        std::unique_ptr<QObject> object;
        if (file == "Common/Theme.qml") {
            // A singleton is reached through the module, not instantiated from its file.
            QQmlComponent probe(&engine);
            probe.setData("import QtQuick\nimport Tamvex\nQtObject { property color c: Theme.recordingAccent }",
                          QUrl("qrc:/probe.qml"));
            object.reset(probe.create());
            QVERIFY2(object, qPrintable(probe.errorString()));
            QCOMPARE(object->property("c").value<QColor>(), QColor::fromRgbF(1.0f, 0.55f, 0.45f));
        } else {
            QQmlComponent component(&engine, qmlModuleUrl(file));
            QVERIFY2(component.isReady(), qPrintable(component.errorString()));
            QFile source(":/Tamvex/" + file);
            QVERIFY(source.open(QIODevice::ReadOnly));
            if (source.readAll().contains("required property")) {
                // Built, with its required properties, by the tests of the window that holds it.
                QVERIFY2(warnings.isEmpty(), qPrintable(warnings.join("\n")));
                return;
            }
            object.reset(component.create());
            QVERIFY2(object, qPrintable(component.errorString()));
        }
        // Bindings that fail later (a null read after the first frame) warn on the next turns.
        if (auto* window = qobject_cast<QQuickWindow*>(object.get()))
            window->show();
        for (int i = 0; i < 5; ++i) {
            QCoreApplication::processEvents();
            QTest::qWait(20);
        }
        QVERIFY2(warnings.isEmpty(), qPrintable(warnings.join("\n")));
    }
};

QTEST_MAIN(QmlModuleTest)
#include "QmlModuleTest.moc"
