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
    // Units of 1024, switching only past a whole unit.
    const QList<QPair<qlonglong, QString>> speeds {{1024, "1024 B/s"},
                                                   {1025, "1.0 KB/s"},
                                                   {1048576, "1024.0 KB/s"},
                                                   {1048577, "1.0 MB/s"},
                                                   {5LL << 30, "5120.0 MB/s"}};
    for (const auto &[bytes, text] : speeds)
        QCOMPARE(ButtonLayout::speedText(bytes), text);
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

    // The manage button is 390 by 76 and the circle 40 by 40.
    QTest::newRow("checking") << false << 150 << 17 << 95 << "padding-left: 145px;";
    QTest::newRow("updating, text lifted") << true << 60 << 17 << 140 << "padding-left: 190px; padding-bottom: 21px;";
    QTest::newRow("odd remainder truncates") << true << 61 << 16 << 139 << "padding-left: 189px; padding-bottom: 22px;";
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
