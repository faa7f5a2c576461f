#include "pipelines/local/LocalWhisperPipeline.h"

#include <atomic>

namespace tamvex {

LocalWhisperPipeline::LocalWhisperPipeline(WhisperModel model, bool detectSpeech)
    : LocalWhisperPipeline(model, LocalWhisperEngineCache::shared(), detectSpeech) {}

LocalWhisperPipeline::LocalWhisperPipeline(WhisperModel model, LocalWhisperEngineCache& cache, bool detectSpeech)
    : m_model(model), m_cache(&cache), m_detectSpeech(detectSpeech) {}

QCoro::Task<SpeechResult> LocalWhisperPipeline::process(QString audioPath, Cancellation cancel) {
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
    // The engine's thread reads the flag; the cancellation itself lives on this thread.
    auto stop = std::make_shared<std::atomic<bool>>(cancel.isCancelled());
    const quint64 callback = cancel.onCancel([stop] { stop->store(true); });
    QCoro::Task<QString> run = engine->transcribe(audioPath, detector, stop);
    QString text;
    try {
        text = co_await run;
    } catch (...) {
        cancel.removeCallback(callback);
        throw;
    }
    cancel.removeCallback(callback);
    co_return SpeechResult{std::move(text), std::nullopt};
}

} // namespace tamvex
