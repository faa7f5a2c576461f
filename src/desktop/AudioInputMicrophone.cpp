#include "desktop/AudioInputMicrophone.h"

#include "platform/Log.h"

#include <QAudioSource>
#include <QIODevice>
#include <QMediaDevices>
#include <QTimer>

#include <cstring>

namespace tamvex {

namespace {
constexpr int pollIntervalMs = 20;

template <class T> T load(const char* at) {
    T value;
    std::memcpy(&value, at, sizeof value); // the sound server's bytes carry no alignment promise
    return value;
}

QString describe(QAudio::Error error) {
    switch (error) {
    case QAudio::OpenError:
        return QStringLiteral("микрофон не открывается (занят или недоступен)");
    case QAudio::IOError:
        return QStringLiteral("ошибка чтения с микрофона");
    case QAudio::UnderrunError:
        return QStringLiteral("звук с микрофона не поступает");
    case QAudio::FatalError:
        return QStringLiteral("сбой звуковой системы");
    case QAudio::NoError:
        break;
    }
    return QStringLiteral("неизвестная ошибка микрофона");
}
} // namespace

MicrophoneInput::MicrophoneInput(QByteArray deviceId) : m_wantedId(std::move(deviceId)) {
    if (m_wantedId.isEmpty())
        m_wantedId = qgetenv("TAMVEX_AUDIO_DEVICE");
}

MicrophoneInput::~MicrophoneInput() { stop(); }

QList<QAudioDevice> MicrophoneInput::availableDevices() { return QMediaDevices::audioInputs(); }

void MicrophoneInput::open() {
    if (!m_wantedId.isEmpty()) {
        for (const QAudioDevice& d : QMediaDevices::audioInputs())
            if (d.id() == m_wantedId)
                m_device = d;
        if (m_device.isNull())
            throw AudioInputError(QStringLiteral("микрофон «%1» не найден").arg(QString::fromUtf8(m_wantedId)));
    } else {
        m_device = QMediaDevices::defaultAudioInput();
        if (m_device.isNull())
            throw AudioInputError(QStringLiteral("микрофон не найден (нет ни одного устройства записи звука)"));
    }
    // Mono float at the file's rate spares us a conversion; the sound server does it better
    // and for free. Devices that refuse get their own format, converted here.
    QAudioFormat wanted;
    wanted.setSampleRate(44100);
    wanted.setChannelCount(1);
    wanted.setSampleFormat(QAudioFormat::Float);
    m_format = m_device.isFormatSupported(wanted) ? wanted : m_device.preferredFormat();
    if (!m_format.isValid() || m_format.sampleFormat() == QAudioFormat::Unknown)
        throw AudioInputError(QStringLiteral("микрофон «%1» не сообщает формат звука").arg(m_device.description()));
}

void MicrophoneInput::start(Sink sink) {
    if (m_device.isNull())
        throw AudioInputError(QStringLiteral("микрофон не открыт"));
    m_sink = std::move(sink);
    m_source = std::make_unique<QAudioSource>(m_device, m_format);
    m_io = m_source->start();
    if (!m_io || m_source->error() != QAudio::NoError) {
        const QString text = describe(m_source->error());
        m_source.reset();
        m_io = nullptr;
        m_sink = {};
        throw AudioInputError(text);
    }
    QObject::connect(m_io, &QIODevice::readyRead, m_source.get(), [this] { poll(); });
    // Qt's PulseAudio backend signals readyRead only once per server fragment, which some
    // sources make seconds long; reading on our own beat keeps the level and the file current.
    // A real device runs in real time only, so this beat is a Qt timer rather than the Clock.
    auto* beat = new QTimer(m_source.get());
    QObject::connect(beat, &QTimer::timeout, m_source.get(), [this] { poll(); });
    beat->start(pollIntervalMs);
    QObject::connect(m_source.get(), &QAudioSource::stateChanged, m_source.get(), [this](QAudio::State state) {
        // A microphone unplugged mid-sentence: the recording keeps what it has.
        if (state == QAudio::StoppedState && m_source && m_source->error() != QAudio::NoError && !m_reportedFailure) {
            m_reportedFailure = true;
            logError("MicrophoneInput: capture stopped: " + describe(m_source->error()));
        }
    });
}

void MicrophoneInput::poll() {
    if (!m_io || !m_sink || !m_source)
        return;
    // Reading a stream that the server has dropped aborts inside libpulse.
    const QAudio::State state = m_source->state();
    if ((state != QAudio::ActiveState && state != QAudio::IdleState) || m_source->error() == QAudio::FatalError)
        return;
    const QByteArray data = m_io->readAll();
    if (data.isEmpty())
        return;
    m_carry += data;
    const int frameBytes = m_format.bytesPerFrame();
    const qsizetype frames = m_carry.size() / frameBytes;
    if (frames == 0)
        return;
    convert(m_carry.constData(), frames);
    m_carry.remove(0, frames * frameBytes);
    m_sink(m_samples.data(), frames);
}

void MicrophoneInput::convert(const char* bytes, qsizetype frames) {
    const qsizetype count = frames * m_format.channelCount();
    m_samples.resize(size_t(count));
    for (qsizetype i = 0; i < count; ++i) {
        const char* at = bytes + i * m_format.bytesPerSample();
        float value = 0;
        switch (m_format.sampleFormat()) {
        case QAudioFormat::UInt8:
            value = (float(load<quint8>(at)) - 128.0f) / 128.0f;
            break;
        case QAudioFormat::Int16:
            value = float(load<qint16>(at)) / 32768.0f;
            break;
        case QAudioFormat::Int32:
            value = float(double(load<qint32>(at)) / 2147483648.0);
            break;
        case QAudioFormat::Float:
            value = load<float>(at);
            break;
        default:
            break;
        }
        m_samples[size_t(i)] = value;
    }
}

void MicrophoneInput::stop() {
    if (!m_source)
        return;
    poll();
    m_io = nullptr;
    m_source->stop();
    m_source.reset();
    m_sink = {};
    m_carry.clear();
}

} // namespace tamvex
