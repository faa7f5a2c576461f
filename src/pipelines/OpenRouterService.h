#pragma once

#include "pipelines/OpenRouterWire.h"
#include "pipelines/ServiceHosts.h"
#include "pipelines/SpeechPipeline.h"
#include "platform/Clock.h"

#include <QPointer>
#include <QUrl>

#include <qcoro/qcorotask.h>

#include <optional>

class QNetworkAccessManager;

namespace tamvex {

class BackendSelector;

/// Sends one chat-completions request and gives back the text and its cost. Talks either to
/// OpenRouter with the user's key or to the service's speech proxy with the access token.
/// The object must outlive its calls; each dictation makes a new one.
class OpenRouterService {
public:
    /// How the requests are authenticated.
    struct Mode {
        enum class Kind { direct, proxy };
        Kind kind = Kind::direct;
        QString secret; ///< the API key (direct) or the access token (proxy)

        /// OpenRouter's public API with the user's own key.
        static Mode direct(const QString& apiKey) { return {Kind::direct, apiKey}; }
        /// The service's speech proxy with the user's access token.
        static Mode proxy(const QString& accessToken) { return {Kind::proxy, accessToken}; }
    };

    /// The answer's text and what it cost.
    struct ChatResult {
        QString text;
        std::optional<UsageInfo> usage;
    };

    /// Fixes the endpoint now: in proxy mode it reads the selector's current pick once.
    explicit OpenRouterService(Mode mode, BackendSelector& selector);
    /// The same with the process-wide selector; where none was made (a command of the
    /// command line), proxy requests go to the main host and waits read the wall clock.
    explicit OpenRouterService(Mode mode);

    /// One request: resolves a "preset:" label in direct mode, sends, decodes. `cancel`
    /// aborts the request at once; that counts as a failed send.
    QCoro::Task<ChatResult> chat(QString model, QList<ChatMessage> messages, std::optional<double> temperature,
                                 Cancellation cancel = {});
    /// The concrete model behind a "preset:" label, from the cache or the recommend call.
    /// `cancel` aborts the lookup, as it does the request it serves.
    QCoro::Task<QString> resolveModel(QString label, Cancellation cancel = {});
    /// Tells the selector that the speech proxy host failed, if that is where requests go.
    void reportBackendFailure();

    /// True for a 400/404 whose body speaks of an unknown model.
    static bool looksLikeInvalidModel(int status, const QString& body);
    /// A cached model for `label` whose expiry lies strictly after `now`.
    static std::optional<QString> lookupCachedModel(const QString& label, double now);
    /// Caches `model` for `label` until `now` + `ttlSec`.
    static void storeCachedModel(const QString& label, const QString& model, double ttlSec, double now);
    /// Empties the shared cache (tests).
    static void clearModelCache();

    const Mode& mode() const { return m_mode; }
    const QUrl& chatEndpoint() const { return m_chatEndpoint; }
    /// Kept for the balance check of OpenRouter; nothing reads it yet.
    const QUrl& creditsEndpoint() const { return m_creditsEndpoint; }

    static constexpr double chatTimeoutSec = 60.0;
    static constexpr double defaultRecommendTTLSec = 60.0;

private:
    OpenRouterService(Mode mode, BackendSelector* selector, Clock& clock, const ServiceHosts& hosts,
                      const QUrl& proxyBase);
    QNetworkAccessManager& network() const;

    Mode m_mode;
    QPointer<BackendSelector> m_selector;
    Clock& m_clock;
    QUrl m_chatEndpoint;
    QUrl m_creditsEndpoint;
    QUrl m_sttHost;
    QUrl m_openRouterHost;
};

} // namespace tamvex
