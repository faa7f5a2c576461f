#pragma once

#include "account/Network.h"
#include "platform/Clock.h"

#include <QFile>
#include <QObject>
#include <QString>
#include <QUrl>

#include <memory>

class QNetworkAccessManager;
class QNetworkReply;

namespace tamvex {

/// Time limits of one model transfer, in seconds.
struct TransferLimits {
    double requestSeconds = 60.0;    ///< longest wait for more data
    double resourceSeconds = 3600.0; ///< longest whole transfer
};

/// One HTTP GET streamed into a file, with progress and time limits read from the Clock.
/// The HTTP status is not judged: whatever body the server sends is what gets written, unless
/// the transfer may give way to another host (`mayGiveWay`): then a host that does not answer,
/// answers 404 or a server error makes it emit unavailable() before anything is written.
/// Exactly one of downloaded(), unavailable() or failed() is emitted, unless abort() comes first.
class ModelTransfer : public QObject {
    Q_OBJECT
public:
    /// Prepares a GET of `url` into `partPath`; nothing happens until start().
    ModelTransfer(QNetworkAccessManager& network, Clock& clock, const QUrl& url, const QString& partPath,
                  TransferLimits limits = {}, bool mayGiveWay = false, QObject* parent = nullptr);
    /// Aborts a running transfer silently and removes its partial file.
    ~ModelTransfer() override;

    /// Opens the partial file and sends the request.
    void start();
    /// Stops the transfer without a signal and removes the partial file.
    void abort();

    /// The text of a time limit that ran out.
    static QString timedOutText();
    /// The text of a file that could not be written or moved, with the system's words.
    static QString saveFailedText(const QString& detail);

signals:
    /// Bytes received so far and the total the server announced (-1 when unknown).
    void progressed(qint64 received, qint64 total);
    /// The whole body is in the closed file at `partPath`.
    void downloaded(const QString& partPath);
    /// The transfer broke off; `reason` is the network's own words. The partial file is gone.
    void failed(const QString& reason);
    /// Only with `mayGiveWay`: the host can't serve the file; `reason` says why, for the log.
    /// Nothing was written.
    void unavailable(const QString& reason);

private:
    void onHeaders();
    void giveWay(const QString& reason);
    void onReadyRead();
    void onFinished();
    void armIdleCheck();
    void timeOut();
    void fail(const QString& reason);
    void stopTimers();

    QNetworkAccessManager& m_network;
    Clock& m_clock;
    QUrl m_url;
    QFile m_file;
    TransferLimits m_limits;
    ReplyPtr m_reply;
    qint64 m_received = 0;
    double m_lastActivity = 0.0;
    Clock::TimerId m_idleTimer = 0;
    Clock::TimerId m_totalTimer = 0;
    QString m_writeError;
    bool m_mayGiveWay = false;
    bool m_answered = false; // an HTTP answer that is not a redirect has arrived
    bool m_timedOut = false;
    bool m_done = false;
    bool m_succeeded = false;
};

} // namespace tamvex
