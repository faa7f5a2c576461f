// whisper.cpp with nothing of Tamvex around it: reads a 16-bit PCM WAV at 16 kHz mono, runs
// whisper_full once with the local engine's settings and prints the text as the engine gives
// it (segments joined, trimmed). bench/whisper_vs_cli.sh compares `tamvex transcribe-local`
// with it: the same text proves the same samples and parameters, and the time and memory
// difference is what the application adds. whisper-cli can't be given these exact settings
// (it has no switch for suppress_blank).
//
// Usage: whisper_driver MODEL AUDIO.wav THREADS
#include "pipelines/local/whisper_impl/WhisperParams.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace {

// The data chunk of a canonical 16-bit mono 16 kHz WAV as floats in [-1, 1); empty on any other file.
std::vector<float> readWav(const char* path) {
    std::ifstream in(path, std::ios::binary);
    char riff[12];
    if (!in.read(riff, 12) || std::memcmp(riff, "RIFF", 4) != 0 || std::memcmp(riff + 8, "WAVE", 4) != 0)
        return {};
    uint16_t channels = 0, bits = 0;
    uint32_t rate = 0;
    char id[4];
    uint32_t size = 0;
    while (in.read(id, 4) && in.read(reinterpret_cast<char*>(&size), 4)) {
        if (std::memcmp(id, "fmt ", 4) == 0) {
            std::vector<char> fmt(size);
            in.read(fmt.data(), size);
            std::memcpy(&channels, fmt.data() + 2, 2);
            std::memcpy(&rate, fmt.data() + 4, 4);
            std::memcpy(&bits, fmt.data() + 14, 2);
        } else if (std::memcmp(id, "data", 4) == 0) {
            if (channels != 1 || rate != 16000 || bits != 16)
                return {};
            std::vector<int16_t> pcm(size / 2);
            in.read(reinterpret_cast<char*>(pcm.data()), std::streamsize(pcm.size() * 2));
            std::vector<float> samples(pcm.size());
            for (size_t i = 0; i < pcm.size(); ++i)
                samples[i] = float(pcm[i]) / 32768.0f;
            return samples;
        } else {
            in.seekg(size + (size & 1), std::ios::cur);
        }
    }
    return {};
}

void quiet(ggml_log_level, const char*, void*) {}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: %s MODEL AUDIO.wav THREADS\n", argv[0]);
        return 2;
    }
    const std::vector<float> samples = readWav(argv[2]);
    if (samples.empty()) {
        std::fprintf(stderr, "%s: not a 16-bit mono 16 kHz WAV\n", argv[2]);
        return 1;
    }
    whisper_log_set(quiet, nullptr);
    whisper_context* ctx = whisper_init_from_file_with_params(argv[1], tamvex::whisperContextParams());
    if (!ctx) {
        std::fprintf(stderr, "%s: could not load the model\n", argv[1]);
        return 1;
    }
    const whisper_full_params params = tamvex::whisperFullParams(std::atoi(argv[3]), "ru");
    whisper_reset_timings(ctx);
    if (whisper_full(ctx, params, samples.data(), int(samples.size())) != 0) {
        std::fprintf(stderr, "whisper_full failed\n");
        whisper_free(ctx);
        return 1;
    }
    std::string text;
    for (int i = 0; i < whisper_full_n_segments(ctx); ++i)
        if (const char* segment = whisper_full_get_segment_text(ctx, i))
            text += segment;
    const char* blank = " \t\r\n";
    const size_t first = text.find_first_not_of(blank);
    text = first == std::string::npos ? std::string() : text.substr(first, text.find_last_not_of(blank) - first + 1);
    std::printf("%s\n", text.c_str());
    whisper_free(ctx);
    return 0;
}
