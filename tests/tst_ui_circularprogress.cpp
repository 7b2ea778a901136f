#include <QImage>
#include <QtTest>

#include <cmath>

#include "ui/circularprogresswidget.h"

class TestCircularProgress : public QObject
{
    Q_OBJECT

private slots:
    void painting_data();
    void painting();
};

namespace
{
    // Arc-coloured pixels centred between two distances from the ring's middle.
    int arcPixels(const QImage &image, qreal inner = 0, qreal outer = 1000)
    {
        int count = 0;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                const QColor pixel = image.pixelColor(x, y);
                const qreal distance = std::hypot(x + 0.5 - 20.0, y + 0.5 - 20.0);
                count += distance >= inner && distance < outer && qAbs(pixel.red() - 0x60) < 40
                    && qAbs(pixel.green() - 0xE5) < 40 && qAbs(pixel.blue() - 0xFC) < 40;
            }
        }
        return count;
    }
}

void TestCircularProgress::painting_data()
{
    QTest::addColumn<double>("fraction");
    QTest::addColumn<bool>("busy");
    QTest::addColumn<qint64>("percent");
    QTest::addColumn<int>("span"); // of the arc, in sixteenths of a degree
    QTest::addColumn<QList<bool>>("arc"); // in the top-right and top-left corners

    QTest::newRow("negative") << -1.0 << false << qint64(0) << 0 << QList {false, false};
    QTest::newRow("not a number") << std::nan("") << false << qint64(0) << 0 << QList {false, false};
    QTest::newRow("truncated, span rounded, clockwise") << 0.087 << false << qint64(8) << -461 << QList {true, false};
    QTest::newRow("infinite, three digits")
        << std::numeric_limits<double>::infinity() << false << qint64(100) << -5760 << QList {true, true};
    // While checking, before any number: a short arc from the top, turning.
    QTest::newRow("busy") << 0.0 << true << qint64(0) << 0 << QList {true, false};
    QTest::newRow("busy shows progress") << 0.25 << true << qint64(25) << -1440 << QList {true, false};
}

void TestCircularProgress::painting()
{
    QFETCH(double, fraction);
    QFETCH(bool, busy);
    QFETCH(qint64, percent);
    QFETCH(int, span);
    QFETCH(QList<bool>, arc);

    QCOMPARE(CircularProgressWidget::percentFor(fraction), percent);
    QCOMPARE(CircularProgressWidget::arcSpanFor(percent), span);
    CircularProgressWidget widget(nullptr);
    widget.setProgress(fraction);
    widget.setBusy(busy);
    QCOMPARE(widget.value(), percent);
    const QImage image = widget.grab().toImage();
    // The corners show the arc alone. The ring's stroke lies 13.5 to 16.5
    // pixels from the middle; the digits keep clear of it and stand out.
    QCOMPARE(QList({arcPixels(image.copy(24, 0, 16, 12)) > 0, arcPixels(image.copy(0, 0, 16, 12)) > 0}), arc);
    QCOMPARE(arcPixels(image, 0.0, 8.0) > 3, percent > 0);
    QCOMPARE(arcPixels(image, 12.0, 13.0), 0);
    if (percent == 0 && busy) {
        QTRY_VERIFY(widget.grab().toImage() != image);
        widget.setBusy(false);
        QCOMPARE(arcPixels(widget.grab().toImage()), 0);
    }
    // Single digits keep the full size.
    const QFont font = CircularProgressWidget::numberFont(widget.font(), QString::number(percent), 10.5);
    QCOMPARE(font.pointSizeF() == 12.0, percent < 10);
}

QTEST_MAIN(TestCircularProgress)
#include "tst_ui_circularprogress.moc"
