#include <QtTest>

#include "updater/readahead.h"

// Each check as microseconds and bytes.
using Checks = QList<QPair<qint64, qint64>>;

// When the workers of a verification start reading ahead, and what they claim.
class TestReadAhead : public QObject
{
    Q_OBJECT

private slots:
    void start_data();
    void start();
    void claim();
};

void TestReadAhead::start_data()
{
    QTest::addColumn<Checks>("checks");
    QTest::addColumn<bool>("active");

    const QPair<qint64, qint64> slow {2000, 1 << 20};
    const QPair<qint64, qint64> cached {100, 1 << 20};
    QTest::newRow("four slow files in a row") << Checks {slow, slow, slow, slow} << true;
    QTest::newRow("stays on after a fast one") << Checks {slow, slow, slow, slow, cached} << true;
    QTest::newRow("a fast one breaks the row") << Checks {slow, slow, slow, cached, slow, slow, slow} << false;
    // A large file in the cache takes long but comes in fast.
    QTest::newRow("large files at memory speed") << Checks(4, {20000, 256 << 20}) << false;
    QTest::newRow("tiny files, each quick") << Checks(8, {60, 10}) << false;
    QTest::newRow("tiny files, each a disk read") << Checks(4, {400, 10}) << true;
}

void TestReadAhead::start()
{
    QFETCH(Checks, checks);
    QFETCH(bool, active);

    ReadAhead readAhead;
    for (const auto &check : checks)
        readAhead.recordCheck(check.first * 1000, check.second);
    QCOMPARE(readAhead.isActive(), active);
}

void TestReadAhead::claim()
{
    static_assert(ReadAhead::Window == 4);
    ReadAhead readAhead;
    const auto claimAll = [&readAhead](qsizetype index, qsizetype count) {
        QList<qsizetype> claimed;
        qsizetype next = -1;
        while ((next = readAhead.claim(index, count)) >= 0)
            claimed << next;
        return claimed;
    };
    // The window after the first file, then only what the next file adds.
    QCOMPARE(claimAll(0, 20), (QList<qsizetype> {1, 2, 3, 4}));
    QCOMPARE(claimAll(1, 20), QList<qsizetype> {5});
    // A worker that starts later than the others claims no file before its
    // own, and none that is being checked.
    QCOMPARE(claimAll(10, 20), (QList<qsizetype> {11, 12, 13, 14}));
    QCOMPARE(claimAll(3, 20), QList<qsizetype>());
    // Nothing past the last file, and nothing once it is being checked.
    QCOMPARE(claimAll(17, 20), (QList<qsizetype> {18, 19}));
    QCOMPARE(claimAll(19, 20), QList<qsizetype>());
}

QTEST_GUILESS_MAIN(TestReadAhead)
#include "tst_updater_readahead.moc"
