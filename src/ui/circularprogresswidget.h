#pragma once

#include <QTimer>
#include <QWidget>

// The small round indicator that sits on the manage button beside its text
// while the launcher checks or downloads.
class CircularProgressWidget : public QWidget
{
    Q_OBJECT

public:
    explicit CircularProgressWidget(QWidget *parent);

    // Takes a fraction of 1; repeats of the shown percentage cause no repaint.
    void setProgress(double fraction);
    qint64 value() const;

    // While busy and still at 0, a short arc runs round the ring, so that a
    // check shows it is under way before any number can.
    void setBusy(bool busy);
    bool isBusy() const;

    // Whole percent shown for a fraction: truncated, never rounded, and
    // bounded to 0..100; a fraction that is not a number shows 0.
    static qint64 percentFor(double fraction);
    // Span of the arc for a percentage, in sixteenths of a degree; negative,
    // since it runs clockwise from twelve o'clock.
    static int arcSpanFor(qint64 percent);
    // The bold font for `text`, from 12 points down until its ink fits in a
    // circle of `radius` pixels around the point it is centred on.
    static QFont numberFont(const QFont &base, const QString &text, qreal radius);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    qint64 m_value = 0;
    int m_busyAngle = 0;
    QTimer m_busyTimer;
};
