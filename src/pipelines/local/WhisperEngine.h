#pragma once

#include "pipelines/local/WhisperActor.h"

#include <QString>

#include <qcoro/qcorotask.h>

#include <memory>
#include <vector>

struct whisper_context;

namespace tamvex {

/// Threads for one whisper_full call: two processors are left to the desktop, at most 8.
int whisperThreadCount(int processors);

/// True when the file starts with the ggml magic of whisper model files ("lmgg"). whisper.cpp
/// can crash on other files instead of refusing them. On false, `why` says what was found.
bool looksLikeWhisperModel(const QString& path, QString* why = nullptr);

/// One loaded whisper.cpp model. Recognition runs on the engine's own thread, one call at a
/// time. Always held by std::shared_ptr: a running call keeps its engine alive.
class WhisperEngine : public std::enable_shared_from_this<WhisperEngine> {
public:
    /// Loads the model file, synchronously. Throws WhisperEngineError.
    explicit WhisperEngine(const QString& modelPath);
    /// Waits for a running call, then frees the context.
    ~WhisperEngine();
    WhisperEngine(const WhisperEngine&) = delete;
    WhisperEngine& operator=(const WhisperEngine&) = delete;

    /// True when this build has whisper.cpp; without it every engine fails to load.
    static bool isAvailable();
    /// The device recognition runs on: a graphics device's name and description, or "CPU";
    /// empty without whisper.cpp.
    static QString backendName();

    /// The file the model was loaded from.
    const QString& modelPath() const { return m_modelPath; }

    /// Reads the audio file and recognises it on the engine's thread, after the calls
    /// before it. Gives the trimmed text; throws WhisperEngineError.
    QCoro::Task<QString> transcribe(QString audioPath);

    /// Recognises 16 kHz mono samples on the calling thread; empty samples give empty text
    /// without calling whisper.cpp. Throws WhisperEngineError.
    QString transcribe(const std::vector<float>& samples);

private:
    QString transcribeFile(const QString& audioPath);

    whisper_context* m_context = nullptr;
    QString m_modelPath;
    WhisperActor m_actor;
};

} // namespace tamvex
