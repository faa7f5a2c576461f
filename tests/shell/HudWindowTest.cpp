#include "core/AppState.h"
#include "shell/hud/RecordingHUDController.h"
#include "support/AppFixture.h"
#include "support/ProcessFixtures.h"

#include <QApplication>
#include <QDir>
#include <QProcess>
#include <QQuickWindow>
#include <QScopeGuard>
#include <QScreen>
#include <QTest>

using namespace tamvex;

namespace {
test::XvfbSession* gXvfb = nullptr;

QString run(const QString& program, const QStringList& args) {
    QProcess p;
    p.start(program, args);
    p.waitForFinished(10000);
    return QString::fromUtf8(p.readAllStandardOutput());
}

template <class Pred> int countPixels(const QImage& image, Pred pred) {
    const QImage img = image.convertToFormat(QImage::Format_ARGB32);
    int count = 0;
    for (int y = 0; y < img.height(); ++y)
        for (int x = 0; x < img.width(); ++x)
            count += pred(img.pixel(x, y));
    return count;
}

/// Pixels within a small distance of `color`, ignoring nearly transparent ones.
int pixelsNear(const QImage& image, const QColor& color) {
    return countPixels(image, [&](QRgb p) {
        return qAlpha(p) > 200 && qAbs(qRed(p) - color.red()) < 24 && qAbs(qGreen(p) - color.green()) < 24 &&
               qAbs(qBlue(p) - color.blue()) < 24;
    });
}

int opaquePixels(const QImage& image) {
    return countPixels(image, [](QRgb p) { return qAlpha(p) > 0; });
}

const QColor recordingAccent = QColor::fromRgbF(1.0f, 0.55f, 0.45f);
const QColor processingAccent = QColor::fromRgbF(0.65f, 0.55f, 0.95f);
const QColor orange = QColor::fromRgbF(1.0f, 0.584f, 0.0f);
} // namespace

// The HUD as a user sees it, on a private X server: a window the window manager keeps above
// everything, at the bottom centre, drawing each state.
class HudWindowTest : public QObject {
    Q_OBJECT

    struct Fixture {
        test::AppFixture app;
        int taps = 0;
        bool exposed = false;
        RecordingHUDController hud{*app.state, nullptr, [this] { ++taps; }};
        Fixture() {
            hud.show();
            if (hud.window())
                exposed = QTest::qWaitForWindowExposed(hud.window());
        }
        QRect available() const { return QGuiApplication::primaryScreen()->availableGeometry(); }
        QImage grab() { return hud.window()->grabWindow(); }
        /// Saves the picture for the README when TAMVEX_HUD_SHOTS names a folder.
        void save(const QString& name) {
            const QString dir = qEnvironmentVariable("TAMVEX_HUD_SHOTS");
            if (dir.isEmpty())
                return;
            QTest::qWait(500); // let the whiskers and the entrance finish for a still picture
            grab().save(QDir(dir).filePath("hud-" + name + ".png"));
        }
    };

private slots:
    void init() {
        if (!gXvfb->ok())
            QSKIP(qPrintable("no private X server: " + gXvfb->reason));
    }

    void windowCarriesTheFloatingHints() {
        Fixture f;
        QVERIFY(f.exposed);
        const QString id = QString::number(f.hud.window()->winId());
        const QString props = run("xprop", {"-id", id});
        if (props.isEmpty())
            QSKIP("xprop is not installed (package x11-utils)");
        for (const char* state :
             {"_NET_WM_STATE_ABOVE", "_NET_WM_STATE_STICKY", "_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER"})
            QVERIFY2(props.contains(state), qPrintable(props));
        QVERIFY2(props.contains("_NET_WM_DESKTOP(CARDINAL) = 4294967295"), qPrintable(props));
        // Never focused: the window manager must not give it the keyboard.
        QVERIFY2(props.contains("Client accepts input or input focus: False"), qPrintable(props));
    }

    // Where X itself has the window: the bottom centre, 6 above the bottom, 28 with a nudge;
    // a pending nudge stays hidden while recording but keeps the raised place.
    void sitsAtTheBottomCentre() {
        Fixture f;
        QVERIFY(f.exposed);
        QWindow* w = f.hud.window();
        auto bottomGap = [&] { return f.available().bottom() - w->geometry().bottom(); };
        auto centred = [&] { return qAbs(w->geometry().center().x() - f.available().center().x()) <= 1; };
        QTRY_VERIFY(centred());
        QTRY_COMPARE(bottomGap(), 6);
        const QString info = run("xwininfo", {"-id", QString::number(w->winId())});
        if (!info.isEmpty())
            QVERIFY2(info.contains(QString("Absolute upper-left X:  %1\n").arg(w->x())), qPrintable(info));

        f.app.state->showNudge({"pawprint.fill", "Зажми и говори", "Отпусти — текст появится в поле.", "FN"}, 60);
        QTRY_COMPARE(bottomGap(), 28);
        QTRY_VERIFY(centred());
        f.app.state->dismissNudge();
        QTRY_COMPARE(bottomGap(), 6);
        QTRY_VERIFY(centred());
    }

    // Through XWayland the compositor's window manager may ignore the place and the hints:
    // the window is left unmanaged there, and still sits at the bottom centre.
    void unmanagedThroughXWayland() {
        qputenv("WAYLAND_DISPLAY", "wayland-0");
        const auto unset = qScopeGuard([] { qunsetenv("WAYLAND_DISPLAY"); });
        Fixture f;
        QVERIFY(f.exposed);
        QWindow* w = f.hud.window();
        QVERIFY(w->flags().testFlag(Qt::X11BypassWindowManagerHint));
        const QString info = run("xwininfo", {"-id", QString::number(w->winId())});
        if (!info.isEmpty())
            QVERIFY2(info.contains("Override Redirect State: yes"), qPrintable(info));
        QTRY_COMPARE(f.available().bottom() - w->geometry().bottom(), 6);
        QTRY_VERIFY(qAbs(w->geometry().center().x() - f.available().center().x()) <= 1);
    }

    void drawsEachState() {
        Fixture f;
        QVERIFY(f.exposed);
        AppState& s = *f.app.state;
        auto settled = [&](const QColor& color, int atLeast, const QString& name) {
            QImage image;
            QTRY_VERIFY_WITH_TIMEOUT((image = f.grab(), pixelsNear(image, color) >= atLeast), 5000);
            QVERIFY(opaquePixels(image) > 200);
            f.save(name);
        };

        // The idle handle: a quiet grey line, no accent.
        QImage idle;
        QTRY_VERIFY((idle = f.grab(), opaquePixels(idle) > 100));
        QCOMPARE(pixelsNear(idle, recordingAccent), 0);
        f.save("idle");

        // Hovering names the program with the accent paw.
        QTest::mouseMove(f.hud.window(), QPoint(f.hud.window()->width() / 2, f.hud.window()->height() / 2));
        settled(recordingAccent, 8, "hovered");
        QTest::mouseClick(f.hud.window(), Qt::LeftButton, {},
                          QPoint(f.hud.window()->width() / 2, f.hud.window()->height() / 2));
        QTRY_COMPARE(f.taps, 1);

        s.setRecordingState(RecordingState::recording());
        f.hud.setLevel(-60);
        settled(recordingAccent, 60, "recording-60db");
        QImage quiet = f.grab();
        f.hud.setLevel(0);
        // Louder means longer whiskers: more of the accent.
        QTRY_VERIFY_WITH_TIMEOUT(pixelsNear(f.grab(), recordingAccent) > pixelsNear(quiet, recordingAccent) + 40, 5000);
        settled(recordingAccent, 60, "recording-0db");

        s.setRecordingState(RecordingState::processing());
        settled(processingAccent, 60, "processing");
        QCOMPARE(pixelsNear(f.grab(), orange), 0);
        s.setSlowProcessing(true);
        settled(orange, 200, "slow");

        s.setRecordingState(
            RecordingState::error(QString("Не удалось распознать речь: сервер ответил ошибкой 503, попробуй ещё раз")));
        settled(orange, 200, "error");

        s.setRecordingState(RecordingState::idle());
        s.showNudge({"pawprint.fill", "Держи клавишу дольше",
                     "Зажми FN, говори, отпусти — текст появится там, где курсор.", "FN"},
                    60);
        settled(recordingAccent, 60, "nudge");
    }
};

int main(int argc, char** argv) {
    test::XvfbSession xvfb;
    gXvfb = &xvfb;
    qputenv("QT_QPA_PLATFORM", xvfb.ok() ? "xcb" : "offscreen");
    QApplication app(argc, argv);
    HudWindowTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "HudWindowTest.moc"
