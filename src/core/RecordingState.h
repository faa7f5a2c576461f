#pragma once

#include <QMetaType>
#include <QString>

namespace tamvex {

/// What the dictation is doing; `error` carries the message on show.
class RecordingState {
public:
    enum class Case { error, idle, recording, processing };

    static RecordingState idle() { return RecordingState(Case::idle); }
    static RecordingState recording() { return RecordingState(Case::recording); }
    static RecordingState processing() { return RecordingState(Case::processing); }
    static RecordingState error(QString message) { return RecordingState(Case::error, std::move(message)); }

    Case kind() const { return m_case; }
    bool is(Case c) const { return m_case == c; }
    bool isError() const { return m_case == Case::error; }
    /// The message of an error; empty for the other cases.
    const QString& message() const { return m_message; }
    /// The case's name: "idle", "recording", "processing" or "error".
    QString name() const;
    /// The printed form of log lines: the name, and for an error `error("text")`.
    QString description() const;

    bool operator==(const RecordingState& other) const {
        return m_case == other.m_case && (m_case != Case::error || m_message == other.m_message);
    }

private:
    explicit RecordingState(Case c, QString message = {}) : m_case(c), m_message(std::move(message)) {}
    Case m_case;
    QString m_message;
};

} // namespace tamvex

Q_DECLARE_METATYPE(tamvex::RecordingState)
