#include <QAbstractButton>
#include <QMessageBox>
#include <QtTest>

#include "config/settings.h"
#include "isolatedsettings.h"
#include "ui/mainwindow.h"

class TestMainWindow : public QObject
{
    Q_OBJECT

private slots:
    void shapeAndPictures();
    void titleBarDrag();
    void errorBoxDropsSecondMessage();

private:
    IsolatedSettings m_isolation;
};

void TestMainWindow::shapeAndPictures()
{
    MainWindow window;
    const auto widget = [&window](const char *name) { return window.findChild<QWidget *>(QLatin1String(name)); };
    // Its own title bar and rounded corners.
    QVERIFY(window.windowFlags().testFlag(Qt::FramelessWindowHint)
            && window.testAttribute(Qt::WA_TranslucentBackground));
    // The bar's arithmetic and the background's veil assume these places.
    QCOMPARE(widget("bottomPanel")->geometry(), QRect(0, 678, 1360, 90));
    QCOMPARE(widget("manageButton")->geometry(), QRect(30, 7, 390, 76));
    QCOMPARE(QImage(QStringLiteral(":/resources/frame_play.png")).size(), widget("manageButton")->size());
    QVERIFY(widget("logoWidget")->styleSheet().contains("url(:/resources/" + Settings::instance()->logoImage()));

    QStringList pictures;
    auto matches = QRegularExpression(QStringLiteral("url\\((:/resources/[^)]+)\\)")).globalMatch(window.styleSheet());
    while (matches.hasNext())
        pictures << matches.next().captured(1);
    QVERIFY(pictures.size() >= 10);
    for (const QString &picture : std::as_const(pictures))
        QVERIFY2(!QImage(picture).isNull(), qPrintable(picture));
}

void TestMainWindow::titleBarDrag()
{
    MainWindow window;
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    auto *titleBar = window.findChild<QWidget *>(QStringLiteral("titleBar"));
    QObject *filter = &window;
    const QPoint start = window.pos();
    const QPointF global = titleBar->mapToGlobal(QPointF(300, 12));
    const auto send = [&](QEvent::Type type, QPointF offset, Qt::MouseButton button, Qt::MouseButtons buttons) {
        QMouseEvent mouse(type, QPointF(300, 12), global + offset, button, buttons, Qt::NoModifier);
        return filter->eventFilter(titleBar, &mouse);
    };

    QVERIFY(!send(QEvent::MouseButtonPress, {}, Qt::RightButton, Qt::RightButton));
    QVERIFY(send(QEvent::MouseButtonPress, {}, Qt::LeftButton, Qt::LeftButton));
    // Without the left button held a move drags nothing.
    QVERIFY(!send(QEvent::MouseMove, {40, 25}, Qt::NoButton, Qt::NoButton));
    QVERIFY(send(QEvent::MouseMove, {40, 25}, Qt::NoButton, Qt::LeftButton));
    QTRY_COMPARE(window.pos(), start + QPoint(40, 25));
}

// One box at a time: a burst of failures does not stack boxes on the player.
void TestMainWindow::errorBoxDropsSecondMessage()
{
    MainWindow window;
    window.showErrorMessage(QStringLiteral("Download Error"), QStringLiteral("first"));
    window.showErrorMessage(QStringLiteral("Download Error"), QStringLiteral("second"));
    QList<QMessageBox *> boxes = window.findChildren<QMessageBox *>();
    QCOMPARE(boxes.size(), 1);
    QCOMPARE(boxes.first()->text(), QStringLiteral("first"));
    QVERIFY(!boxes.first()->isModal());

    boxes.first()->button(QMessageBox::Ok)->click();
    QTRY_VERIFY(window.findChildren<QMessageBox *>().isEmpty());
    window.showErrorMessage(QStringLiteral("Download Error"), QStringLiteral("third"));
    QCOMPARE(window.findChildren<QMessageBox *>().constFirst()->text(), QStringLiteral("third"));
}

QTEST_MAIN(TestMainWindow)
#include "tst_ui_mainwindow.moc"
