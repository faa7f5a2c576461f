#include "platform/Paths.h"

#include <QDir>
#include <QStandardPaths>

namespace tamvex {

namespace {
QString xdgHome(const char* variable, const QString& fallbackUnderHome) {
    const QString value = qEnvironmentVariable(variable);
    // The XDG rules ignore relative values.
    if (!value.isEmpty() && QDir::isAbsolutePath(value))
        return QDir::cleanPath(value);
    return QDir::homePath() + "/" + fallbackUnderHome;
}
} // namespace

Paths Paths::standard() {
    const QString dataHome = xdgHome("XDG_DATA_HOME", ".local/share");
    const QString configHome = xdgHome("XDG_CONFIG_HOME", ".config");
    return Paths{dataHome + "/Tamv", QDir::tempPath(), configHome + "/Tamvex", configHome + "/autostart"};
}

Paths Paths::under(const QString& root) {
    return Paths{root + "/data/Tamv", root + "/tmp", root + "/config/Tamvex", root + "/config/autostart"};
}

QString Paths::ensureDataDir() const {
    return QDir().mkpath(dataDir) ? dataDir : QString();
}

QString Paths::dataFile(const QString& name) const {
    return dataDir + "/" + name;
}

QString Paths::settingsFile() const {
    return configDir + "/Tamvex.json";
}

QString Paths::autostartEntry() const {
    return autostartDir + "/tamvex.desktop";
}

} // namespace tamvex
