#pragma once

#include "pipelines/WhisperModel.h"

namespace tamvex {

/// The Silero voice activity detector in whisper.cpp's format, downloaded and checked beside
/// the first local model. Without it the local road runs on the whole recording.
inline ModelDescriptor speechDetectorModel() {
    return {QStringLiteral("ggml-silero-v6.2.0.bin"), 885098,
            QStringLiteral("2aa269b785eeb53a82983a20501ddf7c1d9c48e33ab63a41391ac6c9f7fb6987"),
            QUrl(QStringLiteral("https://huggingface.co/ggml-org/whisper-vad/resolve/main/ggml-silero-v6.2.0.bin"))};
}

} // namespace tamvex
