#include "ui/mainwindow.h"

#include <QEvent>
#include <QPaintEvent>
#include <QPainter>

#include <memory>

#include "config/settings.h"
#include "ui/backgroundcomposer.h"
#include "ui/backgroundvideo.h"

void MainWindow::setUpBackground()
{
    const auto *panel = findChild<QWidget *>(QStringLiteral("bottomBlurPanel"));
    const auto composer = std::make_shared<const BackgroundComposer>(size(), panel ? panel->geometry() : QRect());

    // The video's first frame as a picture: it is on the screen with the
    // first paint, before any decoder has started, and it is all that shows
    // with animations off.
    currentFrame = BackgroundVideo::fitToFrame(QImage(QStringLiteral(":/resources/background_still.jpg")), size());
    composer->compose(currentFrame);

    video = new BackgroundVideo(QStringLiteral(":/resources/background.mp4"), size(), this);
    // Finished on the decoding thread; the composer is shared, not borrowed,
    // since that thread may still be at work while the window goes.
    video->setFrameFinisher([composer](QImage &frame) { composer->compose(frame); });
    connect(video, &BackgroundVideo::frameReady, this, &MainWindow::handleVideoFrame);
}

void MainWindow::handleVideoFrame(const QImage &frame)
{
    if (frame.isNull() || !Settings::instance()->animationsEnabled())
        return;
    currentFrame = frame;
    update();
}

void MainWindow::paintEvent(QPaintEvent *event)
{
    if (!isVisible() || currentFrame.isNull())
        return;

    // The picture is finished to its rounded corners, so copying the damaged
    // part over the cleared backing store is all there is to do: a hover
    // repaint costs a small copy, a new frame one full copy.
    QPainter painter(this);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    for (const QRect &rect : event->region())
        painter.drawImage(rect.topLeft(), currentFrame, rect);
    painter.end();

    if (!backgroundReady) {
        backgroundReady = true;
        // After this paint has reached the screen: the start-up flow may open
        // modal dialogs, and the decoder would compete with the first paint.
        QMetaObject::invokeMethod(this, &MainWindow::onFirstPaint, Qt::QueuedConnection);
    }
}

void MainWindow::onFirstPaint()
{
    ensurePlaying();
    emit backgroundSetupComplete();
}

void MainWindow::showEvent(QShowEvent *event)
{
    QMainWindow::showEvent(event);
    ensurePlaying();
}

void MainWindow::hideEvent(QHideEvent *event)
{
    QMainWindow::hideEvent(event);
    ensurePaused();
}

void MainWindow::changeEvent(QEvent *event)
{
    QMainWindow::changeEvent(event);
    if (event->type() != QEvent::ActivationChange)
        return;
    if (isActiveWindow())
        ensurePlaying();
    else
        ensurePaused();
}

void MainWindow::ensurePlaying()
{
    // With animations off the still picture is the background, and nothing
    // is decoded at all.
    if (video && backgroundReady && Settings::instance()->animationsEnabled())
        video->start();
}

void MainWindow::ensurePaused()
{
    if (video)
        video->stop();
}
