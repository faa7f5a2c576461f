#pragma once

#include "pipelines/local/WhisperModel.h"

namespace tamvex {

/// The Silero voice activity detector in whisper.cpp's format, fetched and checked beside the
/// first local model: from the main host's "/models/", then from its public mirror (which
/// TAMVEX_MODEL_MIRROR_URL replaces, as for the models). Without it the local road runs on the
/// whole recording.
ModelDescriptor speechDetectorModel();

} // namespace tamvex
