#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

// Runs the real launcher executable in its relocation mode on temporary trees.
class TestRelocate : public QObject
{
    Q_OBJECT

private slots:
    void move_data();
    void move();
    void remove_data();
    void remove();
    void commandLine_data();
    void commandLine();

private:
    struct Result
    {
        int exitCode = -1;
        QByteArray output;
    };
    static Result run(const QStringList &arguments);
};

namespace
{
    // A tree is written as entries "dir/" and "path=content".
    void makeTree(const QString &root, const QStringList &entries)
    {
        QDir().mkpath(root);
        for (const QString &entry : entries) {
            if (entry.endsWith(QLatin1Char('/'))) {
                QVERIFY(QDir(root).mkpath(entry));
                continue;
            }
            const QString path = entry.section(QLatin1Char('='), 0, 0);
            const QString filePath = root + QLatin1Char('/') + path;
            QVERIFY(QDir().mkpath(QFileInfo(filePath).path()));
            QFile file(filePath);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(entry.section(QLatin1Char('='), 1).toUtf8());
        }
    }

    QStringList readTree(const QString &root)
    {
        QStringList entries;
        QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            const QString relative = QDir(root).relativeFilePath(path);
            if (it.fileInfo().isDir()) {
                entries << relative + QLatin1Char('/');
            } else {
                QFile file(path);
                if (file.open(QIODevice::ReadOnly))
                    entries << relative + QLatin1Char('=') + QString::fromUtf8(file.readAll());
            }
        }
        entries.sort();
        return entries;
    }
}

TestRelocate::Result TestRelocate::run(const QStringList &arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(QStringLiteral(LAUNCHER_BINARY), arguments);
    if (!process.waitForFinished(30000)) {
        process.kill();
        process.waitForFinished();
        return {};
    }
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1, process.readAll()};
}

void TestRelocate::move_data()
{
    QTest::addColumn<QStringList>("source");
    QTest::addColumn<QStringList>("dest");
    QTest::addColumn<bool>("destExists");
    QTest::addColumn<QString>("ignore");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QStringList>("sourceAfter");
    QTest::addColumn<QStringList>("destAfter");

    const QStringList game {QStringLiteral("game.exe=binary"), QStringLiteral("data/maps/a.map=A"),
                            QStringLiteral("data/empty/"), QStringLiteral(".initcomplete=")};
    const QStringList emptiedGame {QStringLiteral("data/"), QStringLiteral("data/empty/"),
                                   QStringLiteral("data/maps/")};
    const QStringList movedGame {QStringLiteral(".initcomplete="),    QStringLiteral("data/"),
                                 QStringLiteral("data/empty/"),       QStringLiteral("data/maps/"),
                                 QStringLiteral("data/maps/a.map=A"), QStringLiteral("game.exe=binary")};

    QTest::newRow("into a missing target, with its parents")
        << game << QStringList() << false << QString() << 0 << emptiedGame << movedGame;
    QTest::newRow("into an existing target, replacing files")
        << game << QStringList {QStringLiteral("game.exe=old"), QStringLiteral("saved.cfg=mine")} << true << QString()
        << 0 << emptiedGame << (QStringList(movedGame) << QStringLiteral("saved.cfg=mine"));
    QTest::newRow("ignored entries stay, by exact relative path")
        << QStringList {QStringLiteral("config.otml=keep"), QStringLiteral("sub/config.otml=go"),
                        QStringLiteral("sub/skip.txt=keep")}
        << QStringList() << true << QStringLiteral("config.otml,sub/skip.txt") << 0
        << QStringList {QStringLiteral("config.otml=keep"), QStringLiteral("sub/"), QStringLiteral("sub/skip.txt=keep")}
        << QStringList {QStringLiteral("sub/"), QStringLiteral("sub/config.otml=go")};
    QTest::newRow("an ignored directory is not pruned")
        << QStringList {QStringLiteral("sub/file=1"), QStringLiteral("lonely/")} << QStringList() << true
        << QStringLiteral("lonely,sub") << 0 << QStringList {QStringLiteral("lonely/"), QStringLiteral("sub/")}
        << QStringList {QStringLiteral("sub/"), QStringLiteral("sub/file=1")};
    QTest::newRow("backslashes in ignore never match")
        << QStringList {QStringLiteral("sub/skip.txt=x")} << QStringList() << true << QStringLiteral("sub\\skip.txt")
        << 0 << QStringList {QStringLiteral("sub/")}
        << QStringList {QStringLiteral("sub/"), QStringLiteral("sub/skip.txt=x")};
    QTest::newRow("quotes in ignore stay part of the entry")
        << QStringList {QStringLiteral("a.txt=x")} << QStringList() << true << QStringLiteral("\"a.txt\"") << 0
        << QStringList() << QStringList {QStringLiteral("a.txt=x")};
}

void TestRelocate::move()
{
    QFETCH(QStringList, source);
    QFETCH(QStringList, dest);
    QFETCH(bool, destExists);
    QFETCH(QString, ignore);
    QFETCH(int, exitCode);
    QFETCH(QStringList, sourceAfter);
    QFETCH(QStringList, destAfter);

    QTemporaryDir root;
    const QString sourcePath = root.filePath(QStringLiteral("staging"));
    const QString destPath = root.filePath(destExists ? QStringLiteral("game") : QStringLiteral("new/deep/game"));
    makeTree(sourcePath, source);
    if (destExists)
        makeTree(destPath, dest);

    QStringList arguments {QStringLiteral("--source"), sourcePath, QStringLiteral("--dest"), destPath};
    if (!ignore.isEmpty())
        arguments << QStringLiteral("--ignore") << ignore;
    QCOMPARE(run(arguments).exitCode, exitCode);
    QCOMPARE(readTree(sourcePath), sourceAfter);
    QCOMPARE(readTree(destPath), destAfter);
}

void TestRelocate::remove_data()
{
    QTest::addColumn<QStringList>("source");
    QTest::addColumn<bool>("sourceExists");
    QTest::addColumn<QString>("dest");
    QTest::addColumn<QString>("ignore");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QStringList>("sourceAfter");

    const QStringList game {QStringLiteral("game.exe=x"), QStringLiteral("a/b/c/deep.txt=y"),
                            QStringLiteral("a/empty/"), QStringLiteral(".initcomplete="),
                            QStringLiteral("a/.hidden=z")};
    QTest::newRow("deletes the whole tree, dot-files too")
        << game << true << QString() << QString() << 0 << QStringList();
    QTest::newRow("a destination of quotes only deletes")
        << game << true << QStringLiteral("\"\"") << QString() << 0 << QStringList();
    QTest::newRow("an ignored file stays and fails the run")
        << game << true << QString() << QStringLiteral("a/b/c/deep.txt") << 1
        << QStringList {QStringLiteral("a/"), QStringLiteral("a/b/"), QStringLiteral("a/b/c/"),
                        QStringLiteral("a/b/c/deep.txt=y")};
    QTest::newRow("a missing source fails") << QStringList() << false << QString() << QString() << 1 << QStringList();
}

void TestRelocate::remove()
{
    QFETCH(QStringList, source);
    QFETCH(bool, sourceExists);
    QFETCH(QString, dest);
    QFETCH(QString, ignore);
    QFETCH(int, exitCode);
    QFETCH(QStringList, sourceAfter);

    QTemporaryDir root;
    const QString sourcePath = root.filePath(QStringLiteral("game"));
    if (sourceExists)
        makeTree(sourcePath, source);

    QStringList arguments {QStringLiteral("--source"), sourcePath, QStringLiteral("--dest"), dest};
    if (!ignore.isEmpty())
        arguments << QStringLiteral("--ignore") << ignore;
    QCOMPARE(run(arguments).exitCode, exitCode);
    QCOMPARE(QDir(sourcePath).exists(), !sourceAfter.isEmpty());
    QCOMPARE(readTree(sourcePath), sourceAfter);
}

void TestRelocate::commandLine_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("output");
    QTest::addColumn<bool>("moved");

    // %1 is the source, %2 the target.
    QTest::newRow("values after '='") << QStringList {QStringLiteral("--source=%1"), QStringLiteral("--dest=%2")} << 0
                                      << QString() << true;
    QTest::newRow("quoted paths") << QStringList {QStringLiteral("--source"), QStringLiteral("\"%1\""),
                                                  QStringLiteral("--dest"), QStringLiteral("\"%2\"")}
                                  << 0 << QString() << true;
    QTest::newRow("help") << QStringList {QStringLiteral("--help")} << 0 << QStringLiteral("Hollowmere Launcher")
                          << false;
    QTest::newRow("help lists the options") << QStringList {QStringLiteral("--help")} << 0
                                            << QStringLiteral("Source directory containing files to move") << false;
    QTest::newRow("version") << QStringList {QStringLiteral("--version")} << 0 << QStringLiteral("launcher") << false;
    QTest::newRow("unknown option") << QStringList {QStringLiteral("--frobnicate"), QStringLiteral("--source"),
                                                    QStringLiteral("%1"), QStringLiteral("--dest"),
                                                    QStringLiteral("%2")}
                                    << 1 << QStringLiteral("Unknown option 'frobnicate'") << false;
    QTest::newRow("missing value") << QStringList {QStringLiteral("--source"), QStringLiteral("%1"),
                                                   QStringLiteral("--dest")}
                                   << 1 << QStringLiteral("Missing value after '--dest'") << false;
}

void TestRelocate::commandLine()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QString, output);
    QFETCH(bool, moved);

    QTemporaryDir root;
    const QString sourcePath = root.filePath(QStringLiteral("from"));
    const QString destPath = root.filePath(QStringLiteral("to"));
    makeTree(sourcePath, {QStringLiteral("file.txt=x")});
    for (QString &argument : arguments)
        argument = argument.replace(QLatin1String("%1"), sourcePath).replace(QLatin1String("%2"), destPath);

    const Result result = run(arguments);
    QCOMPARE(result.exitCode, exitCode);
    QVERIFY2(QString::fromUtf8(result.output).contains(output), result.output.constData());
    QCOMPARE(QFile::exists(destPath + QStringLiteral("/file.txt")), moved);
    QCOMPARE(QFile::exists(sourcePath + QStringLiteral("/file.txt")), !moved);
}

QTEST_GUILESS_MAIN(TestRelocate)
#include "tst_app_relocate.moc"
