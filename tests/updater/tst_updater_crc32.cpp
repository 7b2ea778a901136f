#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

#include "updater/crc32.h"

// The digest must be bit-identical to the plain table-driven CRC-32 that the
// published manifests are made with.
class TestCrc32 : public QObject
{
    Q_OBJECT

private slots:
    void matchesReference_data();
    void matchesReference();
    void files_data();
    void files();
};

namespace
{
    quint32 referenceCrc32(const QByteArray &data)
    {
        quint32 crc = 0xFFFFFFFFu;
        for (const char byte : data) {
            crc ^= static_cast<quint8>(byte);
            for (int k = 0; k < 8; ++k)
                crc = (crc & 1) ? 0xEDB88320u ^ (crc >> 1) : crc >> 1;
        }
        return crc ^ 0xFFFFFFFFu;
    }

    QByteArray randomBytes(qsizetype length, quint32 seed)
    {
        QByteArray data(length, Qt::Uninitialized);
        QRandomGenerator generator(seed);
        for (char &byte : data)
            byte = static_cast<char>(generator.bounded(256));
        return data;
    }
}

void TestCrc32::matchesReference_data()
{
    // Lengths around the widths a fast implementation works in; a split
    // chains two calls.
    QTest::addColumn<qsizetype>("length");
    QTest::addColumn<qsizetype>("split");
    for (const qsizetype length : {0, 1, 7, 15, 16, 17, 63, 64, 65, 255, 256, 257, 4095, 4097, (1 << 20) + 1})
        QTest::addRow("%lld bytes", static_cast<long long>(length)) << length << qsizetype(0);
    for (const qsizetype split : {1, 13, 4096, 65537, 100002})
        QTest::addRow("split at %lld", static_cast<long long>(split)) << qsizetype(100003) << split;
}

void TestCrc32::matchesReference()
{
    QFETCH(qsizetype, length);
    QFETCH(qsizetype, split);
    const QByteArray data = randomBytes(length, static_cast<quint32>(length) * 31 + 1);
    const quint32 head = Crc32::update(0, data.constData(), split);
    QCOMPARE(Crc32::update(head, data.constData() + split, data.size() - split), referenceCrc32(data));
}

void TestCrc32::files_data()
{
    QTest::addColumn<qsizetype>("length"); // -1: no file
    QTest::addColumn<QString>("digest");
    QTest::newRow("check value") << qsizetype(9) << "cbf43926";
    QTest::newRow("empty file") << qsizetype(0) << "00000000";
    QTest::newRow("several buffers and a tail") << qsizetype(5 * 256 * 1024 + 77) << QString();
    QTest::newRow("missing file") << qsizetype(-1) << QString();
}

void TestCrc32::files()
{
    QFETCH(qsizetype, length);
    QFETCH(QString, digest);

    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("file.bin"));
    const QByteArray data = length == 9 ? QByteArray("123456789") : randomBytes(qMax<qsizetype>(length, 0), 5);
    QFile file(path);
    QVERIFY(length < 0 || (file.open(QIODevice::WriteOnly) && file.write(data) == data.size()));
    file.close();
    if (length > 9)
        digest = QStringLiteral("%1").arg(referenceCrc32(data), 8, 16, QLatin1Char('0'));
    QCOMPARE(Crc32::fileDigest(path), digest);
    // Digests keep their leading zeros.
    QCOMPARE(Crc32::toDigest(0x0000ab12u), QStringLiteral("0000ab12"));
}

QTEST_APPLESS_MAIN(TestCrc32)
#include "tst_updater_crc32.moc"
