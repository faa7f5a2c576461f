#include "account/AccountStore.h"

#include "account/AnalyticsService.h"
#include "account/SorvelAPI.h"
#include "platform/Defaults.h"
#include "platform/Log.h"

#include <QPointer>

#include <algorithm>

namespace tamvex {

namespace {
const QString kTokenKey = QStringLiteral("sorvel_access_token");
}

AccountStore::AccountStore(Defaults& defaults, SorvelAPI& api, QObject* parent)
    : QObject(parent), m_defaults(defaults), m_api(api), m_accessToken(defaults.readString(kTokenKey).optional()) {}

void AccountStore::storeToken(const std::optional<QString>& token) {
    m_accessToken = token;
    if (token)
        m_defaults.setString(kTokenKey, *token);
    else
        m_defaults.remove(kTokenKey);
    emit changed();
}

void AccountStore::setUser(const std::optional<UserDTO>& user) {
    m_user = user;
    emit changed();
}

void AccountStore::setRefreshing(bool refreshing) {
    if (m_isRefreshing == refreshing)
        return;
    m_isRefreshing = refreshing;
    emit changed();
}

void AccountStore::setSession(const QString& token, const UserDTO& user) {
    storeToken(token);
    setUser(user);
}

void AccountStore::setToken(const QString& token) {
    storeToken(token);
    startRefresh();
}

void AccountStore::startRefresh() {
    // Detached: the task finishes on its own and guards the store itself.
    [](QPointer<AccountStore> self) -> QCoro::Task<void> {
        try {
            if (self)
                co_await self->refresh();
        } catch (const std::exception& e) {
            logError(QStringLiteral("AccountStore.refresh: ") + describeError(e));
        }
    }(this);
}

QCoro::Task<void> AccountStore::refresh() {
    if (!m_accessToken)
        co_return;
    QPointer<AccountStore> self(this);
    setRefreshing(true);
    const QString token = *m_accessToken;
    std::optional<MeResponse> answer;
    bool unauthorized = false;
    QString failure;
    try {
        answer = co_await m_api.me(token);
    } catch (const APIError& e) {
        if (e.kind() == APIError::Kind::unauthorized)
            unauthorized = true;
        else
            failure = e.description();
    } catch (const std::exception& e) {
        failure = describeError(e);
    }
    if (!self)
        co_return;
    if (answer)
        setUser(answer->user);
    else if (unauthorized)
        signOut();
    else
        logError(QStringLiteral("AccountStore.refresh: ") + failure);
    setRefreshing(false);
}

void AccountStore::signOut() {
    // Reported first, so the event still carries the ending session's token.
    AnalyticsService::track(QStringLiteral("logout"));
    storeToken(std::nullopt);
    setUser(std::nullopt);
}

void AccountStore::lowerShownBalance(double amount) {
    if (!m_user)
        return;
    UserDTO user = *m_user;
    user.balance_tokens = std::max(0.0, user.balance_tokens - amount);
    setUser(user);
}

} // namespace tamvex
