#include "pipelines/local/SpeechDetectorModel.h"

#include "pipelines/ServiceHosts.h"

namespace tamvex {

ModelDescriptor speechDetectorModel() {
    const QString file = QStringLiteral("ggml-silero-v6.2.0.bin");
    return {file, 885098, QStringLiteral("2aa269b785eeb53a82983a20501ddf7c1d9c48e33ab63a41391ac6c9f7fb6987"),
            ServiceHosts::join(ServiceHosts::configured().main, QStringLiteral("/models/") + file),
            whisperModels::mirrorOf(file, QStringLiteral("https://huggingface.co/ggml-org/whisper-vad/resolve/main"))};
}

} // namespace tamvex
