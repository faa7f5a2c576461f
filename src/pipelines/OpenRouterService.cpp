#include "pipelines/OpenRouterService.h"

#include "account/Network.h"
#include "pipelines/BackendSelector.h"
#include "platform/Log.h"

#include <QHash>
#include <QMutex>
#include <QNetworkAccessManager>

#include <algorithm>
#include <cmath>

namespace tamvex {

namespace {

struct CachedModel {
    QString model;
    double expiresAt = 0.0;
};

// The only lock of the system: held for one read or write of the table, never across a request.
QMutex modelCacheLock;
QHash<QString, CachedModel>& modelCache() {
    static QHash<QString, CachedModel> cache;
    return cache;
}

const QString kPresetPrefix = QStringLiteral("preset:");

// A double as the log has always printed it: shortest form, "1.0" rather than "1".
QString logNumber(double value) {
    QString text = QString::number(value, 'g', QLocale::FloatingPointShortest);
    if (std::isfinite(value) && !text.contains('.') && !text.contains('e'))
        text += QStringLiteral(".0");
    return text;
}

// True when every character may stand in a URL as written (RFC 3986), so that a text with
// spaces or quotes is refused rather than silently escaped.
bool isURLText(const QString& text) {
    static const QString allowed = QStringLiteral("-._~:/?#[]@!$&'()*+,;=%");
    for (QChar c : text) {
        const bool alnum = c.unicode() < 128 && c.isLetterOrNumber();
        if (!alnum && !allowed.contains(c))
            return false;
    }
    return true;
}

// Commands of the command line run without the application's selector: the main host serves
// the proxy, and their few waits read a clock of their own.
Clock& fallbackClock() {
    static WallClock clock;
    return clock;
}

} // namespace

OpenRouterService::OpenRouterService(Mode mode)
    : OpenRouterService(BackendSelector::hasShared()
                            ? OpenRouterService(std::move(mode), BackendSelector::shared())
                            : OpenRouterService(std::move(mode), nullptr, fallbackClock(), ServiceHosts::configured(),
                                                ServiceHosts::configured().main)) {}

OpenRouterService::OpenRouterService(Mode mode, BackendSelector& selector)
    // `mode` is copied, not moved: its kind is read in the same argument list.
    : OpenRouterService(mode, &selector, selector.clock(), selector.hosts(),
                        mode.kind == Mode::Kind::proxy ? selector.currentEndpoint() : QUrl()) {}

OpenRouterService::OpenRouterService(Mode mode, BackendSelector* selector, Clock& clock, const ServiceHosts& hosts,
                                     const QUrl& proxyBase)
    : m_mode(std::move(mode)), m_selector(selector), m_clock(clock), m_sttHost(hosts.stt),
      m_openRouterHost(hosts.openRouter) {
    if (m_mode.kind == Mode::Kind::proxy) {
        m_chatEndpoint = ServiceHosts::join(proxyBase, QStringLiteral("/api/openrouter/v1/chat/completions"));
        m_creditsEndpoint = ServiceHosts::join(proxyBase, QStringLiteral("/api/openrouter/v1/credits"));
    } else if (m_openRouterHost.path().endsWith(QLatin1String("/chat/completions"))) {
        // A self-hosted OpenAI-compatible server named by its full chat endpoint.
        m_chatEndpoint = m_openRouterHost;
    } else {
        m_chatEndpoint = ServiceHosts::join(m_openRouterHost, QStringLiteral("/api/v1/chat/completions"));
        m_creditsEndpoint = ServiceHosts::join(m_openRouterHost, QStringLiteral("/api/v1/credits"));
    }
}

QNetworkAccessManager& OpenRouterService::network() const {
    return m_selector ? m_selector->network() : sharedNetworkManager();
}

bool OpenRouterService::looksLikeInvalidModel(int status, const QString& body) {
    if (status != 400 && status != 404)
        return false;
    const QString lower = body.toLower();
    for (const char* phrase : {"not a valid model", "model not found", "no endpoints found", "invalid model"})
        if (lower.contains(QLatin1String(phrase)))
            return true;
    return false;
}

std::optional<QString> OpenRouterService::lookupCachedModel(const QString& label, double now) {
    QMutexLocker lock(&modelCacheLock);
    const auto it = modelCache().constFind(label);
    if (it != modelCache().constEnd() && it->expiresAt > now)
        return it->model;
    return std::nullopt;
}

void OpenRouterService::storeCachedModel(const QString& label, const QString& model, double ttlSec, double now) {
    QMutexLocker lock(&modelCacheLock);
    modelCache().insert(label, {model, now + ttlSec});
}

void OpenRouterService::clearModelCache() {
    QMutexLocker lock(&modelCacheLock);
    modelCache().clear();
}

void OpenRouterService::reportBackendFailure() {
    // A textual check on purpose: direct mode and the main host never report anything.
    if (m_sttHost.host().isEmpty() || !m_chatEndpoint.toString().contains(m_sttHost.host()))
        return;
    if (m_selector)
        m_selector->markSTTUnhealthy();
}

QCoro::Task<QString> OpenRouterService::resolveModel(QString label, Cancellation cancel) {
    if (auto cached = lookupCachedModel(label, m_clock.now()))
        co_return *cached;

    const QString name = label.startsWith(kPresetPrefix) ? label.mid(kPresetPrefix.size()) : label;
    // Plain concatenation: the name is not percent-encoded, so a name no URL can hold fails here.
    const QString text =
        m_sttHost.toString(QUrl::StripTrailingSlash) + QStringLiteral("/api/router/recommend?preset=") + name;
    const QUrl url(text, QUrl::StrictMode);
    if (!isURLText(text) || !url.isValid() || url.host().isEmpty())
        throw OpenRouterError::badResponse(-1, QStringLiteral("bad recommend url"));

    // Errors of sending pass on as they are; this call has nothing to do with chatEndpoint.
    const HttpAnswer answer = co_await sendRequest(network(), m_clock, QNetworkRequest(url), "GET", {},
                                                   RequestLimits{chatTimeoutSec, 0.0}, cancel);
    if (answer.status < 200 || answer.status > 299)
        throw OpenRouterError::badResponse(answer.status,
                                           QStringLiteral("recommend: ") + utf8OrEmpty(answer.body).left(200));

    const RecommendWire recommend = decodeRecommend(answer.body);
    const double ttl = recommend.ttlSec.value_or(defaultRecommendTTLSec);
    storeCachedModel(label, recommend.model, ttl, m_clock.now());
    const qint64 wholeTTL = qint64(std::clamp(std::trunc(ttl), -9.0e18, 9.0e18));
    logInfo(QString("OpenRouter direct: resolved %1 → %2 (ttl=%3s)").arg(label, recommend.model).arg(wholeTTL));
    co_return recommend.model;
}

QCoro::Task<OpenRouterService::ChatResult> OpenRouterService::chat(QString model, QList<ChatMessage> messages,
                                                                   std::optional<double> temperature,
                                                                   Cancellation cancel) {
    if (m_mode.kind == Mode::Kind::direct && model.startsWith(kPresetPrefix))
        model = co_await resolveModel(model, cancel);

    QNetworkRequest request(m_chatEndpoint);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    if (m_mode.kind == Mode::Kind::direct) {
        const QString key = m_mode.secret.trimmed();
        if (key.isEmpty()) {
            logError(QStringLiteral("OpenRouter: missing API key"));
            throw OpenRouterError::missingApiKey();
        }
        request.setRawHeader("Authorization", "Bearer " + key.toUtf8());
        request.setRawHeader("HTTP-Referer", "https://localhost");
        request.setRawHeader("X-Title", "Tamvex");
    } else {
        if (m_mode.secret.isEmpty())
            throw OpenRouterError::missingApiKey();
        request.setRawHeader("Authorization", "Bearer " + m_mode.secret.toUtf8());
    }

    const QByteArray body = encodeChatRequest(model, messages, temperature);
    logInfo(QString("OpenRouter request: model=%1, bodySize=%2 bytes").arg(model).arg(body.size()));

    HttpAnswer answer;
    try {
        answer = co_await sendRequest(network(), m_clock, request, "POST", body, RequestLimits{chatTimeoutSec, 0.0},
                                      cancel);
    } catch (const NetworkError&) {
        reportBackendFailure();
        throw;
    }

    logInfo(QString("OpenRouter response: %1, %2 bytes").arg(answer.status).arg(answer.body.size()));
    if (answer.status < 200 || answer.status > 299) {
        const QString text = utf8OrEmpty(answer.body);
        logError(QString("OpenRouter %1: %2").arg(answer.status).arg(text.left(500)));
        if (answer.status >= 500)
            reportBackendFailure();
        if (looksLikeInvalidModel(answer.status, text))
            throw OpenRouterError::invalidModel(model, m_openRouterHost);
        throw OpenRouterError::badResponse(answer.status, text);
    }

    const ChatResponseWire decoded = decodeChatResponse(answer.body);
    if (!decoded.hasChoice || !decoded.firstContent || decoded.firstContent->isEmpty())
        throw OpenRouterError::noContent();

    ChatResult result{*decoded.firstContent, std::nullopt};
    if (decoded.usage) {
        const ChatUsageWire& u = *decoded.usage;
        UsageInfo usage;
        usage.promptTokens = u.promptTokens.value_or(0);
        usage.completionTokens = u.completionTokens.value_or(0);
        usage.totalTokens = u.totalTokens.value_or(0);
        usage.costUSD = u.costUSD ? *u.costUSD : u.cost.value_or(0.0);
        logInfo(QString("OpenRouter usage: prompt=%1, completion=%2, cost=%3$, cost_tokens=%4")
                    .arg(usage.promptTokens)
                    .arg(usage.completionTokens)
                    .arg(logNumber(usage.costUSD), logNumber(u.costTokens.value_or(-1.0))));
        result.usage = usage;
    }
    co_return result;
}

} // namespace tamvex
