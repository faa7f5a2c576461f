#pragma once

#include <QDateTime>
#include <QString>
#include <QStringList>

#include <optional>
#include <variant>

namespace tamvex {

class AppState;

/// The settings of the earlier installation, as its export names them.
struct SettingsSnapshot {
    bool useFnHotkey = true;
    bool useEmbeddedKey = true;
    QString preset;
    QStringList useCases;
    QString customModelId;
    bool showInDock = false;
    bool launchAtLogin = true;
    QString cmdQBehavior;
    bool onboardingCompleted = false;
    std::optional<QDateTime> firstLaunchDate;
    double totalSpentUSD = 0.0;
    qint64 totalRequests = 0;
    std::optional<QDateTime> lastRequestAt;
};

/// The export file "migrate-tamv.json" of the earlier installation.
struct MigrationPayload {
    qint64 version = 0;
    QDateTime exportedAt;
    QString fromBundleId;
    std::optional<QString> bearerToken;
    std::optional<QString> deviceId;
    SettingsSnapshot settings;
    std::optional<QString> historyDBPath;

    /// The whole file, or none when a required key is missing or any value has a wrong type.
    static std::optional<MigrationPayload> decode(const QByteArray& json);
};

/// What the import gives back to the closing dialog.
namespace MigrationOutcome {
struct VersionTooNew {
    qint64 found;
    qint64 supported;
};
struct Failed {
    QString message;
};
struct HistoryCopyFailed {
    QString message;
};
struct Done {};
struct NoFile {};
using Any = std::variant<VersionTooNew, Failed, HistoryCopyFailed, Done, NoFile>;
} // namespace MigrationOutcome

/// A modal question with one or two buttons.
struct MigrationAlert {
    QString message;
    QString informativeText;
    QStringList buttons;
};

/// Shows the alerts and returns 1000 for the first button, 1001 for the second, and
/// `closedWithoutAnswer` when the user pressed Escape or closed the dialog.
class MigrationAlerts {
public:
    static constexpr int closedWithoutAnswer = 0;
    virtual ~MigrationAlerts() = default;
    virtual int run(const MigrationAlert& alert) = 0;
};

/// Alerts as message boxes in front of every other window.
class MessageBoxMigrationAlerts final : public MigrationAlerts {
public:
    int run(const MigrationAlert& alert) override;
};

/// Brings over the earlier installation's settings, session, device id and history.
class Migration {
public:
    static constexpr qint64 supportedVersion = 1;

    Migration(AppState& appState, MigrationAlerts& alerts);

    /// Where the export is looked for: "Sorvel/migrate-tamv.json" beside the data folder.
    QString exportFile() const;
    /// Offers the move when the export exists; returns when every dialog is answered.
    void offerMigration();
    /// Imports and closes with the outcome's dialog.
    void runMigration();
    /// Imports the file; the dialogs are the caller's.
    MigrationOutcome::Any importPayload();
    /// Writes the snapshot through the store's assignments, in their order.
    void applySettings(const SettingsSnapshot& snapshot);
    /// Copies the old database with its companions unless one exists; throws TamvexError.
    void copyHistoryDB(const QString& path);

private:
    AppState& m_appState;
    MigrationAlerts& m_alerts;
};

} // namespace tamvex
