#include "pipelines/local/ParakeetEngine.h"

#include "pipelines/local/WhisperEngine.h"
#include "pipelines/local/LibraryLog.h"
#include "pipelines/local/LocalModelFile.h"
#include "pipelines/local/ParakeetEngineError.h"
#include "platform/Log.h"

#include <QElapsedTimer>
#include <QFile>
#include <QThread>

#include <limits>

#ifdef TAMVEX_HAVE_PARAKEET
#include <parakeet.h>
#endif

namespace tamvex {

#ifdef TAMVEX_HAVE_PARAKEET

bool ParakeetEngine::isAvailable() {
    return true;
}

ParakeetEngine::ParakeetEngine(const QString& modelPath) : m_modelPath(modelPath) {
    routeLibraryLogs();
    QString why;
    const LocalModelKind kind = localModelKind(modelPath, &why);
    if (kind != LocalModelKind::parakeet)
        throw ParakeetEngineError::modelLoadFailed(
            why.isEmpty() ? QStringLiteral("это модель %1, а не Parakeet: %2").arg(localModelKindName(kind), modelPath)
                          : why);
    parakeet_context_params params = parakeet_context_default_params();
    params.use_gpu = true;
    const QByteArray path = QFile::encodeName(modelPath);
    m_context = parakeet_init_from_file_with_params(path.constData(), params);
    if (!m_context)
        throw ParakeetEngineError::modelLoadFailed(QStringLiteral("init_from_file вернул nil"));
    logInfo("Parakeet context loaded from " + modelPath);
}

ParakeetEngine::~ParakeetEngine() {
    if (m_context)
        parakeet_free(m_context);
}

QString ParakeetEngine::transcribe(const std::vector<float>& samples, const std::atomic<bool>* stop) {
    if (samples.empty()) {
        logError(QStringLiteral("Parakeet: empty samples buffer — returning empty text"));
        return {};
    }
    if (samples.size() > size_t(std::numeric_limits<int>::max()))
        throw ParakeetEngineError::audioReadFailed(QStringLiteral("запись слишком длинная"));
    parakeet_full_params params = parakeet_full_default_params(PARAKEET_SAMPLING_GREEDY);
    // The same rule as whisper's: two processors stay with the desktop.
    params.n_threads = whisperThreadCount(QThread::idealThreadCount());
    params.no_context = true;
    if (stop) {
        params.abort_callback = [](void* flag) { return static_cast<const std::atomic<bool>*>(flag)->load(); };
        params.abort_callback_user_data = const_cast<std::atomic<bool>*>(stop);
    }
    parakeet_reset_timings(m_context);
    QElapsedTimer timer;
    timer.start();
    const int result = parakeet_full(m_context, params, samples.data(), int(samples.size()));
    const double seconds = double(timer.nsecsElapsed()) / 1e9;
    // A run that ended before the stop was seen is a good result all the same.
    if (result != 0 && stop && stop->load()) {
        logInfo("Parakeet: stopped after " + QString::asprintf("%.2f", seconds) + "s");
        throw ParakeetEngineError::cancelled();
    }
    if (result != 0) {
        logError("Parakeet: parakeet_full returned " + QString::number(result) + " (failure)");
        throw ParakeetEngineError::transcriptionFailed();
    }
    const int n = parakeet_full_n_segments(m_context);
    logInfo("Parakeet: parakeet_full ok in " + QString::asprintf("%.2f", seconds) +
            "s, segments=" + QString::number(n));
    QString text;
    for (int i = 0; i < n; ++i) {
        const char* segment = parakeet_full_get_segment_text(m_context, i);
        if (!segment)
            continue;
        const QString part = QString::fromUtf8(segment);
        logInfo("Parakeet: segment[" + QString::number(i) + "]=\"" + part.left(60) + "\"");
        // Segments may come without a leading space; words of two segments must not merge.
        if (!text.isEmpty() && !part.isEmpty() && !text.back().isSpace() && !part.front().isSpace())
            text += QLatin1Char(' ');
        text += part;
    }
    return text.trimmed();
}

#else

bool ParakeetEngine::isAvailable() {
    return false;
}

ParakeetEngine::ParakeetEngine(const QString& modelPath) : m_modelPath(modelPath) {
    throw ParakeetEngineError::engineUnavailable();
}

ParakeetEngine::~ParakeetEngine() = default;

QString ParakeetEngine::transcribe(const std::vector<float>&, const std::atomic<bool>*) {
    throw ParakeetEngineError::engineUnavailable();
}

#endif

} // namespace tamvex
