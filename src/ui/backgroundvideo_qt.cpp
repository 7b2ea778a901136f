#include "ui/backgroundvideo.h"

#include <QMediaPlayer>
#include <QMutex>
#include <QThread>
#include <QUrl>
#include <QVideoFrame>
#include <QVideoSink>

#include <atomic>

// Two threads of its own, neither of them the GUI thread. The GStreamer back
// end of Qt 6.4 waits at most 300 ms for the sink's thread to take each
// frame, and stops the stream for good ("streaming stopped, reason error")
// when it does not; a busy GUI thread, or a slow QVideoFrame::toImage() in
// the sink's thread, was enough. So the sink's thread only takes frames over,
// and a second thread turns the newest of them into a picture.
class BackgroundVideo::Private
{
public:
    // Lives on `playerThread` together with the player and its sink.
    class Player : public QObject
    {
    public:
        explicit Player(Private *owner)
            : d(owner)
        { }

        void play()
        {
            if (!m_player) {
                m_player = new QMediaPlayer(this);
                m_sink = new QVideoSink(this);
                m_player->setVideoSink(m_sink);
                connect(m_sink, &QVideoSink::videoFrameChanged, this, [this](const QVideoFrame &frame) {
                    if (frame.isValid())
                        d->offer(frame);
                });
                connect(m_player, &QMediaPlayer::errorOccurred, this, [this] { d->fail(); });
                m_player->setSource(d->source.startsWith(QLatin1Char(':')) ? QUrl(QStringLiteral("qrc") + d->source)
                                                                           : QUrl::fromLocalFile(d->source));
                m_player->setLoops(QMediaPlayer::Infinite);
            }
            m_player->play();
        }

        void pause()
        {
            if (m_player)
                m_player->pause();
        }

    private:
        Private *const d;
        QMediaPlayer *m_player = nullptr;
        QVideoSink *m_sink = nullptr;
    };

    Private(BackgroundVideo *owner, QString sourceFile, QSize size)
        : q(owner)
        , source(std::move(sourceFile))
        , frameSize(size)
    { }

    ~Private()
    {
        playerThread.quit();
        playerThread.wait();
        converterThread.quit();
        converterThread.wait();
    }

    // On the sink's thread: keeps the newest frame and returns at once.
    void offer(const QVideoFrame &frame)
    {
        {
            QMutexLocker locker(&mutex);
            const bool scheduled = newest.isValid();
            newest = frame;
            if (scheduled)
                return;
        }
        QMetaObject::invokeMethod(
            &converter, [this] { convertNewest(); }, Qt::QueuedConnection);
    }

    // On the converter's thread.
    void convertNewest()
    {
        QVideoFrame frame;
        {
            QMutexLocker locker(&mutex);
            frame = newest;
            newest = QVideoFrame();
        }
        // The receiver has not taken the last picture yet.
        if (!frame.isValid() || frameInFlight.load())
            return;
        QImage picture = fitToFrame(frame.toImage(), frameSize);
        if (picture.isNull())
            return;
        if (finisher)
            finisher(picture);
        frameInFlight = true;
        QMetaObject::invokeMethod(
            q,
            [this, picture] {
                frameInFlight = false;
                emit q->frameReady(picture);
            },
            Qt::QueuedConnection);
    }

    void fail()
    {
        QMetaObject::invokeMethod(
            q,
            [this] {
                broken = true;
                playing = false;
                emit q->failed();
            },
            Qt::QueuedConnection);
    }

    BackgroundVideo *const q;
    const QString source;
    const QSize frameSize;
    FrameFinisher finisher;
    QThread playerThread;
    QThread converterThread;
    QObject converter;
    Player *player = nullptr;
    QMutex mutex;
    QVideoFrame newest;
    bool playing = false;
    bool broken = false;
    std::atomic_bool frameInFlight {false};
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
    if (d->broken || d->playing)
        return;
    d->playing = true;
    if (!d->player) {
        d->converter.moveToThread(&d->converterThread);
        d->converterThread.start(QThread::LowPriority);
        d->player = new Private::Player(d.get());
        d->player->moveToThread(&d->playerThread);
        connect(&d->playerThread, &QThread::finished, d->player, &QObject::deleteLater);
        d->playerThread.start(QThread::LowPriority);
    }
    QMetaObject::invokeMethod(d->player, &Private::Player::play, Qt::QueuedConnection);
}

void BackgroundVideo::stop()
{
    if (!d->playing)
        return;
    d->playing = false;
    QMetaObject::invokeMethod(d->player, &Private::Player::pause, Qt::QueuedConnection);
}

bool BackgroundVideo::isPlaying() const
{
    return d->playing;
}

QSize BackgroundVideo::frameSize() const
{
    return d->frameSize;
}
