#pragma once

#include "pipelines/OpenRouterService.h"
#include "pipelines/SpeechPipeline.h"

#include <memory>

namespace tamvex {

/// One request to a model that hears audio: it recognises and tidies at once.
class SinglePassPipeline final : public SpeechPipeline {
public:
    SinglePassPipeline(std::shared_ptr<OpenRouterService> service, QString model, QString systemPrompt);

    /// Reads the file whole and sends it once; the answer is trimmed.
    QCoro::Task<SpeechResult> process(QString audioPath, Cancellation cancel = {}) override;

    const QString& model() const { return m_model; }
    const QString& systemPrompt() const { return m_systemPrompt; }

    /// The text part beside the audio.
    static const QString userInstruction;

private:
    const std::shared_ptr<OpenRouterService> m_service;
    const QString m_model;
    const QString m_systemPrompt;
};

/// A cheap audio model writes the words down, then a text model tidies them.
class TwoStagePipeline final : public SpeechPipeline {
public:
    TwoStagePipeline(std::shared_ptr<OpenRouterService> service, QString sttModel, QString cleanupModel,
                     QString cleanupSystemPrompt, QString sttPrompt);

    /// Stage one on the audio; stage two on its trimmed text unless that is empty.
    QCoro::Task<SpeechResult> process(QString audioPath, Cancellation cancel = {}) override;

    const QString& sttModel() const { return m_sttModel; }
    const QString& cleanupModel() const { return m_cleanupModel; }

    /// The text part beside the audio in stage one.
    static const QString userInstruction;

private:
    const std::shared_ptr<OpenRouterService> m_service;
    const QString m_sttModel;
    const QString m_cleanupModel;
    const QString m_cleanupSystemPrompt;
    const QString m_sttPrompt;
};

/// Two usages added field by field; either may be absent.
std::optional<UsageInfo> sumUsage(const std::optional<UsageInfo>& a, const std::optional<UsageInfo>& b);

} // namespace tamvex
