#include "support/TestMain.h"
#include "support/TestSupport.h"

#include <QTest>

using namespace tamvex;

namespace {
QCoro::Task<void> sleeper(Clock& clock, double seconds, QString name, QStringList& log, Cancellation c = {}) {
    const bool finished = co_await clock.sleep(seconds, c);
    log.append(name + (finished ? "@" + QString::number(clock.now()) : " cancelled@" + QString::number(clock.now())));
}
} // namespace

class ClockTest : public QObject {
    Q_OBJECT
private slots:
    void manualClockResumesSleepersInDueOrder() {
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
    }

    void cancellationResumesAtOnceAndDropsTheTimer() {
        ManualClock clock;
        QStringList log;
        Cancellation c;
        sleeper(clock, 2.0, "x", log, c);
        QCOMPARE(clock.pendingTimers(), 1);
        c.cancel();
        QCOMPARE(log, QStringList{"x cancelled@0"});
        QCOMPARE(clock.pendingTimers(), 0);
        // A sleep begun on an already cancelled token does not wait at all.
        sleeper(clock, 2.0, "y", log, c);
        QCOMPARE(log.last(), QString("y cancelled@0"));
        clock.advance(3.0);
        QCOMPARE(log.size(), 2);
    }

    void wallClockSleepsAndCancels() {
        WallClock clock;
        QStringList log;
        const double start = clock.now();
        sleeper(clock, 0.05, "short", log);
        Cancellation c;
        sleeper(clock, 30.0, "long", log, c);
        QVERIFY(test::spinUntil([&] { return log.size() == 1; }));
        QVERIFY(log[0].startsWith("short@"));
        QVERIFY(clock.now() - start >= 0.045);
        c.cancel();
        QVERIFY(log.last().startsWith("long cancelled@"));
    }
};

TAMVEX_TEST_CLASS(ClockTest)
#include "ClockTest.moc"
