#include "shell/main/LoginForms.h"

#include "account/AccountStore.h"
#include "core/AppState.h"

namespace tamvex {

LoginForms::LoginForms(AppState& state, QUrl yandexHost, InlineLoginForm::UrlOpener openUrl, OAuthCallbacks* callbacks,
                       QObject* parent)
    : QObject(parent), m_state(state), m_yandexHost(std::move(yandexHost)), m_openUrl(std::move(openUrl)),
      m_callbacks(callbacks) {
    connect(&m_state.account(), &AccountStore::changed, this, &LoginForms::loggedInChanged);
}

bool LoginForms::loggedIn() const {
    return m_state.account().isLoggedIn();
}

InlineLoginForm* LoginForms::create(QObject* owner) {
    return new InlineLoginForm(m_state.api(), m_state.account(), m_state.clock(), m_yandexHost, m_openUrl, m_callbacks,
                               owner ? owner : this);
}

} // namespace tamvex
