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
    void arcSpan_data();
    void arcSpan();
    void repaintsOnlyOnChange();
    void painting_data();
    void painting();
    void numberFitsInsideTheRing_data();
    void numberFitsInsideTheRing();
    void busyArcTurns();
};

namespace
{
    const QColor ArcColour(0x60, 0xE5, 0xFC);

    // Arc-coloured pixels whose centres lie between two distances from the
    // middle of the ring.
    int pixelsBetween(const QImage &image, qreal inner, qreal outer)
    {
        int count = 0;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                const qreal distance = std::hypot(x + 0.5 - 20.0, y + 0.5 - 20.0);
                if (distance < inner || distance >= outer)
                    continue;
                const QColor pixel = image.pixelColor(x, y);
                if (qAbs(pixel.red() - ArcColour.red()) < 40 && qAbs(pixel.green() - ArcColour.green()) < 40
                    && qAbs(pixel.blue() - ArcColour.blue()) < 40)
                    ++count;
            }
        }
        return count;
    }

    int arcPixels(const QImage &image)
    {
        int count = 0;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                const QColor pixel = image.pixelColor(x, y);
                if (qAbs(pixel.red() - ArcColour.red()) < 40 && qAbs(pixel.green() - ArcColour.green()) < 40
                    && qAbs(pixel.blue() - ArcColour.blue()) < 40)
                    ++count;
            }
        }
        return count;
    }
}

void TestCircularProgress::percent_data()
{
    QTest::addColumn<double>("fraction");
    QTest::addColumn<qint64>("percent");

    QTest::newRow("zero") << 0.0 << qint64(0);
    QTest::newRow("one percent") << 0.01 << qint64(1);
    QTest::newRow("truncated, not rounded") << 0.29 << qint64(28);
    QTest::newRow("almost all") << 0.999 << qint64(99);
    QTest::newRow("all") << 1.0 << qint64(100);
    QTest::newRow("above one") << 1.5 << qint64(100);
    QTest::newRow("negative") << -1.0 << qint64(0);
    QTest::newRow("zero by zero") << std::nan("") << qint64(0);
    QTest::newRow("infinite") << std::numeric_limits<double>::infinity() << qint64(100);
}

void TestCircularProgress::percent()
{
    QFETCH(double, fraction);
    QFETCH(qint64, percent);
    QCOMPARE(CircularProgressWidget::percentFor(fraction), percent);

    CircularProgressWidget widget(nullptr);
    widget.setProgress(fraction);
    QCOMPARE(widget.value(), percent);
}

void TestCircularProgress::arcSpan_data()
{
    QTest::addColumn<qint64>("percent");
    QTest::addColumn<int>("span");

    QTest::newRow("one") << qint64(1) << -58;
    QTest::newRow("half") << qint64(50) << -2880;
    QTest::newRow("closed") << qint64(100) << -5760;
}

void TestCircularProgress::arcSpan()
{
    QFETCH(qint64, percent);
    QFETCH(int, span);
    QCOMPARE(CircularProgressWidget::arcSpanFor(percent), span);
}

void TestCircularProgress::repaintsOnlyOnChange()
{
    CircularProgressWidget widget(nullptr);
    QCOMPARE(widget.size(), QSize(40, 40));
    widget.show();
    QVERIFY(QTest::qWaitForWindowExposed(&widget));

    int paints = 0;
    struct PaintCounter : QObject
    {
        int *count;
        explicit PaintCounter(int *c)
            : count(c)
        { }
        bool eventFilter(QObject *, QEvent *event) override
        {
            if (event->type() == QEvent::Paint)
                ++*count;
            return false;
        }
    } counter(&paints);
    widget.installEventFilter(&counter);

    widget.setProgress(0.421);
    QTRY_COMPARE(paints, 1);
    widget.setProgress(0.425);
    widget.setProgress(0.429);
    QTest::qWait(50);
    QCOMPARE(paints, 1);
    widget.setProgress(0.43);
    QTRY_COMPARE(paints, 2);
}

void TestCircularProgress::painting_data()
{
    QTest::addColumn<double>("fraction");
    QTest::addColumn<bool>("busy");
    QTest::addColumn<bool>("arcInTopRight");
    QTest::addColumn<bool>("arcInTopLeft");
    QTest::addColumn<bool>("number");

    QTest::newRow("nothing") << 0.0 << false << false << false << false;
    QTest::newRow("a quarter runs clockwise") << 0.25 << false << true << false << true;
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
    QCOMPARE(widget.isBusy(), busy);
    const QImage image = widget.grab().toImage();
    // The number sits in the middle; the corners' quadrants outside it show
    // the arc alone.
    QCOMPARE(arcPixels(image.copy(24, 0, 16, 12)) > 0, arcInTopRight);
    QCOMPARE(arcPixels(image.copy(0, 0, 16, 12)) > 0, arcInTopLeft);
    QCOMPARE(arcPixels(image.copy(12, 12, 16, 16)) > 0, number);
}

void TestCircularProgress::numberFitsInsideTheRing_data()
{
    QTest::addColumn<double>("fraction");

    QTest::newRow("one digit") << 0.05;
    QTest::newRow("two digits") << 0.88;
    QTest::newRow("three digits") << 1.0;
}

void TestCircularProgress::numberFitsInsideTheRing()
{
    QFETCH(double, fraction);

    CircularProgressWidget widget(nullptr);
    widget.setProgress(fraction);
    const QImage image = widget.grab().toImage();
    // The ring's stroke lies 13.5 to 16.5 pixels from the middle; the digits
    // keep clear of it, and still stand out in the middle.
    QCOMPARE(pixelsBetween(image, 12.0, 13.0), 0);
    QVERIFY(pixelsBetween(image, 0.0, 8.0) > 3);
    // Single digits keep the full size.
    const QFont font
        = CircularProgressWidget::numberFont(widget.font(), QStringLiteral("%1").arg(widget.value()), 10.5);
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
