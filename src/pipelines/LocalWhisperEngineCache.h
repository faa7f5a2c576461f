#pragma once

#include "pipelines/WhisperActor.h"
#include "pipelines/WhisperEngine.h"
#include "pipelines/WhisperModel.h"

#include <QString>

#include <qcoro/qcorotask.h>

#include <functional>
#include <memory>
#include <optional>

namespace tamvex {

/// Keeps one loaded model between dictations. Loading runs on the cache's own thread, one
/// at a time; a model is loaded at its first use and kept for the life of the process.
class LocalWhisperEngineCache {
public:
    /// Says where a model's file is.
    using PathResolver = std::function<QString(WhisperModel)>;

    /// A cache that finds model files through `localPath`.
    explicit LocalWhisperEngineCache(PathResolver localPath);

    /// The process-wide cache, finding files where ModelDownloader::shared() puts them.
    static LocalWhisperEngineCache& shared();

    /// The engine of `model`, loading it when another one (or none) is loaded. Throws
    /// WhisperEngineError: modelNotLoaded without a file, modelLoadFailed for a bad one.
    QCoro::Task<std::shared_ptr<WhisperEngine>> engine(WhisperModel model);

private:
    std::shared_ptr<WhisperEngine> engineOnActor(WhisperModel model);

    struct Loaded {
        WhisperModel model;
        std::shared_ptr<WhisperEngine> engine;
    };
    PathResolver m_localPath;
    std::optional<Loaded> m_loaded; // touched only on the actor's thread
    WhisperActor m_actor;
};

} // namespace tamvex
