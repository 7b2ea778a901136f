#include <QImage>
#include <QtTest>

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
};

namespace
{
    const QColor ArcColour(0x60, 0xE5, 0xFC);

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
    QTest::addColumn<bool>("arcInTopRight");
    QTest::addColumn<bool>("arcInTopLeft");

    QTest::newRow("nothing") << 0.0 << false << false;
    QTest::newRow("a quarter runs clockwise") << 0.25 << true << false;
    QTest::newRow("full circle") << 1.0 << true << true;
}

void TestCircularProgress::painting()
{
    QFETCH(double, fraction);
    QFETCH(bool, arcInTopRight);
    QFETCH(bool, arcInTopLeft);

    CircularProgressWidget widget(nullptr);
    widget.setProgress(fraction);
    const QImage image = widget.grab().toImage();
    // The number sits in the middle; the corners' quadrants outside it show
    // the arc alone.
    QCOMPARE(arcPixels(image.copy(24, 0, 16, 12)) > 0, arcInTopRight);
    QCOMPARE(arcPixels(image.copy(0, 0, 16, 12)) > 0, arcInTopLeft);
    QCOMPARE(arcPixels(image.copy(12, 12, 16, 16)) > 0, fraction > 0.0);
}

QTEST_MAIN(TestCircularProgress)
#include "tst_ui_circularprogress.moc"
