#include "pipelines/LocalWhisperPipeline.h"

namespace tamvex {

LocalWhisperPipeline::LocalWhisperPipeline(WhisperModel model, bool detectSpeech)
    : LocalWhisperPipeline(model, LocalWhisperEngineCache::shared(), detectSpeech) {}

LocalWhisperPipeline::LocalWhisperPipeline(WhisperModel model, LocalWhisperEngineCache& cache, bool detectSpeech)
    : m_model(model), m_cache(&cache), m_detectSpeech(detectSpeech) {}

QCoro::Task<SpeechResult> LocalWhisperPipeline::process(QString audioPath, Cancellation) {
    // Copies: the caller may drop the pipeline while the run goes on.
    LocalWhisperEngineCache* cache = m_cache;
    const WhisperModel model = m_model;
    const bool detectSpeech = m_detectSpeech;
    QCoro::Task<std::shared_ptr<LocalEngine>> load = cache->engine(model);
    const std::shared_ptr<LocalEngine> engine = co_await load;
    std::shared_ptr<SpeechDetector> detector;
    if (detectSpeech) {
        QCoro::Task<std::shared_ptr<SpeechDetector>> loadDetector = cache->speechDetector();
        detector = co_await loadDetector;
    }
    QCoro::Task<QString> run = engine->transcribe(audioPath, detector);
    QString text = co_await run;
    co_return SpeechResult{std::move(text), std::nullopt};
}

} // namespace tamvex
