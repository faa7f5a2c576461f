#include "pipelines/OpenRouterWire.h"

#include "account/JsonFields.h"

#include <QFile>

#include <cmath>

namespace tamvex {

OpenRouterError OpenRouterError::badResponse(int status, const QString& body) {
    OpenRouterError e(Kind::badResponse, QString("OpenRouter ответил %1: %2").arg(status).arg(body.left(300)));
    e.m_status = status;
    e.m_detail = body;
    return e;
}

OpenRouterError OpenRouterError::invalidModel(const QString& name, const QUrl& openRouterHost) {
    QString host = openRouterHost.toString(QUrl::StripTrailingSlash);
    OpenRouterError e(Kind::invalidModel, QString("Модель «%1» не найдена в OpenRouter. Проверь имя на %2/models или "
                                                  "очисти поле «Своя модель» в Настройках.")
                                              .arg(name, host));
    e.m_detail = name;
    return e;
}

OpenRouterError OpenRouterError::missingApiKey() {
    return {Kind::missingApiKey, QStringLiteral("Не задан API-ключ OpenRouter. Открой Настройки и добавь его.")};
}

OpenRouterError OpenRouterError::decodingFailed() {
    return {Kind::decodingFailed, QStringLiteral("Не удалось распарсить ответ OpenRouter.")};
}

OpenRouterError OpenRouterError::noContent() {
    return {Kind::noContent, QStringLiteral("OpenRouter вернул пустой ответ.")};
}

ChatContent ChatContent::makeText(const QString& text) {
    return {Type::text, text, {}, {}};
}

ChatContent ChatContent::inputAudio(QByteArray base64, const QString& format) {
    return {Type::inputAudio, {}, std::move(base64), format};
}

ChatContent ChatContent::audioFile(const QString& path, const QString& format) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw TamvexError(QStringLiteral("Не удалось прочитать запись: ") + file.errorString());
    // Read and encode in one go; the raw bytes die before the body is built.
    return inputAudio(file.readAll().toBase64(), format);
}

QByteArray encodeChatRequest(const QString& model, const QList<ChatMessage>& messages,
                             std::optional<double> temperature) {
    // Written by hand so the audio's base64 is copied once, straight into the body.
    qsizetype size = 128 + model.size();
    for (const ChatMessage& m : messages)
        for (const ChatContent& c : m.content)
            size += 64 + c.base64.size() + c.text.size() * 2;
    QByteArray out;
    out.reserve(size);
    out.append("{\"model\":").append(json::quoted(model)).append(",\"messages\":[");
    for (qsizetype i = 0; i < messages.size(); ++i) {
        const ChatMessage& m = messages[i];
        if (i)
            out.append(',');
        out.append("{\"role\":").append(json::quoted(m.role)).append(",\"content\":[");
        for (qsizetype j = 0; j < m.content.size(); ++j) {
            const ChatContent& c = m.content[j];
            if (j)
                out.append(',');
            if (c.type == ChatContent::Type::text) {
                out.append("{\"type\":\"text\",\"text\":").append(json::quoted(c.text)).append('}');
            } else {
                out.append("{\"type\":\"input_audio\",\"input_audio\":{\"data\":\"")
                    .append(c.base64)
                    .append("\",\"format\":")
                    .append(json::quoted(c.format))
                    .append("}}");
            }
        }
        out.append("]}");
    }
    out.append(']');
    if (temperature && std::isfinite(*temperature))
        out.append(",\"temperature\":").append(QByteArray::number(*temperature, 'g', 17));
    out.append(",\"usage\":{\"include\":true}}");
    return out;
}

ChatResponseWire decodeChatResponse(const QByteArray& body) {
    try {
        const QJsonObject root = json::parseObject(body);
        ChatResponseWire out;
        const QJsonArray choices = json::requiredArray(root, "choices");
        // Every choice must decode, as the whole array is one required field.
        for (qsizetype i = 0; i < choices.size(); ++i) {
            if (!choices[i].isObject())
                throw json::DecodeFailure("choice is not an object");
            const QJsonObject message = json::requiredObject(choices[i].toObject(), "message");
            const auto content = json::optionalString(message, "content");
            if (i == 0) {
                out.hasChoice = true;
                out.firstContent = content;
            }
        }
        if (const auto usage = json::optionalObject(root, "usage")) {
            ChatUsageWire u;
            u.promptTokens = json::optionalInt(*usage, "prompt_tokens");
            u.completionTokens = json::optionalInt(*usage, "completion_tokens");
            u.totalTokens = json::optionalInt(*usage, "total_tokens");
            u.cost = json::optionalDouble(*usage, "cost");
            u.costTokens = json::optionalDouble(*usage, "cost_tokens");
            u.costUSD = json::optionalDouble(*usage, "cost_usd");
            out.usage = u;
        }
        return out;
    } catch (const json::DecodeFailure&) {
        throw OpenRouterError::decodingFailed();
    }
}

RecommendWire decodeRecommend(const QByteArray& body) {
    try {
        const QJsonObject root = json::parseObject(body);
        return {json::requiredString(root, "model"), json::optionalDouble(root, "ttl_sec")};
    } catch (const json::DecodeFailure&) {
        throw OpenRouterError::decodingFailed();
    }
}

} // namespace tamvex
