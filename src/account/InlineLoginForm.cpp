#include "account/InlineLoginForm.h"

#include "account/AccountStore.h"
#include "account/AnalyticsService.h"
#include "account/OAuthCallbacks.h"
#include "account/PhoneNumbers.h"
#include "account/SorvelAPI.h"
#include "platform/Error.h"
#include "platform/Log.h"

#include <QMetaEnum>
#include <QUrlQuery>

namespace tamvex {

namespace {
// A detached action must not lose its error: log what nobody awaits.
QCoro::Task<void> detach(QCoro::Task<void> task) {
    try {
        co_await std::move(task);
    } catch (const std::exception& e) {
        logError(QStringLiteral("inline: ") + describeError(e));
    }
}

// The value of the first query item called `name`; none when there is no such item or it has no
// "=". QUrlQuery can't tell "code=" from "code", and only the second lacks a value.
std::optional<QString> firstQueryValue(const QUrl& url, const QString& name) {
    for (const QString& item : url.query(QUrl::FullyEncoded).split(u'&')) {
        const qsizetype equals = item.indexOf(u'=');
        const QString key = QUrl::fromPercentEncoding(item.left(equals < 0 ? item.size() : equals).toUtf8());
        if (key != name)
            continue;
        if (equals < 0)
            return std::nullopt;
        return QUrl::fromPercentEncoding(item.mid(equals + 1).toUtf8());
    }
    return std::nullopt;
}
} // namespace

QUrl yandexAuthorizeUrl(const QUrl& oauthHost) {
    if (!oauthHost.isValid() || oauthHost.host().isEmpty())
        return {};
    QUrl url = oauthHost;
    url.setPath(QStringLiteral("/authorize"));
    QUrlQuery query;
    query.addQueryItem(QStringLiteral("response_type"), QStringLiteral("code"));
    query.addQueryItem(QStringLiteral("client_id"), QString::fromLatin1(yandexClientId));
    query.addQueryItem(QStringLiteral("redirect_uri"), QString::fromLatin1(yandexRedirectUri));
    query.addQueryItem(QStringLiteral("force_confirm"), QStringLiteral("yes"));
    url.setQuery(query);
    return url;
}

InlineLoginForm::InlineLoginForm(SorvelAPI& api, AccountStore& account, Clock& clock, QUrl yandexHost,
                                 UrlOpener openUrl, OAuthCallbacks* callbacks, QObject* parent)
    : QObject(parent), m_api(api), m_account(account), m_clock(clock), m_yandexHost(std::move(yandexHost)),
      m_openUrl(std::move(openUrl)) {
    if (callbacks)
        connect(callbacks, &OAuthCallbacks::yandexCallback, this, &InlineLoginForm::handleYandexCallback);
}

InlineLoginForm::~InlineLoginForm() {
    if (m_poll)
        m_poll->cancel();
}

QString InlineLoginForm::phaseName() const {
    return QString::fromLatin1(QMetaEnum::fromType<Phase>().valueToKey(int(m_phase)));
}

QString InlineLoginForm::subtitle() const {
    switch (m_phase) {
    case Phase::enterPhone:
        return QStringLiteral("Регистрация по номеру телефона. Подтверждение через Telegram-бот.");
    case Phase::needBotActivation:
        return QStringLiteral("Открой бота и поделись номером. Затем нажми «Получить код».");
    case Phase::enterCode:
        return QStringLiteral("Код пришёл в Telegram. Введи его ниже.");
    }
    return {};
}

void InlineLoginForm::setPhone(const QString& text) {
    const QString formatted = formatPhoneInput(text);
    // A field whose text is rewritten reads the property back, so a change of the raw text
    // alone still tells it.
    if (formatted == m_phone && formatted == text)
        return;
    m_phone = formatted;
    emit phoneChanged();
    emit inputsChanged();
}

void InlineLoginForm::setCode(const QString& text) {
    if (text == m_code)
        return;
    m_code = text;
    emit codeChanged();
    emit inputsChanged();
}

bool InlineLoginForm::canRequestCode() const {
    return !m_loading && phoneDigitCount(m_phone) >= 7;
}

bool InlineLoginForm::canVerify() const {
    return !m_loading && m_code.size() >= 4;
}

void InlineLoginForm::setPhase(Phase phase) {
    if (phase == m_phase)
        return;
    m_phase = phase;
    emit phaseChanged();
}

void InlineLoginForm::setLoading(bool loading) {
    if (loading == m_loading)
        return;
    m_loading = loading;
    emit loadingChanged();
    emit inputsChanged();
}

void InlineLoginForm::setErrorText(std::optional<QString> text) {
    if (text == m_errorText)
        return;
    m_errorText = std::move(text);
    emit errorTextChanged();
}

void InlineLoginForm::setYandexInFlight(bool inFlight) {
    if (inFlight == m_yandexInFlight)
        return;
    m_yandexInFlight = inFlight;
    emit yandexInFlightChanged();
}

void InlineLoginForm::requestCode() {
    detach(requestCodeTask());
}

QCoro::Task<void> InlineLoginForm::requestCodeTask() {
    QPointer<InlineLoginForm> self(this);
    const QString p = normalizePhone(m_phone);
    logInfo(QStringLiteral("inline.requestCode tapped phone=") + p);
    setLoading(true);
    setErrorText(std::nullopt);
    AnalyticsService::track(QStringLiteral("login_code_requested"), {{"phone_country", phoneCountry(p)}});
    try {
        const RequestCodeResponse answer = co_await m_api.requestCode(p);
        if (!self)
            co_return;
        m_botLink = answer.bot_link;
        m_botUsername = answer.bot_username;
        emit botChanged();
        if (answer.dev_code)
            setCode(*answer.dev_code);
        if (answer.status == QStringLiteral("code_sent")) {
            setPhase(Phase::enterCode);
            AnalyticsService::track(QStringLiteral("login_code_delivered"), {{"channel", "telegram"}});
        } else {
            setPhase(Phase::needBotActivation);
            AnalyticsService::track(QStringLiteral("login_bot_activation_required"));
        }
    } catch (const std::exception& e) {
        if (!self)
            co_return;
        const QString description = describeError(e);
        setErrorText(description);
        logError(QStringLiteral("inline.requestCode failed: ") + description);
        AnalyticsService::track(QStringLiteral("login_code_failed"), {{"error", description}});
    }
    setLoading(false);
}

void InlineLoginForm::verify() {
    detach(verifyTask());
}

QCoro::Task<void> InlineLoginForm::verifyTask() {
    QPointer<InlineLoginForm> self(this);
    logInfo(QStringLiteral("inline.verify tapped"));
    setLoading(true);
    setErrorText(std::nullopt);
    const QString p = normalizePhone(m_phone);
    try {
        const VerifyResponse answer = co_await m_api.verify(p, m_code.trimmed());
        if (!self)
            co_return;
        m_account.setSession(answer.access_token, answer.user);
        AnalyticsService::track(QStringLiteral("login_success"),
                                {{"phone_country", phoneCountry(p)}, {"balance_tokens", answer.user.balance_tokens}});
    } catch (const std::exception& e) {
        if (!self)
            co_return;
        const QString description = describeError(e);
        setErrorText(description);
        logError(QStringLiteral("inline.verify failed: ") + description);
        AnalyticsService::track(QStringLiteral("login_failed"), {{"error", description}});
    }
    setLoading(false);
}

void InlineLoginForm::backToPhone() {
    stopPolling();
    setPhase(Phase::enterPhone);
}

void InlineLoginForm::editPhone() {
    setPhase(Phase::enterPhone);
}

void InlineLoginForm::startPolling() {
    stopPolling();
    m_poll = Cancellation();
    emit pollingChanged();
    detach(pollLoop(normalizePhone(m_phone), *m_poll));
}

void InlineLoginForm::stopPolling() {
    if (!m_poll)
        return;
    // Cleared before cancelling: the cancelled sleep resumes the loop inside cancel().
    const Cancellation poll = *std::exchange(m_poll, std::nullopt);
    poll.cancel();
    emit pollingChanged();
}

QCoro::Task<void> InlineLoginForm::pollLoop(QString phone, Cancellation cancellation) {
    QPointer<InlineLoginForm> self(this);
    while (!cancellation.isCancelled()) {
        const bool slept = co_await m_clock.sleep(pollIntervalSec, cancellation);
        if (!slept || cancellation.isCancelled())
            co_return;
        ActivationStatusResponse status;
        try {
            status = co_await m_api.checkActivation(phone);
        } catch (const std::exception&) {
            continue; // the poll never reports: the next round tries again
        }
        if (!self || cancellation.isCancelled())
            co_return;
        if (status.activated && status.code_ready) {
            logInfo(QStringLiteral("inline.poll: activation detected → enterCode"));
            m_poll.reset();
            emit pollingChanged();
            setPhase(Phase::enterCode);
            co_return;
        }
    }
}

void InlineLoginForm::signInWithYandex() {
    setYandexInFlight(true);
    setErrorText(std::nullopt);
    AnalyticsService::track(QStringLiteral("yandex_signin_tapped"));
    const QUrl url = yandexAuthorizeUrl(m_yandexHost);
    if (!url.isValid()) {
        yandexFailed(QStringLiteral("Не удалось построить Yandex URL"));
        return;
    }
    if (!m_openUrl || !m_openUrl(url))
        yandexFailed(QStringLiteral("Не удалось открыть браузер"));
}

void InlineLoginForm::cancelYandex() {
    if (!m_yandexInFlight)
        return;
    AnalyticsService::track(QStringLiteral("yandex_signin_canceled"));
    setYandexInFlight(false);
}

bool InlineLoginForm::handleYandexCallback(const QUrl& url) {
    if (!m_yandexInFlight || !OAuthCallbacks::isYandexCallback(url))
        return false;
    const std::optional<QString> code = firstQueryValue(url, QStringLiteral("code"));
    if (!code) {
        yandexFailed(QStringLiteral("Yandex не вернул code"));
        return true;
    }
    detach(exchangeYandex(*code)); // an empty "code=" is a code too: the service judges it
    return true;
}

void InlineLoginForm::yandexFailed(const QString& description) {
    setErrorText(QStringLiteral("Yandex: ") + description);
    AnalyticsService::track(QStringLiteral("yandex_signin_failed"), {{"error", description}});
    setYandexInFlight(false);
}

QCoro::Task<void> InlineLoginForm::exchangeYandex(QString code) {
    QPointer<InlineLoginForm> self(this);
    try {
        const AppleExchangeResponse answer = co_await m_api.exchangeYandex(code);
        if (!self)
            co_return;
        m_account.setSession(answer.access_token, answer.user);
        AnalyticsService::track(QStringLiteral("yandex_signin_success"), {{"is_new", answer.is_new.value_or(false)}});
    } catch (const std::exception& e) {
        if (!self)
            co_return;
        const QString description = describeError(e);
        setErrorText(QStringLiteral("Не удалось войти через Яндекс: ") + description);
        AnalyticsService::track(QStringLiteral("yandex_signin_exchange_failed"), {{"error", description}});
    }
    setYandexInFlight(false);
}

} // namespace tamvex
