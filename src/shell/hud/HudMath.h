#pragma once

#include <QObject>
#include <QPoint>
#include <QRect>
#include <QSize>
#include <QString>
#include <QtQml/qqmlregistration.h>

namespace tamvex::hud {

/// What the cat is doing.
enum class CatMode { recording, processing };

/// Length of one purr wave, in seconds.
inline constexpr double purrPeriod = 1.4;
/// Length of one round of the thinking dots, in seconds.
inline constexpr double dotsPeriod = 0.9;
/// Longest error text the pill shows, in characters.
inline constexpr int errorPillLength = 50;
/// Space between the panel and the bottom of the screen's available area.
inline constexpr int bottomMargin = 6;
inline constexpr int bottomMarginWithNudge = 28;

/// Height of whisker `index` (0 to 4): the level meter while recording, the purr while
/// processing. `level` is in dBFS; `purrPhase` in 0 to 1.
double whiskerHeight(int index, CatMode mode, double level, double purrPhase);
/// Where in its wave the purr is at `unixSeconds`, 0 to 1.
double purrPhase(double unixSeconds);

/// One thinking dot at a moment: how far up it is (negative is up) and how opaque.
struct DotPose {
    double offset;
    double opacity;
};
/// Dot `index` (0 to 2) at `unixSeconds`; each dot lags the last by a fifth of the period.
DotPose thinkingDot(int index, double unixSeconds);

/// The spring of a change of state: response 0.4 s, damping fraction 0.78.
inline constexpr double springResponse = 0.4;
inline constexpr double springDamping = 0.78;
/// How far the spring has carried a change `seconds` after it began, 0 at the start and
/// settling at 1 with a small overshoot (a damped spring of mass 1 let go from rest).
double springProgress(double seconds);

/// Top-left corner of a panel of `size` at the bottom centre of `available`, in the
/// screen's top-down coordinates.
QPoint panelPosition(const QRect& available, const QSize& size, bool nudgePending);

/// The first 50 user-perceived characters of an error message.
QString errorPillText(const QString& message);

/// The arithmetic above for QML: views draw, this computes.
class HudMath : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
public:
    using QObject::QObject;
    /// `processing` false is the recording meter.
    Q_INVOKABLE double whiskerHeight(int index, bool processing, double level, double purrPhase) const;
    Q_INVOKABLE double purrPhase(double unixSeconds) const { return hud::purrPhase(unixSeconds); }
    Q_INVOKABLE double dotOffset(int index, double unixSeconds) const { return thinkingDot(index, unixSeconds).offset; }
    Q_INVOKABLE double dotOpacity(int index, double unixSeconds) const {
        return thinkingDot(index, unixSeconds).opacity;
    }
    Q_INVOKABLE double spring(double seconds) const { return springProgress(seconds); }
    Q_INVOKABLE QString errorText(const QString& message) const { return errorPillText(message); }
};

} // namespace tamvex::hud
