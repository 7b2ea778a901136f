#include "ui/backgroundcomposer.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QVarLengthArray>
#include <QtMath>

#include <algorithm>

namespace
{
    const QColor BlurVeil(0, 0, 0, 50);

    QLinearGradient edgeShade(QPointF start, QPointF end)
    {
        QLinearGradient gradient(start, end);
        gradient.setColorAt(0.0, QColor(0, 0, 0, 180));
        gradient.setColorAt(0.4, QColor(0, 0, 0, 100));
        gradient.setColorAt(0.8, QColor(0, 0, 0, 40));
        gradient.setColorAt(1.0, QColor(0, 0, 0, 0));
        return gradient;
    }

    const int ValueBits = 10;
    const int WeightBits = 12;

    inline uchar blurStep(int &sum, int value, int weight)
    {
        sum += (weight * ((value << ValueBits) - sum)) >> WeightBits;
        return static_cast<uchar>(sum >> ValueBits);
    }

    // One row forwards or backwards; the four channels are four running sums
    // held in registers.
    void blurRow(uchar *line, int width, int weight, bool forwards)
    {
        int blue = 0, green = 0, red = 0, alpha = 0;
        const int step = forwards ? 4 : -4;
        uchar *pixel = forwards ? line : line + (width - 1) * 4;
        for (int x = 0; x < width; ++x, pixel += step) {
            pixel[0] = blurStep(blue, pixel[0], weight);
            pixel[1] = blurStep(green, pixel[1], weight);
            pixel[2] = blurStep(red, pixel[2], weight);
            pixel[3] = blurStep(alpha, pixel[3], weight);
        }
    }

    // Exponential blur as in Qt's own: values carry 10 fraction bits, the
    // weight 12. The running sums start at zero, so the picture fades into
    // transparency at its edges. Both directions run along memory: the
    // columns keep one running sum per column instead of striding.
    void exponentialBlur(QImage &image, qreal radius)
    {
        const int weight = static_cast<int>((1 << WeightBits) * (1.0 - qExp(-2.3 / (radius + 1.0))));
        const int width = image.width();
        const int height = image.height();
        const int bytes = width * 4;

        for (int y = 0; y < height; ++y) {
            blurRow(image.scanLine(y), width, weight, true);
            blurRow(image.scanLine(y), width, weight, false);
        }

        QVarLengthArray<int, 4096> sums(bytes);
        for (const bool downwards : {true, false}) {
            std::fill(sums.begin(), sums.end(), 0);
            for (int row = 0; row < height; ++row) {
                uchar *line = image.scanLine(downwards ? row : height - 1 - row);
                int *sum = sums.data();
                for (int x = 0; x < bytes; ++x)
                    line[x] = blurStep(sum[x], line[x], weight);
            }
        }
    }

    // The blurred `area` of `image`, at the reduced size it is computed at.
    // Like QGraphicsBlurEffect it works on a smaller picture from a radius of
    // 4 on, only a quarter instead of a half: the strip behind the bottom bar
    // is blurred 30 times a second, and the difference does not show.
    QImage blurredSmall(const QImage &image, QRect area, qreal radius)
    {
        const int factor = radius >= 4 ? 4 : 1;
        QImage small = image.copy(area);
        if (factor > 1) {
            small = small.scaled(qMax(1, area.width() / factor), qMax(1, area.height() / factor), Qt::IgnoreAspectRatio,
                                 Qt::SmoothTransformation);
        }
        exponentialBlur(small, radius / factor);
        return small;
    }
}

BackgroundComposer::BackgroundComposer(QSize size, QRect blurArea)
    : m_size(size)
    , m_blurArea(blurArea.intersected(QRect(QPoint(0, 0), size)))
{
    const int width = size.width();
    const int height = size.height();
    const QLinearGradient top = edgeShade(QPointF(0, 0), QPointF(0, TopShadeHeight));
    const QLinearGradient left = edgeShade(QPointF(0, 0), QPointF(LeftShadeWidth, 0));

    // The band along the top holds both shades where they add up in the
    // corner; the band down the left side holds the rest of the left shade.
    m_topShade = QImage(width, qMin(height, TopShadeHeight), QImage::Format_ARGB32_Premultiplied);
    m_topShade.fill(Qt::transparent);
    QPainter topPainter(&m_topShade);
    topPainter.fillRect(QRect(-5, -5, width + 10, TopShadeHeight + 5), top);
    topPainter.fillRect(QRect(-5, 0, LeftShadeWidth + 5, height), left);
    topPainter.end();
    if (height > TopShadeHeight) {
        m_leftShade = QImage(qMin(width, LeftShadeWidth), height - TopShadeHeight, QImage::Format_ARGB32_Premultiplied);
        m_leftShade.fill(Qt::transparent);
        QPainter leftPainter(&m_leftShade);
        leftPainter.fillRect(QRect(-5, 0, LeftShadeWidth + 5, height), left);
    }

    QPainterPath outline;
    outline.addRoundedRect(QRectF(0, 0, width, height), CornerRadius, CornerRadius, Qt::AbsoluteSize);
    const int tile = qCeil(CornerRadius) + 1;
    const QPoint origins[4] = {{0, 0}, {width - tile, 0}, {0, height - tile}, {width - tile, height - tile}};
    for (int corner = 0; corner < 4; ++corner) {
        m_cornerOrigins[corner] = origins[corner];
        m_corners[corner] = QImage(tile, tile, QImage::Format_ARGB32_Premultiplied);
        m_corners[corner].fill(Qt::transparent);
        QPainter mask(&m_corners[corner]);
        mask.setRenderHint(QPainter::Antialiasing);
        mask.translate(-origins[corner]);
        mask.fillPath(outline, Qt::white);
    }
}

QSize BackgroundComposer::size() const
{
    return m_size;
}

void BackgroundComposer::compose(QImage &frame) const
{
    if (frame.size() != m_size || frame.format() != QImage::Format_ARGB32_Premultiplied)
        return;

    // Taken before the shades are drawn: the strip shows the picture itself.
    QImage strip;
    if (!m_blurArea.isEmpty())
        strip = blurredSmall(frame, m_blurArea, BlurRadius);

    QPainter painter(&frame);
    painter.drawImage(0, 0, m_topShade);
    painter.drawImage(0, TopShadeHeight, m_leftShade);
    if (!strip.isNull()) {
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.drawImage(m_blurArea, strip);
        painter.fillRect(m_blurArea, BlurVeil);
    }
    painter.setCompositionMode(QPainter::CompositionMode_DestinationIn);
    for (int corner = 0; corner < 4; ++corner)
        painter.drawImage(m_cornerOrigins[corner], m_corners[corner]);
}
