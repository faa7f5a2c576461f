#pragma once

#include "pipelines/LocalWhisperEngineCache.h"
#include "pipelines/SpeechPipeline.h"
#include "pipelines/WhisperModel.h"

namespace tamvex {

/// The pipeline of the local preset: whisper.cpp on this machine, no network, no cost.
class LocalWhisperPipeline final : public SpeechPipeline {
public:
    /// Uses the shared engine cache.
    explicit LocalWhisperPipeline(WhisperModel model);
    /// Uses the given cache, which must outlive the pipeline's runs.
    LocalWhisperPipeline(WhisperModel model, LocalWhisperEngineCache& cache);

    /// The model it runs.
    WhisperModel model() const { return m_model; }

    /// Recognises the file; the result has no usage. Throws WhisperEngineError. A running
    /// whisper_full cannot be stopped, so `cancel` is not heeded.
    QCoro::Task<SpeechResult> process(QString audioPath, Cancellation cancel = {}) override;

private:
    const WhisperModel m_model;
    LocalWhisperEngineCache* m_cache;
};

} // namespace tamvex
