#include "shell/main/RetryingIds.h"

#include "core/AppState.h"
#include "history/HistoryEntry.h"
#include "platform/Log.h"

#include <QPointer>

namespace tamvex {

RetryingIds::RetryingIds(AppState& state, QObject* parent) : QObject(parent), m_state(state) {}

bool RetryingIds::retry(const QUuid& id) {
    if (m_ids.contains(id))
        return false;
    if (!m_state.retryTranscriptionHook()) {
        logError(QStringLiteral("retry-entry[") + uuidText(id).left(8) + QStringLiteral("]: hook missing"));
        return false;
    }
    m_ids.insert(id);
    emit changed();
    run(id);
    return true;
}

bool RetryingIds::retry(const QString& idText) {
    const auto id = parseUuid(idText);
    return id && retry(*id);
}

bool RetryingIds::contains(const QString& idText) const {
    const auto id = parseUuid(idText);
    return id && m_ids.contains(*id);
}

QStringList RetryingIds::idTexts() const {
    QStringList texts;
    for (const QUuid& id : m_ids)
        texts.append(uuidText(id));
    texts.sort();
    return texts;
}

QCoro::Task<void> RetryingIds::run(QUuid id) {
    QPointer<RetryingIds> self(this);
    // A copy: the hook may be replaced while this retry runs.
    const AppState::RetryHook hook = m_state.retryTranscriptionHook();
    try {
        co_await hook(id);
    } catch (const std::exception& e) {
        logError(QStringLiteral("retry-entry[") + uuidText(id).left(8) + QStringLiteral("]: ") +
                 QString::fromUtf8(e.what()));
    }
    // The pane may have gone while the retry ran.
    if (self && self->m_ids.remove(id))
        emit self->changed();
}

} // namespace tamvex
