#include "pipelines/local/WhisperEngine.h"
#include "pipelines/local/WhisperEngineError.h"
#include "pipelines/local/LibraryLog.h"
#include "pipelines/local/whisper_impl/WhisperParams.h"
#include "platform/Log.h"

#include <ggml-backend.h>

#include <QElapsedTimer>
#include <QFile>
#include <QThread>

#include <limits>

namespace tamvex {

namespace {

// The language text handed to whisper_full must outlive every call: a static literal does.
constexpr const char* recognitionLanguage = "ru";

} // namespace

bool WhisperEngine::isAvailable() {
    return true;
}

// whisper.cpp runs on the first graphics device when there is one, else on the processor.
QString WhisperEngine::backendName() {
    for (size_t i = 0; i < ggml_backend_dev_count(); ++i) {
        ggml_backend_dev_t device = ggml_backend_dev_get(i);
        const enum ggml_backend_dev_type type = ggml_backend_dev_type(device);
        if (type == GGML_BACKEND_DEVICE_TYPE_GPU || type == GGML_BACKEND_DEVICE_TYPE_IGPU)
            return QString::fromUtf8(ggml_backend_dev_name(device)) + " (" +
                   QString::fromUtf8(ggml_backend_dev_description(device)) + ")";
    }
    return QStringLiteral("CPU");
}

WhisperEngine::WhisperEngine(const QString& modelPath) : m_modelPath(modelPath) {
    routeLibraryLogs();
    QString why;
    if (!looksLikeWhisperModel(modelPath, &why))
        throw WhisperEngineError::modelLoadFailed(why);
    const QByteArray path = QFile::encodeName(modelPath);
    m_context = whisper_init_from_file_with_params(path.constData(), whisperContextParams());
    if (!m_context)
        throw WhisperEngineError::modelLoadFailed(QStringLiteral("init_from_file вернул nil"));
    logInfo("Whisper context loaded from " + modelPath);
    logInfo("Whisper backend: " + backendName());
}

WhisperEngine::~WhisperEngine() {
    m_actor.waitForIdle();
    if (m_context)
        whisper_free(m_context);
}

QString WhisperEngine::transcribe(const std::vector<float>& samples) {
    if (samples.empty()) {
        logError(QStringLiteral("Whisper: empty samples buffer — returning empty text"));
        return {};
    }
    if (samples.size() > size_t(std::numeric_limits<int>::max()))
        throw WhisperEngineError::audioReadFailed(QStringLiteral("запись слишком длинная"));
    const whisper_full_params params =
        whisperFullParams(whisperThreadCount(QThread::idealThreadCount()), recognitionLanguage);
    whisper_reset_timings(m_context);
    QElapsedTimer timer;
    timer.start();
    const int result = whisper_full(m_context, params, samples.data(), int(samples.size()));
    const double seconds = double(timer.nsecsElapsed()) / 1e9;
    if (result != 0) {
        logError("Whisper: whisper_full returned " + QString::number(result) + " (failure)");
        throw WhisperEngineError::transcriptionFailed();
    }
    const int n = whisper_full_n_segments(m_context);
    logInfo("Whisper: whisper_full ok in " + QString::asprintf("%.2f", seconds) + "s, segments=" + QString::number(n));
    QString text;
    for (int i = 0; i < n; ++i) {
        const char* segment = whisper_full_get_segment_text(m_context, i);
        if (!segment)
            continue;
        const QString part = QString::fromUtf8(segment);
        logInfo("Whisper: segment[" + QString::number(i) + "]=\"" + part.left(60) + "\"");
        text += part;
    }
    return text.trimmed();
}

} // namespace tamvex
