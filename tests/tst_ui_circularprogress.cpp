#include <QImage>
#include <QtTest>

#include <cmath>

#include "ui/circularprogresswidget.h"

class TestCircularProgress : public QObject
{
    Q_OBJECT

private slots:
    void percent_data();
    void percent();
    void repaintsOnlyOnChange();
    void painting_data();
    void painting();
    void busyArcTurns();
};

namespace
{
    // Arc-coloured pixels whose centres lie between two distances from the
    // middle of the ring.
    int arcPixels(const QImage &image, qreal inner = 0, qreal outer = 1000)
    {
        int count = 0;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                const qreal distance = std::hypot(x + 0.5 - 20.0, y + 0.5 - 20.0);
                const QColor pixel = image.pixelColor(x, y);
                count += distance >= inner && distance < outer && qAbs(pixel.red() - 0x60) < 40
                    && qAbs(pixel.green() - 0xE5) < 40 && qAbs(pixel.blue() - 0xFC) < 40;
            }
        }
        return count;
    }
}

void TestCircularProgress::percent_data()
{
    QTest::addColumn<double>("fraction");
    QTest::addColumn<qint64>("percent");
    QTest::addColumn<int>("span"); // of the arc, in sixteenths of a degree

    QTest::newRow("zero") << 0.0 << qint64(0) << 0;
    QTest::newRow("one percent") << 0.01 << qint64(1) << -58;
    QTest::newRow("truncated, not rounded") << 0.29 << qint64(28) << -1613;
    QTest::newRow("half") << 0.5 << qint64(50) << -2880;
    QTest::newRow("above one") << 1.5 << qint64(100) << -5760;
    QTest::newRow("negative") << -1.0 << qint64(0) << 0;
    QTest::newRow("zero by zero") << std::nan("") << qint64(0) << 0;
    QTest::newRow("infinite") << std::numeric_limits<double>::infinity() << qint64(100) << -5760;
}

void TestCircularProgress::percent()
{
    QFETCH(double, fraction);
    QFETCH(qint64, percent);
    QFETCH(int, span);
    QCOMPARE(CircularProgressWidget::percentFor(fraction), percent);
    QCOMPARE(CircularProgressWidget::arcSpanFor(percent), span);
    CircularProgressWidget widget(nullptr);
    widget.setProgress(fraction);
    QCOMPARE(widget.value(), percent);
}

void TestCircularProgress::repaintsOnlyOnChange()
{
    CircularProgressWidget widget(nullptr);
    widget.show();
    QVERIFY(QTest::qWaitForWindowExposed(&widget));
    struct PaintCounter : QObject
    {
        int count = 0;
        bool eventFilter(QObject *, QEvent *event) override
        {
            count += event->type() == QEvent::Paint;
            return false;
        }
    } paints;
    widget.installEventFilter(&paints);

    widget.setProgress(0.421);
    QTRY_COMPARE(paints.count, 1);
    widget.setProgress(0.425);
    widget.setProgress(0.429);
    QTest::qWait(50);
    QCOMPARE(paints.count, 1);
    widget.setProgress(0.43);
    QTRY_COMPARE(paints.count, 2);
}

void TestCircularProgress::painting_data()
{
    QTest::addColumn<double>("fraction");
    QTest::addColumn<bool>("busy");
    QTest::addColumn<bool>("arcInTopRight");
    QTest::addColumn<bool>("arcInTopLeft");
    QTest::addColumn<bool>("number");

    QTest::newRow("nothing") << 0.0 << false << false << false << false;
    QTest::newRow("one digit") << 0.05 << false << true << false << true;
    QTest::newRow("a quarter runs clockwise") << 0.25 << false << true << false << true;
    QTest::newRow("two digits") << 0.88 << false << true << true << true;
    QTest::newRow("full circle") << 1.0 << false << true << true << true;
    // While checking, before any number: a short arc from the top.
    QTest::newRow("busy") << 0.0 << true << true << false << false;
    QTest::newRow("busy with progress shows the progress") << 0.25 << true << true << false << true;
}

void TestCircularProgress::painting()
{
    QFETCH(double, fraction);
    QFETCH(bool, busy);
    QFETCH(bool, arcInTopRight);
    QFETCH(bool, arcInTopLeft);
    QFETCH(bool, number);

    CircularProgressWidget widget(nullptr);
    widget.setProgress(fraction);
    widget.setBusy(busy);
    const QImage image = widget.grab().toImage();
    // The number sits in the middle; the corners' quadrants outside it show
    // the arc alone.
    QCOMPARE(arcPixels(image.copy(24, 0, 16, 12)) > 0, arcInTopRight);
    QCOMPARE(arcPixels(image.copy(0, 0, 16, 12)) > 0, arcInTopLeft);
    QCOMPARE(arcPixels(image.copy(12, 12, 16, 16)) > 0, number);
    if (!number)
        return;
    // The ring's stroke lies 13.5 to 16.5 pixels from the middle; the digits
    // keep clear of it, and still stand out in the middle. Single digits keep
    // the full size.
    QCOMPARE(arcPixels(image, 12.0, 13.0), 0);
    QVERIFY(arcPixels(image, 0.0, 8.0) > 3);
    const QFont font = CircularProgressWidget::numberFont(widget.font(), QString::number(widget.value()), 10.5);
    QCOMPARE(font.pointSizeF() == 12.0, widget.value() < 10);
}

void TestCircularProgress::busyArcTurns()
{
    CircularProgressWidget widget(nullptr);
    widget.setBusy(true);
    const QImage before = widget.grab().toImage();
    QTRY_VERIFY(widget.grab().toImage() != before);
    widget.setBusy(false);
    QVERIFY(!widget.isBusy());
    QCOMPARE(arcPixels(widget.grab().toImage()), 0);
}

QTEST_MAIN(TestCircularProgress)
#include "tst_ui_circularprogress.moc"
