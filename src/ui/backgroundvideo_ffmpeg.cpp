#include "ui/backgroundvideo.h"

#include <QElapsedTimer>
#include <QFile>
#include <QLibrary>
#include <QMutex>
#include <QThread>
#include <QWaitCondition>

#include <atomic>
#include <chrono>
#include <cstring>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/version.h>
#include <libavformat/avformat.h>
#include <libavformat/version.h>
#include <libavutil/pixdesc.h>
#include <libavutil/version.h>
#include <libswscale/swscale.h>
#include <libswscale/version.h>
}

// Every FFmpeg function the decoder calls, by library.
#define LAUNCHER_FFMPEG_FUNCTIONS(F)                                                                                   \
    F(avutil, av_malloc)                                                                                               \
    F(avutil, av_freep)                                                                                                \
    F(avutil, av_frame_alloc)                                                                                          \
    F(avutil, av_frame_free)                                                                                           \
    F(avutil, av_pix_fmt_desc_get)                                                                                     \
    F(swscale, sws_getContext)                                                                                         \
    F(swscale, sws_scale)                                                                                              \
    F(swscale, sws_freeContext)                                                                                        \
    F(avcodec, av_packet_alloc)                                                                                        \
    F(avcodec, av_packet_free)                                                                                         \
    F(avcodec, av_packet_unref)                                                                                        \
    F(avcodec, avcodec_alloc_context3)                                                                                 \
    F(avcodec, avcodec_free_context)                                                                                   \
    F(avcodec, avcodec_parameters_to_context)                                                                          \
    F(avcodec, avcodec_open2)                                                                                          \
    F(avcodec, avcodec_send_packet)                                                                                    \
    F(avcodec, avcodec_receive_frame)                                                                                  \
    F(avcodec, avcodec_flush_buffers)                                                                                  \
    F(avformat, avio_alloc_context)                                                                                    \
    F(avformat, avio_context_free)                                                                                     \
    F(avformat, avformat_alloc_context)                                                                                \
    F(avformat, avformat_open_input)                                                                                   \
    F(avformat, avformat_close_input)                                                                                  \
    F(avformat, av_find_best_stream)                                                                                   \
    F(avformat, av_read_frame)                                                                                         \
    F(avformat, av_seek_frame)                                                                                         \
    F(avformat, av_guess_frame_rate)

namespace
{
    // FFmpeg is opened at the first start of a video, not linked: Debian's
    // libavcodec alone maps some ninety libraries, about 20 MB that a
    // launcher with animations off would carry for nothing. The libraries
    // stay loaded for the rest of the process.
    struct FFmpeg
    {
#define LAUNCHER_DECLARE_FUNCTION(library, name) decltype(&::name) name = nullptr;
        LAUNCHER_FFMPEG_FUNCTIONS(LAUNCHER_DECLARE_FUNCTION)
#undef LAUNCHER_DECLARE_FUNCTION
        bool loaded = false;

        // Null when a library or a function is missing.
        static const FFmpeg *instance()
        {
            static const FFmpeg ffmpeg = load();
            return ffmpeg.loaded ? &ffmpeg : nullptr;
        }

    private:
        static FFmpeg load()
        {
            // The major versions the headers were written for; another major
            // version changes structures that the decoder reads.
            static QLibrary avutil(QStringLiteral("avutil"), LIBAVUTIL_VERSION_MAJOR);
            static QLibrary swscale(QStringLiteral("swscale"), LIBSWSCALE_VERSION_MAJOR);
            static QLibrary avcodec(QStringLiteral("avcodec"), LIBAVCODEC_VERSION_MAJOR);
            static QLibrary avformat(QStringLiteral("avformat"), LIBAVFORMAT_VERSION_MAJOR);
            FFmpeg ffmpeg;
            for (QLibrary *library : {&avutil, &swscale, &avcodec, &avformat}) {
                if (!library->load())
                    return ffmpeg;
            }
            bool complete = true;
#define LAUNCHER_RESOLVE_FUNCTION(library, name)                                                                       \
    ffmpeg.name = reinterpret_cast<decltype(&::name)>(library.resolve(#name));                                         \
    complete = complete && ffmpeg.name;
            LAUNCHER_FFMPEG_FUNCTIONS(LAUNCHER_RESOLVE_FUNCTION)
#undef LAUNCHER_RESOLVE_FUNCTION
            ffmpeg.loaded = complete;
            return ffmpeg;
        }
    };

    const int IoBufferSize = 4096;
    const std::chrono::nanoseconds DefaultFrameInterval(33'333'333);

    // The whole file in memory: a background video is small, and Qt resources
    // are not files that FFmpeg could open itself.
    struct MemoryInput
    {
        QByteArray data;
        qint64 position = 0;

        static int read(void *opaque, uint8_t *buffer, int size)
        {
            auto *input = static_cast<MemoryInput *>(opaque);
            const qint64 count = qMin<qint64>(size, input->data.size() - input->position);
            if (count <= 0)
                return AVERROR_EOF;
            std::memcpy(buffer, input->data.constData() + input->position, static_cast<size_t>(count));
            input->position += count;
            return static_cast<int>(count);
        }

        static int64_t seek(void *opaque, int64_t offset, int whence)
        {
            auto *input = static_cast<MemoryInput *>(opaque);
            switch (whence & ~AVSEEK_FORCE) {
            case AVSEEK_SIZE:
                return input->data.size();
            case SEEK_SET:
                break;
            case SEEK_CUR:
                offset += input->position;
                break;
            case SEEK_END:
                offset += input->data.size();
                break;
            default:
                return -1;
            }
            if (offset < 0 || offset > input->data.size())
                return -1;
            input->position = offset;
            return offset;
        }
    };

    // One video stream, decoded frame after frame and, at its end, from its
    // start again.
    class Decoder
    {
    public:
        explicit Decoder(const FFmpeg *ffmpeg)
            : m_ffmpeg(ffmpeg)
        { }
        Decoder(const Decoder &) = delete;
        Decoder &operator=(const Decoder &) = delete;

        ~Decoder()
        {
            m_ffmpeg->sws_freeContext(m_scaler);
            m_ffmpeg->av_frame_free(&m_frame);
            m_ffmpeg->av_packet_free(&m_packet);
            m_ffmpeg->avcodec_free_context(&m_codec);
            m_ffmpeg->avformat_close_input(&m_format);
            if (m_io)
                m_ffmpeg->av_freep(&m_io->buffer);
            m_ffmpeg->avio_context_free(&m_io);
        }

        bool open(const QString &source)
        {
            QFile file(source);
            if (!file.open(QIODevice::ReadOnly))
                return false;
            m_input.data = file.readAll();

            auto *buffer = static_cast<unsigned char *>(m_ffmpeg->av_malloc(IoBufferSize));
            m_io = m_ffmpeg->avio_alloc_context(buffer, IoBufferSize, 0, &m_input, &MemoryInput::read, nullptr,
                                                &MemoryInput::seek);
            m_format = m_ffmpeg->avformat_alloc_context();
            if (!m_io || !m_format)
                return false;
            m_format->pb = m_io;
            m_format->flags |= AVFMT_FLAG_CUSTOM_IO;
            if (m_ffmpeg->avformat_open_input(&m_format, nullptr, nullptr, nullptr) < 0)
                return false;
            // No stream probing: it would decode frames of its own, and an
            // MP4 file tells all that is needed in its header.

            const AVCodec *codec = nullptr;
            m_stream = m_ffmpeg->av_find_best_stream(m_format, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
            if (m_stream < 0 || !codec)
                return false;
            AVStream *stream = m_format->streams[m_stream];
            m_codec = m_ffmpeg->avcodec_alloc_context3(codec);
            if (!m_codec || m_ffmpeg->avcodec_parameters_to_context(m_codec, stream->codecpar) < 0)
                return false;
            // One thread is plenty for a background at its own pace, and every
            // further one holds frames of its own.
            m_codec->thread_count = 1;
            // Deblocking is most of the decoding time. Frames that no other
            // frame is predicted from do without it: nothing carries their
            // difference on, and on a soft background it stays under one
            // level of a colour channel.
            m_codec->skip_loop_filter = AVDISCARD_NONREF;
            if (m_ffmpeg->avcodec_open2(m_codec, codec, nullptr) < 0)
                return false;

            const AVRational rate = m_ffmpeg->av_guess_frame_rate(m_format, stream, nullptr);
            if (rate.num > 0 && rate.den > 0)
                m_interval = std::chrono::nanoseconds(qint64(1'000'000'000) * rate.den / rate.num);
            m_packet = m_ffmpeg->av_packet_alloc();
            m_frame = m_ffmpeg->av_frame_alloc();
            return m_packet && m_frame;
        }

        std::chrono::nanoseconds interval() const { return m_interval; }

        // The next frame, after the last one the first again; false when the
        // stream cannot be decoded at all.
        bool decodeNext()
        {
            for (;;) {
                const int received = m_ffmpeg->avcodec_receive_frame(m_codec, m_frame);
                if (received == 0) {
                    ++m_framesSinceRewind;
                    return true;
                }
                if (received == AVERROR_EOF) {
                    // A stream that ended without a single frame would loop
                    // here for ever.
                    if (m_framesSinceRewind == 0 || !rewind())
                        return false;
                    continue;
                }
                if (received != AVERROR(EAGAIN))
                    return false;

                const int read = m_ffmpeg->av_read_frame(m_format, m_packet);
                if (read < 0) {
                    // Drains the frames the decoder still holds, then EOF.
                    m_ffmpeg->avcodec_send_packet(m_codec, nullptr);
                    continue;
                }
                if (m_packet->stream_index == m_stream)
                    m_ffmpeg->avcodec_send_packet(m_codec, m_packet);
                m_ffmpeg->av_packet_unref(m_packet);
            }
        }

        // Converts the current frame into `image`, cut and scaled to its size.
        bool convert(QImage &image)
        {
            const QSize source(m_frame->width, m_frame->height);
            const auto format = static_cast<AVPixelFormat>(m_frame->format);
            if (!m_scaler || source != m_scalerSource || format != m_scalerFormat) {
                m_ffmpeg->sws_freeContext(m_scaler);
                m_crop = BackgroundVideo::sourceCrop(source, image.size());
                // Without a change of size the plain conversion is taken, the
                // fastest path that swscale has.
                const int flags = m_crop.size() == image.size() ? SWS_POINT : SWS_BILINEAR;
                m_scaler = m_ffmpeg->sws_getContext(m_crop.width(), m_crop.height(), format, image.width(),
                                                    image.height(), AV_PIX_FMT_RGB32, flags, nullptr, nullptr, nullptr);
                m_scalerSource = source;
                m_scalerFormat = format;
            }
            const AVPixFmtDescriptor *descriptor = m_ffmpeg->av_pix_fmt_desc_get(format);
            if (!m_scaler || !descriptor || m_crop.isEmpty())
                return false;

            const uint8_t *planes[AV_NUM_DATA_POINTERS] = {};
            for (int plane = 0; plane < AV_NUM_DATA_POINTERS && m_frame->data[plane]; ++plane) {
                const bool chroma = plane == 1 || plane == 2;
                const int x = chroma ? m_crop.x() >> descriptor->log2_chroma_w : m_crop.x();
                const int y = chroma ? m_crop.y() >> descriptor->log2_chroma_h : m_crop.y();
                planes[plane] = m_frame->data[plane] + qsizetype(y) * m_frame->linesize[plane]
                    + qsizetype(x) * bytesPerPixel(descriptor, plane);
            }
            uint8_t *target[1] = {image.bits()};
            const int targetStride[1] = {static_cast<int>(image.bytesPerLine())};
            m_ffmpeg->sws_scale(m_scaler, planes, m_frame->linesize, 0, m_crop.height(), target, targetStride);
            return true;
        }

    private:
        static int bytesPerPixel(const AVPixFmtDescriptor *descriptor, int plane)
        {
            int step = 1;
            for (int component = 0; component < descriptor->nb_components; ++component) {
                if (descriptor->comp[component].plane == plane)
                    step = qMax(step, descriptor->comp[component].step);
            }
            return step;
        }

        bool rewind()
        {
            m_framesSinceRewind = 0;
            if (m_ffmpeg->av_seek_frame(m_format, m_stream, 0, AVSEEK_FLAG_BACKWARD) < 0)
                return false;
            m_ffmpeg->avcodec_flush_buffers(m_codec);
            return true;
        }

        const FFmpeg *const m_ffmpeg;
        MemoryInput m_input;
        AVIOContext *m_io = nullptr;
        AVFormatContext *m_format = nullptr;
        AVCodecContext *m_codec = nullptr;
        AVPacket *m_packet = nullptr;
        AVFrame *m_frame = nullptr;
        SwsContext *m_scaler = nullptr;
        QSize m_scalerSource;
        AVPixelFormat m_scalerFormat = AV_PIX_FMT_NONE;
        QRect m_crop;
        int m_stream = -1;
        int m_framesSinceRewind = 0;
        std::chrono::nanoseconds m_interval = DefaultFrameInterval;
    };
}

class BackgroundVideo::Private : public QThread
{
public:
    Private(BackgroundVideo *owner, const QString &sourceFile, QSize size)
        : q(owner)
        , source(sourceFile)
        , frameSize(size)
    { }

    ~Private() override
    {
        {
            QMutexLocker locker(&mutex);
            quitting = true;
            wake.wakeAll();
        }
        wait();
    }

    BackgroundVideo *const q;
    const QString source;
    const QSize frameSize;
    FrameFinisher finisher;

    mutable QMutex mutex;
    QWaitCondition wake;
    bool playing = false;
    bool quitting = false;
    bool broken = false;
    std::atomic_bool frameInFlight {false};

protected:
    void run() override
    {
        const FFmpeg *ffmpeg = FFmpeg::instance();
        if (!ffmpeg) {
            reportFailure();
            return;
        }
        Decoder decoder(ffmpeg);
        if (!decoder.open(source)) {
            reportFailure();
            return;
        }

        QElapsedTimer clock;
        clock.start();
        std::chrono::nanoseconds due(0);
        QImage buffers[2];
        for (;;) {
            {
                QMutexLocker locker(&mutex);
                bool resumed = false;
                while (!playing && !quitting) {
                    wake.wait(&mutex);
                    resumed = true;
                }
                if (quitting)
                    return;
                // Going on after a stop, not catching up on what was missed.
                if (resumed)
                    due = std::chrono::nanoseconds(clock.nsecsElapsed());
            }

            if (!decoder.decodeNext()) {
                reportFailure();
                return;
            }
            // While the receiver has not taken the last frame, this one is
            // only decoded, which the frames after it need, and not converted.
            QImage frame;
            if (!frameInFlight.load()) {
                const int slot = freeSlot(buffers);
                // Moved out, so that writing into it copies nothing.
                frame = std::move(buffers[slot]);
                if (frame.isNull())
                    frame = QImage(frameSize, QImage::Format_ARGB32_Premultiplied);
                if (!decoder.convert(frame)) {
                    reportFailure();
                    return;
                }
                if (finisher)
                    finisher(frame);
                buffers[slot] = frame;
            }

            if (!sleepUntil(clock, due))
                return;
            if (!frame.isNull()) {
                frameInFlight = true;
                QMetaObject::invokeMethod(
                    q,
                    [this, frame] {
                        frameInFlight = false;
                        emit q->frameReady(frame);
                    },
                    Qt::QueuedConnection);
            }

            due += decoder.interval();
            // After the machine was suspended, say, the pace starts afresh
            // instead of racing through the frames it owes.
            const std::chrono::nanoseconds now(clock.nsecsElapsed());
            if (now - due > 4 * decoder.interval())
                due = now;
        }
    }

private:
    static int freeSlot(QImage (&buffers)[2])
    {
        // A picture that only this thread still holds is written over; one
        // that the receiver still shows is left alone and replaced.
        for (int slot = 0; slot < 2; ++slot) {
            if (buffers[slot].isNull() || buffers[slot].isDetached())
                return slot;
        }
        buffers[0] = QImage();
        return 0;
    }

    // False when the thread is to end.
    bool sleepUntil(const QElapsedTimer &clock, std::chrono::nanoseconds due)
    {
        QMutexLocker locker(&mutex);
        for (;;) {
            if (quitting)
                return false;
            const std::chrono::nanoseconds left = due - std::chrono::nanoseconds(clock.nsecsElapsed());
            if (!playing || left.count() <= 0)
                return true;
            wake.wait(&mutex, QDeadlineTimer(left, Qt::PreciseTimer));
        }
    }

    void reportFailure()
    {
        {
            QMutexLocker locker(&mutex);
            broken = true;
            playing = false;
        }
        QMetaObject::invokeMethod(q, &BackgroundVideo::failed, Qt::QueuedConnection);
    }
};

BackgroundVideo::BackgroundVideo(const QString &source, QSize frameSize, QObject *parent)
    : QObject(parent)
    , d(std::make_unique<Private>(this, source, frameSize))
{ }

BackgroundVideo::~BackgroundVideo() = default;

void BackgroundVideo::setFrameFinisher(FrameFinisher finisher)
{
    d->finisher = std::move(finisher);
}

void BackgroundVideo::start()
{
    QMutexLocker locker(&d->mutex);
    if (d->broken || d->playing)
        return;
    d->playing = true;
    if (d->isRunning())
        d->wake.wakeAll();
    else
        d->start(QThread::LowPriority);
}

void BackgroundVideo::stop()
{
    QMutexLocker locker(&d->mutex);
    d->playing = false;
    d->wake.wakeAll();
}

bool BackgroundVideo::isPlaying() const
{
    QMutexLocker locker(&d->mutex);
    return d->playing;
}

QSize BackgroundVideo::frameSize() const
{
    return d->frameSize;
}
