#include "ui/backgroundvideo.h"

QRect BackgroundVideo::sourceCrop(QSize source, QSize frame)
{
    if (source.isEmpty() || frame.isEmpty())
        return {};
    // The widest part of the source in the frame's proportions; the video is
    // a few pixels wider than the window, and those are cut off rather than
    // squeezed in.
    int width = source.width();
    int height = static_cast<int>(qint64(width) * frame.height() / frame.width());
    if (height > source.height()) {
        height = source.height();
        width = static_cast<int>(qint64(height) * frame.width() / frame.height());
    }
    const int left = ((source.width() - width) / 2) & ~1;
    const int top = ((source.height() - height) / 2) & ~1;
    return {left, top, width, height};
}

QImage BackgroundVideo::fitToFrame(const QImage &picture, QSize frame)
{
    const QRect crop = sourceCrop(picture.size(), frame);
    if (crop.isEmpty())
        return {};
    QImage fitted = picture.copy(crop);
    if (fitted.size() != frame)
        fitted = fitted.scaled(frame, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    return fitted.convertToFormat(QImage::Format_ARGB32_Premultiplied);
}
