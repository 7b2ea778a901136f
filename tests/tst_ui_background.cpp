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
    void fitting()
    {
        // Cut on an even column; a smaller picture of the same shape is scaled whole.
        QCOMPARE(BackgroundVideo::sourceCrop({1366, 768}, WindowSize), QRect(2, 0, 1360, 768));
        QCOMPARE(BackgroundVideo::sourceCrop({1360, 1000}, WindowSize), QRect(0, 116, 1360, 768));
        QImage small(680, 384, QImage::Format_RGB32);
        small.fill(Qt::gray);
        QCOMPARE(BackgroundVideo::fitToFrame(small, WindowSize).size(), WindowSize);
    }

    void composition_data()
    {
        // x, y and the grey range on grey 200 with 2-pixel stripes behind the bottom bar; 0 to 0 is cut away.
        QTest::addColumn<QList<int>>("spot");
        QTest::newRow("corner cut away") << QList<int> {0, 0, 0, 0};
        QTest::newRow("middle untouched") << QList<int> {680, 400, 200, 200};
        QTest::newRow("top edge shaded") << QList<int> {680, 1, 50, 80};
        QTest::newRow("top left, both shades") << QList<int> {12, 12, 10, 40};
        QTest::newRow("bottom bar blurred and veiled") << QList<int> {682, 720, 90, 115};
        QTest::newRow("bottom bar's top edge fades into the picture") << QList<int> {682, 678, 115, 150};
    }

    void composition()
    {
        QFETCH(QList<int>, spot);
        QImage frame(WindowSize, QImage::Format_ARGB32_Premultiplied);
        frame.fill(QColor(200, 200, 200));
        QPainter painter(&frame);
        for (int x = 0; x < frame.width(); ++x)
            painter.fillRect(x, 678, 1, 90, x & 2 ? Qt::white : Qt::black);
        painter.end();
        BackgroundComposer(WindowSize, QRect(0, 678, 1360, 90)).compose(frame);
        const QRgb pixel = frame.pixel(spot[0], spot[1]);
        QCOMPARE(qAlpha(pixel), spot[3] ? 255 : 0);
        QVERIFY2(qGray(pixel) >= spot[2] && qGray(pixel) <= spot[3], qPrintable(QString::number(qGray(pixel))));
    }

    void playback()
    {
        BackgroundVideo video(":/resources/background.mp4", WindowSize);
        video.setFrameFinisher([](QImage &frame) { frame.setPixel(0, 0, qRgb(1, 2, 3)); });
        QSignalSpy frames(&video, &BackgroundVideo::frameReady), failed(&video, &BackgroundVideo::failed);
        const auto frameAt = [&frames](int index) { return frames.at(index).first().value<QImage>(); };
        video.start();
        QVERIFY(frames.wait(10000));
        // The still stands in until the first frame comes; the change must not show: below 3 per channel on average.
        const QImage first = frameAt(0).convertToFormat(QImage::Format_RGB888);
        const QImage still = BackgroundVideo::fitToFrame(QImage(":/resources/background_still.jpg"), WindowSize)
                                 .convertToFormat(QImage::Format_RGB888);
        qint64 difference = 0;
        for (qsizetype i = 0; i < first.sizeInBytes(); ++i)
            difference += qAbs(first.constBits()[i] - still.constBits()[i]);
        QVERIFY(frameAt(0).format() == QImage::Format_ARGB32_Premultiplied && difference < 3 * first.sizeInBytes());
        // A receiver kept busy for a while finds one frame waiting, not a queue.
        frames.clear();
        QThread::msleep(700);
        QCoreApplication::processEvents();
        QCOMPARE(frames.count(), 1);
        // The video has 181 frames: more than that means it started over.
        QTRY_VERIFY_WITH_TIMEOUT(frames.count() > 190, 30000);
        QVERIFY(failed.isEmpty() && frameAt(10) != frameAt(40)
                && frameAt(frames.count() - 1).pixel(0, 0) == qRgb(1, 2, 3));
        // A source that cannot be read fails rather than play nothing.
        BackgroundVideo unreadable(":/resources/no-such-video.mp4", WindowSize);
        QSignalSpy unreadableFailed(&unreadable, &BackgroundVideo::failed);
        unreadable.start();
        QVERIFY(unreadableFailed.wait(10000) && !unreadable.isPlaying());
    }
};

QTEST_MAIN(TestBackground)
#include "tst_ui_background.moc"
