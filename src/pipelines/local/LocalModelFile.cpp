#include "pipelines/local/LocalModelFile.h"

#include <QFile>
#include <QtEndian>

#include <array>
#include <cstring>

namespace tamvex {

namespace {

constexpr quint32 ggmlMagic = 0x67676d6c;

// Header words after the magic, as whisper.cpp's loaders read them.
constexpr int headerWords = 17;

// whisper: n_vocab, n_audio_ctx, n_audio_state, n_audio_head, n_audio_layer, n_text_ctx,
// n_text_state, n_text_head, n_text_layer, n_mels, ftype, then the mel filters' n_mel, n_fft.
bool isWhisperHeader(const std::array<qint32, headerWords>& h) {
    return h[0] > 0 && h[2] > 0 && h[6] == h[2] && (h[9] == 80 || h[9] == 128) && h[11] == h[9] && h[12] > 0;
}

// Parakeet: n_vocab, n_audio_ctx, n_audio_state, n_audio_head, n_audio_layer, n_mels, ftype,
// n_fft, subsampling, channels, conv kernel, pred dim, pred layers, durations, max tokens,
// then the filterbank's n_mel and n_fb (n_fft / 2 + 1 bins).
bool isParakeetHeader(const std::array<qint32, headerWords>& h) {
    return h[0] > 0 && h[2] > 0 && h[5] > 0 && h[7] > 0 && h[15] == h[5] && h[16] == h[7] / 2 + 1;
}

// The detector: a length-prefixed model name such as "silero-16k".
bool isDetectorHeader(const QByteArray& afterMagic) {
    if (afterMagic.size() < 10)
        return false;
    const qint32 length = qFromLittleEndian<qint32>(afterMagic.constData());
    return length > 0 && length < 64 && afterMagic.mid(4, 6) == QByteArrayLiteral("silero");
}

} // namespace

LocalModelKind localModelKind(const QString& path, QString* why) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (why)
            *why = file.errorString() + ": " + path;
        return LocalModelKind::unknown;
    }
    const QByteArray head = file.read(4 + 4 * headerWords);
    if (head.size() < 4 || qFromLittleEndian<quint32>(head.constData()) != ggmlMagic) {
        if (why)
            *why = QStringLiteral("файл не является моделью whisper.cpp: ") + path;
        return LocalModelKind::unknown;
    }
    const QByteArray rest = head.mid(4);
    if (isDetectorHeader(rest))
        return LocalModelKind::speechDetector;
    if (rest.size() == 4 * headerWords) {
        std::array<qint32, headerWords> words{};
        for (int i = 0; i < headerWords; ++i)
            words[size_t(i)] = qFromLittleEndian<qint32>(rest.constData() + 4 * i);
        if (isWhisperHeader(words))
            return LocalModelKind::whisper;
        if (isParakeetHeader(words))
            return LocalModelKind::parakeet;
    }
    if (why)
        *why = QStringLiteral("заголовок файла не похож ни на whisper, ни на Parakeet: ") + path;
    return LocalModelKind::unknown;
}

QString localModelKindName(LocalModelKind kind) {
    switch (kind) {
    case LocalModelKind::whisper:
        return QStringLiteral("whisper");
    case LocalModelKind::parakeet:
        return QStringLiteral("Parakeet");
    case LocalModelKind::speechDetector:
        return QStringLiteral("детектор речи");
    case LocalModelKind::unknown:
        break;
    }
    return QStringLiteral("неизвестный файл");
}

} // namespace tamvex
