#include <QtTest>

#include "ui/buttonlayout.h"

class TestButtonLayout : public QObject
{
    Q_OBJECT

private slots:
    void speedText_data();
    void speedText();
    void textFit_data();
    void textFit();
    void verificationPercent_data();
    void verificationPercent();
};

void TestButtonLayout::speedText_data()
{
    QTest::addColumn<qlonglong>("bytesPerSecond");
    QTest::addColumn<QString>("text");

    QTest::newRow("nothing") << 0LL << "0 B/s";
    QTest::newRow("last bytes") << 1024LL << "1024 B/s";
    QTest::newRow("first kilobytes") << 1025LL << "1.0 KB/s";
    QTest::newRow("kilobytes rounded") << 1536LL << "1.5 KB/s";
    QTest::newRow("last kilobytes") << 1048576LL << "1024.0 KB/s";
    QTest::newRow("first megabytes") << 1048577LL << "1.0 MB/s";
    QTest::newRow("beyond 32 bits") << 5LL * 1024 * 1024 * 1024 << "5120.0 MB/s";
}

void TestButtonLayout::speedText()
{
    QFETCH(qlonglong, bytesPerSecond);
    QFETCH(QString, text);
    QCOMPARE(ButtonLayout::speedText(bytesPerSecond), text);
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

    QCOMPARE(ButtonLayout::contentLeft(390, 40, textWidth), left);
    QCOMPARE(ButtonLayout::textStyle(withSpeedLine, 390, 76, 40, textWidth, fontHeight),
             "font-size: 14px; text-align: left; " + padding);
    QCOMPARE(ButtonLayout::circlePosition(390, 76, 40, 40, textWidth), QPoint(left, 18));
    // The speed line starts under the text, 2 pixels below the middle of
    // the button at (30, 685).
    if (withSpeedLine)
        QCOMPARE(ButtonLayout::speedLabelPosition(QPoint(30, 685), 390, 76, 40, textWidth),
                 QPoint(30 + 50 + left, 685 + 2 + 38));
}

void TestButtonLayout::verificationPercent_data()
{
    QTest::addColumn<int>("filesChecked");
    QTest::addColumn<int>("totalFiles");
    QTest::addColumn<int>("percent");

    QTest::newRow("nothing to check") << 0 << 0 << 0;
    QTest::newRow("negative total") << 3 << -1 << 0;
    QTest::newRow("truncated") << 2 << 3 << 66;
    QTest::newRow("more than all") << 7 << 5 << 100;
}

void TestButtonLayout::verificationPercent()
{
    QFETCH(int, filesChecked);
    QFETCH(int, totalFiles);
    QFETCH(int, percent);
    QCOMPARE(ButtonLayout::verificationPercent(filesChecked, totalFiles), percent);
}

QTEST_APPLESS_MAIN(TestButtonLayout)
#include "tst_ui_buttonlayout.moc"
