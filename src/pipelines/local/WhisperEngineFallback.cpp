// The engine of a build made without whisper.cpp: it exists so that everything else links,
// and it refuses every model with words the user understands.
#ifndef TAMVEX_HAVE_WHISPER

#include "pipelines/local/WhisperEngine.h"
#include "pipelines/local/WhisperEngineError.h"

namespace tamvex {

bool WhisperEngine::isAvailable() {
    return false;
}

QString WhisperEngine::backendName() {
    return {};
}

WhisperEngine::WhisperEngine(const QString& modelPath) : m_modelPath(modelPath) {
    throw WhisperEngineError::engineUnavailable();
}

WhisperEngine::~WhisperEngine() = default;

QString WhisperEngine::transcribe(const std::vector<float>&) {
    throw WhisperEngineError::engineUnavailable();
}

} // namespace tamvex

#endif
