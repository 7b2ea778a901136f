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
    void digest_data();
    void digest();
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

    QByteArray randomBytes(qsizetype length)
    {
        QByteArray data(length, Qt::Uninitialized);
        QRandomGenerator generator(static_cast<quint32>(length) * 31 + 1);
        for (char &byte : data)
            byte = static_cast<char>(generator.bounded(256));
        return data;
    }
}

void TestCrc32::digest_data()
{
    // Lengths around the widths a fast implementation works in, and past the
    // file reader's buffer; a split chains two calls.
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<qsizetype>("split");
    for (const qsizetype length : {0, 1, 7, 15, 16, 17, 63, 64, 65, 255, 256, 257, 4095, 4097, 5 * 256 * 1024 + 77})
        QTest::addRow("%lld bytes", static_cast<long long>(length)) << randomBytes(length) << qsizetype(0);
    for (const qsizetype split : {1, 13, 4096, 65537, 100002})
        QTest::addRow("split at %lld", static_cast<long long>(split)) << randomBytes(100003) << split;
}

void TestCrc32::digest()
{
    QFETCH(QByteArray, data);
    QFETCH(qsizetype, split);
    QCOMPARE(referenceCrc32("123456789"), 0xCBF43926u);

    const quint32 head = Crc32::update(0, data.constData(), split);
    QCOMPARE(Crc32::update(head, data.constData() + split, data.size() - split), referenceCrc32(data));
    QTemporaryDir dir;
    QFile file(dir.filePath(QStringLiteral("file.bin")));
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(data) == data.size());
    file.close();
    // Digests keep their leading zeros; a missing file has none.
    QCOMPARE(Crc32::toDigest(0x0000ab12u), QStringLiteral("0000ab12"));
    QCOMPARE(Crc32::fileDigest(file.fileName()),
             QStringLiteral("%1").arg(referenceCrc32(data), 8, 16, QLatin1Char('0')));
    QCOMPARE(Crc32::fileDigest(dir.filePath(QStringLiteral("missing.bin"))), QString());
}

QTEST_APPLESS_MAIN(TestCrc32)
#include "tst_updater_crc32.moc"
