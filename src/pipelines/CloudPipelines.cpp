#include "pipelines/CloudPipelines.h"

namespace tamvex {

namespace {

// Every audio part says "m4a": the recorder writes nothing else, whatever the file is called.
const QString kAudioFormat = QStringLiteral("m4a");

ChatMessage systemMessage(const QString& prompt) {
    return {QStringLiteral("system"), {ChatContent::makeText(prompt)}};
}

} // namespace

const QString SinglePassPipeline::userInstruction = QStringLiteral("Транскрибируй и почисти эту голосовую диктовку.");
const QString TwoStagePipeline::userInstruction = QStringLiteral("Распознай эту речь.");

std::optional<UsageInfo> sumUsage(const std::optional<UsageInfo>& a, const std::optional<UsageInfo>& b) {
    if (!a)
        return b;
    if (!b)
        return a;
    return UsageInfo{a->promptTokens + b->promptTokens, a->completionTokens + b->completionTokens,
                     a->totalTokens + b->totalTokens, a->costUSD + b->costUSD};
}

SinglePassPipeline::SinglePassPipeline(std::shared_ptr<OpenRouterService> service, QString model,
                                       QString systemPrompt)
    : m_service(std::move(service)), m_model(std::move(model)), m_systemPrompt(std::move(systemPrompt)) {}

QCoro::Task<SpeechResult> SinglePassPipeline::process(QString audioPath, Cancellation cancel) {
    // The service is shared so that it outlives this call even if the pipeline is dropped.
    const std::shared_ptr<OpenRouterService> service = m_service;
    QList<ChatMessage> messages{
        systemMessage(m_systemPrompt),
        {QStringLiteral("user"),
         {ChatContent::makeText(userInstruction), ChatContent::audioFile(audioPath, kAudioFormat)}}};
    QCoro::Task<OpenRouterService::ChatResult> request = service->chat(m_model, std::move(messages), 0.2, cancel);
    const OpenRouterService::ChatResult answer = co_await request;
    co_return SpeechResult{answer.text.trimmed(), answer.usage};
}

TwoStagePipeline::TwoStagePipeline(std::shared_ptr<OpenRouterService> service, QString sttModel,
                                   QString cleanupModel, QString cleanupSystemPrompt, QString sttPrompt)
    : m_service(std::move(service)), m_sttModel(std::move(sttModel)), m_cleanupModel(std::move(cleanupModel)),
      m_cleanupSystemPrompt(std::move(cleanupSystemPrompt)), m_sttPrompt(std::move(sttPrompt)) {}

QCoro::Task<SpeechResult> TwoStagePipeline::process(QString audioPath, Cancellation cancel) {
    const std::shared_ptr<OpenRouterService> service = m_service;
    const QString cleanupModel = m_cleanupModel;
    const QString cleanupPrompt = m_cleanupSystemPrompt;
    std::optional<UsageInfo> sttUsage;
    QString transcript;
    {
        // The audio and its base64 live only for stage one.
        QList<ChatMessage> messages{
            systemMessage(m_sttPrompt),
            {QStringLiteral("user"),
             {ChatContent::makeText(userInstruction), ChatContent::audioFile(audioPath, kAudioFormat)}}};
        QCoro::Task<OpenRouterService::ChatResult> request =
            service->chat(m_sttModel, std::move(messages), 0.0, cancel);
        const OpenRouterService::ChatResult answer = co_await request;
        transcript = answer.text.trimmed();
        sttUsage = answer.usage;
    }
    if (transcript.isEmpty())
        co_return SpeechResult{QString(), sttUsage}; // silence: no second request

    QList<ChatMessage> messages{systemMessage(cleanupPrompt),
                                {QStringLiteral("user"), {ChatContent::makeText(transcript)}}};
    QCoro::Task<OpenRouterService::ChatResult> request = service->chat(cleanupModel, std::move(messages), 0.2, cancel);
    const OpenRouterService::ChatResult answer = co_await request;
    co_return SpeechResult{answer.text.trimmed(), sumUsage(sttUsage, answer.usage)};
}

} // namespace tamvex
