#pragma once

#include "platform/Clock.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <qcoro/qcorotask.h>

#include <functional>
#include <optional>

namespace tamvex {

class AccountStore;
class OAuthCallbacks;
class SorvelAPI;

/// The client identifier of this program at Yandex ID.
inline constexpr const char* yandexClientId = "0f3a9c41d2b87e65c1a04d7f96e2b358";
/// Where Yandex sends the browser back with the code.
inline constexpr const char* yandexRedirectUri = "tamvex://oauth/yandex";
/// The authorize URL on `oauthHost` ("/authorize" with the code flow's query).
QUrl yandexAuthorizeUrl(const QUrl& oauthHost);

/// The sign-in form's conversation with the service, shared by the account pane and the
/// onboarding: the phone road (code by the Telegram bot, with the poll that notices the
/// bot's activation) and the Yandex road through the user's browser. The QML form shows
/// its properties and calls its actions.
class InlineLoginForm : public QObject {
    Q_OBJECT
    Q_PROPERTY(Phase phase READ phase NOTIFY phaseChanged)
    /// "enterPhone", "needBotActivation" or "enterCode".
    Q_PROPERTY(QString phaseName READ phaseName NOTIFY phaseChanged)
    Q_PROPERTY(QString subtitle READ subtitle NOTIFY phaseChanged)
    Q_PROPERTY(QString phone READ phone WRITE setPhone NOTIFY phoneChanged)
    Q_PROPERTY(QString code READ code WRITE setCode NOTIFY codeChanged)
    Q_PROPERTY(bool loading READ loading NOTIFY loadingChanged)
    Q_PROPERTY(QString errorText READ errorText NOTIFY errorTextChanged)
    Q_PROPERTY(QString botLink READ botLink NOTIFY botChanged)
    Q_PROPERTY(QString botUsername READ botUsername NOTIFY botChanged)
    Q_PROPERTY(bool yandexInFlight READ yandexInFlight NOTIFY yandexInFlightChanged)
    Q_PROPERTY(bool canRequestCode READ canRequestCode NOTIFY inputsChanged)
    Q_PROPERTY(bool canVerify READ canVerify NOTIFY inputsChanged)
    Q_PROPERTY(bool polling READ polling NOTIFY pollingChanged)
public:
    enum class Phase { enterPhone, needBotActivation, enterCode };
    Q_ENUM(Phase)
    /// Opens a URL in the user's browser; false when nothing could open it.
    using UrlOpener = std::function<bool(const QUrl&)>;

    static constexpr double pollIntervalSec = 2.0;

    /// A form over `api` that signs in to `account`. `yandexHost` is Yandex's OAuth host;
    /// `callbacks`, when given, brings the browser's return.
    InlineLoginForm(SorvelAPI& api, AccountStore& account, Clock& clock, QUrl yandexHost, UrlOpener openUrl,
                    OAuthCallbacks* callbacks = nullptr, QObject* parent = nullptr);
    ~InlineLoginForm() override;

    Phase phase() const { return m_phase; }
    QString phaseName() const;
    QString subtitle() const;
    QString phone() const { return m_phone; }
    /// Takes the field's text through formatPhoneInput.
    void setPhone(const QString& text);
    QString code() const { return m_code; }
    void setCode(const QString& text);
    bool loading() const { return m_loading; }
    QString errorText() const { return m_errorText.value_or(QString()); }
    QString botLink() const { return m_botLink.value_or(QString()); }
    QString botUsername() const { return m_botUsername; }
    bool yandexInFlight() const { return m_yandexInFlight; }
    /// "Получить код": not loading and 7 digits or more.
    bool canRequestCode() const;
    /// "Войти": not loading and a code of 4 characters or more.
    bool canVerify() const;
    /// True while the activation poll runs.
    bool polling() const { return m_poll.has_value(); }

    /// "Получить код" and "Прислать заново".
    Q_INVOKABLE void requestCode();
    /// "Войти".
    Q_INVOKABLE void verify();
    /// "Изменить номер": ends the poll and goes back to the phone.
    Q_INVOKABLE void backToPhone();
    /// "Изменить" of the code step: back to the phone, nothing else.
    Q_INVOKABLE void editPhone();
    /// The activation poll: the first check 2 s from now, then every 2 s until the bot is
    /// activated with a code ready. A failed check is ignored.
    Q_INVOKABLE void startPolling();
    Q_INVOKABLE void stopPolling();
    /// "Войти через Яндекс ID": opens the authorize page in the browser and waits.
    Q_INVOKABLE void signInWithYandex();
    /// "Отмена" while waiting for the browser: the user's cancel.
    Q_INVOKABLE void cancelYandex();
    /// The browser's return; false when the form was not waiting for it.
    bool handleYandexCallback(const QUrl& url);

    /// Tasks of the actions, for callers that await them.
    QCoro::Task<void> requestCodeTask();
    QCoro::Task<void> verifyTask();

signals:
    void phaseChanged();
    void phoneChanged();
    void codeChanged();
    void loadingChanged();
    void errorTextChanged();
    void botChanged();
    void yandexInFlightChanged();
    void inputsChanged();
    void pollingChanged();

private:
    QCoro::Task<void> pollLoop(QString phone, Cancellation cancellation);
    QCoro::Task<void> exchangeYandex(QString code);
    void yandexFailed(const QString& description);
    void setPhase(Phase phase);
    void setLoading(bool loading);
    void setErrorText(std::optional<QString> text);
    void setYandexInFlight(bool inFlight);

    SorvelAPI& m_api;
    AccountStore& m_account;
    Clock& m_clock;
    QUrl m_yandexHost;
    UrlOpener m_openUrl;
    Phase m_phase = Phase::enterPhone;
    QString m_phone;
    QString m_code;
    bool m_loading = false;
    std::optional<QString> m_errorText;
    std::optional<QString> m_botLink;
    QString m_botUsername;
    std::optional<Cancellation> m_poll;
    bool m_yandexInFlight = false;
};

} // namespace tamvex
