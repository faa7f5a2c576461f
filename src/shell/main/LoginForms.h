#pragma once

#include "account/InlineLoginForm.h"

#include <QObject>
#include <QUrl>
#include <QtQml/qqmlregistration.h>

namespace tamvex {

class AppState;
class OAuthCallbacks;

/// Makes the sign-in forms of the account pane and the onboarding's login step, and tells
/// them whether someone is signed in.
class LoginForms : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("The window wiring makes the one form factory")
    Q_PROPERTY(bool loggedIn READ loggedIn NOTIFY loggedInChanged)
public:
    LoginForms(AppState& state, QUrl yandexHost, InlineLoginForm::UrlOpener openUrl, OAuthCallbacks* callbacks,
               QObject* parent = nullptr);

    bool loggedIn() const;
    /// A form owned by `owner`: the view that shows it goes, and the form with its poll goes too.
    Q_INVOKABLE tamvex::InlineLoginForm* create(QObject* owner);

signals:
    void loggedInChanged();

private:
    AppState& m_state;
    QUrl m_yandexHost;
    InlineLoginForm::UrlOpener m_openUrl;
    OAuthCallbacks* m_callbacks;
};

} // namespace tamvex
