#include "history/TextClassifier.h"

#include "history/Words.h"
#include "platform/Log.h"

namespace tamvex {

const QString TextClassifier::prompt = QStringLiteral(
    "Ты классифицируешь текст в одну категорию. Ответь ТОЛЬКО одним словом из списка:\n"
    "docs, messages, tasks, emails, ideas, code, notes, other\n"
    "\n"
    "Где:\n"
    "- docs — документация, описания, спецификации\n"
    "- messages — сообщения для переписки (Slack, Telegram)\n"
    "- tasks — задачи, чек-листы, action items\n"
    "- emails — деловые письма (с приветствием/подписью)\n"
    "- ideas — идеи, мозговой штурм\n"
    "- code — код, технические комменты к PR\n"
    "- notes — короткие личные заметки\n"
    "- other — если не понятно\n"
    "\n"
    "Никаких пояснений. Только одно слово.");

TextClassifier::TextClassifier(std::shared_ptr<OpenRouterService> service, QString model)
    : m_service(std::move(service)), m_model(std::move(model)) {}

TextCategory TextClassifier::categoryOfAnswer(const QString& answer) {
    const QString lower = answer.toLower();
    qsizetype start = 0, end = lower.size();
    const auto trimmable = [](QChar c) { return c.isSpace() || c.isPunct(); };
    while (start < end && trimmable(lower[start]))
        ++start;
    while (end > start && trimmable(lower[end - 1]))
        --end;
    return categoryFromRawValue(QStringView(lower).sliced(start, end - start)).value_or(TextCategory::other);
}

QCoro::Task<TextCategory> TextClassifier::classify(QString text) {
    if (countWords(text) < minWords)
        co_return TextCategory::other;
    const std::shared_ptr<OpenRouterService> service = m_service;
    QList<ChatMessage> messages{{QStringLiteral("system"), {ChatContent::makeText(prompt)}},
                                {QStringLiteral("user"), {ChatContent::makeText(text)}}};
    try {
        QCoro::Task<OpenRouterService::ChatResult> request = service->chat(m_model, std::move(messages), 0.0);
        const OpenRouterService::ChatResult answer = co_await request;
        co_return categoryOfAnswer(answer.text);
    } catch (const std::exception& e) {
        logError("classify failed: " + describeError(e));
    }
    co_return TextCategory::other;
}

} // namespace tamvex
