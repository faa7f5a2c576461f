#include "pipelines/local/ModelSpeed.h"

#include <QLocale>

#include <cmath>

namespace tamvex {

bool ModelSpeed::isValid() const {
    return std::isfinite(speechSeconds) && std::isfinite(elapsedSeconds) && speechSeconds > 0.0 &&
           elapsedSeconds >= 0.0;
}

double ModelSpeed::secondsFor(double seconds) const {
    return isValid() ? elapsedSeconds * seconds / speechSeconds : 0.0;
}

bool ModelSpeed::canFinish(double dictationSeconds, double limitSeconds) const {
    return isValid() && secondsFor(dictationSeconds) <= limitSeconds;
}

QString ModelSpeed::text() const {
    const double seconds = secondsFor(10.0);
    const QLocale russian(QLocale::Russian);
    QString amount;
    if (seconds < 0.05)
        amount = QStringLiteral("менее 0,1");
    else if (seconds < 9.95)
        amount = russian.toString(seconds, 'f', 1);
    else
        amount = russian.toString(std::round(seconds), 'f', 0);
    return QStringLiteral("10 с речи — за %1 с").arg(amount);
}

std::optional<WhisperModel> fastestModelThatCanFinish(const QMap<WhisperModel, ModelSpeed>& speeds,
                                                      double dictationSeconds, double limitSeconds) {
    std::optional<WhisperModel> best;
    double bestSeconds = 0.0;
    for (auto it = speeds.cbegin(); it != speeds.cend(); ++it) {
        if (!it->canFinish(dictationSeconds, limitSeconds))
            continue;
        const double seconds = it->secondsFor(dictationSeconds);
        if (!best || seconds < bestSeconds) {
            best = it.key();
            bestSeconds = seconds;
        }
    }
    return best;
}

} // namespace tamvex
