#pragma once

#include "desktop/AudioInput.h"

#include <QAudioDevice>
#include <QAudioFormat>
#include <QByteArray>
#include <QList>
#include <QPointer>

#include <memory>
#include <vector>

class QAudioSource;
class QIODevice;

namespace tamvex {

/// The microphone through Qt Multimedia (PulseAudio or PipeWire underneath). Qt does not
/// follow the sound server's choice of default source, so a device can be named by its
/// QAudioDevice::id(), directly or through the TAMVEX_AUDIO_DEVICE environment variable.
class MicrophoneInput final : public AudioInput {
public:
    /// `deviceId` empty: TAMVEX_AUDIO_DEVICE when set, else the system's default input.
    explicit MicrophoneInput(QByteArray deviceId = {});
    ~MicrophoneInput() override;

    /// Finds the device and a format it takes. Throws AudioInputError in Russian.
    void open() override;
    /// Opens the capture stream. Throws AudioInputError in Russian.
    void start(Sink sink) override;
    /// Reads what the sound server has captured so far.
    void poll() override;
    /// Reads the rest and closes the stream.
    void stop() override;
    int sampleRate() const override { return m_format.sampleRate(); }
    int channels() const override { return m_format.channelCount(); }
    /// The device in use (after open()).
    QAudioDevice device() const { return m_device; }
    /// Every input device Qt sees, for choosing one by id.
    static QList<QAudioDevice> availableDevices();

private:
    void convert(const char* bytes, qsizetype frames);

    QByteArray m_wantedId;
    QAudioDevice m_device;
    QAudioFormat m_format;
    std::unique_ptr<QAudioSource> m_source;
    QPointer<QIODevice> m_io; // Qt deletes it when the sound server goes away
    Sink m_sink;
    QByteArray m_carry; // a partial frame left from the last read
    std::vector<float> m_samples;
    bool m_reportedFailure = false;
};

} // namespace tamvex
