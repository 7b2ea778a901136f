#include "ui/mainwindow.h"

#include <QEvent>
#include <QGraphicsBlurEffect>
#include <QGraphicsPixmapItem>
#include <QGraphicsScene>
#include <QLinearGradient>
#include <QMediaPlayer>
#include <QPainter>
#include <QPainterPath>
#include <QVideoFrame>

#include "config/settings.h"

namespace
{
    const qreal CornerRadius = 9.0;
    const int TopShadeHeight = 113;
    const int LeftShadeWidth = 178;
    const qreal BottomBlurRadius = 5.0;

    QLinearGradient edgeShade(QPointF start, QPointF end)
    {
        QLinearGradient gradient(start, end);
        gradient.setColorAt(0.0, QColor(0, 0, 0, 180));
        gradient.setColorAt(0.4, QColor(0, 0, 0, 100));
        gradient.setColorAt(0.8, QColor(0, 0, 0, 40));
        gradient.setColorAt(1.0, QColor(0, 0, 0, 0));
        return gradient;
    }

    QImage blurred(const QImage &image)
    {
        QGraphicsScene scene;
        auto *item = new QGraphicsPixmapItem(QPixmap::fromImage(image));
        auto *blur = new QGraphicsBlurEffect;
        blur->setBlurRadius(BottomBlurRadius);
        item->setGraphicsEffect(blur);
        scene.addItem(item);

        QImage result(image.size(), QImage::Format_ARGB32_Premultiplied);
        result.fill(Qt::transparent);
        QPainter painter(&result);
        scene.render(&painter, QRectF(), QRectF(), Qt::KeepAspectRatio);
        painter.end();
        return result;
    }
}

void MainWindow::handleVideoFrame(const QVideoFrame &frame)
{
    if (!frame.isValid())
        return;
    // With animations off the first frame stays as a still picture.
    if (!Settings::instance()->animationsEnabled() && !currentFrame.isNull())
        return;

    const QImage image = frame.toImage();
    if (!backgroundReady) {
        takeFirstFrame(image);
        return;
    }
    currentFrame = image;
    update();
}

void MainWindow::takeFirstFrame(const QImage &frame)
{
    currentFrame = frame;
    repaint();
    // Set before the signal: its receiver runs modal dialogs while more frames
    // arrive, and the start-up flow must not begin twice.
    backgroundReady = true;
    emit backgroundSetupComplete();
}

void MainWindow::useStillBackground()
{
    if (backgroundReady)
        return;
    takeFirstFrame(QImage(QStringLiteral(":/resources/background_still.jpg")));
}

void MainWindow::paintEvent(QPaintEvent *)
{
    if (!isVisible() || currentFrame.isNull())
        return;

    const QRect r = rect();
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath clip;
    clip.addRoundedRect(QRectF(r), CornerRadius, CornerRadius, Qt::AbsoluteSize);

    // Composed off-screen so that the rounded clip cuts the finished picture
    // once, with clean corners.
    QPixmap buffer(size());
    buffer.fill(Qt::transparent);
    QPainter composer(&buffer);
    composer.setRenderHint(QPainter::Antialiasing);
    composer.drawImage(r, currentFrame);

    composer.setCompositionMode(QPainter::CompositionMode_SourceOver);
    composer.fillRect(QRect(r.left() - 5, r.top() - 5, r.width() + 10, TopShadeHeight + 5),
                      edgeShade(QPointF(0, r.top()), QPointF(0, r.top() + TopShadeHeight)));
    composer.fillRect(QRect(r.left() - 5, r.top(), LeftShadeWidth + 5, r.height()),
                      edgeShade(QPointF(r.left(), 0), QPointF(r.left() + LeftShadeWidth, 0)));

    if (const auto *panel = findChild<QWidget *>(QStringLiteral("bottomBlurPanel"))) {
        const QRect g = panel->geometry();
        composer.drawImage(g, blurred(currentFrame.copy(g)));
        composer.setCompositionMode(QPainter::CompositionMode_SourceOver);
        composer.fillRect(g, QColor(0, 0, 0, 50));
    }
    composer.end();

    painter.setClipPath(clip, Qt::ReplaceClip);
    painter.drawPixmap(0, 0, buffer);
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
    if (player && player->playbackState() != QMediaPlayer::PlayingState)
        player->play();
}

void MainWindow::ensurePaused()
{
    if (player && player->playbackState() == QMediaPlayer::PlayingState)
        player->pause();
}
