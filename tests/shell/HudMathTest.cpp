#include "shell/hud/HudMath.h"

#include <QTest>

#include <cmath>

using namespace tamvex;
using namespace tamvex::hud;

class HudMathTest : public QObject {
    Q_OBJECT
private slots:
    void recordingWhiskers_data() {
        QTest::addColumn<double>("level");
        QTest::addColumn<QList<double>>("heights");
        const QList<double> floor{4, 4, 4, 4, 4};
        const QList<double> full{13.9, 18.4, 22, 18.4, 13.9};
        QTest::newRow("-70 dB: below the floor") << -70.0 << floor;
        QTest::newRow("-60 dB: the floor") << -60.0 << floor;
        QTest::newRow("-30 dB: half way") << -30.0 << QList<double>{8.95, 11.2, 13, 11.2, 8.95};
        QTest::newRow("0 dB: full scale") << 0.0 << full;
        QTest::newRow("+5 dB: clamped") << 5.0 << full;
        QTest::newRow("-160 dB: silence") << -160.0 << floor;
    }
    void recordingWhiskers() {
        QFETCH(double, level);
        QFETCH(QList<double>, heights);
        for (int i = 0; i < 5; ++i)
            QVERIFY2(qAbs(whiskerHeight(i, CatMode::recording, level, 0.37) - heights[i]) < 1e-9,
                     qPrintable(QString("whisker %1: %2").arg(i).arg(whiskerHeight(i, CatMode::recording, level, 0.37))));
    }

    // The purr ignores the level; its middle whisker runs from 6 to 20, the ends from 6 to 14.4,
    // and the wave moves along the whiskers by 0.22 of a half turn each.
    void purr_data() {
        QTest::addColumn<int>("index");
        QTest::addColumn<double>("phase");
        QTest::addColumn<double>("height");
        QTest::newRow("middle, top of the wave") << 2 << 0.81 << 20.0;
        QTest::newRow("middle, bottom of the wave") << 2 << 0.31 << 6.0;
        QTest::newRow("middle, zero crossing") << 2 << 0.06 << 13.0;
        QTest::newRow("first, top") << 0 << 0.25 << 14.4;
        QTest::newRow("first, bottom") << 0 << 0.75 << 6.0;
        QTest::newRow("last, top") << 4 << 0.37 << 14.4;  // (0.88 + 0.37) π
        QTest::newRow("second, phase 0") << 1 << 0.0 << 0.85 * 14 * (std::sin(0.44 * M_PI) + 1) / 2 + 6;
    }
    void purr() {
        QFETCH(int, index);
        QFETCH(double, phase);
        QFETCH(double, height);
        for (double level : {-160.0, 0.0})
            QCOMPARE_LE(qAbs(whiskerHeight(index, CatMode::processing, level, phase) - height), 1e-9);
    }

    void purrStaysWithinItsRange() {
        for (int step = 0; step <= 1000; ++step) {
            const double t = 1.7e9 + step * 0.0137;
            const double phase = purrPhase(t);
            QVERIFY(phase >= 0 && phase < 1);
            QVERIFY(qAbs(purrPhase(t + purrPeriod) - phase) < 1e-6);
            for (int i = 0; i < 5; ++i) {
                const double h = whiskerHeight(i, CatMode::processing, -30, phase);
                QVERIFY2(h >= 6 - 1e-9 && h <= 20 + 1e-9, qPrintable(QString::number(h)));
            }
        }
    }

    void thinkingDots_data() {
        QTest::addColumn<int>("index");
        QTest::addColumn<double>("t");
        QTest::addColumn<double>("offset");
        QTest::addColumn<double>("opacity");
        // b = (t / 0.9 + 0.2 i) π, s = (sin 2b + 1) / 2.
        QTest::newRow("dot 0 at rest") << 0 << 0.0 << -2.0 << 0.725;
        QTest::newRow("dot 0 at the top") << 0 << 0.225 << -4.0 << 1.0;
        QTest::newRow("dot 0 at the bottom") << 0 << 0.675 << 0.0 << 0.45;
        QTest::newRow("dot 1 lags a fifth") << 1 << 0.045 << -4.0 << 1.0;
        QTest::newRow("dot 2 a period later") << 2 << 0.9 + 0.675 - 0.36 << 0.0 << 0.45;
    }
    void thinkingDots() {
        QFETCH(int, index);
        QFETCH(double, t);
        QFETCH(double, offset);
        QFETCH(double, opacity);
        const DotPose pose = thinkingDot(index, t);
        QVERIFY2(qAbs(pose.offset - offset) < 1e-9, qPrintable(QString::number(pose.offset)));
        QVERIFY2(qAbs(pose.opacity - opacity) < 1e-9, qPrintable(QString::number(pose.opacity)));
    }

    void panelPosition_data() {
        QTest::addColumn<QRect>("available");
        QTest::addColumn<QSize>("size");
        QTest::addColumn<bool>("nudge");
        QTest::addColumn<QPoint>("topLeft");
        // A panel at the bottom of 1920x1080 with a 40 px task bar at the bottom.
        QTest::newRow("handle") << QRect(0, 0, 1920, 1040) << QSize(126, 44) << false << QPoint(897, 990);
        QTest::newRow("nudge pending") << QRect(0, 0, 1920, 1040) << QSize(126, 44) << true << QPoint(897, 968);
        QTest::newRow("odd width rounds left") << QRect(0, 0, 1920, 1040) << QSize(127, 44) << false << QPoint(896, 990);
        // Second screen to the right, a panel on the left: the area does not start at 0.
        QTest::newRow("offset area") << QRect(1920 + 60, 32, 2560 - 60, 1440 - 32) << QSize(300, 60) << false
                                     << QPoint(1980 + 1100, 1440 - 6 - 60);
    }
    void panelPosition() {
        QFETCH(QRect, available);
        QFETCH(QSize, size);
        QFETCH(bool, nudge);
        QFETCH(QPoint, topLeft);
        QCOMPARE(hud::panelPosition(available, size, nudge), topLeft);
        const QRect panel(topLeft, size);
        QCOMPARE(available.bottom() - panel.bottom(), nudge ? 28 : 6);
    }

    void errorTextIsCutToFifty_data() {
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("shown");
        const QString sixty = QString("Сервер не отвечает. ").repeated(3);
        QTest::newRow("60 cut to 50") << sixty << sixty.left(50);
        QTest::newRow("50 kept") << sixty.left(50) << sixty.left(50);
        QTest::newRow("short kept") << "Нет сети" << "Нет сети";
        QTest::newRow("empty") << "" << "";
        // 49 letters and an emoji of two UTF-16 units: the emoji is the 50th character.
        const QString emoji = QString("а").repeated(49) + QString::fromUtf8("😿") + "хвост";
        QTest::newRow("emoji not split") << emoji << QString("а").repeated(49) + QString::fromUtf8("😿");
    }
    void errorTextIsCutToFifty() {
        QFETCH(QString, message);
        QFETCH(QString, shown);
        QCOMPARE(errorPillText(message), shown);
    }
};

QTEST_MAIN(HudMathTest)
#include "HudMathTest.moc"
