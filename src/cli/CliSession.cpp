#include "cli/CliSession.h"

#include "account/AccountStore.h"
#include "core/AppEnvironment.h"
#include "core/AppState.h"
#include "platform/Paths.h"

#include <QCoreApplication>
#include <QLoggingCategory>

#include <qcoro/qcorosignal.h>

namespace tamvex {

CliSession::CliSession() {
    const Paths paths = Paths::standard();
    m_defaults = std::make_unique<Defaults>(paths.settingsFile());
    m_loginItem = std::make_unique<AutostartLoginItem>(paths.autostartEntry(), QCoreApplication::applicationFilePath());
    m_state = std::make_unique<AppState>(AppEnvironment{m_clock, *m_defaults, paths, m_sounds, *m_loginItem, {}});
}

CliSession::~CliSession() = default;

void keepLogsOutOfTheTerminal() {
    if (qEnvironmentVariableIsEmpty("QT_LOGGING_RULES"))
        QLoggingCategory::setFilterRules(QStringLiteral("com.dovra.tamv.Tamvex=false"));
}

QCoro::Task<void> CliSession::loadAccount() {
    AccountStore& account = m_state->account();
    if (!account.accessToken())
        co_return;
    co_await account.refresh();
    // The state started a refresh of its own at construction: nothing may be left in flight
    // when the command ends and the stores go.
    while (account.isRefreshing())
        co_await qCoro(&account, &AccountStore::changed);
}

} // namespace tamvex
