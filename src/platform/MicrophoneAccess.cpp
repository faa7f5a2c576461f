#include "platform/MicrophoneAccess.h"

#include <QAudioDevice>
#include <QAudioSource>
#include <QMediaDevices>

namespace tamvex {

QString MicrophoneAccess::explanation(Status status) {
    switch (status) {
    case Status::authorized:
        return {};
    case Status::noDevice:
        return QStringLiteral("Микрофон не найден. Подключи микрофон или выбери его в настройках звука.");
    case Status::unavailable:
        return QStringLiteral("Микрофон недоступен: его не удалось открыть. Проверь настройки звука "
                              "(PulseAudio / PipeWire) и не занят ли он другой программой.");
    }
    return {};
}

MicrophoneAccess::Status SystemMicrophoneAccess::status() const {
    const QAudioDevice device = QMediaDevices::defaultAudioInput();
    if (device.isNull())
        return Status::noDevice;
    QAudioSource source(device, device.preferredFormat());
    QIODevice* stream = source.start();
    const bool opened = stream && source.error() != QAudio::OpenError;
    source.stop();
    return opened ? Status::authorized : Status::unavailable;
}

} // namespace tamvex
