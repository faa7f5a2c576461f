// Tests that need a second process: a kill in the middle of writes, and a folder the
// store may not write to (as root, which ignores permissions, the child drops to "nobody").
#include "support/TestMain.h"
#include "HistoryFixtures.h"
#include "history/HistoryDB.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSet>
#include <QTest>

#include <csignal>
#include <unistd.h>

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

    void aReadOnlyFolderLeavesTheAppRunningWithoutHistory() {
        TestEnv env;
        const QString dataDir = env.paths.dataDir;
        QVERIFY(QDir().mkpath(dataDir));
        seedRows(env.paths.dataFile("history.db"), 3, clockStart());
        // Close the writer cleanly: the folder holds only the database file now.
        QVERIFY(!QFileInfo::exists(env.paths.dataFile("history.db-wal")));
        writeFile(env.paths.dataFile("history.json"), "[]");
        const QByteArray before = fileBytes(env.paths.dataFile("history.db"));

        const bool root = ::geteuid() == 0;
        // The child must be able to reach its program and the folders as "nobody".
        const QString program = env.root.filePath("history_child");
        QVERIFY(QFile::copy(HISTORY_CHILD, program));
        for (QString dir = dataDir; dir.startsWith(env.root.path()); dir = QFileInfo(dir).path())
            QFile::setPermissions(dir, QFile::ReadOwner | QFile::ExeOwner | QFile::ReadGroup | QFile::ExeGroup |
                                           QFile::ReadOther | QFile::ExeOther);
        QFile::setPermissions(env.paths.dataFile("history.db"), QFile::ReadOwner | QFile::ReadGroup | QFile::ReadOther);

        QProcess child;
        child.setProgram(program);
        child.setArguments({"open", env.root.path()});
        if (root)
            child.setChildProcessModifier([] {
                if (::setgid(65534) != 0 || ::setuid(65534) != 0)
                    ::_exit(97);
            });
        child.start();
        if (!child.waitForStarted(30000) && root)
            QSKIP("the temporary folder lies where the unprivileged user cannot reach the helper");
        QVERIFY(child.waitForFinished(30000));
        const QString out = QString::fromUtf8(child.readAllStandardOutput());
        const QString err = QString::fromUtf8(child.readAllStandardError());
        QFile::setPermissions(dataDir, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QCOMPARE(child.exitCode(), 0);
        QCOMPARE(out.trimmed(), QString("available=0 entries=0"));
        QVERIFY2(err.contains("HistoryStore: SQLite init failed: ") &&
                     err.contains(". История будет недоступна в этой сессии."),
                 qPrintable(err));
        QCOMPARE(fileBytes(env.paths.dataFile("history.db")), before);
        QVERIFY(QFileInfo::exists(env.paths.dataFile("history.json")));
    }
};

TAMVEX_TEST_CLASS(HistoryProcessTest)
#include "HistoryProcessTest.moc"
