#include "pipelines/LocalWhisperEngineCache.h"

#include "pipelines/ModelDownloader.h"
#include "pipelines/WhisperEngineError.h"

#include <QFileInfo>

namespace tamvex {

LocalWhisperEngineCache::LocalWhisperEngineCache(PathResolver localPath) : m_localPath(std::move(localPath)) {}

LocalWhisperEngineCache& LocalWhisperEngineCache::shared() {
    // Never destroyed: a loaded model is freed by the process's end, and a dictation still
    // running at exit must not see its engine vanish.
    static LocalWhisperEngineCache* instance = [] {
        ModelDownloader* downloader = &ModelDownloader::shared();
        // The path is worked out on the main thread now, not on the cache's thread later.
        const QString directory = downloader->modelsDirectory();
        return new LocalWhisperEngineCache(
            [directory](WhisperModel model) { return directory + "/" + whisperModels::fileName(model); });
    }();
    return *instance;
}

QCoro::Task<std::shared_ptr<WhisperEngine>> LocalWhisperEngineCache::engine(WhisperModel model) {
    if (!WhisperEngine::isAvailable())
        throw WhisperEngineError::engineUnavailable();
    // Named, not a temporary inside co_await: g++ 12 destroys such temporaries twice.
    QCoro::Task<std::shared_ptr<WhisperEngine>> load = m_actor.call([this, model] { return engineOnActor(model); });
    std::shared_ptr<WhisperEngine> engine = co_await load;
    co_return engine;
}

std::shared_ptr<WhisperEngine> LocalWhisperEngineCache::engineOnActor(WhisperModel model) {
    if (m_loaded && m_loaded->model == model)
        return m_loaded->engine;
    const QString path = m_localPath(model);
    if (!QFileInfo(path).isFile())
        throw WhisperEngineError::modelNotLoaded();
    auto engine = std::make_shared<WhisperEngine>(path);
    m_loaded = Loaded{model, engine};
    return engine;
}

} // namespace tamvex
