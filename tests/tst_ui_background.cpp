#include <QSignalSpy>
#include <QThread>
#include <QtTest>

#include "ui/backgroundcomposer.h"
#include "ui/backgroundvideo.h"

// The video looping on its own thread, and the shading, blur and corners.
class TestBackground : public QObject
{
    Q_OBJECT

private slots:
    void sourceCrop_data();
    void sourceCrop();
    void composition_data();
    void composition();
    void blurSmoothsAndFades();
    void playback();
};

namespace
{
    const QSize WindowSize(1360, 768);

    // Mean absolute difference per channel.
    double difference(const QImage &a, const QImage &b)
    {
        qint64 sum = 0;
        for (int y = 0; y < a.height(); ++y) {
            for (int x = 0; x < a.width(); ++x) {
                const QRgb p = a.pixel(x, y);
                const QRgb q = b.pixel(x, y);
                sum += qAbs(qRed(p) - qRed(q)) + qAbs(qGreen(p) - qGreen(q)) + qAbs(qBlue(p) - qBlue(q));
            }
        }
        return double(sum) / (3.0 * a.width() * a.height());
    }
}

void TestBackground::sourceCrop_data()
{
    QTest::addColumn<QSize>("source");
    QTest::addColumn<QRect>("crop");

    // The video is 6 pixels wider than the window: cut, on an even column.
    QTest::newRow("video into the window") << QSize(1366, 768) << QRect(2, 0, 1360, 768);
    QTest::newRow("taller, cut top and bottom") << QSize(1360, 1000) << QRect(0, 116, 1360, 768);
    QTest::newRow("smaller, same shape, scaled later") << QSize(680, 384) << QRect(0, 0, 680, 384);
    QTest::newRow("nothing") << QSize() << QRect();
}

void TestBackground::sourceCrop()
{
    QFETCH(QSize, source);
    QFETCH(QRect, crop);
    QCOMPARE(BackgroundVideo::sourceCrop(source, WindowSize), crop);
    QImage picture(source, QImage::Format_RGB32);
    picture.fill(Qt::gray);
    QCOMPARE(BackgroundVideo::fitToFrame(picture, WindowSize).size() == WindowSize, !source.isEmpty());
}

void TestBackground::composition_data()
{
    QTest::addColumn<QPoint>("spot");
    QTest::addColumn<int>("alpha");
    QTest::addColumn<int>("minimumGrey");
    QTest::addColumn<int>("maximumGrey");

    // On a plain grey of 200.
    QTest::newRow("corner cut away") << QPoint(0, 0) << 0 << 0 << 0;
    QTest::newRow("middle untouched") << QPoint(680, 400) << 255 << 200 << 200;
    QTest::newRow("top edge shaded") << QPoint(680, 1) << 255 << 50 << 80;
    QTest::newRow("top left, both shades") << QPoint(12, 12) << 255 << 10 << 40;
    QTest::newRow("bottom bar veiled") << QPoint(680, 720) << 255 << 155 << 165;
}

void TestBackground::composition()
{
    QFETCH(QPoint, spot);
    QFETCH(int, alpha);
    QFETCH(int, minimumGrey);
    QFETCH(int, maximumGrey);

    QImage frame(WindowSize, QImage::Format_ARGB32_Premultiplied);
    frame.fill(QColor(200, 200, 200));
    BackgroundComposer(WindowSize, QRect(0, 678, 1360, 90)).compose(frame);
    const QRgb pixel = frame.pixel(spot);
    QCOMPARE(qAlpha(pixel), alpha);
    QVERIFY2(qGray(pixel) >= minimumGrey && qGray(pixel) <= maximumGrey, qPrintable(QString::number(qGray(pixel))));
}

void TestBackground::blurSmoothsAndFades()
{
    QImage stripes(400, 90, QImage::Format_ARGB32_Premultiplied);
    for (int x = 0; x < stripes.width(); ++x) {
        for (int y = 0; y < stripes.height(); ++y)
            stripes.setPixel(x, y, (x / 2) % 2 ? qRgb(255, 255, 255) : qRgb(0, 0, 0));
    }
    const QImage blurred = BackgroundComposer::blurred(stripes, BackgroundComposer::BlurRadius);
    // Even grey in the middle, fading into transparency at the edges.
    for (int x = 190; x < 210; ++x)
        QVERIFY(qAbs(qGray(blurred.pixel(x, 45)) - 128) < 40 && qAlpha(blurred.pixel(x, 45)) > 250);
    QVERIFY(qAlpha(blurred.pixel(200, 0)) < 240);
}

void TestBackground::playback()
{
    BackgroundVideo video(QStringLiteral(":/resources/background.mp4"), WindowSize);
    // Runs on the decoding thread.
    video.setFrameFinisher([](QImage &frame) { frame.setPixel(0, 0, qRgb(1, 2, 3)); });
    QSignalSpy frames(&video, &BackgroundVideo::frameReady);
    QSignalSpy failed(&video, &BackgroundVideo::failed);
    const auto frameAt = [&frames](int index) { return frames.at(index).first().value<QImage>(); };
    video.start();
    QVERIFY(frames.wait(10000));
    // The still stands in until the first frame comes; the change must not show.
    const QImage still
        = BackgroundVideo::fitToFrame(QImage(QStringLiteral(":/resources/background_still.jpg")), WindowSize);
    QCOMPARE(frameAt(0).format(), QImage::Format_ARGB32_Premultiplied);
    QVERIFY(difference(frameAt(0), still) < 3.0);

    // A receiver kept busy for a while finds one frame waiting, not a queue.
    frames.clear();
    QThread::msleep(700);
    QCoreApplication::processEvents();
    QCOMPARE(frames.count(), 1);

    // The video has 181 frames: more than that means it started over.
    QTRY_VERIFY_WITH_TIMEOUT(frames.count() > 190, 30000);
    QVERIFY(failed.isEmpty() && difference(frameAt(10), frameAt(40)) > 0.1);
    QCOMPARE(frameAt(frames.count() - 1).pixel(0, 0), qRgb(1, 2, 3));

    BackgroundVideo unreadable(QStringLiteral(":/resources/no-such-video.mp4"), WindowSize);
    QSignalSpy unreadableFailed(&unreadable, &BackgroundVideo::failed);
    QSignalSpy unreadableFrames(&unreadable, &BackgroundVideo::frameReady);
    unreadable.start();
    QVERIFY(unreadableFailed.wait(10000));
    QVERIFY(unreadableFrames.isEmpty() && !unreadable.isPlaying());
}

QTEST_MAIN(TestBackground)
#include "tst_ui_background.moc"
