#include "history/InsightsStore.h"

#include "history/HistoryStore.h"
#include "platform/Clock.h"

#include <QFile>
#include <QSaveFile>

namespace tamvex {

InsightsStore::InsightsStore(HistoryStore& history, const Paths& paths, Clock& clock, QObject* parent)
    : QObject(parent), m_history(&history), m_clock(clock), m_fileURL(paths.dataFile("insights.json")) {
    paths.ensureDataDir();
    m_insights = load(m_fileURL);
    connect(&history, &HistoryStore::cleared, this, &InsightsStore::clear);
}

bool InsightsStore::shouldRecompute() const {
    if (!m_insights)
        return true;
    const qint64 elapsedMs = m_insights->generatedAt.msecsTo(m_clock.currentDateTime());
    return double(elapsedMs) / 1000.0 > minInterval;
}

void InsightsStore::compute() {
    HistoryStore* history = m_history.data();
    if (!history)
        return;
    m_isComputing = true;
    emit changed();
    const std::optional<QString> summary = m_insights ? m_insights->llmSummary : std::nullopt;
    m_insights = computeInsights(history->entries(), m_clock.currentDateTime(), summary);
    // A failed save keeps the snapshot in memory and the old file on disk.
    save(*m_insights, m_fileURL);
    m_isComputing = false;
    emit changed();
}

void InsightsStore::refresh() {
    if (shouldRecompute())
        compute();
}

void InsightsStore::clear() {
    m_insights.reset();
    QFile::remove(m_fileURL);
    emit changed();
}

bool InsightsStore::save(const Insights& insights, const QString& path) {
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    const QByteArray data = insights.toJson();
    if (file.write(data) != data.size()) {
        file.cancelWriting();
        return false;
    }
    return file.commit();
}

std::optional<Insights> InsightsStore::load(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    return Insights::fromJson(file.readAll());
}

} // namespace tamvex
