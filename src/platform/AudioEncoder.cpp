#include "platform/AudioEncoder.h"

#include "platform/AudioFFmpeg.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/dict.h>
}

#include <algorithm>
#include <cstring>
#include <vector>

namespace tamvex {

using audio_detail::ffmpegError;

struct AudioFileEncoder::Impl {
    QString path;
    AVFormatContext* format = nullptr;
    AVCodecContext* codec = nullptr;
    AVStream* stream = nullptr;
    AVFrame* frame = nullptr;
    AVPacket* packet = nullptr;
    std::vector<float> buffer; // less than one codec frame waits here
    qint64 written = 0;
    qint64 nextPts = 0;
    bool finished = false;

    ~Impl() {
        if (format && format->pb)
            avio_closep(&format->pb);
        avformat_free_context(format);
        avcodec_free_context(&codec);
        av_frame_free(&frame);
        av_packet_free(&packet);
    }

    AudioEncodeError error(const QString& what, int code) const {
        return AudioEncodeError(QStringLiteral("%1 %2: %3").arg(what, path, ffmpegError(code)));
    }

    void open() {
        audio_detail::silenceFFmpegLog();
        const QByteArray file = path.toUtf8();
        int rc = avformat_alloc_output_context2(&format, nullptr, "ipod", file.constData());
        if (rc < 0 || !format)
            throw error(QStringLiteral("cannot set up the m4a container for"), rc < 0 ? rc : AVERROR_MUXER_NOT_FOUND);
        const AVCodec* aac = avcodec_find_encoder_by_name("aac");
        if (!aac)
            throw error(QStringLiteral("no AAC encoder for"), AVERROR_ENCODER_NOT_FOUND);
        codec = avcodec_alloc_context3(aac);
        stream = avformat_new_stream(format, nullptr);
        frame = av_frame_alloc();
        packet = av_packet_alloc();
        if (!codec || !stream || !frame || !packet)
            throw error(QStringLiteral("out of memory for"), AVERROR(ENOMEM));
        codec->sample_fmt = AV_SAMPLE_FMT_FLTP;
        codec->sample_rate = sampleRate;
        codec->bit_rate = bitRate;
        codec->profile = FF_PROFILE_AAC_LOW;
        codec->time_base = AVRational{1, sampleRate};
        av_channel_layout_default(&codec->ch_layout, 1);
        if (format->oformat->flags & AVFMT_GLOBALHEADER)
            codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        // The default "twoloop" coder searches far harder than speech at 64 kbit/s repays:
        // "fast" encodes a minute in about a quarter of the time.
        AVDictionary* options = nullptr;
        av_dict_set(&options, "aac_coder", "fast", 0);
        rc = avcodec_open2(codec, aac, &options);
        av_dict_free(&options);
        if (rc < 0)
            throw error(QStringLiteral("AAC settings rejected for"), rc);
        rc = avcodec_parameters_from_context(stream->codecpar, codec);
        if (rc < 0)
            throw error(QStringLiteral("cannot describe the stream of"), rc);
        stream->time_base = codec->time_base;
        rc = avio_open(&format->pb, file.constData(), AVIO_FLAG_WRITE);
        if (rc < 0)
            throw error(QStringLiteral("cannot create"), rc);
        rc = avformat_write_header(format, nullptr);
        if (rc < 0)
            throw error(QStringLiteral("cannot write the header of"), rc);
        frame->format = codec->sample_fmt;
        frame->sample_rate = sampleRate;
        frame->nb_samples = codec->frame_size;
        av_channel_layout_copy(&frame->ch_layout, &codec->ch_layout);
        rc = av_frame_get_buffer(frame, 0);
        if (rc < 0)
            throw error(QStringLiteral("cannot allocate a frame for"), rc);
        buffer.reserve(size_t(codec->frame_size) * 2);
    }

    /// Sends one frame (or the end of the stream when `count` is 0) and writes what comes out.
    void encode(const float* samples, int count) {
        int rc = 0;
        if (count > 0) {
            rc = av_frame_make_writable(frame);
            if (rc < 0)
                throw error(QStringLiteral("cannot reuse a frame for"), rc);
            std::memcpy(frame->data[0], samples, size_t(count) * sizeof(float));
            frame->nb_samples = count;
            frame->pts = nextPts;
            nextPts += count;
            rc = avcodec_send_frame(codec, frame);
        } else {
            rc = avcodec_send_frame(codec, nullptr);
        }
        if (rc < 0)
            throw error(QStringLiteral("cannot encode"), rc);
        while ((rc = avcodec_receive_packet(codec, packet)) == 0) {
            av_packet_rescale_ts(packet, codec->time_base, stream->time_base);
            packet->stream_index = stream->index;
            rc = av_interleaved_write_frame(format, packet); // takes the packet's data either way
            if (rc < 0)
                throw error(QStringLiteral("cannot write"), rc);
        }
        if (rc != AVERROR(EAGAIN) && rc != AVERROR_EOF)
            throw error(QStringLiteral("cannot encode"), rc);
    }
};

AudioFileEncoder::AudioFileEncoder(const QString& path) : d(std::make_unique<Impl>()) {
    d->path = path;
    d->open();
}

AudioFileEncoder::~AudioFileEncoder() = default;

void AudioFileEncoder::write(const float* samples, qsizetype count) {
    if (d->finished || count <= 0)
        return;
    d->written += count;
    const size_t frameSize = size_t(d->codec->frame_size);
    // Whole frames are encoded at once; only a remainder waits for the next call.
    if (!d->buffer.empty()) {
        const size_t take = std::min(frameSize - d->buffer.size(), size_t(count));
        d->buffer.insert(d->buffer.end(), samples, samples + take);
        samples += take;
        count -= qsizetype(take);
        if (d->buffer.size() < frameSize)
            return;
        d->encode(d->buffer.data(), int(frameSize));
        d->buffer.clear();
    }
    while (size_t(count) >= frameSize) {
        d->encode(samples, int(frameSize));
        samples += frameSize;
        count -= qsizetype(frameSize);
    }
    d->buffer.insert(d->buffer.end(), samples, samples + count);
}

void AudioFileEncoder::finish() {
    if (d->finished)
        return;
    if (!d->buffer.empty())
        d->encode(d->buffer.data(), int(d->buffer.size()));
    d->buffer.clear();
    d->encode(nullptr, 0);
    int rc = av_write_trailer(d->format);
    if (rc < 0)
        throw d->error(QStringLiteral("cannot finish"), rc);
    rc = avio_closep(&d->format->pb);
    if (rc < 0)
        throw d->error(QStringLiteral("cannot close"), rc);
    d->finished = true;
}

qint64 AudioFileEncoder::samplesWritten() const { return d->written; }

bool AudioFileEncoder::isFinished() const { return d->finished; }

} // namespace tamvex
