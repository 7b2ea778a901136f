#include "ui/circularprogresswidget.h"

#include <QPainter>
#include <QPixmap>

#include <cmath>

namespace
{
    const int TwelveOClock = 90 * 16;
}

CircularProgressWidget::CircularProgressWidget(QWidget *parent)
    : QWidget(parent)
{
    setFixedSize(40, 40);
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

void CircularProgressWidget::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.drawPixmap(rect(), QPixmap(QStringLiteral(":/resources/circular_progress_background.png")));

    if (m_value == 0)
        return;

    const QColor colour(0x60, 0xE5, 0xFC);
    painter.setPen(QPen(colour, 3));
    painter.drawArc(QRectF(rect().adjusted(5, 5, -5, -5)), TwelveOClock, arcSpanFor(m_value));

    QFont font = painter.font();
    font.setPointSize(12);
    font.setWeight(QFont::Bold);
    painter.setFont(font);
    painter.drawText(rect().adjusted(0, -2, 0, 0), Qt::AlignCenter, QStringLiteral("%1").arg(m_value));
}
