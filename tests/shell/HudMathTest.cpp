#include "shell/hud/HudMath.h"
#include "support/TestMain.h"

#include <QTest>

#include <cmath>

using namespace tamvex;
using namespace tamvex::hud;

namespace {
bool near(double a, double b) {
    return qAbs(a - b) < 1e-9;
}
} // namespace

class HudMathTest : public QObject {
    Q_OBJECT
private slots:
    void recordingWhiskers() {
        const QList<double> floor{4, 4, 4, 4, 4};
        const QList<double> full{13.9, 18.4, 22, 18.4, 13.9};
        const struct {
            double level;
            QList<double> heights;
        } cases[] = {
            {-70.0, floor},                        // below the floor
            {-60.0, floor},                        // the floor
            {-30.0, {8.95, 11.2, 13, 11.2, 8.95}}, // half way
            {0.0, full},                           // full scale
            {5.0, full},                           // clamped
            {-160.0, floor},                       // silence
        };
        for (const auto& c : cases)
            for (int i = 0; i < 5; ++i) {
                const double h = whiskerHeight(i, CatMode::recording, c.level, 0.37);
                QVERIFY2(near(h, c.heights[i]),
                         qPrintable(QString("%1 dB, whisker %2: %3").arg(c.level).arg(i).arg(h)));
            }
    }

    // The purr ignores the level; its middle whisker runs from 6 to 20, the ends from 6 to 14.4,
    // and the wave moves along the whiskers by 0.22 of a half turn each.
    void purr() {
        const struct {
            int index;
            double phase;
            double height;
        } cases[] = {
            {2, 0.81, 20.0}, // middle, top of the wave
            {2, 0.31, 6.0},  // middle, bottom
            {2, 0.06, 13.0}, // middle, zero crossing
            {0, 0.25, 14.4}, // first, top
            {0, 0.75, 6.0},  // first, bottom
            {4, 0.37, 14.4}, // last, top: (0.88 + 0.37) π
            {1, 0.0, 0.85 * 14 * (std::sin(0.44 * M_PI) + 1) / 2 + 6},
        };
        for (const auto& c : cases)
            for (double level : {-160.0, 0.0}) {
                const double h = whiskerHeight(c.index, CatMode::processing, level, c.phase);
                QVERIFY2(near(h, c.height),
                         qPrintable(QString("whisker %1 at %2: %3").arg(c.index).arg(c.phase).arg(h)));
            }
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

    void thinkingDots() {
        // b = (t / 0.9 + 0.2 i) π, s = (sin 2b + 1) / 2.
        const struct {
            int index;
            double t;
            DotPose pose;
        } cases[] = {
            {0, 0.0, {-2.0, 0.725}},              // at rest
            {0, 0.225, {-4.0, 1.0}},              // at the top
            {0, 0.675, {0.0, 0.45}},              // at the bottom
            {1, 0.045, {-4.0, 1.0}},              // lags a fifth
            {2, 0.9 + 0.675 - 0.36, {0.0, 0.45}}, // a period later
        };
        for (const auto& c : cases) {
            const DotPose pose = thinkingDot(c.index, c.t);
            QVERIFY2(
                near(pose.offset, c.pose.offset) && near(pose.opacity, c.pose.opacity),
                qPrintable(QString("dot %1 at %2: %3, %4").arg(c.index).arg(c.t).arg(pose.offset).arg(pose.opacity)));
        }
    }

    void panelPosition() {
        // A panel at the bottom of 1920x1080 with a 40 px task bar at the bottom; then a second
        // screen to the right with a panel on the left: the area does not start at 0.
        const struct {
            QRect available;
            QSize size;
            bool nudge;
            QPoint topLeft;
        } cases[] = {
            {QRect(0, 0, 1920, 1040), QSize(126, 44), false, QPoint(897, 990)},
            {QRect(0, 0, 1920, 1040), QSize(126, 44), true, QPoint(897, 968)},
            {QRect(0, 0, 1920, 1040), QSize(127, 44), false, QPoint(896, 990)}, // odd width rounds left
            {QRect(1920 + 60, 32, 2560 - 60, 1440 - 32), QSize(300, 60), false, QPoint(1980 + 1100, 1440 - 6 - 60)},
        };
        for (const auto& c : cases) {
            QCOMPARE(hud::panelPosition(c.available, c.size, c.nudge), c.topLeft);
            QCOMPARE(c.available.bottom() - QRect(c.topLeft, c.size).bottom(), c.nudge ? 28 : 6);
        }
    }

    void errorTextIsCutToFifty() {
        const QString sixty = QString("Сервер не отвечает. ").repeated(3);
        // 49 letters and an emoji of two UTF-16 units: the emoji is the 50th character.
        const QString emoji = QString("а").repeated(49) + QString::fromUtf8("😿");
        const QString cases[][2] = {
            {sixty, sixty.left(50)},  {sixty.left(50), sixty.left(50)}, {"Нет сети", "Нет сети"}, {"", ""},
            {emoji + "хвост", emoji},
        };
        for (const auto& c : cases)
            QCOMPARE(errorPillText(c[0]), c[1]);
    }
};

TAMVEX_TEST_CLASS(HudMathTest)
#include "HudMathTest.moc"
