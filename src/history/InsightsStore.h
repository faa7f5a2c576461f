#pragma once

#include "history/Insights.h"
#include "platform/Paths.h"

#include <QObject>
#include <QPointer>

#include <optional>

namespace tamvex {

class Clock;
class HistoryStore;

/// Keeps the latest insights snapshot, computes it from the loaded history at most hourly,
/// and caches it in "insights.json".
class InsightsStore : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool hasInsights READ hasInsights NOTIFY changed)
    Q_PROPERTY(bool isComputing READ isComputing NOTIFY changed)
public:
    static constexpr double minInterval = 3600.0;

    /// Creates the data folder, loads the cached snapshot, and follows `history` (held weakly).
    InsightsStore(HistoryStore& history, const Paths& paths, Clock& clock, QObject* parent = nullptr);

    /// The current snapshot, if any.
    const std::optional<Insights>& insights() const { return m_insights; }
    /// True when a snapshot exists.
    bool hasInsights() const { return m_insights.has_value(); }
    /// True only inside compute().
    bool isComputing() const { return m_isComputing; }
    /// The cache file.
    const QString& fileURL() const { return m_fileURL; }

    /// True without a snapshot or when more than an hour has passed since it was made.
    bool shouldRecompute() const;
    /// Computes a snapshot from the loaded history, publishes and saves it.
    void compute();
    /// What the pane's appearing and its refresh button do: compute if due.
    void refresh();
    /// Drops the snapshot and removes the file.
    void clear();

    /// Writes a snapshot to `path` atomically; false on failure.
    static bool save(const Insights& insights, const QString& path);
    /// Reads a snapshot from `path`; none when missing or not decodable.
    static std::optional<Insights> load(const QString& path);

signals:
    /// Emitted when the snapshot or isComputing changes.
    void changed();

private:
    QPointer<HistoryStore> m_history;
    Clock& m_clock;
    QString m_fileURL;
    std::optional<Insights> m_insights;
    bool m_isComputing = false;
};

} // namespace tamvex
