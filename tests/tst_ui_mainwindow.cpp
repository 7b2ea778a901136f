#include <QtTest>

#include "support/testwindow.h"

class TestMainWindow : public QObject, public TestWindow
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        configure({});
        open();
    }

    void shapeAndPictures()
    {
        // Its own title bar and rounded corners, and a frame drawn for the button.
        QVERIFY(window->windowFlags().testFlag(Qt::FramelessWindowHint)
                && window->testAttribute(Qt::WA_TranslucentBackground));
        QCOMPARE(QImage(QStringLiteral(":/resources/frame_play.png")).size(), button()->size());
        QVERIFY(window->findChild<QWidget *>("logoWidget")->styleSheet().contains("url(:/resources/hm_logo.png"));
        int pictures = 0;
        for (auto match = QRegularExpression("url\\((:[^)]+)\\)").globalMatch(window->styleSheet()); match.hasNext();
             ++pictures) {
            const QString picture = match.next().captured(1);
            QVERIFY2(!QImage(picture).isNull(), qPrintable(picture));
        }
        QVERIFY(pictures >= 10);
    }

    void titleBarDrag()
    {
        auto *titleBar = window->findChild<QWidget *>(QStringLiteral("titleBar"));
        const QPoint start = window->pos();
        const QPointF global = titleBar->mapToGlobal(QPointF(300, 12));
        const auto send = [&](QEvent::Type type, QPointF offset, Qt::MouseButton pressed, Qt::MouseButtons held) {
            QMouseEvent mouse(type, QPointF(300, 12), global + offset, pressed, held, Qt::NoModifier);
            return static_cast<QObject *>(window.get())->eventFilter(titleBar, &mouse);
        };
        QVERIFY(!send(QEvent::MouseButtonPress, {}, Qt::RightButton, Qt::RightButton));
        QVERIFY(send(QEvent::MouseButtonPress, {}, Qt::LeftButton, Qt::LeftButton));
        // Without the left button held a move drags nothing.
        QVERIFY(!send(QEvent::MouseMove, {40, 25}, Qt::NoButton, Qt::NoButton));
        QVERIFY(send(QEvent::MouseMove, {40, 25}, Qt::NoButton, Qt::LeftButton));
        QTRY_COMPARE(window->pos(), start + QPoint(40, 25));
    }

    // One box at a time, and not modal: a burst of failures does not stack boxes on the player.
    void errorBoxDropsSecondMessage()
    {
        window->showErrorMessage(QStringLiteral("Download Error"), QStringLiteral("first"));
        window->showErrorMessage(QStringLiteral("Download Error"), QStringLiteral("second"));
        QCOMPARE(boxes(), QStringList {"Download Error: first"});
        QVERIFY(!window->findChild<QMessageBox *>()->isModal());
        window->findChild<QMessageBox *>()->button(QMessageBox::Ok)->click();
        QTRY_VERIFY(boxes().isEmpty());
        window->showErrorMessage(QStringLiteral("Download Error"), QStringLiteral("third"));
        QCOMPARE(boxes(), QStringList {"Download Error: third"});
    }
};

QTEST_MAIN(TestMainWindow)
#include "tst_ui_mainwindow.moc"
