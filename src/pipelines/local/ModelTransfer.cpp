#include "pipelines/local/ModelTransfer.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

namespace tamvex {

namespace {

// Qt reports HTTP answers of 4xx and 5xx as errors of these ranges; the body of such an answer
// is still what the server sent, and the digest check is what refuses it.
bool isHttpStatusError(QNetworkReply::NetworkError error) {
    const int code = int(error);
    return (code >= 201 && code <= 299) || (code >= 401 && code <= 499);
}

// Timer callbacks compare sums of doubles; a hair below the limit still counts as reached.
constexpr double timeEpsilon = 1e-9;

} // namespace

ModelTransfer::ModelTransfer(QNetworkAccessManager& network, Clock& clock, const QUrl& url, const QString& partPath,
                             TransferLimits limits, bool mayGiveWay, QObject* parent)
    : QObject(parent), m_network(network), m_clock(clock), m_url(url), m_file(partPath), m_limits(limits),
      m_mayGiveWay(mayGiveWay) {}

ModelTransfer::~ModelTransfer() {
    abort();
}

QString ModelTransfer::timedOutText() {
    return QStringLiteral("Превышен лимит времени на запрос.");
}

QString ModelTransfer::saveFailedText(const QString& detail) {
    return QStringLiteral("Не удалось сохранить файл: ") + detail;
}

void ModelTransfer::start() {
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        m_done = true;
        emit failed(saveFailedText(m_file.errorString()));
        return;
    }
    QNetworkRequest request(m_url);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    m_reply.reset(m_network.get(request));
    connect(m_reply.get(), &QNetworkReply::metaDataChanged, this, &ModelTransfer::onHeaders);
    connect(m_reply.get(), &QNetworkReply::readyRead, this, &ModelTransfer::onReadyRead);
    connect(m_reply.get(), &QNetworkReply::finished, this, &ModelTransfer::onFinished);
    m_lastActivity = m_clock.now();
    armIdleCheck();
    m_totalTimer = m_clock.schedule(m_limits.resourceSeconds, [this] {
        m_totalTimer = 0;
        timeOut();
    });
}

void ModelTransfer::abort() {
    stopTimers();
    m_done = true;
    m_reply.reset();
    if (m_file.isOpen())
        m_file.close();
    if (!m_succeeded && m_file.exists())
        m_file.remove();
}

// A host with no such file, or one that is down, is no host for the model: the next one is
// asked before a byte of the error page is written.
void ModelTransfer::onHeaders() {
    if (m_done || !m_reply || m_answered)
        return;
    const int status = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (status == 0 || (status >= 300 && status < 400))
        return; // no answer yet, or a redirect being followed
    m_answered = true;
    if (m_mayGiveWay && (status == 404 || status >= 500))
        giveWay(QStringLiteral("%1: HTTP %2").arg(m_url.host()).arg(status));
}

void ModelTransfer::giveWay(const QString& reason) {
    m_done = true;
    stopTimers();
    m_reply.reset();
    m_file.close();
    m_file.remove();
    emit unavailable(reason);
}

// One timer that re-arms itself for the remaining time, rather than a new timer per chunk.
void ModelTransfer::armIdleCheck() {
    const double remaining = m_lastActivity + m_limits.requestSeconds - m_clock.now();
    m_idleTimer = m_clock.schedule(remaining, [this] {
        m_idleTimer = 0;
        if (m_clock.now() - m_lastActivity >= m_limits.requestSeconds - timeEpsilon)
            timeOut();
        else
            armIdleCheck();
    });
}

void ModelTransfer::timeOut() {
    if (m_done || !m_reply)
        return;
    m_timedOut = true;
    m_reply->abort(); // finished() follows, synchronously or soon
    if (!m_done)
        onFinished();
}

void ModelTransfer::onReadyRead() {
    if (!m_writeError.isEmpty() || !m_reply || m_done)
        return;
    onHeaders();
    if (m_done)
        return;
    m_lastActivity = m_clock.now();
    const QByteArray chunk = m_reply->readAll();
    if (chunk.isEmpty())
        return;
    if (m_file.write(chunk) != chunk.size()) {
        m_writeError = m_file.errorString();
        m_reply->abort();
        return;
    }
    // Counted here rather than through downloadProgress, which Qt holds back for 100 ms and
    // so never reports a first chunk followed by a stall.
    m_received += chunk.size();
    const QVariant length = m_reply->header(QNetworkRequest::ContentLengthHeader);
    emit progressed(m_received, length.isValid() ? length.toLongLong() : -1);
}

void ModelTransfer::onFinished() {
    if (m_done || !m_reply)
        return;
    onHeaders();
    if (m_done)
        return;
    // No answer at all (refused, no such host, silence): another host may have one.
    if (m_mayGiveWay && !m_answered) {
        giveWay(m_timedOut ? timedOutText() : m_reply->errorString());
        return;
    }
    m_done = true;
    stopTimers();
    if (m_writeError.isEmpty() && !m_timedOut)
        onReadyRead();
    const QNetworkReply::NetworkError error = m_reply->error();
    const QString errorText = m_reply->errorString();
    const QVariant length = m_reply->header(QNetworkRequest::ContentLengthHeader);
    m_reply.reset();
    if (!m_writeError.isEmpty())
        return fail(saveFailedText(m_writeError));
    if (m_timedOut)
        return fail(timedOutText());
    if (error != QNetworkReply::NoError && !isHttpStatusError(error))
        return fail(errorText);
    // When the peer hangs up with the end of the data already read, Qt may finish the reply
    // without an error, short of its announced length; it is the same dropped connection.
    if (error == QNetworkReply::NoError && length.isValid() && m_received < length.toLongLong())
        return fail(QCoreApplication::translate("QHttp", "Connection closed"));
    if (!m_file.flush()) {
        const QString detail = m_file.errorString();
        return fail(saveFailedText(detail));
    }
    m_file.close();
    m_succeeded = true;
    emit downloaded(m_file.fileName());
}

void ModelTransfer::fail(const QString& reason) {
    m_file.close();
    m_file.remove();
    emit failed(reason);
}

void ModelTransfer::stopTimers() {
    if (m_idleTimer)
        m_clock.cancelTimer(m_idleTimer);
    if (m_totalTimer)
        m_clock.cancelTimer(m_totalTimer);
    m_idleTimer = m_totalTimer = 0;
}

} // namespace tamvex
