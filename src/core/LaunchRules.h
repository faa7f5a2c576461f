#pragma once

#include <QObject>
#include <QString>
#include <QVariantMap>

#include <functional>
#include <optional>

namespace tamvex {

class Defaults;
class SettingsStore;

/// This program's version and build, as the package and the analytics name them.
struct AppVersion {
    QString version;
    QString build;
    /// CMake's project version and the build number set at configure time.
    static AppVersion current();
};

namespace launch {

inline const QString lastSeenVersionKey = QStringLiteral("sorvel_last_seen_version");
inline const QString lastSeenBuildKey = QStringLiteral("sorvel_last_seen_build");

/// The properties of "app_launched".
QVariantMap appLaunchedProperties(const AppVersion& current, bool loggedIn, bool onboardingCompleted);

/// Compares the version of the last launch with `current` and stores `current`. Gives the
/// properties of "app_updated" when the version or build changed (a stored version without
/// a build counts as changed); nothing at the first launch ever or when both are the same.
std::optional<QVariantMap> seenVersionUpdate(Defaults& defaults, const AppVersion& current);

/// Calls `onChange` with each later value of the boolean setting `read` gives, on a later
/// turn of the event loop: the value at the time of the call and repeats of the last value
/// are not reported. Lives as long as `context`.
void observeSetting(SettingsStore& settings, std::function<bool()> read, QObject* context,
                    std::function<void(bool)> onChange);

/// The task-bar rule: shown, the main window is a normal task-bar window and, when
/// `activate`, opened and brought forward; not shown, the main window is closed and only
/// the tray and the HUD remain.
struct DockRule {
    std::function<void()> openMainWindow;
    std::function<void()> closeMainWindow;
    void apply(bool show, bool activate) const;
};

} // namespace launch
} // namespace tamvex
