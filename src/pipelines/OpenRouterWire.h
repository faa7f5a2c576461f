#pragma once

#include "pipelines/SpeechPipeline.h"
#include "platform/Error.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QUrl>

#include <optional>

namespace tamvex {

/// A refusal or an unusable answer of the chat-completions peer, with the text the user sees.
class OpenRouterError : public TamvexError {
public:
    enum class Kind { badResponse, invalidModel, missingApiKey, decodingFailed, noContent };

    /// A failing status with its whole body; the text shows the first 300 characters.
    static OpenRouterError badResponse(int status, const QString& body);
    /// The model name is unknown to OpenRouter; `openRouterHost` is its public site.
    static OpenRouterError invalidModel(const QString& name, const QUrl& openRouterHost);
    /// No usable key or token.
    static OpenRouterError missingApiKey();
    /// The answer did not decode.
    static OpenRouterError decodingFailed();
    /// The answer had no text.
    static OpenRouterError noContent();

    Kind kind() const { return m_kind; }
    int status() const { return m_status; }
    /// The whole body of a badResponse, or the model name of an invalidModel.
    const QString& detail() const { return m_detail; }

private:
    OpenRouterError(Kind kind, QString text) : TamvexError(std::move(text)), m_kind(kind) {}
    Kind m_kind;
    int m_status = 0;
    QString m_detail;
};

/// One part of a message's content.
struct ChatContent {
    enum class Type { text, inputAudio };
    Type type = Type::text;
    QString text;      ///< for text
    QByteArray base64; ///< for inputAudio: the audio as base64 (ASCII)
    QString format;    ///< for inputAudio: "m4a", "wav", ...

    /// A text part.
    static ChatContent makeText(const QString& text);
    /// An audio part from base64 text.
    static ChatContent inputAudio(QByteArray base64, const QString& format);
    /// An audio part from a file on disk; throws TamvexError when it can't be read.
    static ChatContent audioFile(const QString& path, const QString& format);
};

/// One message of a chat request; content is always sent as an array.
struct ChatMessage {
    QString role; ///< "system" or "user"
    QList<ChatContent> content;
};

/// The body of a chat-completions request: model, messages, temperature, usage.include = true.
QByteArray encodeChatRequest(const QString& model, const QList<ChatMessage>& messages,
                             std::optional<double> temperature);

/// The usage block of an answer; every field optional.
struct ChatUsageWire {
    std::optional<qint64> promptTokens, completionTokens, totalTokens;
    std::optional<double> cost, costTokens, costUSD;
};

/// A decoded answer: the first choice's content and the usage block, if any.
struct ChatResponseWire {
    bool hasChoice = false;
    std::optional<QString> firstContent;
    std::optional<ChatUsageWire> usage;
};

/// Decodes an answer; throws OpenRouterError::decodingFailed() on any shape error.
ChatResponseWire decodeChatResponse(const QByteArray& body);

/// The recommend answer: a concrete model and its time to live.
struct RecommendWire {
    QString model;
    std::optional<double> ttlSec;
};

/// Decodes a recommend answer; throws OpenRouterError::decodingFailed().
RecommendWire decodeRecommend(const QByteArray& body);

} // namespace tamvex
