#include "platform/AudioDecoder.h"

#include "platform/AudioFFmpeg.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <cstring>

namespace tamvex {

using audio_detail::ffmpegError;

namespace {

/// Any sample layout FFmpeg knows → mono float at one rate. The channels are averaged
/// rather than mixed by libswresample's default matrix, which sums stereo at -3 dB each
/// and so lets loud stereo go past full scale.
class SwrConverter {
public:
    SwrConverter(int inRate, int inChannels, AVSampleFormat inFormat, int outRate)
        : m_inRate(inRate), m_inChannels(inChannels), m_inFormat(inFormat), m_outRate(outRate) {
        const bool floatMono = inChannels == 1 && (inFormat == AV_SAMPLE_FMT_FLT || inFormat == AV_SAMPLE_FMT_FLTP);
        if (floatMono && inRate == outRate)
            return; // nothing to do: copy straight through
        AVChannelLayout inLayout;
        av_channel_layout_default(&inLayout, inChannels);
        AVChannelLayout outLayout = AV_CHANNEL_LAYOUT_MONO;
        int rc = swr_alloc_set_opts2(&m_swr, &outLayout, AV_SAMPLE_FMT_FLT, outRate, &inLayout, inFormat, inRate,
                                     0, nullptr);
        av_channel_layout_uninit(&inLayout);
        if (rc >= 0) {
            std::vector<double> matrix(size_t(inChannels), 1.0 / inChannels);
            rc = swr_set_matrix(m_swr, matrix.data(), inChannels);
        }
        if (rc >= 0)
            rc = swr_init(m_swr);
        if (rc < 0) {
            swr_free(&m_swr);
            throw AudioDecodeError(QStringLiteral("cannot convert %1 Hz, %2 channels to %3 Hz mono: %4")
                                       .arg(inRate)
                                       .arg(inChannels)
                                       .arg(outRate)
                                       .arg(ffmpegError(rc)));
        }
    }
    ~SwrConverter() { swr_free(&m_swr); }
    SwrConverter(const SwrConverter&) = delete;
    SwrConverter& operator=(const SwrConverter&) = delete;

    bool matches(int rate, int channels, AVSampleFormat format) const {
        return rate == m_inRate && channels == m_inChannels && format == m_inFormat;
    }

    void convert(const uint8_t* const* planes, int frames, std::vector<float>& out) {
        if (frames <= 0)
            return;
        if (!m_swr) {
            const auto* samples = reinterpret_cast<const float*>(planes[0]);
            out.insert(out.end(), samples, samples + frames);
            return;
        }
        run(const_cast<const uint8_t**>(planes), frames, out);
    }

    void flush(std::vector<float>& out) {
        if (m_swr)
            run(nullptr, 0, out);
    }

private:
    void run(const uint8_t** in, int frames, std::vector<float>& out) {
        const int room = swr_get_out_samples(m_swr, frames);
        if (room <= 0)
            return;
        const size_t old = out.size();
        out.resize(old + size_t(room));
        auto* dst = reinterpret_cast<uint8_t*>(out.data() + old);
        const int got = swr_convert(m_swr, &dst, room, in, frames);
        if (got < 0) {
            out.resize(old);
            throw AudioDecodeError(QStringLiteral("resampling failed: %1").arg(ffmpegError(got)));
        }
        out.resize(old + size_t(got));
    }

    int m_inRate;
    int m_inChannels;
    AVSampleFormat m_inFormat;
    int m_outRate;
    SwrContext* m_swr = nullptr;
};

/// A run of damaged packets this long means the file is not audio we can use.
constexpr int maxConsecutiveBadPackets = 50;

} // namespace

struct AudioFileDecoder::Impl {
    QString path;
    AVFormatContext* format = nullptr;
    AVCodecContext* codec = nullptr;
    AVPacket* packet = nullptr;
    AVFrame* frame = nullptr;
    AVStream* stream = nullptr;
    int outputRate = 0;
    std::unique_ptr<SwrConverter> converter;
    std::vector<float> pending;
    size_t pendingOffset = 0;
    qint64 limitFrames = -1; // trims the encoder's trailing padding when the stream's length is known
    qint64 delivered = 0;
    bool flushSent = false;
    bool finished = false;
    int badPackets = 0;

    ~Impl() {
        av_frame_free(&frame);
        av_packet_free(&packet);
        avcodec_free_context(&codec);
        avformat_close_input(&format);
    }

    AudioDecodeError error(const QString& what, int code) const {
        return AudioDecodeError(QStringLiteral("%1 %2: %3").arg(what, path, ffmpegError(code)));
    }

    void open() {
        audio_detail::silenceFFmpegLog();
        const QByteArray file = path.toUtf8();
        int rc = avformat_open_input(&format, file.constData(), nullptr, nullptr);
        if (rc < 0)
            throw error(QStringLiteral("cannot open"), rc);
        rc = avformat_find_stream_info(format, nullptr);
        if (rc < 0)
            throw error(QStringLiteral("cannot read stream info of"), rc);
        const AVCodec* decoder = nullptr;
        rc = av_find_best_stream(format, AVMEDIA_TYPE_AUDIO, -1, -1, &decoder, 0);
        // The m4a muxer leaves out a track that got no samples: a recording stopped at once.
        if (rc == AVERROR_STREAM_NOT_FOUND && format->nb_streams == 0) {
            finished = true;
            return;
        }
        if (rc < 0)
            throw error(QStringLiteral("no audio stream in"), rc);
        stream = format->streams[rc];
        codec = avcodec_alloc_context3(decoder);
        if (!codec)
            throw error(QStringLiteral("cannot allocate a decoder for"), AVERROR(ENOMEM));
        rc = avcodec_parameters_to_context(codec, stream->codecpar);
        if (rc >= 0)
            rc = avcodec_open2(codec, decoder, nullptr);
        if (rc < 0)
            throw error(QStringLiteral("cannot open the decoder for"), rc);
        if (codec->sample_rate <= 0 || codec->ch_layout.nb_channels <= 0)
            throw error(QStringLiteral("no sample rate or channels in"), AVERROR_INVALIDDATA);
        if (outputRate <= 0)
            outputRate = codec->sample_rate;
        packet = av_packet_alloc();
        frame = av_frame_alloc();
        if (!packet || !frame)
            throw error(QStringLiteral("out of memory for"), AVERROR(ENOMEM));
        // A duration guessed from the bit rate (MP3 without a header) is not exact enough to cut by.
        if (stream->duration != AV_NOPTS_VALUE && stream->duration > 0 &&
            format->duration_estimation_method != AVFMT_DURATION_FROM_BITRATE)
            limitFrames = av_rescale_q(stream->duration, stream->time_base, AVRational{1, outputRate});
    }

    size_t available() const { return pending.size() - pendingOffset; }

    void takeFrame() {
        const auto fmt = AVSampleFormat(frame->format);
        const int channels = frame->ch_layout.nb_channels;
        if (!converter || !converter->matches(frame->sample_rate, channels, fmt)) {
            if (converter)
                converter->flush(pending);
            converter = std::make_unique<SwrConverter>(frame->sample_rate, channels, fmt, outputRate);
        }
        converter->convert(frame->extended_data, frame->nb_samples, pending);
    }

    /// Decodes one more frame into `pending`; false once the stream is exhausted.
    bool decodeMore() {
        if (!stream)
            return false;
        while (!finished) {
            int rc = avcodec_receive_frame(codec, frame);
            if (rc == 0) {
                badPackets = 0;
                takeFrame();
                av_frame_unref(frame);
                return true;
            }
            if (rc == AVERROR_EOF || (rc == AVERROR(EAGAIN) && flushSent)) {
                if (converter)
                    converter->flush(pending);
                finished = true;
                return false;
            }
            if (rc != AVERROR(EAGAIN) && rc != AVERROR_INVALIDDATA)
                throw error(QStringLiteral("cannot decode"), rc);
            rc = av_read_frame(format, packet);
            if (rc == AVERROR_EOF) {
                avcodec_send_packet(codec, nullptr);
                flushSent = true;
                continue;
            }
            if (rc < 0)
                throw error(QStringLiteral("cannot read"), rc);
            if (packet->stream_index != stream->index) {
                av_packet_unref(packet);
                continue;
            }
            rc = avcodec_send_packet(codec, packet);
            av_packet_unref(packet);
            // A damaged packet costs a few milliseconds of sound, not the whole recording.
            if (rc == AVERROR_INVALIDDATA && ++badPackets < maxConsecutiveBadPackets)
                continue;
            if (rc < 0 && rc != AVERROR(EAGAIN))
                throw error(QStringLiteral("cannot decode"), rc);
        }
        return false;
    }
};

AudioFileDecoder::AudioFileDecoder(const QString& path, int outputRate) : d(std::make_unique<Impl>()) {
    d->path = path;
    d->outputRate = outputRate;
    d->open();
}

AudioFileDecoder::~AudioFileDecoder() = default;

int AudioFileDecoder::inputSampleRate() const { return d->codec ? d->codec->sample_rate : 0; }

int AudioFileDecoder::inputChannels() const { return d->codec ? d->codec->ch_layout.nb_channels : 0; }

QString AudioFileDecoder::codecName() const {
    return d->codec ? QString::fromLatin1(avcodec_get_name(d->codec->codec_id)) : QString();
}

bool AudioFileDecoder::inputIsFloatMono(int rate) const {
    if (!d->codec)
        return false;
    const auto fmt = d->codec->sample_fmt;
    return inputChannels() == 1 && inputSampleRate() == rate &&
           (fmt == AV_SAMPLE_FMT_FLT || fmt == AV_SAMPLE_FMT_FLTP);
}

int AudioFileDecoder::outputRate() const { return d->outputRate; }

double AudioFileDecoder::durationSeconds() const {
    if (!d->stream)
        return d->format->duration > 0 ? double(d->format->duration) / AV_TIME_BASE : 0.0;
    if (d->stream->duration != AV_NOPTS_VALUE && d->stream->duration > 0)
        return double(d->stream->duration) * av_q2d(d->stream->time_base);
    if (d->format->duration != AV_NOPTS_VALUE && d->format->duration > 0)
        return double(d->format->duration) / AV_TIME_BASE;
    return -1.0;
}

qsizetype AudioFileDecoder::read(std::vector<float>& out, qsizetype maxFrames) {
    if (maxFrames <= 0)
        return 0;
    while (d->available() < size_t(maxFrames) && d->decodeMore()) {
    }
    qint64 n = std::min<qint64>(maxFrames, qint64(d->available()));
    if (d->limitFrames >= 0)
        n = std::max<qint64>(0, std::min(n, d->limitFrames - d->delivered));
    const auto begin = d->pending.begin() + qsizetype(d->pendingOffset);
    out.insert(out.end(), begin, begin + n);
    d->pendingOffset += size_t(n);
    d->delivered += n;
    if (d->pendingOffset > 65536 && d->pendingOffset * 2 > d->pending.size()) {
        d->pending.erase(d->pending.begin(), d->pending.begin() + qsizetype(d->pendingOffset));
        d->pendingOffset = 0;
    }
    return qsizetype(n);
}

std::vector<float> AudioFileDecoder::readAll() {
    std::vector<float> out;
    const double seconds = durationSeconds();
    if (seconds > 0)
        out.reserve(size_t(seconds * d->outputRate) + 4096);
    while (read(out, 1 << 16) > 0) {
    }
    return out;
}

struct AudioResampler::Impl {
    int channels = 1;
    std::unique_ptr<SwrConverter> converter;
};

AudioResampler::AudioResampler(int inputRate, int inputChannels, int outputRate) : d(std::make_unique<Impl>()) {
    if (inputRate <= 0 || inputChannels <= 0 || outputRate <= 0)
        throw AudioDecodeError(QStringLiteral("invalid audio format: %1 Hz, %2 channels").arg(inputRate).arg(inputChannels));
    d->channels = inputChannels;
    d->converter = std::make_unique<SwrConverter>(inputRate, inputChannels, AV_SAMPLE_FMT_FLT, outputRate);
}

AudioResampler::~AudioResampler() = default;

void AudioResampler::convert(const float* interleaved, qsizetype frames, std::vector<float>& out) {
    const auto* plane = reinterpret_cast<const uint8_t*>(interleaved);
    d->converter->convert(&plane, int(frames), out);
}

void AudioResampler::flush(std::vector<float>& out) { d->converter->flush(out); }

} // namespace tamvex
