#include <QtTest>

#include <sys/stat.h>

#include "platform/regularfile.h"

// Reads what a verification may meet where a game file should be.
class TestRegularFile : public QObject
{
    Q_OBJECT

private slots:
    void read_data();
    void read();
};

void TestRegularFile::read_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("accepted");

    QTest::newRow("file over several buffers") << "file" << true;
    QTest::newRow("empty file") << "empty" << true;
    QTest::newRow("link to a file") << "link" << false;
    QTest::newRow("FIFO without a writer") << "fifo" << false;
    QTest::newRow("folder") << "folder" << false;
    QTest::newRow("missing") << "missing" << false;
}

void TestRegularFile::read()
{
    QFETCH(QString, kind);
    QFETCH(bool, accepted);

    QTemporaryDir dir;
    const QByteArray content = "0123456789abcdefghijklmnopqrstuvwxyz";
    const QString target = dir.filePath(QStringLiteral("target.bin"));
    QFile file(target);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(content) == content.size());
    file.close();
    const QString path = dir.filePath(QStringLiteral("game.bin"));
    if (kind == QLatin1String("file"))
        QVERIFY(QFile::copy(target, path));
    else if (kind == QLatin1String("empty"))
        QVERIFY(QFile(path).open(QIODevice::WriteOnly));
    else if (kind == QLatin1String("link"))
        QVERIFY(QFile::link(target, path));
    else if (kind == QLatin1String("fifo"))
        QCOMPARE(::mkfifo(QFile::encodeName(path).constData(), 0600), 0);
    else if (kind == QLatin1String("folder"))
        QVERIFY(QDir(dir.path()).mkdir(QStringLiteral("game.bin")));

    // Reading ahead neither blocks on what the read refuses nor changes
    // what the read sees.
    Platform::readAhead(path);

    // A buffer that does not divide the file, so the pieces must be joined
    // in order.
    char buffer[10];
    QByteArray seen;
    const bool read = Platform::readRegularFile(path, buffer, sizeof buffer, [&seen](const char *data, qint64 size) {
        QVERIFY(size > 0 && size <= qint64(sizeof buffer));
        seen.append(data, size);
    });
    QCOMPARE(read, accepted);
    QCOMPARE(seen, kind == QLatin1String("file") ? content : QByteArray());
}

QTEST_GUILESS_MAIN(TestRegularFile)
#include "tst_platform_regularfile.moc"
