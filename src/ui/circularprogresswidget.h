#pragma once

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

    // Whole percent shown for a fraction: truncated, never rounded, and
    // bounded to 0..100; a fraction that is not a number shows 0.
    static qint64 percentFor(double fraction);
    // Span of the arc for a percentage, in sixteenths of a degree; negative,
    // since it runs clockwise from twelve o'clock.
    static int arcSpanFor(qint64 percent);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    qint64 m_value = 0;
};
