#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

#include <zlib.h>

#include "updater/crc32.h"

// The digest must be bit-identical to zlib's plain CRC-32, which the
// published manifests are made with.
class TestCrc32 : public QObject
{
    Q_OBJECT

private slots:
    void digest_data()
    {
        // Lengths around the widths a fast implementation works in, and past
        // the file reader's buffer.
        QTest::addColumn<qsizetype>("length");
        for (const qsizetype length :
             {0, 1, 7, 15, 16, 17, 63, 64, 65, 255, 256, 257, 4095, 4097, 100003, 5 * 256 * 1024 + 77})
            QTest::addRow("%lld bytes", static_cast<long long>(length)) << length;
    }

    void digest()
    {
        QFETCH(qsizetype, length);
        QByteArray data(length, Qt::Uninitialized);
        QRandomGenerator generator(static_cast<quint32>(length));
        std::generate(data.begin(), data.end(), [&generator] { return static_cast<char>(generator.generate()); });
        const quint32 expected = crc32(0, reinterpret_cast<const Bytef *>(data.constData()), static_cast<uInt>(length));

        // Chained over two uneven pieces, and whole as the file reader takes it.
        const quint32 head = Crc32::update(0, data.constData(), length / 3);
        QCOMPARE(Crc32::update(head, data.constData() + length / 3, length - length / 3), expected);
        QTemporaryDir dir;
        QFile file(dir.filePath(QStringLiteral("file.bin")));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(data) == length);
        file.close();
        QCOMPARE(Crc32::fileDigest(file.fileName()), QStringLiteral("%1").arg(expected, 8, 16, QLatin1Char('0')));
        // Digests keep their leading zeros; a missing file has none.
        QCOMPARE(Crc32::toDigest(0x0000ab12u), QStringLiteral("0000ab12"));
        QCOMPARE(Crc32::fileDigest(dir.filePath(QStringLiteral("missing.bin"))), QString());
    }
};

QTEST_APPLESS_MAIN(TestCrc32)
#include "tst_updater_crc32.moc"
