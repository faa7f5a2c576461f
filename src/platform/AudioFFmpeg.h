#pragma once

// Small helpers shared by the FFmpeg-based audio classes; not part of any public API.

extern "C" {
#include <libavutil/error.h>
#include <libavutil/log.h>
}

#include <QString>

namespace tamvex::audio_detail {

/// FFmpeg's own words for an error code, e.g. "Invalid data found when processing input".
inline QString ffmpegError(int code) {
    char buffer[AV_ERROR_MAX_STRING_SIZE] = {};
    if (av_strerror(code, buffer, sizeof buffer) < 0)
        return QStringLiteral("FFmpeg error %1").arg(code);
    return QString::fromUtf8(buffer);
}

/// FFmpeg writes its own warnings to stderr; our errors already carry its words.
inline void silenceFFmpegLog() {
    static const bool done = [] {
        av_log_set_level(AV_LOG_QUIET);
        return true;
    }();
    (void)done;
}

} // namespace tamvex::audio_detail
