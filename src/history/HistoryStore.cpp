#include "history/HistoryStore.h"

#include "history/HistoryDB.h"
#include "platform/Clock.h"
#include "platform/Log.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

namespace tamvex {

HistoryStore::HistoryStore(const Paths& paths, Clock& clock, QObject* parent)
    : QObject(parent), m_paths(paths), m_clock(clock), m_appSupportDir(paths.dataDir) {}

HistoryStore::~HistoryStore() = default;

void HistoryStore::init() {
    m_db.reset();
    // A folder that cannot be made shows up as a failure to open the file.
    m_paths.ensureDataDir();
    try {
        m_db = std::make_unique<HistoryDB>(m_paths.dataFile("history.db"));
        migrateLegacyJSON();
        cleanExpiredRetryAudio();
        reloadFirstPage();
    } catch (const HistoryDBError& e) {
        logError("HistoryStore: SQLite init failed: " + e.logText() +
                 ". История будет недоступна в этой сессии.");
        m_db.reset();
    }
    emit changed();
}

void HistoryStore::migrateLegacyJSON() {
    if (m_db->count() >= 1)
        return;
    const QString legacyPath = m_paths.dataFile("history.json");
    QFile file(legacyPath);
    if (!file.exists() || !file.open(QIODevice::ReadOnly))
        return;
    const QByteArray data = file.readAll();
    file.close();
    // Any decoding fault leaves the whole file in place and unimported.
    QJsonParseError parseError;
    const QJsonDocument doc = QJsonDocument::fromJson(data, &parseError);
    if (parseError.error != QJsonParseError::NoError || !doc.isArray())
        return;
    QList<HistoryEntry> imported;
    for (const QJsonValue& value : doc.array()) {
        auto entry = value.isObject() ? HistoryEntry::fromJson(value.toObject()) : std::nullopt;
        if (!entry)
            return;
        imported.append(std::move(*entry));
    }
    for (const HistoryEntry& entry : imported)
        m_db->upsert(entry);
    const QString backup = m_paths.dataFile("history.json.bak");
    QFile::remove(backup);
    QFile::rename(legacyPath, backup);
    logInfo("HistoryStore: migrated " + QString::number(imported.size()) +
            " entries from history.json → SQLite (backup at history.json.bak)");
}

void HistoryStore::cleanExpiredRetryAudio() {
    const QDateTime cutoff = m_clock.currentDateTime().addMSecs(-qint64(retryAudioTTL * 1000.0));
    const auto expired = m_db->expiredAudio(cutoff);
    if (expired.isEmpty())
        return;
    for (const auto& [id, path] : expired) {
        QFile::remove(path);
        try {
            m_db->clearAudioPath(id);
        } catch (const HistoryDBError&) {
            // The row keeps its path; the next start tries again.
        }
    }
    logInfo("HistoryStore: cleaned " + QString::number(expired.size()) + " expired retry-audio files (TTL " +
            QString::number(int(retryAudioTTL / 86400.0)) + " days)");
}

void HistoryStore::reloadFirstPage() {
    if (!m_db)
        return;
    m_entries = m_db->fetch(pageSize, 0);
    m_hasMore = m_entries.size() < m_db->count();
}

void HistoryStore::add(const HistoryEntry& entry) {
    if (!m_db)
        return;
    try {
        m_db->upsert(entry);
    } catch (const HistoryDBError& e) {
        logError("HistoryStore.add failed: " + e.logText());
        return;
    }
    m_entries.prepend(entry);
    emit changed();
    try {
        if (m_db->count() > maxStoredEntries)
            m_db->prune(maxStoredEntries);
    } catch (const HistoryDBError& e) {
        logError("HistoryStore.add failed: " + e.logText());
    }
}

HistoryEntry* HistoryStore::find(const QUuid& id) {
    for (HistoryEntry& e : m_entries)
        if (e.id == id)
            return &e;
    return nullptr;
}

std::optional<HistoryEntry> HistoryStore::entry(const QUuid& id) const {
    for (const HistoryEntry& e : m_entries)
        if (e.id == id)
            return e;
    return std::nullopt;
}

void HistoryStore::updateLoaded(const QUuid& id, const std::function<void(HistoryEntry&)>& change) {
    HistoryEntry* e = find(id);
    if (!e)
        return;
    change(*e);
    const HistoryEntry written = *e;
    emit changed();
    if (!m_db)
        return;
    try {
        m_db->upsert(written);
    } catch (const HistoryDBError&) {
        // Memory and table differ until the next start.
    }
}

void HistoryStore::setCategory(const QUuid& id, TextCategory category) {
    updateLoaded(id, [&](HistoryEntry& e) { e.category = category; });
}

void HistoryStore::applyRetrySuccess(const QUuid& id, const QString& text, std::optional<double> costUSD,
                                     std::optional<qint64> promptTokens, std::optional<qint64> completionTokens) {
    updateLoaded(id, [&](HistoryEntry& e) {
        if (e.audioPath)
            QFile::remove(*e.audioPath);
        e.text = text;
        e.errorMessage.reset();
        e.costUSD = costUSD;
        e.promptTokens = promptTokens;
        e.completionTokens = completionTokens;
        e.audioPath.reset();
    });
}

void HistoryStore::setError(const QUuid& id, const QString& message) {
    // The audio stays, so the entry can be retried again.
    updateLoaded(id, [&](HistoryEntry& e) { e.errorMessage = message; });
}
bool HistoryStore::loadUntilFound(const QUuid& id) {
    while (!find(id) && m_hasMore) {
        const qsizetype loaded = m_entries.size();
        loadMore();
        if (m_entries.size() == loaded)
            break; // a failed read keeps hasMore; trying again at once would spin
    }
    return find(id) != nullptr;
}


void HistoryStore::loadMore() {
    if (!m_hasMore || !m_db)
        return;
    QList<HistoryEntry> page;
    try {
        page = m_db->fetch(pageSize, int(m_entries.size()));
    } catch (const HistoryDBError& e) {
        // hasMore stays true, so the next attempt tries again.
        logError("HistoryStore.loadMore failed: " + e.logText());
        return;
    }
    m_hasMore = page.size() == pageSize;
    if (page.isEmpty())
        return; // the list did not change: no view needs to rebuild it
    m_entries.append(page);
    emit changed();
}

void HistoryStore::remove(const QUuid& id) {
    m_entries.removeIf([&](const HistoryEntry& e) { return e.id == id; });
    emit changed();
    if (m_db) {
        try {
            m_db->remove(id);
        } catch (const HistoryDBError&) {
        }
    }
}

void HistoryStore::clearAll() {
    m_entries.clear();
    if (m_db) {
        try {
            m_db->exec("DELETE FROM entries;");
        } catch (const HistoryDBError&) {
        }
    }
    emit changed();
    emit cleared();
}

qint64 HistoryStore::wordsLastWeek() const {
    const QDateTime start = m_clock.currentDateTime().toLocalTime().addDays(-7);
    if (!start.isValid() || !m_db)
        return 0;
    try {
        return m_db->wordCount(start);
    } catch (const HistoryDBError&) {
        return 0;
    }
}

} // namespace tamvex
