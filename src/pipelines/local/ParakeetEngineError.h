#pragma once

#include "platform/Error.h"

#include <QString>

namespace tamvex {

/// A failure of the Parakeet engine; its description is what the user sees.
class ParakeetEngineError : public TamvexError {
public:
    enum class Kind { modelLoadFailed, audioReadFailed, transcriptionFailed, cancelled, engineUnavailable };

    /// "Не получилось загрузить модель Parakeet: " + `detail`.
    static ParakeetEngineError modelLoadFailed(const QString& detail) {
        return {Kind::modelLoadFailed, QStringLiteral("Не получилось загрузить модель Parakeet: ") + detail, detail};
    }
    /// "Не получилось прочитать аудио: " + `detail`.
    static ParakeetEngineError audioReadFailed(const QString& detail) {
        return {Kind::audioReadFailed, QStringLiteral("Не получилось прочитать аудио: ") + detail, detail};
    }
    /// The library gave up on the audio.
    static ParakeetEngineError transcriptionFailed() {
        return {Kind::transcriptionFailed, QStringLiteral("Распознавание Parakeet не удалось"), {}};
    }
    /// The caller gave up and stopped the run.
    static ParakeetEngineError cancelled() {
        return {Kind::cancelled, QStringLiteral("Распознавание остановлено"), {}};
    }
    /// This build's whisper.cpp has no Parakeet library.
    static ParakeetEngineError engineUnavailable() {
        return {Kind::engineUnavailable,
                QStringLiteral("В этой сборке Tamvex нет распознавания Parakeet. "
                               "Выбери модель whisper или облачный пресет."),
                {}};
    }

    /// Which case this is.
    Kind kind() const { return m_kind; }
    /// The value behind the Russian prefix, for the two cases that carry one.
    const QString& detail() const { return m_detail; }

private:
    ParakeetEngineError(Kind kind, QString description, QString detail)
        : TamvexError(std::move(description)), m_kind(kind), m_detail(std::move(detail)) {}
    Kind m_kind;
    QString m_detail;
};

} // namespace tamvex
