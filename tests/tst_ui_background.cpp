#include <QSignalSpy>
#include <QThread>
#include <QtTest>

#include <atomic>

#include "ui/backgroundcomposer.h"
#include "ui/backgroundvideo.h"

// The window's background: the decoder that plays the video in a loop, and
// the composer that shades, blurs and rounds each frame.
class TestBackground : public QObject
{
    Q_OBJECT

private slots:
    void sourceCrop_data();
    void sourceCrop();
    void composition_data();
    void composition();
    void blurSmoothsAndFades();
    void firstFrameIsTheStillAndNoBacklog();
    void playsOnPastTheEnd();
    void stopHoldsThePicture();
    void unreadableVideoFails();
};

namespace
{
    const QSize WindowSize(1360, 768);
    const QString Video = QStringLiteral(":/resources/background.mp4");
    const QString Still = QStringLiteral(":/resources/background_still.jpg");

    QImage plain(QSize size, QColor colour)
    {
        QImage image(size, QImage::Format_ARGB32_Premultiplied);
        image.fill(colour);
        return image;
    }

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

    // How much neighbouring pixels differ along the rows.
    double roughness(const QImage &image)
    {
        qint64 sum = 0;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 1; x < image.width(); ++x)
                sum += qAbs(qGray(image.pixel(x, y)) - qGray(image.pixel(x - 1, y)));
        }
        return double(sum) / (image.width() * image.height());
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
    if (!source.isEmpty())
        QCOMPARE(BackgroundVideo::fitToFrame(plain(source, Qt::gray), WindowSize).size(), WindowSize);
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

    const BackgroundComposer composer(WindowSize, QRect(0, 678, 1360, 90));
    QImage frame = plain(WindowSize, QColor(200, 200, 200));
    composer.compose(frame);
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
    QCOMPARE(blurred.size(), stripes.size());
    QVERIFY(roughness(blurred) < roughness(stripes) / 10);
    // Grey in the middle, fading into transparency at the edges.
    QVERIFY(qAbs(qGray(blurred.pixel(200, 45)) - 128) < 40 && qAlpha(blurred.pixel(200, 45)) > 250);
    QVERIFY(qAlpha(blurred.pixel(200, 0)) < 240);
}

void TestBackground::firstFrameIsTheStillAndNoBacklog()
{
    // The still picture stands in for the video until the first frame comes;
    // the change must not show.
    BackgroundVideo video(Video, WindowSize);
    QSignalSpy frames(&video, &BackgroundVideo::frameReady);
    video.start();
    QVERIFY(frames.wait(10000));
    const QImage first = frames.first().first().value<QImage>();
    QCOMPARE(first.size(), WindowSize);
    QCOMPARE(first.format(), QImage::Format_ARGB32_Premultiplied);
    const double change = difference(first, BackgroundVideo::fitToFrame(QImage(Still), WindowSize));
    QVERIFY2(change < 3.0, qPrintable(QString::number(change)));

    // A GUI thread that does not come back to its event loop for a while
    // finds one frame waiting, not a queue of them.
    frames.clear();
    QThread::msleep(700);
    QCoreApplication::processEvents();
    QCOMPARE(frames.count(), 1);
}

void TestBackground::playsOnPastTheEnd()
{
    BackgroundVideo video(Video, WindowSize);
    std::atomic_int composed {0};
    // Runs on the decoding thread.
    video.setFrameFinisher([&composed](QImage &frame) {
        ++composed;
        frame.setPixel(0, 0, qRgb(1, 2, 3));
    });
    QSignalSpy frames(&video, &BackgroundVideo::frameReady);
    QSignalSpy failed(&video, &BackgroundVideo::failed);
    video.start();
    QVERIFY(video.isPlaying());

    // The video has 181 frames: more than that means it started over.
    QTRY_VERIFY_WITH_TIMEOUT(frames.count() > 200, 30000);
    QVERIFY(failed.isEmpty());
    QVERIFY(composed >= frames.count());
    QCOMPARE(frames.last().first().value<QImage>().pixel(0, 0), qRgb(1, 2, 3));
    // And it moves.
    QVERIFY(difference(frames.at(10).first().value<QImage>(), frames.at(40).first().value<QImage>()) > 0.1);
}

void TestBackground::stopHoldsThePicture()
{
    BackgroundVideo video(Video, WindowSize);
    QSignalSpy frames(&video, &BackgroundVideo::frameReady);
    video.start();
    QTRY_VERIFY_WITH_TIMEOUT(frames.count() >= 3, 10000);
    video.stop();
    QVERIFY(!video.isPlaying());
    // One frame may have been on its way.
    QTest::qWait(300);
    const int stoppedAt = frames.count();
    QTest::qWait(300);
    QCOMPARE(frames.count(), stoppedAt);

    video.start();
    QTRY_VERIFY_WITH_TIMEOUT(frames.count() > stoppedAt, 10000);
}

void TestBackground::unreadableVideoFails()
{
    BackgroundVideo video(QStringLiteral(":/resources/no-such-video.mp4"), WindowSize);
    QSignalSpy failed(&video, &BackgroundVideo::failed);
    QSignalSpy frames(&video, &BackgroundVideo::frameReady);
    video.start();
    QVERIFY(failed.wait(10000));
    QVERIFY(frames.isEmpty() && !video.isPlaying());
}

QTEST_MAIN(TestBackground)
#include "tst_ui_background.moc"
