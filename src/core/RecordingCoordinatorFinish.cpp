// The judgement of a stopped recording: size, log line, drop rules.
#include "account/AnalyticsService.h"
#include "core/AppState.h"
#include "core/DropRules.h"
#include "core/RecordingConstants.h"
#include "core/RecordingCoordinator.h"
#include "history/HistoryStore.h"
#include "pipelines/PipelinePreset.h"
#include "platform/Log.h"
#include "shell/SettingsStore.h"

#include <QFile>
#include <QFileInfo>
#include <QPointer>

#include <cmath>

namespace tamvex {

namespace C = RecordingConstants;

QCoro::Task<void> RecordingCoordinator::finishRecording() {
    AudioRecorder::RecordingResult result;
    try {
        result = m_recorder->stop();
    } catch (const std::exception& e) {
        failedEnd(describeError(e));
        co_return;
    }

    const QFileInfo info(result.url);
    const qint64 size = info.exists() ? info.size() : -1;
    logInfo(QStringLiteral("Recording stopped: %1B, dur=%2s, peak=%3dB")
                .arg(size)
                .arg(QString::asprintf("%.2f", result.duration), QString::asprintf("%.1f", double(result.peakPower))));

    if (m_currentRecordingWasHold && result.duration > C::longHoldTipThresholdSec)
        emit longHoldTipRequested();
    m_currentRecordingWasHold = false;

    const DropVerdict verdict = judgeRecording(result.duration, result.peakPower);
    const double durationRounded = std::round(result.duration * 100.0) / 100.0;
    const float peakRounded = std::round(result.peakPower * 10.0f) / 10.0f;
    if (verdict.dropped()) {
        const auto boolText = [](bool b) { return b ? QStringLiteral("true") : QStringLiteral("false"); };
        logInfo(QStringLiteral("Recording dropped (short=%1, quiet=%2, suspicious=%3)")
                    .arg(boolText(verdict.isShort), boolText(verdict.isQuiet), boolText(verdict.isSuspicious)));
        AnalyticsService::track("record_dropped", {{"duration_sec", durationRounded},
                                                   {"peak_db", double(peakRounded)},
                                                   {"reason_short", verdict.isShort},
                                                   {"reason_quiet", verdict.isQuiet},
                                                   {"reason_suspicious", verdict.isSuspicious}});
        QFile::remove(result.url);
        m_appState.setRecordingState(RecordingState::error(verdict.message()));
        scheduleErrorClear();
        co_return;
    }

    co_await transcribeRecording(result);
}

void RecordingCoordinator::failedEnd(const QString& message) {
    logError("finishRecording failed: " + message);
    AnalyticsService::track("transcription_failed", {{"error", message}, {"is_retryable", false}});
    HistoryEntry entry;
    entry.id = QUuid::createUuid();
    entry.createdAt = m_clock.currentDateTime();
    entry.durationSec = 0; // deliberately, even when the duration is known
    entry.errorMessage = message;
    entry.modelUsed = presets::title(m_appState.settings().preset());
    m_appState.history().add(entry);
    m_appState.setRecordingState(RecordingState::error(message));
    scheduleErrorClear();
}

QCoro::Task<void> RecordingCoordinator::transcribeRecording(const AudioRecorder::RecordingResult& result) {
    // No speech pipeline is connected in this build yet: the file stays for the user.
    emit recordingAccepted(result.url, result.duration, result.peakPower);
    logInfo("No speech pipeline is wired; recording kept at " + result.url);
    m_appState.setRecordingState(RecordingState::idle());
    co_return;
}

} // namespace tamvex
