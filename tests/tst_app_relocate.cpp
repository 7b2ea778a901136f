#include <QtTest>

#include "support/testfiles.h"

// Runs the real launcher executable in its relocation mode on temporary trees.
class TestRelocate : public QObject
{
    Q_OBJECT

private slots:
    void relocate_data();
    void relocate();
    void interrupted_data();
    void interrupted();
};

namespace
{
    // Trees are lists of "dir/", "path=content", "path->target" (a link,
    // target relative to the root) and "path|" (a named pipe).
    QStringList entries(const char *text)
    {
        return QString::fromUtf8(text).split(QLatin1Char(' '), Qt::SkipEmptyParts);
    }

    QStringList under(const QString &prefix, const QStringList &tree)
    {
        QStringList prefixed {prefix};
        for (const QString &entry : tree)
            prefixed << prefix + entry;
        return prefixed;
    }

    void makeTree(const QString &root, const QStringList &tree)
    {
        for (const QString &entry : tree) {
            const QString path
                = root + QLatin1Char('/') + entry.section(QRegularExpression(QStringLiteral("=|->|\\|")), 0, 0);
            QVERIFY(QDir().mkpath(entry.endsWith(QLatin1Char('/')) ? path : QFileInfo(path).path()));
            if (entry.contains(QLatin1String("->")))
                QVERIFY(QFile::link(root + QLatin1Char('/') + entry.section(QLatin1String("->"), 1), path));
            else if (entry.endsWith(QLatin1Char('|')))
                QCOMPARE(QProcess::execute(QStringLiteral("mkfifo"), {path}), 0);
            else if (!entry.endsWith(QLatin1Char('/')))
                QVERIFY(TestFiles::write(path, entry.section(QLatin1Char('='), 1).toUtf8()));
        }
    }

    QStringList readTree(const QString &root)
    {
        QStringList tree;
        QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString relative = QDir(root).relativeFilePath(it.next());
            const QFileInfo info = it.fileInfo();
            if (info.isSymbolicLink())
                tree << relative + QStringLiteral("->") + QDir(root).relativeFilePath(info.symLinkTarget());
            else if (info.isDir())
                tree << relative + QLatin1Char('/');
            else if (!info.isFile())
                tree << relative + QLatin1Char('|');
            else
                tree << relative + QLatin1Char('=') + QString::fromUtf8(TestFiles::read(info.filePath()));
        }
        tree.sort();
        return tree;
    }

    QStringList files(const QString &root)
    {
        QStringList list;
        QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        while (it.hasNext())
            list << QDir(root).relativeFilePath(it.next());
        list.sort();
        return list;
    }

    // An elevated run finds no display; the tool must not need one.
    int run(const QStringList &arguments, const QString &workingDirectory)
    {
        QProcess process;
        process.setWorkingDirectory(workingDirectory);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        for (const char *name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
            environment.remove(QString::fromLatin1(name));
        process.setProcessEnvironment(environment);
        process.start(QStringLiteral(LAUNCHER_BINARY), arguments);
        if (!process.waitForFinished(60000))
            process.kill();
        process.waitForFinished();
        return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    }
}

void TestRelocate::relocate_data()
{
    QTest::addColumn<QStringList>("tree");
    QTest::addColumn<QStringList>("arguments"); // %r: the root, also the working directory; '': empty
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QStringList>("treeAfter");

    const QStringList game
        = under(QStringLiteral("staging/"), entries("game.exe=binary data/maps/a.map=A data/empty/ .initcomplete="));
    const QStringList emptied = under(QStringLiteral("staging/"), entries("data/ data/empty/ data/maps/"));
    const QStringList moved = entries(".initcomplete= data/ data/empty/ data/maps/ data/maps/a.map=A game.exe=binary");
    const QStringList toGame = entries("--source %r/staging --dest %r/game");

    QTest::newRow("relative paths, into a missing target with its parents")
        << game << entries("--source staging --dest new/deep/game") << 0
        << emptied + entries("new/ new/deep/") + under(QStringLiteral("new/deep/game/"), moved);
    QTest::newRow("values after '=', quotes in paths, over an existing target")
        << game + entries("\"\"/game.exe=old \"\"/saved.cfg=mine") << entries("--source=%r/staging --dest=%r/\"\"") << 0
        << emptied + under(QStringLiteral("\"\"/"), moved) + entries("\"\"/saved.cfg=mine");
    QTest::newRow("ignore matches exact relative paths, directories not pruned")
        << entries("staging/config.otml=keep staging/sub/config.otml=go staging/sub/skip.txt=keep "
                   "staging/sub/other.txt=go staging/q.txt=go staging/lonely/")
        << toGame + entries("--ignore config.otml,sub/skip.txt,sub\\other.txt,\"q.txt\",lonely,sub") << 0
        << entries("staging/ staging/config.otml=keep staging/lonely/ staging/sub/ staging/sub/skip.txt=keep game/ "
                   "game/q.txt=go game/sub/ game/sub/config.otml=go game/sub/other.txt=go");
    QTest::newRow("links and pipes stay behind and fail the move")
        << entries("staging/a=1 staging/sub/b=2 staging/link->staging/a staging/dirlink->staging/sub staging/pipe|")
        << toGame << 1
        << entries("staging/ staging/link->staging/a staging/dirlink->staging/sub staging/pipe| staging/sub/ game/ "
                   "game/a=1 game/sub/ game/sub/b=2");
    QTest::newRow("a link in the destination carries nothing out")
        << entries("staging/data/x=new staging/y=2 game/data->outside outside/x=mine") << toGame << 1
        << entries(
               "staging/ staging/data/ staging/data/x=new game/ game/data->outside game/y=2 outside/ outside/x=mine");

    // Refused, or a wrong command line: nothing is touched.
    const QStringList nested = entries("game/ game/file=x game/sub/ game/sub/deep=y link->game");
    const auto refused = [&](const char *name, const char *arguments) {
        QTest::newRow(name) << nested << entries(arguments) << 1 << nested;
    };
    refused("the same directory, spelt differently", "--source %r/game --dest %r/x/../game/");
    refused("a destination inside the source", "--source %r/game --dest %r/game/sub/new");
    refused("a source inside the destination", "--source %r/game/sub --dest %r/game");
    refused("a link into the source", "--source %r/game --dest %r/link/new");
    refused("unknown option", "--frobnicate --source %r/game --dest %r/new");
    refused("missing value", "--source %r/game --dest");

    const QStringList deleteGame = entries("--source %r/game --dest ''");
    const QStringList installed
        = entries("game/game.exe=x game/a/b/c/deep.txt=y game/a/empty/ game/.initcomplete= game/a/.hidden=z");
    QTest::newRow("an empty destination deletes the tree, dot-files, links and pipes, never what links lead to")
        << installed + entries("game/dirlink->outside game/filelink->outside/keep game/pipe| outside/keep=x")
        << deleteGame << 0 << entries("outside/ outside/keep=x");
    QTest::newRow("an ignored file stays and fails the delete")
        << installed << deleteGame + entries("--ignore a/b/c/deep.txt") << 1
        << entries("game/ game/a/ game/a/b/ game/a/b/c/ game/a/b/c/deep.txt=y");
    QTest::newRow("deleting a missing source fails") << QStringList() << deleteGame << 1 << QStringList();
}

void TestRelocate::relocate()
{
    QFETCH(QStringList, tree);
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QStringList, treeAfter);

    QTemporaryDir root;
    makeTree(root.path(), tree);
    arguments.replaceInStrings(QStringLiteral("%r"), root.path());
    arguments.replaceInStrings(QRegularExpression(QStringLiteral("^''$")), QString());

    QCOMPARE(run(arguments, root.path()), exitCode);
    treeAfter.sort();
    QCOMPARE(readTree(root.path()), treeAfter);
}

void TestRelocate::interrupted_data()
{
    QTest::addColumn<int>("filesInPlace"); // interrupt once this many have arrived; -1: at the first change
    QTest::addColumn<bool>("closeInput"); // ask to stop by closing stdin instead of killing

    QTest::newRow("killed while the first file is copied") << -1 << false;
    QTest::newRow("killed after one file") << 1 << false;
    QTest::newRow("told to stop after one file") << 1 << true;
}

void TestRelocate::interrupted()
{
    QFETCH(int, filesInPlace);
    QFETCH(bool, closeInput);

    // Large files cross from a tmpfs to the disk, so each takes a while and
    // the tool is caught in the middle of the move.
    QTemporaryDir memory(QStringLiteral("/dev/shm/tst_app_relocate-XXXXXX"));
    QTemporaryDir disk;
    if (!memory.isValid() || QStorageInfo(memory.path()).rootPath() == QStorageInfo(disk.path()).rootPath())
        QSKIP("No /dev/shm on a file system of its own to move from");

    const QString source = memory.filePath(QStringLiteral("staging"));
    const QString dest = disk.filePath(QStringLiteral("game"));
    // What a missing file reads as, never a content: an empty target is broken.
    const QByteArray missing = TestFiles::read(disk.filePath(QStringLiteral("absent")));
    struct BigFile
    {
        QString path;
        QByteArray content;
        QByteArray old;
    };
    QList<BigFile> bigFiles;
    for (const char *path : {"a.pak", "bin/run", "data/b.pak", "data/c.pak"}) {
        const auto index = quint32(bigFiles.size());
        BigFile file {QString::fromLatin1(path), QByteArray((24 + 8 * index) << 20, Qt::Uninitialized), missing};
        QRandomGenerator(index).fillRange(reinterpret_cast<quint32 *>(file.content.data()), file.content.size() / 4);
        QVERIFY(TestFiles::write(QDir(source).filePath(file.path), file.content));
        // Every other target has an old content to be replaced.
        if (index % 2 == 0) {
            file.old = QByteArray(1 << 20, 'o');
            QVERIFY(TestFiles::write(QDir(dest).filePath(file.path), file.old));
        }
        bigFiles << file;
    }
    const QFileDevice::Permissions executable
        = QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner | QFileDevice::ReadGroup;
    QVERIFY(QFile::setPermissions(source + QStringLiteral("/bin/run"), executable));
    QVERIFY(TestFiles::write(dest + QStringLiteral("/saved.cfg"), QByteArrayLiteral("mine")));

    const QStringList arguments {QStringLiteral("--source"), source, QStringLiteral("--dest"), dest};
    const QStringList destBefore = files(dest);
    const auto arrived = [&] {
        return std::count_if(bigFiles.cbegin(), bigFiles.cend(), [&](const BigFile &file) {
            return QFileInfo(QDir(dest).filePath(file.path)).size() == file.content.size();
        });
    };
    QProcess tool;
    tool.start(QStringLiteral(LAUNCHER_BINARY), arguments);
    QVERIFY(tool.waitForStarted());
    while (tool.state() != QProcess::NotRunning
           && (filesInPlace < 0 ? files(dest) == destBefore : arrived() < filesInPlace))
        tool.waitForFinished(1);
    if (closeInput) {
        tool.closeWriteChannel();
        QVERIFY(tool.waitForFinished(60000));
        QCOMPARE(tool.exitCode(), 1);
        QVERIFY2(arrived() < bigFiles.size(), "stopped only when everything had arrived");
        QVERIFY2(files(dest).filter(QStringLiteral(".relocating")).isEmpty(), "stopped in the middle of a file");
    } else {
        tool.kill();
        tool.waitForFinished();
    }

    // Every target is whole, old or new; whatever has not arrived is still
    // whole in the source, so running the same command again finishes.
    for (const BigFile &file : std::as_const(bigFiles)) {
        const QByteArray there = TestFiles::read(QDir(dest).filePath(file.path));
        const QByteArray left = TestFiles::read(QDir(source).filePath(file.path));
        QVERIFY2((there == file.content || there == file.old)
                     && (left == file.content || (left == missing && there == file.content)),
                 qPrintable(file.path));
    }

    QCOMPARE(run(arguments, disk.path()), 0);
    for (const BigFile &file : std::as_const(bigFiles))
        QVERIFY(TestFiles::read(QDir(dest).filePath(file.path)) == file.content);
    QCOMPARE(files(dest).size(), bigFiles.size() + 1); // saved.cfg stays
    QCOMPARE(files(source), QStringList());
    const QFileDevice::Permissions userBits = QFileDevice::ReadUser | QFileDevice::WriteUser | QFileDevice::ExeUser;
    QCOMPARE(QFile::permissions(dest + QStringLiteral("/bin/run")) & ~userBits, executable);
}

QTEST_GUILESS_MAIN(TestRelocate)
#include "tst_app_relocate.moc"
