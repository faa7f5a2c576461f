#include "shell/hud/HudMath.h"

#include <QTextBoundaryFinder>
#include <QtGlobal>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace tamvex::hud {

namespace {
constexpr std::array<double, 5> recordingWeights{0.55, 0.8, 1.0, 0.8, 0.55};
constexpr std::array<double, 5> purrWeights{0.6, 0.85, 1.0, 0.85, 0.6};
} // namespace

double springProgress(double seconds) {
    if (seconds <= 0)
        return 0.0;
    // The response is the undamped period: omega = 2 pi / response.
    const double omega = 2.0 * std::numbers::pi / springResponse;
    const double decay = springDamping * omega;
    const double damped = omega * std::sqrt(1.0 - springDamping * springDamping);
    return 1.0 - std::exp(-decay * seconds) *
                     (std::cos(damped * seconds) + decay / damped * std::sin(damped * seconds));
}

double whiskerHeight(int index, CatMode mode, double level, double purrPhase) {
    if (index < 0 || index > 4)
        qFatal("whiskerHeight: index %d is outside 0 to 4", index);
    const auto i = static_cast<size_t>(index);
    if (mode == CatMode::recording) {
        const double n = std::clamp((level + 60.0) / 60.0, 0.0, 1.0);
        return recordingWeights[i] * 18.0 * n + 4.0;
    }
    const double a = (index * 0.22 + purrPhase) * std::numbers::pi;
    return purrWeights[i] * 14.0 * (std::sin(2.0 * a) + 1.0) / 2.0 + 6.0;
}

double purrPhase(double unixSeconds) {
    return std::fmod(unixSeconds, purrPeriod) / purrPeriod;
}

DotPose thinkingDot(int index, double unixSeconds) {
    const double b = (unixSeconds / dotsPeriod + index * 0.2) * std::numbers::pi;
    const double s = (std::sin(2.0 * b) + 1.0) / 2.0;
    return {s * -4.0, s * 0.55 + 0.45};
}

QPoint panelPosition(const QRect& available, const QSize& size, bool nudgePending) {
    const int margin = nudgePending ? bottomMarginWithNudge : bottomMargin;
    // Top-down: the panel's bottom edge stands `margin` above the area's bottom edge.
    const int x = available.x() + (available.width() - size.width()) / 2;
    const int y = available.y() + available.height() - margin - size.height();
    return {x, y};
}

QString errorPillText(const QString& message) {
    // Count what a reader sees as characters, so an emoji or a combining accent is never split.
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, message);
    int count = 0;
    while (finder.toNextBoundary() != -1) {
        if (++count == errorPillLength)
            return message.left(finder.position());
    }
    return message;
}

double HudMath::whiskerHeight(int index, bool processing, double level, double purrPhase) const {
    return hud::whiskerHeight(index, processing ? CatMode::processing : CatMode::recording, level, purrPhase);
}

} // namespace tamvex::hud
