#pragma once

#include "platform/Error.h"

#include <QString>

namespace tamvex {

/// A failure of the local engine; its description is what the user sees.
class WhisperEngineError : public TamvexError {
public:
    enum class Kind { modelLoadFailed, audioReadFailed, modelNotLoaded, transcriptionFailed, engineUnavailable };

    /// "Не получилось загрузить модель: " + `detail`.
    static WhisperEngineError modelLoadFailed(const QString& detail) {
        return {Kind::modelLoadFailed, QStringLiteral("Не получилось загрузить модель: ") + detail, detail};
    }
    /// "Не получилось прочитать аудио: " + `detail`.
    static WhisperEngineError audioReadFailed(const QString& detail) {
        return {Kind::audioReadFailed, QStringLiteral("Не получилось прочитать аудио: ") + detail, detail};
    }
    /// The model file is not on disk.
    static WhisperEngineError modelNotLoaded() {
        return {Kind::modelNotLoaded, QStringLiteral("Локальная модель не загружена"), {}};
    }
    /// whisper.cpp gave up on the audio.
    static WhisperEngineError transcriptionFailed() {
        return {Kind::transcriptionFailed, QStringLiteral("Распознавание не удалось"), {}};
    }
    /// This build was made without whisper.cpp.
    static WhisperEngineError engineUnavailable() {
        return {Kind::engineUnavailable,
                QStringLiteral("В этой сборке Tamvex нет локального распознавания (whisper.cpp). "
                               "Выбери облачный пресет или установи сборку с whisper.cpp."),
                {}};
    }

    /// Which case this is.
    Kind kind() const { return m_kind; }
    /// The value behind the Russian prefix, for the two cases that carry one.
    const QString& detail() const { return m_detail; }

private:
    WhisperEngineError(Kind kind, QString description, QString detail)
        : TamvexError(std::move(description)), m_kind(kind), m_detail(std::move(detail)) {}
    Kind m_kind;
    QString m_detail;
};

} // namespace tamvex
