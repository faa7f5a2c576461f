#include "pipelines/LocalWhisperPipeline.h"

namespace tamvex {

LocalWhisperPipeline::LocalWhisperPipeline(WhisperModel model)
    : LocalWhisperPipeline(model, LocalWhisperEngineCache::shared()) {}

LocalWhisperPipeline::LocalWhisperPipeline(WhisperModel model, LocalWhisperEngineCache& cache)
    : m_model(model), m_cache(&cache) {}

QCoro::Task<SpeechResult> LocalWhisperPipeline::process(QString audioPath, Cancellation) {
    // Copies: the caller may drop the pipeline while the run goes on.
    LocalWhisperEngineCache* cache = m_cache;
    const WhisperModel model = m_model;
    QCoro::Task<std::shared_ptr<WhisperEngine>> load = cache->engine(model);
    const std::shared_ptr<WhisperEngine> engine = co_await load;
    QCoro::Task<QString> run = engine->transcribe(audioPath);
    QString text = co_await run;
    co_return SpeechResult{std::move(text), std::nullopt};
}

} // namespace tamvex
