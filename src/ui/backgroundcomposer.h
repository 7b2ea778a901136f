#pragma once

#include <QImage>
#include <QRect>
#include <QSize>

// Finishes a background picture as the window shows it: shaded along the top
// and left edges, blurred and veiled behind the bottom bar, and cut to
// rounded corners. What never changes between frames (the shades and the
// corners) is drawn once, so a frame costs a few blends; compose() only reads
// the object and may run on any thread.
class BackgroundComposer
{
public:
    static constexpr qreal CornerRadius = 9.0;
    static constexpr int TopShadeHeight = 113;
    static constexpr int LeftShadeWidth = 178;
    static constexpr qreal BlurRadius = 5.0;

    // `blurArea` is where the bottom bar lies, in window pixels; an empty one
    // blurs nothing.
    BackgroundComposer(QSize size, QRect blurArea);

    QSize size() const;

    // In place; `frame` is of the composer's size in
    // Format_ARGB32_Premultiplied, as BackgroundVideo hands it over.
    void compose(QImage &frame) const;

private:
    QSize m_size;
    QRect m_blurArea;
    QImage m_topShade;
    QImage m_leftShade;
    QImage m_corners[4];
    QPoint m_cornerOrigins[4];
};
