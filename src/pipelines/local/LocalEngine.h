#pragma once

#include "pipelines/local/WhisperActor.h"
#include "pipelines/local/LocalModelFile.h"

#include <QString>

#include <qcoro/qcorotask.h>

#include <atomic>
#include <memory>
#include <vector>

namespace tamvex {

class ParakeetEngine;
class SpeechDetector;
class WhisperEngine;

/// One loaded local model, whisper or Parakeet, whichever the file's header says, and the
/// local road's work on it: read the recording, keep only its speech, recognise. Calls run on
/// the engine's own thread, one at a time. Always held by std::shared_ptr.
class LocalEngine : public std::enable_shared_from_this<LocalEngine> {
public:
    /// Loads the file as the kind its header names, synchronously. Throws WhisperEngineError
    /// for a whisper file and for a file that is no recognition model (modelLoadFailed), or
    /// engineUnavailable in a build without whisper.cpp; ParakeetEngineError for a Parakeet file.
    static std::shared_ptr<LocalEngine> load(const QString& modelPath);
    /// Waits for a running call.
    ~LocalEngine();
    LocalEngine(const LocalEngine&) = delete;
    LocalEngine& operator=(const LocalEngine&) = delete;

    /// whisper or parakeet.
    LocalModelKind kind() const { return m_kind; }
    /// The file the model was loaded from.
    const QString& modelPath() const { return m_modelPath; }

    /// Reads the audio file and recognises it on the engine's thread, after the calls before
    /// it. With a `detector`, a recording without speech gives empty text without calling the
    /// recogniser, and only the speech reaches it; a detector that fails is logged and the
    /// whole recording goes on. Once `stop` turns true, Parakeet stops at its next step and
    /// the call throws ParakeetEngineError::cancelled; whisper runs to its end. Gives the
    /// trimmed text; throws the engine's typed error.
    QCoro::Task<QString> transcribe(QString audioPath, std::shared_ptr<SpeechDetector> detector = nullptr,
                                    std::shared_ptr<const std::atomic<bool>> stop = nullptr);

    /// Recognises 16 kHz mono samples as they are, on the calling thread.
    QString transcribeSamples(const std::vector<float>& samples, const std::atomic<bool>* stop = nullptr);

private:
    LocalEngine(LocalModelKind kind, QString modelPath);
    QString transcribeFile(const QString& audioPath, SpeechDetector* detector, const std::atomic<bool>* stop);
    QString logPrefix() const;

    const LocalModelKind m_kind;
    const QString m_modelPath;
    std::shared_ptr<WhisperEngine> m_whisper;
    std::unique_ptr<ParakeetEngine> m_parakeet;
    WhisperActor m_actor;
};

} // namespace tamvex
