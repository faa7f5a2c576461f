#include "pipelines/local/LocalEngine.h"

#include "pipelines/local/AudioSamples.h"
#include "pipelines/local/WhisperEngine.h"
#include "pipelines/local/WhisperEngineError.h"
#include "pipelines/local/ParakeetEngine.h"
#include "pipelines/local/SpeechDetector.h"
#include "platform/Log.h"

#include <algorithm>
#include <cmath>

namespace tamvex {

namespace {
QString secondsText(size_t samples) {
    return QString::asprintf("%.2f", double(samples) / whisperSampleRate);
}
} // namespace

LocalEngine::LocalEngine(LocalModelKind kind, QString modelPath) : m_kind(kind), m_modelPath(std::move(modelPath)) {}

LocalEngine::~LocalEngine() {
    m_actor.waitForIdle();
}

std::shared_ptr<LocalEngine> LocalEngine::load(const QString& modelPath) {
    if (!WhisperEngine::isAvailable() && !ParakeetEngine::isAvailable())
        throw WhisperEngineError::engineUnavailable();
    QString why;
    const LocalModelKind kind = localModelKind(modelPath, &why);
    std::shared_ptr<LocalEngine> engine(new LocalEngine(kind, modelPath));
    switch (kind) {
    case LocalModelKind::whisper:
        engine->m_whisper = std::make_shared<WhisperEngine>(modelPath);
        break;
    case LocalModelKind::parakeet:
        engine->m_parakeet = std::make_unique<ParakeetEngine>(modelPath);
        break;
    case LocalModelKind::speechDetector:
        throw WhisperEngineError::modelLoadFailed(
            QStringLiteral("это файл детектора речи, а не модель распознавания: ") + modelPath);
    case LocalModelKind::unknown:
        throw WhisperEngineError::modelLoadFailed(why);
    }
    return engine;
}

QString LocalEngine::logPrefix() const {
    return m_kind == LocalModelKind::parakeet ? QStringLiteral("Parakeet: ") : QStringLiteral("Whisper: ");
}

QCoro::Task<QString> LocalEngine::transcribe(QString audioPath, std::shared_ptr<SpeechDetector> detector,
                                             std::shared_ptr<const std::atomic<bool>> stop) {
    // The frame, not the queued call, keeps the engine and the detector alive: the last owner
    // must never be the actor's own thread, which could not wait for itself.
    const std::shared_ptr<LocalEngine> self = shared_from_this();
    // Named, not a temporary inside co_await: g++ 12 destroys such temporaries twice.
    QCoro::Task<QString> run = m_actor.call(
        [this, audioPath, raw = detector.get(), flag = stop.get()] { return transcribeFile(audioPath, raw, flag); });
    QString text = co_await run;
    co_return text;
}

QString LocalEngine::transcribeSamples(const std::vector<float>& samples, const std::atomic<bool>* stop) {
    return m_parakeet ? m_parakeet->transcribe(samples, stop) : m_whisper->transcribe(samples);
}

QString LocalEngine::transcribeFile(const QString& audioPath, SpeechDetector* detector, const std::atomic<bool>* stop) {
    std::vector<float> samples = readAudioSamples(audioPath);
    float peak = 0.0f;
    for (float s : samples)
        peak = std::max(peak, std::fabs(s));
    logInfo(logPrefix() + QStringLiteral("read %1 samples (~%2s @ 16kHz), peak=%3")
                              .arg(samples.size())
                              .arg(secondsText(samples.size()))
                              .arg(QString::asprintf("%.4f", double(peak))));
    if (detector && !samples.empty()) {
        try {
            const std::vector<SpeechSpan> spans = detector->detect(samples);
            if (spans.empty()) {
                logInfo("Speech detector: no speech in " + secondsText(samples.size()) +
                        "s — the recogniser is not called");
                return {};
            }
            const size_t before = samples.size();
            samples = SpeechDetector::keepSpeech(samples, spans);
            logInfo("Speech detector: " + QString::number(spans.size()) + " speech segments, " +
                    secondsText(samples.size()) + "s of " + secondsText(before) + "s go to the recogniser");
        } catch (const SpeechDetectorError& e) {
            // Nothing is lost: without the detector the whole recording is recognised.
            logError("Speech detector failed: " + e.description() + " — the whole recording is recognised");
        }
    }
    const QString text = transcribeSamples(samples, stop);
    logInfo(logPrefix() + "got text len=" + QString::number(text.size()) + " preview=\"" + text.left(80) + "\"");
    return text;
}

} // namespace tamvex
