#pragma once

#include "history/HistoryEntry.h"
#include "pipelines/OpenRouterService.h"

#include <memory>

namespace tamvex {

/// Asks a small model what kind of text a dictation was. Keeps nothing between calls.
class TextClassifier {
public:
    TextClassifier(std::shared_ptr<OpenRouterService> service, QString model);

    /// The category of `text`; `other` for short texts (no request), odd answers and every failure.
    QCoro::Task<TextCategory> classify(QString text);

    /// The category an answer names: lower-cased, trimmed of blanks and punctuation, one raw value.
    static TextCategory categoryOfAnswer(const QString& answer);

    static constexpr qint64 minWords = 8;
    static const QString prompt;

private:
    std::shared_ptr<OpenRouterService> m_service;
    QString m_model;
};

} // namespace tamvex
