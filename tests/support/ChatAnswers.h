#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>

namespace tamvex::test {

/// The speech proxy's chat path, and OpenRouter's own (the direct road).
inline const QString kProxyPath = QStringLiteral("/api/openrouter/v1/chat/completions");
inline const QString kDirectPath = QStringLiteral("/api/v1/chat/completions");

/// A chat-completions answer with `content`; its usage is 120 + 12 = 132 tokens for $0.001.
inline QByteArray chatAnswer(const QString& content, bool withUsage = true) {
    QJsonObject body{{"choices", QJsonArray{QJsonObject{{"message", QJsonObject{{"content", content}}}}}}};
    if (withUsage)
        body.insert(
            "usage",
            QJsonObject{{"prompt_tokens", 120}, {"completion_tokens", 12}, {"total_tokens", 132}, {"cost", 0.001}});
    return QJsonDocument(body).toJson(QJsonDocument::Compact);
}

} // namespace tamvex::test
