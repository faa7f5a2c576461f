#pragma once

#include <whisper.h>

namespace tamvex {

/// Context parameters: GPU and flash attention on, the rest at whisper.cpp's defaults.
whisper_context_params whisperContextParams();

/// Greedy full parameters with this system's fields set; the rest at whisper.cpp's defaults.
/// `language` must stay valid for as long as the parameters are used.
whisper_full_params whisperFullParams(int threads, const char* language);

} // namespace tamvex
