#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>
#include <QUrl>
#include <QtGlobal>

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

/// Points every host of this process, and of the processes it starts, at `url`. The hosts
/// are read once per process: call it before the first request.
inline void pointHostsAt(const QUrl& url) {
    for (const char* name : {"TAMVEX_MAIN_URL", "TAMVEX_STT_URL", "TAMVEX_OPENROUTER_URL"})
        qputenv(name, url.toString().toUtf8());
}

} // namespace tamvex::test
