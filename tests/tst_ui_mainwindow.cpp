#include <QLabel>
#include <QLayout>
#include <QMessageBox>
#include <QPushButton>
#include <QSettings>
#include <QSignalSpy>
#include <QtTest>

#include "config/settings.h"
#include "isolatedsettings.h"
#include "ui/mainwindow.h"

class TestMainWindow : public QObject
{
    Q_OBJECT

private slots:
    void windowFlags();
    void widgetTree_data();
    void widgetTree();
    void layouts_data();
    void layouts();
    void styleAndLogo();
    void titleBarDrag();
    void closeButtonCloses();
    void errorBoxDropsSecondMessage();

private:
    IsolatedSettings m_isolation;
};

void TestMainWindow::windowFlags()
{
    MainWindow window;
    QVERIFY(window.windowFlags().testFlag(Qt::FramelessWindowHint));
    QVERIFY(window.testAttribute(Qt::WA_TranslucentBackground));
    QVERIFY(window.testAttribute(Qt::WA_QuitOnClose));
    QVERIFY(window.testAttribute(Qt::WA_OpaquePaintEvent));
    QVERIFY(!window.testAttribute(Qt::WA_TransparentForMouseEvents));
    QCOMPARE(window.objectName(), QStringLiteral("MainWindow"));
    QCOMPARE(window.size(), QSize(1360, 768));
    QVERIFY(!window.isVisible());
    QVERIFY(Settings::instance());
    QVERIFY(window.windowTitle().endsWith(QLatin1String("Launcher")));
}

void TestMainWindow::widgetTree_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("className");
    QTest::addColumn<QString>("parentName");
    QTest::addColumn<QRect>("geometry");
    QTest::addColumn<QSize>("minimumSize");
    QTest::addColumn<QSize>("maximumSize");

    const QSize noMinimum(0, 0);
    const QSize noMaximum(QWIDGETSIZE_MAX, QWIDGETSIZE_MAX);
    QTest::newRow("centralwidget") << "centralwidget"
                                   << "QWidget"
                                   << "MainWindow" << QRect() << noMinimum << noMaximum;
    QTest::newRow("bottomBlurPanel") << "bottomBlurPanel"
                                     << "QWidget"
                                     << "centralwidget" << QRect(0, 678, 1360, 90) << noMinimum << noMaximum;
    QTest::newRow("bottomPanel") << "bottomPanel"
                                 << "QWidget"
                                 << "centralwidget" << QRect(0, 678, 1360, 90) << QSize(0, 90)
                                 << QSize(QWIDGETSIZE_MAX, 90);
    QTest::newRow("companyButton") << "companyButton"
                                   << "QPushButton"
                                   << "bottomPanel" << QRect(1270, 15, 60, 60) << noMinimum << noMaximum;
    QTest::newRow("manageButton") << "manageButton"
                                  << "QPushButton"
                                  << "bottomPanel" << QRect(30, 7, 390, 76) << noMinimum << noMaximum;
    QTest::newRow("settingsButton") << "settingsButton"
                                    << "QPushButton"
                                    << "bottomPanel" << QRect(420, 9, 75, 75) << noMinimum << noMaximum;
    QTest::newRow("titleBar") << "titleBar"
                              << "QWidget"
                              << "centralwidget" << QRect() << QSize(0, 20) << noMaximum;
    QTest::newRow("titleLabel") << "titleLabel"
                                << "QLabel"
                                << "titleBar" << QRect() << noMinimum << noMaximum;
    QTest::newRow("minimizeButton") << "minimizeButton"
                                    << "QPushButton"
                                    << "titleBar" << QRect() << QSize(20, 20) << QSize(20, 20);
    QTest::newRow("closeButton") << "closeButton"
                                 << "QPushButton"
                                 << "titleBar" << QRect() << QSize(20, 20) << QSize(20, 20);
    QTest::newRow("logoWidget") << "logoWidget"
                                << "QWidget"
                                << "centralwidget" << QRect() << QSize(0, 138) << noMaximum;
    QTest::newRow("logoLabel") << "logoLabel"
                               << "QLabel"
                               << "logoWidget" << QRect() << QSize(302, 138) << QSize(302, 138);
    QTest::newRow("backgroundWidget") << "backgroundWidget"
                                      << "QWidget"
                                      << "centralwidget" << QRect() << noMinimum << noMaximum;
    QTest::newRow("categoriesPanel") << "categoriesPanel"
                                     << "QWidget"
                                     << "backgroundWidget" << QRect() << QSize(280, 0) << QSize(280, QWIDGETSIZE_MAX);
    QTest::newRow("contentArea") << "contentArea"
                                 << "QWidget"
                                 << "backgroundWidget" << QRect() << noMinimum << noMaximum;
}

void TestMainWindow::widgetTree()
{
    QFETCH(QString, name);
    QFETCH(QString, className);
    QFETCH(QString, parentName);
    QFETCH(QRect, geometry);
    QFETCH(QSize, minimumSize);
    QFETCH(QSize, maximumSize);

    MainWindow window;
    auto *widget = window.findChild<QWidget *>(name);
    QVERIFY(widget);
    QCOMPARE(QString::fromLatin1(widget->metaObject()->className()), className);
    QCOMPARE(widget->parentWidget()->objectName(), parentName);
    if (geometry.isValid())
        QCOMPARE(widget->geometry(), geometry);
    QCOMPARE(widget->minimumSize(), minimumSize);
    QCOMPARE(widget->maximumSize(), maximumSize);

    if (auto *button = qobject_cast<QPushButton *>(widget)) {
        QCOMPARE(button->cursor().shape(), Qt::PointingHandCursor);
        const bool inBottomPanel = parentName == QLatin1String("bottomPanel");
        QCOMPARE(button->isFlat(), inBottomPanel);
    }
}

void TestMainWindow::layouts_data()
{
    QTest::addColumn<QString>("owner");
    QTest::addColumn<QString>("layout");
    QTest::addColumn<int>("spacing");
    QTest::addColumn<QMargins>("margins");
    QTest::addColumn<QStringList>("items");

    QTest::newRow("verticalLayout") << "centralwidget"
                                    << "verticalLayout" << 0 << QMargins()
                                    << QStringList {"titleBar", "logoWidget", "backgroundWidget"};
    QTest::newRow("horizontalLayout") << "titleBar"
                                      << "horizontalLayout" << 10 << QMargins(0, 10, 20, 0)
                                      << QStringList {"titleLabel", "", "minimizeButton", "closeButton"};
    QTest::newRow("horizontalLayout_2") << "logoWidget"
                                        << "horizontalLayout_2" << 0 << QMargins() << QStringList {"logoLabel"};
    QTest::newRow("backgroundLayout") << "backgroundWidget"
                                      << "backgroundLayout" << 0 << QMargins()
                                      << QStringList {"categoriesPanel", "contentArea"};
}

void TestMainWindow::layouts()
{
    QFETCH(QString, owner);
    QFETCH(QString, layout);
    QFETCH(int, spacing);
    QFETCH(QMargins, margins);
    QFETCH(QStringList, items);

    MainWindow window;
    auto *widget = window.findChild<QWidget *>(owner);
    QVERIFY(widget && widget->layout());
    QCOMPARE(widget->layout()->objectName(), layout);
    QCOMPARE(widget->layout()->spacing(), spacing);
    QCOMPARE(widget->layout()->contentsMargins(), margins);

    QStringList names;
    for (int i = 0; i < widget->layout()->count(); ++i) {
        QLayoutItem *item = widget->layout()->itemAt(i);
        names << (item->widget() ? item->widget()->objectName() : QString());
    }
    QCOMPARE(names, items);
}

void TestMainWindow::styleAndLogo()
{
    MainWindow window;
    QVERIFY(window.styleSheet().contains(QLatin1String("#manageButton[state=\"install\"]")));
    auto *logo = window.findChild<QWidget *>(QStringLiteral("logoWidget"));
    QVERIFY(logo->styleSheet().contains(QLatin1String("url(:/resources/") + Settings::instance()->logoImage()));

    // Everything the sheet names must exist in the resources.
    const QRegularExpression url(QStringLiteral("url\\((:/resources/[^)]+)\\)"));
    auto matches = url.globalMatch(window.styleSheet());
    int count = 0;
    while (matches.hasNext()) {
        const QString path = matches.next().captured(1);
        QVERIFY2(QImage(path).width() > 0, qPrintable(path));
        ++count;
    }
    QVERIFY(count >= 10);
    QCOMPARE(QImage(QStringLiteral(":/resources/button_settings.png")).size(), QSize(75, 75));
    QCOMPARE(QImage(QStringLiteral(":/resources/frame_play.png")).size(), QSize(390, 76));
    QCOMPARE(QImage(QStringLiteral(":/resources/hm_logo.png")).size(), QSize(302, 138));
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

    const QPoint pressAt(300, 12);
    const QPointF pressGlobal = titleBar->mapToGlobal(pressAt);
    QMouseEvent rightPress(QEvent::MouseButtonPress, pressAt, pressGlobal, Qt::RightButton, Qt::RightButton,
                           Qt::NoModifier);
    QVERIFY(!filter->eventFilter(titleBar, &rightPress));

    QMouseEvent press(QEvent::MouseButtonPress, pressAt, pressGlobal, Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
    QVERIFY(filter->eventFilter(titleBar, &press));

    // A move without the left button held moves nothing.
    const QPointF movedGlobal = pressGlobal + QPointF(40, 25);
    QMouseEvent hover(QEvent::MouseMove, pressAt, movedGlobal, Qt::NoButton, Qt::NoButton, Qt::NoModifier);
    QVERIFY(!filter->eventFilter(titleBar, &hover));
    QCOMPARE(window.frameGeometry().topLeft(), start);

    QMouseEvent drag(QEvent::MouseMove, pressAt, movedGlobal, Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
    QVERIFY(filter->eventFilter(titleBar, &drag));
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
    QMessageBox *box = boxes.first();
    QCOMPARE(box->text(), QStringLiteral("first"));
    QCOMPARE(box->icon(), QMessageBox::Critical);
    QVERIFY(box->isVisible());
    QVERIFY(!box->isModal());

    box->button(QMessageBox::Ok)->click();
    QTRY_VERIFY(window.findChildren<QMessageBox *>().isEmpty());

    window.showErrorMessage(QStringLiteral("Download Error"), QStringLiteral("third"));
    boxes = window.findChildren<QMessageBox *>();
    QCOMPARE(boxes.size(), 1);
    QCOMPARE(boxes.first()->text(), QStringLiteral("third"));
}

QTEST_MAIN(TestMainWindow)
#include "tst_ui_mainwindow.moc"
