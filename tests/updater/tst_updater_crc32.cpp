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
    void chainsOverSplitBuffers();
    void checkValue();
    void files_data();
    void files();
};

namespace
{
    quint32 referenceCrc32(const QByteArray &data)
    {
        static const auto table = [] {
            std::array<quint32, 256> entries {};
            for (quint32 n = 0; n < 256; ++n) {
                quint32 c = n;
                for (int k = 0; k < 8; ++k)
                    c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
                entries[n] = c;
            }
            return entries;
        }();
        quint32 crc = 0xFFFFFFFFu;
        for (const char byte : data)
            crc = table[(crc ^ static_cast<quint8>(byte)) & 0xFF] ^ (crc >> 8);
        return crc ^ 0xFFFFFFFFu;
    }

    QByteArray randomBytes(qsizetype length, quint32 seed)
    {
        QRandomGenerator generator(seed);
        QByteArray data(length, Qt::Uninitialized);
        for (qsizetype i = 0; i < length; ++i)
            data[i] = static_cast<char>(generator.bounded(256));
        return data;
    }
}

void TestCrc32::matchesReference_data()
{
    QTest::addColumn<qsizetype>("length");
    const qsizetype lengths[] = {0,
                                 1,
                                 7,
                                 15,
                                 16,
                                 17,
                                 31,
                                 63,
                                 64,
                                 65,
                                 255,
                                 256,
                                 257,
                                 4095,
                                 4097,
                                 (1 << 20) - 1,
                                 1 << 20,
                                 (1 << 20) + 1,
                                 3 * 1000 * 1000 + 13};
    for (const qsizetype length : lengths)
        QTest::addRow("%lld bytes", static_cast<long long>(length)) << length;
    QRandomGenerator generator(7);
    for (int i = 0; i < 5; ++i) {
        const qsizetype length = generator.bounded(1, 200000);
        QTest::addRow("random %lld bytes", static_cast<long long>(length)) << length;
    }
}

void TestCrc32::matchesReference()
{
    QFETCH(qsizetype, length);
    const QByteArray data = randomBytes(length, static_cast<quint32>(length) * 31 + 1);
    QCOMPARE(Crc32::update(0, data.constData(), data.size()), referenceCrc32(data));
}

void TestCrc32::chainsOverSplitBuffers()
{
    const QByteArray data = randomBytes(100003, 99);
    for (const qsizetype split : {qsizetype(1), qsizetype(13), qsizetype(4096), qsizetype(65537), qsizetype(100002)}) {
        quint32 crc = Crc32::update(0, data.constData(), split);
        crc = Crc32::update(crc, data.constData() + split, data.size() - split);
        QCOMPARE(crc, referenceCrc32(data));
    }
}

void TestCrc32::checkValue()
{
    const QByteArray check("123456789");
    QCOMPARE(Crc32::toDigest(Crc32::update(0, check.constData(), check.size())), QStringLiteral("cbf43926"));
    QCOMPARE(Crc32::toDigest(0x0000ab12u), QStringLiteral("0000ab12"));
}

void TestCrc32::files_data()
{
    QTest::addColumn<qsizetype>("length");
    QTest::addColumn<bool>("exists");
    QTest::newRow("empty file") << qsizetype(0) << true;
    QTest::newRow("smaller than the buffer") << qsizetype(1000) << true;
    QTest::newRow("several buffers and a tail") << qsizetype(5 * 256 * 1024 + 77) << true;
    QTest::newRow("missing file") << qsizetype(0) << false;
}

void TestCrc32::files()
{
    QFETCH(qsizetype, length);
    QFETCH(bool, exists);

    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("file.bin"));
    const QByteArray data = randomBytes(length, 5);
    if (exists) {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(data);
    }
    const QString expected
        = exists ? QStringLiteral("%1").arg(referenceCrc32(data), 8, 16, QLatin1Char('0')) : QString();
    QCOMPARE(Crc32::fileDigest(path), expected);
    if (exists && length == 0)
        QCOMPARE(Crc32::fileDigest(path), QStringLiteral("00000000"));
}

QTEST_APPLESS_MAIN(TestCrc32)
#include "tst_updater_crc32.moc"
