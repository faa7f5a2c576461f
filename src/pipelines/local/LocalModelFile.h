#pragma once

#include <QString>

namespace tamvex {

/// What a model file in whisper.cpp's format holds. Every kind starts with the same ggml
/// magic, so the header after it decides.
enum class LocalModelKind { whisper, parakeet, speechDetector, unknown };

/// Reads the file's header and says which kind it is. Never hands the file to whisper.cpp,
/// which can crash on a file of another kind. On `unknown`, `why` says what was found.
LocalModelKind localModelKind(const QString& path, QString* why = nullptr);

/// "whisper", "Parakeet", "детектор речи", "неизвестный файл": for messages and the log.
QString localModelKindName(LocalModelKind kind);

} // namespace tamvex
