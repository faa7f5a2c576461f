#pragma once

#include <QString>

#include <vector>

namespace tamvex {

/// The rate whisper.cpp wants.
inline constexpr int whisperSampleRate = 16000;

/// Decodes any audio file (m4a/AAC, WAV of any rate and channels, MP3, ...) into mono float
/// samples at 16 kHz; a file of 0 frames gives an empty array. Throws
/// WhisperEngineError::audioReadFailed with the decoder's words.
std::vector<float> readAudioSamples(const QString& path);

} // namespace tamvex
