#pragma once

#include "account/SorvelDTO.h"

#include <QObject>
#include <QString>

#include <qcoro/qcorotask.h>

#include <optional>

namespace tamvex {

class Defaults;
class SorvelAPI;

/// Who is signed in: the bearer token (persisted) and the last user the service returned.
class AccountStore : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isLoggedIn READ isLoggedIn NOTIFY changed)
    Q_PROPERTY(bool isRefreshing READ isRefreshing NOTIFY changed)
    Q_PROPERTY(QString accessToken READ accessTokenText NOTIFY changed)
    Q_PROPERTY(QString phone READ phone NOTIFY changed)
    Q_PROPERTY(double balanceTokens READ balanceTokens NOTIFY changed)

public:
    /// Reads the stored token; makes no network call. The caller starts refresh() if a token is there.
    AccountStore(Defaults& defaults, SorvelAPI& api, QObject* parent = nullptr);

    /// The bearer token; none when signed out.
    const std::optional<QString>& accessToken() const { return m_accessToken; }
    /// The last user the service returned.
    const std::optional<UserDTO>& user() const { return m_user; }
    /// True while refresh() is in flight.
    bool isRefreshing() const { return m_isRefreshing; }
    /// True when both a token and a user are known.
    bool isLoggedIn() const { return m_accessToken.has_value() && m_user.has_value(); }

    /// The token or the empty text, for QML.
    QString accessTokenText() const { return m_accessToken.value_or(QString()); }
    /// The user's phone or the empty text, for QML.
    QString phone() const { return m_user ? m_user->phone : QString(); }
    /// The user's balance in ø, 0 without a user.
    double balanceTokens() const { return m_user ? m_user->balance_tokens : 0.0; }

    /// Takes a fresh session from a sign-in answer; no request is made.
    void setSession(const QString& token, const UserDTO& user);
    /// Takes a token alone (from an earlier installation) and starts a refresh.
    void setToken(const QString& token);
    /// Reloads the user; a 401 signs out, other failures are logged and kept silent.
    QCoro::Task<void> refresh();
    /// Starts refresh() without waiting for it.
    void startRefresh();
    /// Reports "logout", then forgets the token and the user.
    void signOut();
    /// Lowers the shown balance by `amount` (floored at 0) until the next refresh brings the real one.
    void lowerShownBalance(double amount);

signals:
    /// Any field changed.
    void changed();

private:
    void storeToken(const std::optional<QString>& token);
    void setUser(const std::optional<UserDTO>& user);
    void setRefreshing(bool refreshing);

    Defaults& m_defaults;
    SorvelAPI& m_api;
    std::optional<QString> m_accessToken;
    std::optional<UserDTO> m_user;
    bool m_isRefreshing = false;
};

} // namespace tamvex
