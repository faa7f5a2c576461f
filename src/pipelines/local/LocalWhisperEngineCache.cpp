#include "pipelines/local/LocalWhisperEngineCache.h"

#include "pipelines/local/ModelDownloader.h"
#include "pipelines/local/WhisperEngine.h"
#include "pipelines/local/WhisperEngineError.h"
#include "pipelines/local/SpeechDetectorModel.h"
#include "platform/Log.h"

#include <QFileInfo>

namespace tamvex {

LocalWhisperEngineCache::LocalWhisperEngineCache(PathResolver localPath, QString detectorPath)
    : m_localPath(std::move(localPath)), m_detectorPath(std::move(detectorPath)) {}

LocalWhisperEngineCache& LocalWhisperEngineCache::shared() {
    // Never destroyed: a loaded model is freed by the process's end, and a dictation still
    // running at exit must not see its engine vanish.
    static LocalWhisperEngineCache* instance = [] {
        ModelDownloader* downloader = &ModelDownloader::shared();
        // The path is worked out on the main thread now, not on the cache's thread later.
        const QString directory = downloader->modelsDirectory();
        return new LocalWhisperEngineCache(
            [directory](WhisperModel model) { return directory + "/" + whisperModels::fileName(model); },
            directory + "/" + speechDetectorModel().fileName);
    }();
    return *instance;
}

QCoro::Task<std::shared_ptr<LocalEngine>> LocalWhisperEngineCache::engine(WhisperModel model) {
    if (!WhisperEngine::isAvailable())
        throw WhisperEngineError::engineUnavailable();
    // Named, not a temporary inside co_await: g++ 12 destroys such temporaries twice.
    QCoro::Task<std::shared_ptr<LocalEngine>> load = m_actor.call([this, model] { return engineOnActor(model); });
    std::shared_ptr<LocalEngine> engine = co_await load;
    co_return engine;
}

std::shared_ptr<LocalEngine> LocalWhisperEngineCache::engineOnActor(WhisperModel model) {
    if (m_loaded && m_loaded->model == model)
        return m_loaded->engine;
    const QString path = m_localPath(model);
    if (!QFileInfo(path).isFile())
        throw WhisperEngineError::modelNotLoaded();
    auto engine = LocalEngine::load(path);
    m_loaded = Loaded{model, engine};
    return engine;
}

QCoro::Task<std::shared_ptr<SpeechDetector>> LocalWhisperEngineCache::speechDetector() {
    QCoro::Task<std::shared_ptr<SpeechDetector>> load = m_actor.call([this] { return detectorOnActor(); });
    std::shared_ptr<SpeechDetector> detector = co_await load;
    co_return detector;
}

std::shared_ptr<SpeechDetector> LocalWhisperEngineCache::detectorOnActor() {
    if (m_detector || m_detectorFailed || m_detectorPath.isEmpty())
        return m_detector;
    // Looked for at every dictation until it is there: it may be downloaded meanwhile.
    if (!QFileInfo(m_detectorPath).isFile()) {
        if (!m_detectorMissingLogged)
            logInfo("Speech detector: no file at " + m_detectorPath + " — the whole recording is recognised");
        m_detectorMissingLogged = true;
        return nullptr;
    }
    try {
        m_detector = std::make_shared<SpeechDetector>(m_detectorPath);
        logInfo("Speech detector loaded from " + m_detectorPath);
    } catch (const SpeechDetectorError& e) {
        m_detectorFailed = true;
        logError(e.description() + " — the whole recording is recognised");
    }
    return m_detector;
}

} // namespace tamvex
