// The platform layer's own pieces: the clocks, the settings file and the bundled sounds.
#include "platform/Sounds.h"
#include "platform/TerminationSignals.h"
#include "support/TestMain.h"
#include "support/TestSupport.h"

#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <csignal>

using namespace tamvex;

namespace {
QCoro::Task<void> sleeper(Clock& clock, double seconds, QString name, QStringList& log, Cancellation c = {}) {
    const bool finished = co_await clock.sleep(seconds, c);
    log.append(name + (finished ? "@" + QString::number(clock.now()) : " cancelled@" + QString::number(clock.now())));
}
} // namespace

class PlatformTest : public QObject {
    Q_OBJECT
private slots:
    void manualClockResumesSleepersInDueOrderOrWhenCancelled() {
        ManualClock clock;
        QStringList log;
        sleeper(clock, 3.0, "c", log);
        sleeper(clock, 0.5, "a", log);
        sleeper(clock, 1.0, "b", log);
        clock.advance(0.49);
        QVERIFY(log.isEmpty());
        clock.advance(0.01);
        QCOMPARE(log, QStringList{"a@0.5"});
        clock.advance(10);
        QCOMPARE(log, (QStringList{"a@0.5", "b@1", "c@3"}));
        QCOMPARE(clock.now(), 10.5);
        QCOMPARE(clock.pendingTimers(), 0);

        // A cancelled sleep resumes at once and drops its timer.
        Cancellation c;
        sleeper(clock, 2.0, "x", log, c);
        QCOMPARE(clock.pendingTimers(), 1);
        c.cancel();
        QCOMPARE(log.last(), QString("x cancelled@10.5"));
        QCOMPARE(clock.pendingTimers(), 0);
        // A sleep begun on an already cancelled token does not wait at all.
        sleeper(clock, 2.0, "y", log, c);
        QCOMPARE(log.last(), QString("y cancelled@10.5"));
        clock.advance(3.0);
        QCOMPARE(log.size(), 5);
    }

    void wallClockSleepsAndCancels() {
        WallClock clock;
        QStringList log;
        const double start = clock.now();
        sleeper(clock, 0.05, "short", log);
        Cancellation c;
        sleeper(clock, 30.0, "long", log, c);
        QVERIFY(test::spinUntil([&] { return log.size() == 1; }));
        QVERIFY(clock.now() - start >= 0.045);
        c.cancel();
        QVERIFY(log.last().startsWith("long cancelled@"));
    }

    void typesSurviveARestartAndWrongTypesAreTold() {
        test::TestEnv env;
        Defaults& d = *env.defaults;
        const QDateTime date(QDate(2026, 5, 17), QTime(10, 11, 12, 345), Qt::UTC);
        d.setBool("flag", false);
        d.setDouble("money", 1.25);
        d.setInt("count", 42);
        d.setString("text", "no");
        d.setStringArray("list", {"b", "a"});
        d.setDate("when", date);
        d.setData("blob", QByteArray("\x00\x01json", 6));
        d.setString("removed", "v");
        d.remove("removed");
        env.reopenDefaults();
        Defaults& r = *env.defaults;

        QCOMPARE(r.readBool("flag").value, false);
        QCOMPARE(r.readDouble("money").value, 1.25);
        QCOMPARE(r.readInt("count").value, 42);
        QCOMPARE(r.readDouble("count").value, 42.0);
        QCOMPARE(r.readString("text").value, QString("no"));
        QCOMPARE(r.readStringArray("list").value, (QStringList{"b", "a"}));
        QCOMPARE(r.readDate("when").value, date);
        QCOMPARE(r.readData("blob").value, QByteArray("\x00\x01json", 6));

        // A text is not a boolean, a fraction not an integer, a number not a text.
        QCOMPARE(r.readBool("text").state, ValueState::WrongType);
        QCOMPARE(r.readInt("money").state, ValueState::WrongType);
        QCOMPARE(r.readString("count").state, ValueState::WrongType);
        QCOMPARE(r.readBool("missing").state, ValueState::Absent);
        QVERIFY(!r.contains("removed")); // a removed key stays gone after a restart
    }

    // Each signal reaches the callback through the event loop and is logged by name; the process,
    // which these signals would otherwise end, goes on.
    void terminationSignalsReachTheEventLoop() {
        test::LogCapture log;
        QStringList received;
        QVERIFY(onTerminationSignals([&] { received << log.lines().last(); }));
        for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
            const qsizetype before = received.size();
            QCOMPARE(::raise(signal), 0);
            QTRY_COMPARE(received.size(), before + 1);
        }
        QCOMPARE(received, (QStringList{"info: Received SIGTERM", "info: Received SIGINT", "info: Received SIGHUP"}));
    }

    void fileIsOwnerOnly() {
        test::TestEnv env;
        env.defaults->setString("openrouter_api_key", "sk-secret");
        const QFileInfo info(env.paths.settingsFile());
        QVERIFY(info.exists());
        QCOMPARE(info.permissions() & (QFile::ReadGroup | QFile::ReadOther | QFile::WriteGroup | QFile::WriteOther),
                 QFile::Permissions());
    }

    void hostileOrCorruptFiles() {
        test::TestEnv env;
        const auto reopenWith = [&](const QByteArray& contents) {
            env.defaults.reset();
            QVERIFY(test::writeFile(env.paths.settingsFile(), contents));
            env.reopenDefaults();
        };
        // Mixed arrays are no text arrays; a tagged object that is not a date stays an object.
        reopenWith(R"({"mixed": ["a", 1], "fake": {"$date": "not a date"}, "nil": null})");
        QCOMPARE(env.defaults->readStringArray("mixed").state, ValueState::WrongType);
        QCOMPARE(env.defaults->readDate("fake").state, ValueState::WrongType);
        QCOMPARE(env.defaults->readString("nil").state, ValueState::WrongType);
        // A file that is no JSON at all is kept aside, and the settings start afresh.
        reopenWith("{ this is not json");
        QFile kept(env.defaults->quarantinedPath());
        QVERIFY(kept.open(QIODevice::ReadOnly));
        QCOMPARE(kept.readAll(), QByteArray("{ this is not json"));
        env.defaults->setBool("after", true);
        env.reopenDefaults();
        QCOMPARE(env.defaults->readBool("after").value, true);
    }

    void everyNamedSoundIsAShortWav() {
        for (const QString& name : ResourceSounds::names()) {
            QFile file(":/sounds/" + name + ".wav");
            QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(name));
            const QByteArray bytes = file.readAll();
            QVERIFY2(bytes.startsWith("RIFF") && bytes.mid(8, 4) == "WAVE", qPrintable(name));
            // Short enough never to overlap the next gesture.
            QVERIFY2(bytes.size() < 48000, qPrintable(name));
        }
    }
};

TAMVEX_TEST_CLASS(PlatformTest)
#include "PlatformTest.moc"
