#pragma once

#include <QString>

#include <atomic>
#include <memory>
#include <vector>

struct parakeet_context;

namespace tamvex {

/// One loaded Parakeet TDT model (whisper.cpp's parakeet library). Not thread-safe: LocalEngine
/// owns it and runs its calls on its own thread, one at a time.
class ParakeetEngine {
public:
    /// Loads the model file, synchronously; refuses a file whose header is not Parakeet's.
    /// Throws ParakeetEngineError.
    explicit ParakeetEngine(const QString& modelPath);
    /// Frees the context.
    ~ParakeetEngine();
    ParakeetEngine(const ParakeetEngine&) = delete;
    ParakeetEngine& operator=(const ParakeetEngine&) = delete;

    /// True when this build has the Parakeet library; without it every engine fails to load.
    static bool isAvailable();

    /// The file the model was loaded from.
    const QString& modelPath() const { return m_modelPath; }

    /// Recognises 16 kHz mono samples on the calling thread; empty samples give empty text
    /// without calling the library. Once `stop` turns true the library stops at its next
    /// step and the call throws cancelled. Throws ParakeetEngineError.
    QString transcribe(const std::vector<float>& samples, const std::atomic<bool>* stop = nullptr);

private:
    parakeet_context* m_context = nullptr;
    QString m_modelPath;
};

} // namespace tamvex
