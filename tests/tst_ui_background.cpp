#include <QPainter>
#include <QtTest>

#include "ui/backgroundcomposer.h"
#include "ui/backgroundvideo.h"

const QSize WindowSize(1360, 768);

// The video looping on its own thread, and the shading, blur and corners.
class TestBackground : public QObject
{
    Q_OBJECT

private slots:
    void sourceCrop()
    {
        // The video is 6 pixels wider than the window: cut, on an even column.
        QCOMPARE(BackgroundVideo::sourceCrop({1366, 768}, WindowSize), QRect(2, 0, 1360, 768));
        QCOMPARE(BackgroundVideo::sourceCrop({1360, 1000}, WindowSize), QRect(0, 116, 1360, 768));
        // A smaller picture of the same shape is scaled whole.
        QImage small(680, 384, QImage::Format_RGB32);
        small.fill(Qt::gray);
        QCOMPARE(BackgroundVideo::fitToFrame(small, WindowSize).size(), WindowSize);
    }

    void composition_data()
    {
        QTest::addColumn<QPoint>("spot");
        QTest::addColumn<int>("minimumGrey"); // on grey 200, with stripes 2 pixels wide behind the bottom bar
        QTest::addColumn<int>("maximumGrey"); // 0: cut away, transparent
        QTest::newRow("corner cut away") << QPoint(0, 0) << 0 << 0;
        QTest::newRow("middle untouched") << QPoint(680, 400) << 200 << 200;
        QTest::newRow("top edge shaded") << QPoint(680, 1) << 50 << 80;
        QTest::newRow("top left, both shades") << QPoint(12, 12) << 10 << 40;
        QTest::newRow("bottom bar blurred and veiled") << QPoint(682, 720) << 90 << 115;
        QTest::newRow("bottom bar's top edge fades into the picture") << QPoint(682, 678) << 115 << 150;
    }

    void composition()
    {
        QFETCH(QPoint, spot);
        QFETCH(int, minimumGrey);
        QFETCH(int, maximumGrey);
        QImage frame(WindowSize, QImage::Format_ARGB32_Premultiplied);
        frame.fill(QColor(200, 200, 200));
        QPainter painter(&frame);
        for (int x = 0; x < frame.width(); ++x)
            painter.fillRect(x, 678, 1, 90, x & 2 ? Qt::white : Qt::black);
        painter.end();
        BackgroundComposer(WindowSize, QRect(0, 678, 1360, 90)).compose(frame);
        const QRgb pixel = frame.pixel(spot);
        QCOMPARE(qAlpha(pixel), maximumGrey ? 255 : 0);
        QVERIFY2(qGray(pixel) >= minimumGrey && qGray(pixel) <= maximumGrey, qPrintable(QString::number(qGray(pixel))));
    }

    void playback()
    {
        BackgroundVideo video(QStringLiteral(":/resources/background.mp4"), WindowSize);
        // Runs on the decoding thread.
        video.setFrameFinisher([](QImage &frame) { frame.setPixel(0, 0, qRgb(1, 2, 3)); });
        QSignalSpy frames(&video, &BackgroundVideo::frameReady), failed(&video, &BackgroundVideo::failed);
        const auto frameAt = [&frames](int index) { return frames.at(index).first().value<QImage>(); };
        video.start();
        QVERIFY(frames.wait(10000));
        // The still stands in until the first frame comes; the change must not show: below 3 per channel on average.
        const QImage first = frameAt(0).convertToFormat(QImage::Format_RGB888);
        const QImage still
            = BackgroundVideo::fitToFrame(QImage(QStringLiteral(":/resources/background_still.jpg")), WindowSize)
                  .convertToFormat(QImage::Format_RGB888);
        qint64 difference = 0;
        for (int y = 0; y < first.height(); ++y) {
            for (int i = 0; i < first.width() * 3; ++i)
                difference += qAbs(first.constScanLine(y)[i] - still.constScanLine(y)[i]);
        }
        QVERIFY(frameAt(0).format() == QImage::Format_ARGB32_Premultiplied && difference < 3 * first.sizeInBytes());
        // A receiver kept busy for a while finds one frame waiting, not a queue.
        frames.clear();
        QThread::msleep(700);
        QCoreApplication::processEvents();
        QCOMPARE(frames.count(), 1);
        // The video has 181 frames: more than that means it started over.
        QTRY_VERIFY_WITH_TIMEOUT(frames.count() > 190, 30000);
        QVERIFY(failed.isEmpty() && frameAt(10) != frameAt(40));
        QCOMPARE(frameAt(frames.count() - 1).pixel(0, 0), qRgb(1, 2, 3));
        // A source that cannot be read fails rather than play nothing.
        BackgroundVideo unreadable(QStringLiteral(":/resources/no-such-video.mp4"), WindowSize);
        QSignalSpy unreadableFailed(&unreadable, &BackgroundVideo::failed);
        unreadable.start();
        QVERIFY(unreadableFailed.wait(10000) && !unreadable.isPlaying());
    }
};

QTEST_MAIN(TestBackground)
#include "tst_ui_background.moc"
