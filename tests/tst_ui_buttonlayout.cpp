#include <QtTest>

#include "ui/buttonlayout.h"

class TestButtonLayout : public QObject
{
    Q_OBJECT

private slots:
    void figures();
    void textFit_data();
    void textFit();
};

void TestButtonLayout::figures()
{
    // Units of 1024, switching only past a whole unit, and no larger unit than MB.
    QStringList speeds;
    for (const qlonglong bytes : {1024LL, 1025LL, 1048576LL, 1048577LL, 5LL << 30})
        speeds << ButtonLayout::speedText(bytes);
    QCOMPARE(speeds, QStringList({"1024 B/s", "1.0 KB/s", "1024.0 KB/s", "1.0 MB/s", "5120.0 MB/s"}));
    // Truncated, and bounded where the counts make no sense.
    const auto percent = &ButtonLayout::verificationPercent;
    QCOMPARE(QList<int>({percent(0, 0), percent(3, -1), percent(2, 3), percent(7, 5)}), QList<int>({0, 0, 66, 100}));
}

void TestButtonLayout::textFit_data()
{
    QTest::addColumn<bool>("withSpeedLine");
    QTest::addColumn<int>("textWidth");
    QTest::addColumn<int>("fontHeight");
    QTest::addColumn<int>("left");
    QTest::addColumn<QString>("padding");

    // The manage button is 390 by 76 and the circle 40 by 40. Halves truncate toward nought.
    QTest::newRow("checking") << false << 150 << 17 << 95 << "padding-left: 145px;";
    QTest::newRow("updating, text lifted") << true << 61 << 16 << 139 << "padding-left: 189px; padding-bottom: 22px;";
    QTest::newRow("text wider than the button") << false << 401 << 17 << -30 << "padding-left: 20px;";
}

void TestButtonLayout::textFit()
{
    QFETCH(bool, withSpeedLine);
    QFETCH(int, textWidth);
    QFETCH(int, fontHeight);
    QFETCH(int, left);
    QFETCH(QString, padding);

    QCOMPARE(ButtonLayout::textStyle(withSpeedLine, 390, 76, 40, textWidth, fontHeight),
             "font-size: 14px; text-align: left; " + padding);
    QCOMPARE(ButtonLayout::circlePosition(390, 76, 40, 40, textWidth), QPoint(left, 18));
    // Under the text, 2 pixels below the middle of a button at (30, 685).
    QCOMPARE(ButtonLayout::speedLabelPosition(QPoint(30, 685), 390, 76, 40, textWidth),
             QPoint(30 + 50 + left, 685 + 2 + 38));
}

QTEST_APPLESS_MAIN(TestButtonLayout)
#include "tst_ui_buttonlayout.moc"
