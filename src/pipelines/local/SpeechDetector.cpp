#include "pipelines/local/SpeechDetector.h"

#include "pipelines/local/AudioSamples.h"
#include "pipelines/local/WhisperEngine.h"
#include "pipelines/local/LibraryLog.h"
#include "pipelines/local/LocalModelFile.h"

#include <QFile>
#include <QThread>

#include <algorithm>
#include <limits>

#ifdef TAMVEX_HAVE_WHISPER
#include <whisper.h>
#endif

namespace tamvex {

std::vector<float> SpeechDetector::keepSpeech(const std::vector<float>& samples, const std::vector<SpeechSpan>& spans) {
    constexpr qint64 gap = whisperSampleRate / 10;
    const qint64 count = qint64(samples.size());
    std::vector<float> kept;
    for (const SpeechSpan& span : spans) {
        const qint64 begin = std::clamp<qint64>(span.begin, 0, count);
        const qint64 end = std::clamp<qint64>(span.end, begin, count);
        if (end == begin)
            continue;
        if (!kept.empty())
            kept.insert(kept.end(), size_t(gap), 0.0f);
        kept.insert(kept.end(), samples.begin() + begin, samples.begin() + end);
    }
    return kept;
}

#ifdef TAMVEX_HAVE_WHISPER

bool SpeechDetector::isAvailable() {
    return true;
}

SpeechDetector::SpeechDetector(const QString& modelPath) : m_modelPath(modelPath) {
    routeLibraryLogs();
    QString why;
    if (localModelKind(modelPath, &why) != LocalModelKind::speechDetector)
        throw SpeechDetectorError(QStringLiteral("Не получилось загрузить детектор речи: ") +
                                  (why.isEmpty() ? QStringLiteral("это не файл детектора: ") + modelPath : why));
    whisper_vad_context_params params = whisper_vad_default_context_params();
    // A small network: one thread keeps up with speech many times over and leaves the rest
    // of the machine to the recogniser.
    params.n_threads = 1;
    params.use_gpu = false;
    const QByteArray path = QFile::encodeName(modelPath);
    m_context = whisper_vad_init_from_file_with_params(path.constData(), params);
    if (!m_context)
        throw SpeechDetectorError(QStringLiteral("Не получилось загрузить детектор речи: ") + modelPath);
}

SpeechDetector::~SpeechDetector() {
    if (m_context)
        whisper_vad_free(m_context);
}

std::vector<SpeechSpan> SpeechDetector::detect(const std::vector<float>& samples) {
    if (samples.empty())
        return {};
    if (samples.size() > size_t(std::numeric_limits<int>::max()))
        throw SpeechDetectorError(QStringLiteral("Детектор речи: запись слишком длинная"));
    const std::lock_guard<std::mutex> lock(m_mutex);
    // whisper.cpp's defaults: 0.5 threshold, speech of at least 250 ms, 30 ms of padding.
    const whisper_vad_params params = whisper_vad_default_params();
    whisper_vad_segments* segments =
        whisper_vad_segments_from_samples(m_context, params, samples.data(), int(samples.size()));
    if (!segments)
        throw SpeechDetectorError(QStringLiteral("Детектор речи не смог обработать запись"));
    std::vector<SpeechSpan> spans;
    const int n = whisper_vad_segments_n_segments(segments);
    spans.reserve(size_t(n));
    // Segment times come in centiseconds.
    for (int i = 0; i < n; ++i) {
        const double t0 = whisper_vad_segments_get_segment_t0(segments, i);
        const double t1 = whisper_vad_segments_get_segment_t1(segments, i);
        spans.push_back({qint64(t0 * whisperSampleRate / 100.0 + 0.5), qint64(t1 * whisperSampleRate / 100.0 + 0.5)});
    }
    whisper_vad_free_segments(segments);
    return spans;
}

#else

bool SpeechDetector::isAvailable() {
    return false;
}

SpeechDetector::SpeechDetector(const QString& modelPath) : m_modelPath(modelPath) {
    throw SpeechDetectorError(QStringLiteral("В этой сборке Tamvex нет детектора речи (whisper.cpp)"));
}

SpeechDetector::~SpeechDetector() = default;

std::vector<SpeechSpan> SpeechDetector::detect(const std::vector<float>&) {
    throw SpeechDetectorError(QStringLiteral("В этой сборке Tamvex нет детектора речи (whisper.cpp)"));
}

#endif

} // namespace tamvex
