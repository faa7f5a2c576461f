#include "pipelines/local/LibraryLog.h"

#include <QLoggingCategory>
#include <QString>

#include <mutex>

#ifdef TAMVEX_HAVE_WHISPER
#include <whisper.h>
#endif
#ifdef TAMVEX_HAVE_PARAKEET
#include <parakeet.h>
#endif

namespace tamvex {

#ifdef TAMVEX_HAVE_WHISPER
namespace {

Q_LOGGING_CATEGORY(lcLocalEngineLib, "com.dovra.tamv.whisper", QtWarningMsg)

void forward(ggml_log_level level, const char* text, void*) {
    const QString line = QString::fromUtf8(text).trimmed();
    if (line.isEmpty())
        return;
    if (level == GGML_LOG_LEVEL_ERROR || level == GGML_LOG_LEVEL_WARN)
        qCWarning(lcLocalEngineLib).noquote() << line;
    else
        qCDebug(lcLocalEngineLib).noquote() << line;
}

} // namespace
#endif

void routeLibraryLogs() {
#ifdef TAMVEX_HAVE_WHISPER
    static std::once_flag once;
    std::call_once(once, [] {
        whisper_log_set(forward, nullptr);
#ifdef TAMVEX_HAVE_PARAKEET
        parakeet_log_set(forward, nullptr);
#endif
    });
#endif
}

} // namespace tamvex
