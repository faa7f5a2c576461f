#pragma once

#include "pipelines/local/WhisperActor.h"
#include "pipelines/local/WhisperModel.h"
#include "pipelines/local/LocalEngine.h"
#include "pipelines/local/SpeechDetector.h"

#include <QString>

#include <qcoro/qcorotask.h>

#include <functional>
#include <memory>
#include <optional>

namespace tamvex {

/// Keeps one loaded model, whisper or Parakeet, between dictations, and the speech detector.
/// Loading runs on the cache's own thread, one at a time; a model is loaded at its first use
/// and kept for the life of the process.
class LocalWhisperEngineCache {
public:
    /// Says where a model's file is.
    using PathResolver = std::function<QString(WhisperModel)>;

    /// A cache that finds model files through `localPath` and the speech detector at
    /// `detectorPath` (none: no detector).
    explicit LocalWhisperEngineCache(PathResolver localPath, QString detectorPath = {});

    /// The process-wide cache, finding files where ModelDownloader::shared() puts them.
    static LocalWhisperEngineCache& shared();

    /// The engine of `model`, loading it when another one (or none) is loaded; the file's
    /// header says whether it is whisper or Parakeet. Throws WhisperEngineError:
    /// modelNotLoaded without a file, modelLoadFailed for a bad one; ParakeetEngineError for
    /// a Parakeet file that fails to load.
    QCoro::Task<std::shared_ptr<LocalEngine>> engine(WhisperModel model);

    /// The speech detector, loaded at its first use and kept; null while its file is missing
    /// and after it failed to load (each said once in the log). Never throws.
    QCoro::Task<std::shared_ptr<SpeechDetector>> speechDetector();

private:
    std::shared_ptr<LocalEngine> engineOnActor(WhisperModel model);
    std::shared_ptr<SpeechDetector> detectorOnActor();

    struct Loaded {
        WhisperModel model;
        std::shared_ptr<LocalEngine> engine;
    };
    PathResolver m_localPath;
    const QString m_detectorPath;
    // Touched only on the actor's thread.
    std::optional<Loaded> m_loaded;
    std::shared_ptr<SpeechDetector> m_detector;
    bool m_detectorMissingLogged = false;
    bool m_detectorFailed = false;
    WhisperActor m_actor;
};

} // namespace tamvex
