#pragma once

// Header-only and free of Qt, so that bench/whisper_driver runs whisper.cpp with exactly the
// engine's settings and nothing else of Tamvex.
#include <whisper.h>

namespace tamvex {

/// Context parameters: GPU and flash attention on, the rest at whisper.cpp's defaults.
inline whisper_context_params whisperContextParams() {
    whisper_context_params params = whisper_context_default_params();
    params.use_gpu = true;
    params.flash_attn = true;
    return params;
}

/// Greedy full parameters with this system's fields set; the rest at whisper.cpp's defaults.
/// `language` must stay valid for as long as the parameters are used.
inline whisper_full_params whisperFullParams(int threads, const char* language) {
    whisper_full_params params = whisper_full_default_params(WHISPER_SAMPLING_GREEDY);
    params.n_threads = threads;
    params.offset_ms = 0;
    params.translate = false;
    params.no_context = true;
    params.single_segment = false;
    params.print_special = false;
    params.print_progress = false;
    params.print_realtime = false;
    params.print_timestamps = false;
    params.language = language;
    params.detect_language = false;
    params.suppress_blank = false;
    params.no_speech_thold = 0.0f;
    return params;
}

} // namespace tamvex
