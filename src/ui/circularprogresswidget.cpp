#include "ui/circularprogresswidget.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QPixmap>

#include <cmath>

namespace
{
    const int TwelveOClock = 90 * 16;
    const int RingInset = 5;
    const int PenWidth = 3;
    // Room left between the digits and the inner edge of the ring.
    const qreal NumberMargin = 2.0;
    const int BusyTickMs = 40;
    const int BusyStep = 15 * 16;
    const int BusySpan = 90 * 16;
}

CircularProgressWidget::CircularProgressWidget(QWidget *parent)
    : QWidget(parent)
{
    setFixedSize(40, 40);
    m_busyTimer.setInterval(BusyTickMs);
    connect(&m_busyTimer, &QTimer::timeout, this, [this] {
        m_busyAngle = (m_busyAngle + BusyStep) % (360 * 16);
        if (m_value == 0)
            update();
    });
}

qint64 CircularProgressWidget::percentFor(double fraction)
{
    const double percent = fraction * 100.0;
    if (std::isnan(percent))
        return 0;
    return static_cast<qint64>(qBound(0.0, percent, 100.0));
}

int CircularProgressWidget::arcSpanFor(qint64 percent)
{
    return -static_cast<int>(percent / 100.0 * 360.0 * 16.0 + 0.5);
}

QFont CircularProgressWidget::numberFont(const QFont &base, const QString &text, qreal radius)
{
    QFont font = base;
    font.setWeight(QFont::Bold);
    // The ink is centred, so it fits when half its diagonal does.
    for (qreal size = 12.0; size >= 5.0; size -= 0.5) {
        font.setPointSizeF(size);
        const QRectF ink = QFontMetricsF(font).tightBoundingRect(text);
        if (std::hypot(ink.width() / 2.0, ink.height() / 2.0) <= radius)
            break;
    }
    return font;
}

void CircularProgressWidget::setProgress(double fraction)
{
    const qint64 percent = percentFor(fraction);
    if (percent == m_value)
        return;
    m_value = percent;
    update();
}

qint64 CircularProgressWidget::value() const
{
    return m_value;
}

void CircularProgressWidget::setBusy(bool busy)
{
    if (busy == m_busyTimer.isActive())
        return;
    if (busy)
        m_busyTimer.start();
    else
        m_busyTimer.stop();
    update();
}

bool CircularProgressWidget::isBusy() const
{
    return m_busyTimer.isActive();
}

void CircularProgressWidget::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.drawPixmap(rect(), QPixmap(QStringLiteral(":/resources/circular_progress_background.png")));

    const QColor colour(0x60, 0xE5, 0xFC);
    const QRectF ring(rect().adjusted(RingInset, RingInset, -RingInset, -RingInset));
    if (m_value == 0) {
        if (isBusy()) {
            painter.setPen(QPen(colour, PenWidth, Qt::SolidLine, Qt::RoundCap));
            painter.drawArc(ring, TwelveOClock - m_busyAngle, -BusySpan);
        }
        return;
    }

    painter.setPen(QPen(colour, PenWidth));
    painter.drawArc(ring, TwelveOClock, arcSpanFor(m_value));

    // Centred on the ring by its ink rather than by its line, and one pixel
    // high, where the eye puts the middle.
    const QString text = QStringLiteral("%1").arg(m_value);
    const qreal room = ring.width() / 2.0 - PenWidth / 2.0 - NumberMargin;
    // Less the pixel the ink is raised by.
    const QFont font = numberFont(painter.font(), text, room - 1.0);
    painter.setFont(font);
    const QRectF ink = QFontMetricsF(font).tightBoundingRect(text);
    const QPointF centre = ring.center() - QPointF(0, 1);
    painter.drawText(centre - ink.center(), text);
}
