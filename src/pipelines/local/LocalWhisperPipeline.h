#pragma once

#include "pipelines/local/LocalWhisperEngineCache.h"
#include "pipelines/SpeechPipeline.h"
#include "pipelines/local/WhisperModel.h"

namespace tamvex {

/// The pipeline of the local preset: whisper or Parakeet on this machine, no network, no cost.
class LocalWhisperPipeline final : public SpeechPipeline {
public:
    /// Uses the shared engine cache. With `detectSpeech`, silence and noise are dropped
    /// before the recogniser when the detector's file is there.
    explicit LocalWhisperPipeline(WhisperModel model, bool detectSpeech = true);
    /// Uses the given cache, which must outlive the pipeline's runs.
    LocalWhisperPipeline(WhisperModel model, LocalWhisperEngineCache& cache, bool detectSpeech = true);

    /// The model it runs.
    WhisperModel model() const { return m_model; }
    /// Whether silence is dropped before the recogniser.
    bool detectsSpeech() const { return m_detectSpeech; }

    /// Recognises the file; the result has no usage. Throws WhisperEngineError or
    /// ParakeetEngineError. `cancel` stops a Parakeet run at its next step (it then throws
    /// ParakeetEngineError::cancelled); a running whisper_full goes on to its end.
    QCoro::Task<SpeechResult> process(QString audioPath, Cancellation cancel = {}) override;

private:
    const WhisperModel m_model;
    LocalWhisperEngineCache* m_cache;
    const bool m_detectSpeech;
};

} // namespace tamvex
