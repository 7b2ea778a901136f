#include <QMessageBox>
#include <QPushButton>
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
    void closeButtonCloses();
    void errorBoxDropsSecondMessage();

private:
    IsolatedSettings m_isolation;
};

void TestMainWindow::shapeAndPictures()
{
    MainWindow window;
    const auto widget = [&window](const char *name) { return window.findChild<QWidget *>(QLatin1String(name)); };
    // Its own title bar and rounded corners.
    QVERIFY(window.windowFlags().testFlag(Qt::FramelessWindowHint));
    QVERIFY(window.testAttribute(Qt::WA_TranslucentBackground));
    // The bar's arithmetic and the background's veil assume these places.
    QCOMPARE(widget("bottomPanel")->geometry(), QRect(0, 678, 1360, 90));
    QCOMPARE(widget("manageButton")->geometry(), QRect(30, 7, 390, 76));

    // Every picture the sheet names exists, and the framed ones fit their widget.
    QVERIFY(window.styleSheet().contains(QLatin1String("#manageButton[state=\"install\"]")));
    QVERIFY(widget("logoWidget")->styleSheet().contains("url(:/resources/" + Settings::instance()->logoImage()));
    QStringList pictures;
    auto matches = QRegularExpression(QStringLiteral("url\\((:/resources/[^)]+)\\)")).globalMatch(window.styleSheet());
    while (matches.hasNext())
        pictures << matches.next().captured(1);
    QVERIFY(pictures.size() >= 10);
    for (const QString &picture : std::as_const(pictures))
        QVERIFY2(!QImage(picture).isNull(), qPrintable(picture));
    QCOMPARE(QImage(QStringLiteral(":/resources/button_settings.png")).size(), widget("settingsButton")->size());
    QCOMPARE(QImage(QStringLiteral(":/resources/frame_play.png")).size(), widget("manageButton")->size());
    QCOMPARE(QImage(QStringLiteral(":/resources/hm_logo.png")).size(), widget("logoLabel")->maximumSize());
}

void TestMainWindow::titleBarDrag()
{
    MainWindow window;
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    auto *titleBar = window.findChild<QWidget *>(QStringLiteral("titleBar"));
    // As the title bar's installed filter sees them.
    QObject *filter = &window;
    const QPoint start = window.frameGeometry().topLeft();
    const QPoint at(300, 12);
    const QPointF global = titleBar->mapToGlobal(at);
    const auto event = [&](QEvent::Type type, QPointF where, Qt::MouseButton button, Qt::MouseButtons buttons) {
        QMouseEvent mouse(type, at, where, button, buttons, Qt::NoModifier);
        return filter->eventFilter(titleBar, &mouse);
    };

    QVERIFY(!event(QEvent::MouseButtonPress, global, Qt::RightButton, Qt::RightButton));
    QVERIFY(event(QEvent::MouseButtonPress, global, Qt::LeftButton, Qt::LeftButton));
    // A move without the left button held moves nothing.
    QVERIFY(!event(QEvent::MouseMove, global + QPointF(40, 25), Qt::NoButton, Qt::NoButton));
    QCOMPARE(window.frameGeometry().topLeft(), start);
    QVERIFY(event(QEvent::MouseMove, global + QPointF(40, 25), Qt::NoButton, Qt::LeftButton));
    QTRY_COMPARE(window.pos(), start + QPoint(40, 25));
}

void TestMainWindow::closeButtonCloses()
{
    MainWindow window;
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QTest::mouseClick(window.findChild<QPushButton *>(QStringLiteral("closeButton")), Qt::LeftButton);
    QVERIFY(!window.isVisible());
}

void TestMainWindow::errorBoxDropsSecondMessage()
{
    MainWindow window;
    window.showErrorMessage(QStringLiteral("Download Error"), QStringLiteral("first"));
    window.showErrorMessage(QStringLiteral("Download Error"), QStringLiteral("second"));
    QList<QMessageBox *> boxes = window.findChildren<QMessageBox *>();
    QCOMPARE(boxes.size(), 1);
    QCOMPARE(boxes.first()->text(), QStringLiteral("first"));
    QCOMPARE(boxes.first()->icon(), QMessageBox::Critical);
    QVERIFY(boxes.first()->isVisible() && !boxes.first()->isModal());

    boxes.first()->button(QMessageBox::Ok)->click();
    QTRY_VERIFY(window.findChildren<QMessageBox *>().isEmpty());
    window.showErrorMessage(QStringLiteral("Download Error"), QStringLiteral("third"));
    boxes = window.findChildren<QMessageBox *>();
    QCOMPARE(boxes.size(), 1);
    QCOMPARE(boxes.first()->text(), QStringLiteral("third"));
}

QTEST_MAIN(TestMainWindow)
#include "tst_ui_mainwindow.moc"
