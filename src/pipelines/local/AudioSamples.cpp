#include "pipelines/local/AudioSamples.h"

#include "pipelines/local/WhisperEngineError.h"
#include "platform/AudioDecoder.h"

namespace tamvex {

std::vector<float> readAudioSamples(const QString& path) {
    try {
        // A file that already is 16 kHz mono float is copied through by the decoder untouched.
        AudioFileDecoder decoder(path, whisperSampleRate);
        return decoder.readAll();
    } catch (const AudioDecodeError& e) {
        throw WhisperEngineError::audioReadFailed(e.description());
    }
}

} // namespace tamvex
