#include "shell/UpdateController.h"

#include "account/AnalyticsService.h"
#include "account/Network.h"
#include "platform/Defaults.h"
#include "platform/Log.h"

#include <QDesktopServices>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QTextDocumentFragment>
#include <QXmlStreamReader>

#include <algorithm>
#include <utility>

#ifndef TAMVEX_DEFAULT_UPDATE_FEED_URL
#define TAMVEX_DEFAULT_UPDATE_FEED_URL "https://sorvel.ru/tamvex/linux/appcast.xml"
#endif

namespace tamvex {

namespace {
const QString kSparkleNs = QStringLiteral("http://www.andymatuschak.org/xml-namespaces/sparkle");

QString orUnknown(const QString& value) {
    return value.isEmpty() ? QStringLiteral("unknown") : value;
}
} // namespace

std::optional<QList<UpdateItem>> UpdateItem::parseFeed(const QByteArray& xml) {
    QXmlStreamReader reader(xml);
    QList<UpdateItem> items;
    std::optional<UpdateItem> item;
    bool sawRss = false;
    while (!reader.atEnd()) {
        reader.readNext();
        if (reader.isStartElement()) {
            const auto name = reader.name();
            if (name == QLatin1String("rss")) {
                sawRss = true;
            } else if (name == QLatin1String("item")) {
                item = UpdateItem{};
            } else if (item && name == QLatin1String("enclosure")) {
                const QXmlStreamAttributes a = reader.attributes();
                item->downloadUrl = QUrl(a.value(QLatin1String("url")).toString());
                // Sparkle lets the enclosure carry the versions too.
                if (a.hasAttribute(kSparkleNs, QLatin1String("version")))
                    item->version = a.value(kSparkleNs, QLatin1String("version")).toString();
                if (a.hasAttribute(kSparkleNs, QLatin1String("shortVersionString")))
                    item->shortVersion = a.value(kSparkleNs, QLatin1String("shortVersionString")).toString();
            } else if (item && reader.namespaceUri() == kSparkleNs && name == QLatin1String("version")) {
                item->version = reader.readElementText().trimmed();
            } else if (item && reader.namespaceUri() == kSparkleNs && name == QLatin1String("shortVersionString")) {
                item->shortVersion = reader.readElementText().trimmed();
            } else if (item && reader.namespaceUri() == kSparkleNs && name == QLatin1String("releaseNotesLink")) {
                item->notesUrl = QUrl(reader.readElementText().trimmed());
            } else if (item && name == QLatin1String("description")) {
                item->notes = QTextDocumentFragment::fromHtml(reader.readElementText()).toPlainText().trimmed();
            }
        } else if (reader.isEndElement() && reader.name() == QLatin1String("item") && item) {
            if (!item->version.isEmpty() && item->downloadUrl.isValid())
                items.append(*item); // an item without a build or a file is no release
            item.reset();
        }
    }
    if (reader.hasError() || !sawRss)
        return std::nullopt;
    return items;
}

int UpdateItem::compareBuilds(const QString& a, const QString& b) {
    const QStringList x = a.split(QLatin1Char('.'));
    const QStringList y = b.split(QLatin1Char('.'));
    for (qsizetype i = 0; i < std::max(x.size(), y.size()); ++i) {
        const qint64 p = x.value(i, QStringLiteral("0")).toLongLong();
        const qint64 q = y.value(i, QStringLiteral("0")).toLongLong();
        if (p != q)
            return p < q ? -1 : 1;
    }
    return 0;
}

bool MessageBoxUpdatePrompter::offerUpdate(const UpdateItem& item, const QString& currentVersion) {
    QMessageBox box;
    box.setWindowTitle(QStringLiteral("Tamvex"));
    box.setText(QStringLiteral("Вышла новая версия Tamvex %1").arg(item.shortVersion.isEmpty() ? item.version
                                                                                              : item.shortVersion));
    QString info = QStringLiteral("У вас версия %1.").arg(currentVersion);
    if (!item.notes.isEmpty())
        info += QStringLiteral("\n\n") + item.notes;
    else if (item.notesUrl.isValid())
        info += QStringLiteral("\n\nЧто нового: ") + item.notesUrl.toString();
    box.setInformativeText(info);
    QPushButton* download = box.addButton(QStringLiteral("Скачать"), QMessageBox::AcceptRole);
    box.addButton(QStringLiteral("Позже"), QMessageBox::RejectRole);
    box.setWindowFlag(Qt::WindowStaysOnTopHint);
    box.exec();
    return box.clickedButton() == download;
}

void MessageBoxUpdatePrompter::showUpToDate(const QString& currentVersion) {
    QMessageBox::information(nullptr, QStringLiteral("Tamvex"),
                             QStringLiteral("У вас последняя версия Tamvex (%1).").arg(currentVersion));
}

void MessageBoxUpdatePrompter::showCheckFailed(const QString& message) {
    QMessageBox::warning(nullptr, QStringLiteral("Tamvex"),
                         QStringLiteral("Не удалось проверить обновления: ") + message);
}

void MessageBoxUpdatePrompter::openDownload(const QUrl& url) {
    QDesktopServices::openUrl(url);
}

UpdateController::UpdateController(Clock& clock, Defaults& defaults, QNetworkAccessManager& network,
                                   UpdatePrompter& prompter, QUrl feedUrl, QString currentVersion,
                                   QString currentBuild, QObject* parent)
    : QObject(parent), m_clock(clock), m_defaults(defaults), m_network(network), m_prompter(prompter),
      m_feedUrl(feedUrl.isEmpty() ? configuredFeedUrl() : std::move(feedUrl)),
      m_currentVersion(std::move(currentVersion)), m_currentBuild(std::move(currentBuild)) {}

UpdateController::~UpdateController() {
    m_schedule.cancel();
}

QUrl UpdateController::configuredFeedUrl() {
    const QByteArray fromEnvironment = qgetenv("TAMVEX_UPDATE_FEED_URL");
    return QUrl(fromEnvironment.isEmpty() ? QStringLiteral(TAMVEX_DEFAULT_UPDATE_FEED_URL)
                                          : QString::fromUtf8(fromEnvironment));
}

void UpdateController::start() {
    m_schedule.cancel();
    m_schedule = Cancellation();
    runSchedule(m_schedule);
}

double UpdateController::secondsUntilNextCheck() const {
    const auto last = m_defaults.readDate(QString::fromLatin1(lastCheckKey));
    if (!last.present())
        return 0.0;
    const double since = double(last.value.msecsTo(m_clock.currentDateTime())) / 1000.0;
    return std::max(0.0, checkIntervalSec - since);
}

QCoro::Task<void> UpdateController::runSchedule(Cancellation cancel) {
    QPointer<UpdateController> self(this);
    if (!co_await m_clock.sleep(firstCheckDelaySec, cancel) || !self)
        co_return;
    while (self && !cancel.isCancelled()) {
        const double wait = self->secondsUntilNextCheck();
        if (wait > 0.0) {
            if (!co_await self->m_clock.sleep(wait, cancel) || !self)
                co_return;
            continue; // the menu may have checked meanwhile
        }
        QCoro::Task<void> checking = self->check(false);
        co_await checking;
    }
}

void UpdateController::checkForUpdates() {
    check(true);
}

QCoro::Task<void> UpdateController::check(bool userInitiated) {
    if (m_checking) {
        m_userWaiting = m_userWaiting || userInitiated; // the running check shows its outcome then
        co_return;
    }
    m_checking = true;
    m_userWaiting = userInitiated;
    QPointer<UpdateController> self(this);
    m_defaults.setDate(QString::fromLatin1(lastCheckKey), m_clock.currentDateTime());
    std::optional<QList<UpdateItem>> items;
    QString failure;
    try {
        QNetworkRequest request(m_feedUrl);
        QCoro::Task<HttpAnswer> fetch =
            sendRequest(m_network, m_clock, request, "GET", {}, RequestLimits{feedTimeoutSec, feedTimeoutSec});
        const HttpAnswer answer = co_await fetch;
        if (answer.status != 200)
            failure = QStringLiteral("сервер обновлений ответил %1").arg(answer.status);
        else if (!(items = UpdateItem::parseFeed(answer.body)))
            failure = QStringLiteral("лента обновлений не читается");
    } catch (const std::exception& e) {
        failure = describeError(e);
    }
    if (!self)
        co_return;
    m_checking = false;
    userInitiated = std::exchange(m_userWaiting, false);

    if (!items) {
        logError("Update check failed: " + failure + " (" + m_feedUrl.toString() + ")");
        if (userInitiated)
            m_prompter.showCheckFailed(failure);
        emit checkFinished();
        co_return;
    }
    const auto newest = std::max_element(items->cbegin(), items->cend(), [](const UpdateItem& a, const UpdateItem& b) {
        return UpdateItem::compareBuilds(a.version, b.version) < 0;
    });
    if (newest == items->cend() || UpdateItem::compareBuilds(newest->version, m_currentBuild) <= 0) {
        logInfo("Update check: " + m_currentVersion + " (" + m_currentBuild + ") is the newest");
        if (userInitiated)
            m_prompter.showUpToDate(m_currentVersion);
        emit checkFinished();
        co_return;
    }
    const UpdateItem found = *newest;
    logInfo("Update available: " + found.shortVersion + " (" + found.version + ")");
    AnalyticsService::track("update_available_shown", {{"current_version", orUnknown(m_currentVersion)},
                                                       {"current_build", orUnknown(m_currentBuild)},
                                                       {"new_version", orUnknown(found.shortVersion)},
                                                       {"new_build", orUnknown(found.version)}});
    if (m_prompter.offerUpdate(found, m_currentVersion))
        m_prompter.openDownload(found.downloadUrl);
    emit checkFinished();
}

} // namespace tamvex
