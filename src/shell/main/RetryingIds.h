#pragma once

#include <QObject>
#include <QSet>
#include <QStringList>
#include <QUuid>
#include <QtQml/qqmlregistration.h>

#include <qcoro/qcorotask.h>

namespace tamvex {

class AppState;

/// The history rows whose "Распознать ещё раз" is under way. A second tap on a row that is
/// retrying does nothing; the id leaves the set when the retry hook returns.
class RetryingIds : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Made by the main window's model")
    Q_PROPERTY(QStringList ids READ idTexts NOTIFY changed)
public:
    explicit RetryingIds(AppState& state, QObject* parent = nullptr);

    /// Starts the retry of `id` through AppState's hook; false when it was already retrying
    /// or no hook is installed (logged).
    bool retry(const QUuid& id);
    /// The same, by the id's text form, for QML.
    Q_INVOKABLE bool retry(const QString& idText);
    /// True while `id`'s retry runs.
    bool contains(const QUuid& id) const { return m_ids.contains(id); }
    Q_INVOKABLE bool contains(const QString& idText) const;
    /// The retrying ids in their text form.
    QStringList idTexts() const;

signals:
    void changed();

private:
    QCoro::Task<void> run(QUuid id);

    AppState& m_state;
    QSet<QUuid> m_ids;
};

} // namespace tamvex
