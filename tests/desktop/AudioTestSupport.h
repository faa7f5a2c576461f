#pragma once

#include <QFile>
#include <QString>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

namespace tamvex::test {

/// A sine of `amplitude` (0..1) at `hz`, `seconds` long, mono.
inline std::vector<float> sine(double hz, double amplitude, double seconds, int rate) {
    std::vector<float> out(size_t(std::llround(seconds * rate)));
    for (size_t i = 0; i < out.size(); ++i)
        out[i] = float(amplitude * std::sin(2.0 * std::numbers::pi * hz * double(i) / rate));
    return out;
}

/// Root mean square of a block of samples.
inline double rms(const std::vector<float>& samples) {
    double sum = 0;
    for (float s : samples)
        sum += double(s) * s;
    return samples.empty() ? 0.0 : std::sqrt(sum / double(samples.size()));
}

/// dBFS of an RMS value, the way the recorder's meter reports it.
inline double toDb(double rmsValue) {
    return 20.0 * std::log10(rmsValue);
}

/// Writes interleaved samples as a WAV file: 16-bit PCM, or 32-bit float when `asFloat`.
inline bool writeWav(const QString& path, const std::vector<float>& interleaved, int rate, int channels,
                     bool asFloat = false) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    const quint16 bits = asFloat ? 32 : 16;
    const quint32 dataBytes = quint32(interleaved.size() * (bits / 8));
    auto u32 = [&](quint32 v) { file.write(reinterpret_cast<const char*>(&v), 4); };
    auto u16 = [&](quint16 v) { file.write(reinterpret_cast<const char*>(&v), 2); };
    file.write("RIFF");
    u32(36 + dataBytes);
    file.write("WAVEfmt ");
    u32(16);
    u16(asFloat ? 3 : 1);
    u16(quint16(channels));
    u32(quint32(rate));
    u32(quint32(rate * channels * (bits / 8)));
    u16(quint16(channels * (bits / 8)));
    u16(bits);
    file.write("data");
    u32(dataBytes);
    for (float s : interleaved) {
        if (asFloat) {
            file.write(reinterpret_cast<const char*>(&s), 4);
        } else {
            const auto v = qint16(std::lround(std::clamp(s, -1.0f, 1.0f) * 32767.0f));
            file.write(reinterpret_cast<const char*>(&v), 2);
        }
    }
    return file.error() == QFileDevice::NoError;
}

} // namespace tamvex::test
