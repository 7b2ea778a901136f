#pragma once

#include <QImage>
#include <QObject>
#include <QRect>
#include <QSize>
#include <QString>

#include <functional>
#include <memory>

// Plays a silent video in an endless loop on a thread of its own and hands
// over each frame as a picture of the size it is painted at, so that the GUI
// thread neither decodes nor converts anything. The decoder behind it is
// chosen at build time.
class BackgroundVideo : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(BackgroundVideo)

public:
    // Runs on the decoding thread on every frame before it is handed over;
    // the picture is in Format_ARGB32_Premultiplied at the frame size.
    using FrameFinisher = std::function<void(QImage &frame)>;

    // `source` is a file name or a resource path (":/...").
    BackgroundVideo(const QString &source, QSize frameSize, QObject *parent = nullptr);
    ~BackgroundVideo() override;

    // Must be set before the first start().
    void setFrameFinisher(FrameFinisher finisher);

    // Plays on from where it stopped; the first start opens the decoder.
    void start();
    // Holds the picture still and decodes nothing until the next start().
    void stop();
    bool isPlaying() const;

    QSize frameSize() const;

    // The part of a source picture that fills a frame: the middle of it in
    // the frame's proportions, starting on an even column and row so that
    // subsampled colour planes can be cut at the same place.
    static QRect sourceCrop(QSize source, QSize frame);
    // A still picture cut and scaled exactly as the video's frames are.
    static QImage fitToFrame(const QImage &picture, QSize frame);

signals:
    // Emitted on the object's own thread. A frame that comes while the
    // previous one has not been taken over yet is dropped, so a busy receiver
    // never makes frames pile up.
    void frameReady(const QImage &frame);
    // Nothing can be decoded; no frame will come.
    void failed();

private:
    class Private;
    std::unique_ptr<Private> d;
};
