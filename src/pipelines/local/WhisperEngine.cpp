#include "pipelines/local/WhisperEngine.h"

#include "pipelines/local/AudioSamples.h"
#include "platform/Log.h"

#include <QFile>

#include <algorithm>
#include <cmath>

namespace tamvex {

int whisperThreadCount(int processors) {
    return std::clamp(processors - 2, 1, 8);
}

bool looksLikeWhisperModel(const QString& path, QString* why) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (why)
            *why = file.errorString() + ": " + path;
        return false;
    }
    const QByteArray head = file.read(4);
    // 0x67676d6c written little-endian.
    if (head == QByteArrayLiteral("lmgg"))
        return true;
    if (why)
        *why = QStringLiteral("файл не является моделью whisper.cpp: ") + path;
    return false;
}

QCoro::Task<QString> WhisperEngine::transcribe(QString audioPath) {
    // The frame, not the queued call, keeps the engine alive: the last owner must never be
    // the actor's own thread, which could not wait for itself.
    const std::shared_ptr<WhisperEngine> self = shared_from_this();
    // Named, not a temporary inside co_await: g++ 12 destroys such temporaries twice.
    QCoro::Task<QString> run = m_actor.call([this, audioPath] { return transcribeFile(audioPath); });
    QString text = co_await run;
    co_return text;
}

QString WhisperEngine::transcribeFile(const QString& audioPath) {
    const std::vector<float> samples = readAudioSamples(audioPath);
    float peak = 0.0f;
    for (float s : samples)
        peak = std::max(peak, std::fabs(s));
    logInfo(QStringLiteral("Whisper: read %1 samples (~%2s @ 16kHz), peak=%3")
                .arg(samples.size())
                .arg(QString::asprintf("%.2f", double(samples.size()) / 16000.0))
                .arg(QString::asprintf("%.4f", double(peak))));
    const QString text = transcribe(samples);
    logInfo("Whisper: got text len=" + QString::number(text.size()) + " preview=\"" + text.left(80) + "\"");
    return text;
}

} // namespace tamvex
