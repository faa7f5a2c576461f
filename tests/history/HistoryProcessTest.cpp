// A kill in the middle of writes, which a test process cannot do to itself.
#include "support/TestMain.h"
#include "HistoryFixtures.h"
#include "history/HistoryDB.h"
#include "support/TestSupport.h"

#include <QProcess>
#include <QSet>
#include <QTest>

#include <csignal>

using namespace tamvex;
using namespace tamvex::test;

class HistoryProcessTest : public QObject {
    Q_OBJECT
private slots:
    void sigkillMidBurstKeepsEveryAddThatReturned() {
        TestEnv env;
        QProcess child;
        child.start(HISTORY_CHILD, {"burst", env.root.path()});
        QVERIFY(child.waitForStarted());
        QByteArray output;
        // Let it write a few hundred rows, then kill it without warning.
        QVERIFY(spinUntil(
            [&] {
                output += child.readAllStandardOutput();
                return output.count('\n') >= 400;
            },
            60000));
        ::kill(pid_t(child.processId()), SIGKILL);
        QVERIFY(child.waitForFinished(10000));
        QCOMPARE(child.exitStatus(), QProcess::CrashExit);
        output += child.readAllStandardOutput();

        QSet<int> returned;
        for (const QByteArray& line : output.split('\n'))
            if (!line.isEmpty())
                returned.insert(line.toInt());
        QVERIFY(returned.size() >= 400);

        const QString path = env.paths.dataFile("history.db");
        QCOMPARE(rawQuery(path, "PRAGMA integrity_check;"), QString("ok"));
        HistoryDB db(path);
        QHash<QUuid, QString> stored;
        for (const HistoryEntry& e : db.fetch())
            stored.insert(e.id, e.text);
        for (int i : returned) {
            const HistoryEntry expected = makeEntry(i, clockStart(), 0);
            QVERIFY2(stored.contains(expected.id), qPrintable(QString("row %1 lost").arg(i)));
            QCOMPARE(stored.value(expected.id), QString("burst entry %1").arg(i));
        }
        // At most the one add in flight at the kill may have landed beyond what was reported.
        QVERIFY(stored.size() <= returned.size() + 1);
    }
};

TAMVEX_TEST_CLASS(HistoryProcessTest)
#include "HistoryProcessTest.moc"
