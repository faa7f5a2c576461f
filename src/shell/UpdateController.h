#pragma once

#include "platform/Clock.h"

#include <QObject>
#include <QString>
#include <QUrl>

#include <qcoro/qcorotask.h>

#include <optional>

class QNetworkAccessManager;

namespace tamvex {

class Defaults;

/// One release of the update feed (an appcast item).
struct UpdateItem {
    QString version;      ///< the build, "sparkle:version"
    QString shortVersion; ///< what users read, "sparkle:shortVersionString"
    QUrl downloadUrl;     ///< the enclosure
    QUrl notesUrl;        ///< "sparkle:releaseNotesLink", may be empty
    QString notes;        ///< the item's description as text, may be empty

    /// Every item of an appcast; none when the text is not an RSS feed.
    static std::optional<QList<UpdateItem>> parseFeed(const QByteArray& xml);
    /// Compares two builds number by number ("1.10" after "1.9"); <0, 0 or >0.
    static int compareBuilds(const QString& a, const QString& b);
};

/// What the update check shows to the user.
class UpdatePrompter {
public:
    virtual ~UpdatePrompter() = default;
    /// A newer release: true when the user wants to download it now.
    virtual bool offerUpdate(const UpdateItem& item, const QString& currentVersion) = 0;
    /// A check from the menu found nothing newer.
    virtual void showUpToDate(const QString& currentVersion) = 0;
    /// A check from the menu could not read the feed.
    virtual void showCheckFailed(const QString& message) = 0;
    /// Opens the download in the user's browser.
    virtual void openDownload(const QUrl& url) = 0;
};

/// Message boxes and the desktop's browser.
class MessageBoxUpdatePrompter final : public UpdatePrompter {
public:
    bool offerUpdate(const UpdateItem& item, const QString& currentVersion) override;
    void showUpToDate(const QString& currentVersion) override;
    void showCheckFailed(const QString& message) override;
    void openDownload(const QUrl& url) override;
};

/// Reads the update feed on demand and once a day, and announces a newer build.
class UpdateController : public QObject {
    Q_OBJECT
public:
    static constexpr double firstCheckDelaySec = 60.0;
    static constexpr double checkIntervalSec = 86400.0;
    static constexpr double feedTimeoutSec = 30.0;
    static constexpr const char* lastCheckKey = "update_last_check_at";

    /// `feedUrl` empty means the compiled-in feed with TAMVEX_UPDATE_FEED_URL's override.
    UpdateController(Clock& clock, Defaults& defaults, QNetworkAccessManager& network, UpdatePrompter& prompter,
                     QUrl feedUrl = {}, QString currentVersion = QStringLiteral(TAMVEX_VERSION),
                     QString currentBuild = QStringLiteral(TAMVEX_BUILD_NUMBER), QObject* parent = nullptr);
    ~UpdateController() override;

    /// The compiled-in feed, or TAMVEX_UPDATE_FEED_URL.
    static QUrl configuredFeedUrl();

    /// Starts the schedule: the first check a minute from now, then once a day counted from
    /// the last check kept in the settings.
    void start();
    /// A check from the menu: its outcome is always shown, also when it joins a check of the
    /// schedule that is under way.
    void checkForUpdates();
    /// One check; `userInitiated` shows "newest" and failures too. Never throws.
    QCoro::Task<void> check(bool userInitiated);

    bool isChecking() const { return m_checking; }

signals:
    /// A check ended (for tests and the menus).
    void checkFinished();

private:
    QCoro::Task<void> runSchedule(Cancellation cancel);
    double secondsUntilNextCheck() const;

    Clock& m_clock;
    Defaults& m_defaults;
    QNetworkAccessManager& m_network;
    UpdatePrompter& m_prompter;
    QUrl m_feedUrl;
    QString m_currentVersion;
    QString m_currentBuild;
    bool m_checking = false;
    bool m_userWaiting = false; ///< the menu asked while a check was under way
    Cancellation m_schedule;
};

} // namespace tamvex
