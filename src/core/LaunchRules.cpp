#include "core/LaunchRules.h"

#include "platform/Defaults.h"
#include "shell/SettingsStore.h"

#include <memory>

namespace tamvex {

AppVersion AppVersion::current() {
    return {QStringLiteral(TAMVEX_VERSION), QStringLiteral(TAMVEX_BUILD_NUMBER)};
}

namespace launch {

namespace {
// A missing or empty value is "unknown", as the analytics have always spelt it.
QString orUnknown(const QString& value) {
    return value.isEmpty() ? QStringLiteral("unknown") : value;
}
} // namespace

QVariantMap appLaunchedProperties(const AppVersion& current, bool loggedIn, bool onboardingCompleted) {
    return {{"version", orUnknown(current.version)},
            {"build", orUnknown(current.build)},
            {"logged_in", loggedIn},
            {"onboarding_completed", onboardingCompleted}};
}

std::optional<QVariantMap> seenVersionUpdate(Defaults& defaults, const AppVersion& current) {
    const auto storedVersion = defaults.readString(lastSeenVersionKey).optional();
    const auto storedBuild = defaults.readString(lastSeenBuildKey).optional();
    const QString version = orUnknown(current.version);
    const QString build = orUnknown(current.build);
    std::optional<QVariantMap> update;
    if (storedVersion && (*storedVersion != version || !storedBuild || *storedBuild != build))
        update = QVariantMap{{"from_version", *storedVersion},
                             {"from_build", storedBuild.value_or(QStringLiteral("unknown"))},
                             {"to_version", version},
                             {"to_build", build}};
    defaults.setString(lastSeenVersionKey, version);
    defaults.setString(lastSeenBuildKey, build);
    return update;
}

void observeSetting(SettingsStore& settings, std::function<bool()> read, QObject* context,
                    std::function<void(bool)> onChange) {
    auto last = std::make_shared<bool>(read());
    QObject::connect(&settings, &SettingsStore::changed, context, [=] {
        const bool value = read();
        if (value == *last)
            return;
        *last = value;
        // Later, so that whatever changed the setting finishes its own event first.
        QMetaObject::invokeMethod(context, [onChange, value] { onChange(value); }, Qt::QueuedConnection);
    });
}

void DockRule::apply(bool show, bool activate) const {
    if (show) {
        if (activate)
            openMainWindow();
    } else {
        closeMainWindow();
    }
}

} // namespace launch
} // namespace tamvex
