#pragma once

#include <QString>

namespace tamvex {

/// Where the system keeps its files. One value is made at start and handed down;
/// tests make one under a temporary folder.
struct Paths {
    /// The data folder ("Tamv" under $XDG_DATA_HOME).
    QString dataDir;
    /// The folder for new recordings and other short-lived files.
    QString tempDir;
    /// The folder of the settings file.
    QString configDir;
    /// The XDG autostart folder ($XDG_CONFIG_HOME/autostart).
    QString autostartDir;

    /// The paths of the current user's session.
    static Paths standard();
    /// Everything under `root`, for tests and sandboxes.
    static Paths under(const QString& root);

    /// The data folder, created with its parents on first use; empty if it can't be made.
    QString ensureDataDir() const;
    /// A file or folder inside the data folder.
    QString dataFile(const QString& name) const;
    /// The settings file.
    QString settingsFile() const;
    /// The autostart entry of the application.
    QString autostartEntry() const;
};

} // namespace tamvex
