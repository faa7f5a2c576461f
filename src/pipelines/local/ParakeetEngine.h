#pragma once

#include "pipelines/WhisperActor.h"

#include <QString>

#include <qcoro/qcorotask.h>

#include <atomic>
#include <memory>
#include <vector>

struct parakeet_context;

namespace tamvex {

/// One loaded Parakeet TDT model (whisper.cpp's parakeet library). Recognition runs on the
/// engine's own thread, one call at a time. Always held by std::shared_ptr: a running call
/// keeps its engine alive.
class ParakeetEngine : public std::enable_shared_from_this<ParakeetEngine> {
public:
    /// Loads the model file, synchronously; refuses a file whose header is not Parakeet's.
    /// Throws ParakeetEngineError.
    explicit ParakeetEngine(const QString& modelPath);
    /// Waits for a running call, then frees the context.
    ~ParakeetEngine();
    ParakeetEngine(const ParakeetEngine&) = delete;
    ParakeetEngine& operator=(const ParakeetEngine&) = delete;

    /// True when this build has the Parakeet library; without it every engine fails to load.
    static bool isAvailable();

    /// The file the model was loaded from.
    const QString& modelPath() const { return m_modelPath; }

    /// Reads the audio file and recognises it on the engine's thread, after the calls before
    /// it. Gives the trimmed text; throws ParakeetEngineError.
    QCoro::Task<QString> transcribe(QString audioPath);

    /// Recognises 16 kHz mono samples on the calling thread; empty samples give empty text
    /// without calling the library. Once `stop` turns true the library stops at its next
    /// step and the call throws cancelled. Throws ParakeetEngineError.
    QString transcribe(const std::vector<float>& samples, const std::atomic<bool>* stop = nullptr);

private:
    QString transcribeFile(const QString& audioPath);

    parakeet_context* m_context = nullptr;
    QString m_modelPath;
    WhisperActor m_actor;
};

} // namespace tamvex
