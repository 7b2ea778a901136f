#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QStorageInfo>
#include <QTemporaryDir>
#include <QtTest>

// Runs the real launcher executable in its relocation mode on temporary trees.
class TestRelocate : public QObject
{
    Q_OBJECT

private slots:
    void relocate_data();
    void relocate();
    void commandLine_data();
    void commandLine();
    void interrupted_data();
    void interrupted();

private:
    struct Result
    {
        int exitCode = -1;
        QByteArray output;
    };
    static Result run(const QStringList &arguments, const QString &workingDirectory, bool display = false);
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
        QDir().mkpath(root);
        for (const QString &entry : tree) {
            if (entry.endsWith(QLatin1Char('/'))) {
                QVERIFY(QDir(root).mkpath(entry));
                continue;
            }
            const QString path
                = root + QLatin1Char('/') + entry.section(QRegularExpression(QStringLiteral("=|->|\\|")), 0, 0);
            QVERIFY(QDir().mkpath(QFileInfo(path).path()));
            if (entry.contains(QLatin1String("->"))) {
                QVERIFY(QFile::link(root + QLatin1Char('/') + entry.section(QLatin1String("->"), 1), path));
            } else if (entry.endsWith(QLatin1Char('|'))) {
                QCOMPARE(QProcess::execute(QStringLiteral("mkfifo"), {path}), 0);
            } else {
                QFile file(path);
                QVERIFY(file.open(QIODevice::WriteOnly));
                file.write(entry.section(QLatin1Char('='), 1).toUtf8());
            }
        }
    }

    QStringList readTree(const QString &root)
    {
        QStringList tree;
        QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            const QFileInfo info = it.fileInfo();
            const QString relative = QDir(root).relativeFilePath(path);
            if (info.isSymbolicLink()) {
                tree << relative + QStringLiteral("->") + QDir(root).relativeFilePath(info.symLinkTarget());
            } else if (info.isDir()) {
                tree << relative + QLatin1Char('/');
            } else if (!info.isFile()) {
                tree << relative + QLatin1Char('|');
            } else {
                QFile file(path);
                if (file.open(QIODevice::ReadOnly))
                    tree << relative + QLatin1Char('=') + QString::fromUtf8(file.readAll());
            }
        }
        tree.sort();
        return tree;
    }

    // A large file of the interrupted moves: the content the move brings,
    // and the content the target had before, if any.
    struct BigFile
    {
        QString path;
        QByteArray content;
        QByteArray old;
    };

    QByteArray noise(int megabytes, quint32 seed)
    {
        QByteArray data(megabytes << 20, Qt::Uninitialized);
        QRandomGenerator(seed).fillRange(reinterpret_cast<quint32 *>(data.data()), data.size() / 4);
        return data;
    }

    // "new", "old", "missing" or "other", for messages that say what broke.
    QString contentOf(const QString &path, const BigFile &file)
    {
        QFile in(path);
        if (!in.open(QIODevice::ReadOnly))
            return QStringLiteral("missing");
        const QByteArray data = in.readAll();
        if (data == file.content)
            return QStringLiteral("new");
        return !file.old.isEmpty() && data == file.old ? QStringLiteral("old") : QStringLiteral("other");
    }

    QStringList files(const QString &root)
    {
        QStringList list;
        QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            list << QDir(root).relativeFilePath(path) + QLatin1Char(' ') + QString::number(it.fileInfo().size());
        }
        list.sort();
        return list;
    }
}

TestRelocate::Result TestRelocate::run(const QStringList &arguments, const QString &workingDirectory, bool display)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setWorkingDirectory(workingDirectory);
    // An elevated run finds no display; the tool must not need one.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    if (!display) {
        for (const char *name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
            environment.remove(QString::fromLatin1(name));
    }
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(LAUNCHER_BINARY), arguments);
    if (!process.waitForFinished(60000)) {
        process.kill();
        process.waitForFinished();
        return {};
    }
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1, process.readAll()};
}

void TestRelocate::relocate_data()
{
    QTest::addColumn<QStringList>("tree");
    QTest::addColumn<QStringList>("arguments"); // %r is the root, also the working directory
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QStringList>("treeAfter");

    const QStringList game
        = under(QStringLiteral("staging/"), entries("game.exe=binary data/maps/a.map=A data/empty/ .initcomplete="));
    const QStringList emptied = under(QStringLiteral("staging/"), entries("data/ data/empty/ data/maps/"));
    const QStringList moved = entries(".initcomplete= data/ data/empty/ data/maps/ data/maps/a.map=A game.exe=binary");
    const QStringList toGame = entries("--source %r/staging --dest %r/game");

    QTest::newRow("into a missing target, with its parents")
        << game << entries("--source %r/staging --dest %r/new/deep/game") << 0
        << emptied + entries("new/ new/deep/") + under(QStringLiteral("new/deep/game/"), moved);
    QTest::newRow("relative paths start at the working directory")
        << game << entries("--source staging --dest new/game") << 0
        << emptied + entries("new/") + under(QStringLiteral("new/game/"), moved);
    QTest::newRow("over an existing target, replacing files")
        << game + entries("game/game.exe=old game/saved.cfg=mine") << toGame << 0
        << emptied + under(QStringLiteral("game/"), moved) + entries("game/saved.cfg=mine");
    QTest::newRow("quotes are part of the paths")
        << entries("sta\"ging/a.txt=x") << entries("--source %r/sta\"ging --dest %r/\"\"") << 0
        << entries("sta\"ging/ \"\"/ \"\"/a.txt=x");
    QTest::newRow("ignore matches exact relative paths, quotes and backslashes included")
        << entries("staging/config.otml=keep staging/sub/config.otml=go staging/sub/skip.txt=keep "
                   "staging/sub/other.txt=go staging/q.txt=go")
        << toGame + entries("--ignore config.otml,sub/skip.txt,sub\\other.txt,\"q.txt\"") << 0
        << entries("staging/ staging/config.otml=keep staging/sub/ staging/sub/skip.txt=keep game/ game/q.txt=go "
                   "game/sub/ game/sub/config.otml=go game/sub/other.txt=go");
    QTest::newRow("an ignored directory is not pruned")
        << entries("staging/sub/file=1 staging/lonely/") << toGame + entries("--ignore lonely,sub") << 0
        << entries("staging/ staging/lonely/ staging/sub/ game/ game/sub/ game/sub/file=1");
    QTest::newRow("links and pipes stay behind and fail the move")
        << entries("staging/a=1 staging/sub/b=2 staging/link->staging/a staging/dirlink->staging/sub staging/pipe|")
        << toGame << 1
        << entries("staging/ staging/link->staging/a staging/dirlink->staging/sub staging/pipe| staging/sub/ game/ "
                   "game/a=1 game/sub/ game/sub/b=2");
    QTest::newRow("a link in the destination carries nothing out")
        << entries("staging/data/x=new staging/y=2 game/data->outside outside/x=mine") << toGame << 1
        << entries(
               "staging/ staging/data/ staging/data/x=new game/ game/data->outside game/y=2 outside/ outside/x=mine");

    const QStringList nested = entries("game/ game/file=x game/sub/ game/sub/deep=y link->game");
    QTest::newRow("refuses the same directory, spelt differently")
        << nested << entries("--source %r/game --dest %r/x/../game/") << 1 << nested;
    QTest::newRow("refuses a destination inside the source")
        << nested << entries("--source %r/game --dest %r/game/sub/new") << 1 << nested;
    QTest::newRow("refuses a source inside the destination")
        << nested << entries("--source %r/game/sub --dest %r/game") << 1 << nested;
    QTest::newRow("refuses a link into the source")
        << nested << entries("--source %r/game --dest %r/link/new") << 1 << nested;

    const QStringList deleteGame = entries("--source %r/game --dest ''");
    const QStringList installed
        = entries("game/game.exe=x game/a/b/c/deep.txt=y game/a/empty/ game/.initcomplete= game/a/.hidden=z");
    QTest::newRow("an empty destination deletes the whole tree, dot-files too")
        << installed << deleteGame << 0 << QStringList();
    QTest::newRow("deleting removes links and pipes, never what links lead to")
        << entries("game/dirlink->outside game/filelink->outside/keep game/pipe| outside/keep=x") << deleteGame << 0
        << entries("outside/ outside/keep=x");
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

    if (tree.join(QLatin1Char(' ')).contains(QRegularExpression(QStringLiteral("->|\\|")))
        && QStandardPaths::findExecutable(QStringLiteral("mkfifo")).isEmpty())
        QSKIP("Links and named pipes are made here with the tools of a Unix system");

    QTemporaryDir root;
    makeTree(root.path(), tree);
    for (QString &argument : arguments)
        argument.replace(QLatin1String("%r"), root.path());
    // '' stands for an empty argument.
    arguments.replaceInStrings(QRegularExpression(QStringLiteral("^''$")), QString());

    QCOMPARE(run(arguments, root.path()).exitCode, exitCode);
    treeAfter.sort();
    QCOMPARE(readTree(root.path()), treeAfter);
}

void TestRelocate::commandLine_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("display");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QStringList>("output");
    QTest::addColumn<bool>("moved");

    // %1 is the source, %2 the target. Only the launcher's own options need
    // a display; the tool and a wrong command line never do.
    QTest::newRow("values after '='") << entries("--source=%1 --dest=%2") << false << 0 << QStringList() << true;
    QTest::newRow("help") << entries("--help") << true << 0
                          << QStringList {QStringLiteral("Hollowmere Launcher"),
                                          QStringLiteral("Source directory containing files to move")}
                          << false;
    QTest::newRow("version") << entries("--version") << true << 0 << entries("launcher") << false;
    QTest::newRow("unknown option") << entries("--frobnicate --source %1 --dest %2") << false << 1
                                    << QStringList {QStringLiteral("Unknown option 'frobnicate'")} << false;
    QTest::newRow("missing value") << entries("--source %1 --dest") << false << 1
                                   << QStringList {QStringLiteral("Missing value after '--dest'")} << false;
}

void TestRelocate::commandLine()
{
    QFETCH(QStringList, arguments);
    QFETCH(bool, display);
    QFETCH(int, exitCode);
    QFETCH(QStringList, output);
    QFETCH(bool, moved);

    QTemporaryDir root;
    const QString sourcePath = root.filePath(QStringLiteral("from"));
    const QString destPath = root.filePath(QStringLiteral("to"));
    makeTree(sourcePath, {QStringLiteral("file.txt=x")});
    for (QString &argument : arguments)
        argument = argument.replace(QLatin1String("%1"), sourcePath).replace(QLatin1String("%2"), destPath);

    const Result result = run(arguments, root.path(), display);
    QCOMPARE(result.exitCode, exitCode);
    for (const QString &text : std::as_const(output))
        QVERIFY2(QString::fromUtf8(result.output).contains(text), result.output.constData());
    QCOMPARE(QFile::exists(destPath + QStringLiteral("/file.txt")), moved);
    QCOMPARE(QFile::exists(sourcePath + QStringLiteral("/file.txt")), !moved);
}

void TestRelocate::interrupted_data()
{
    // Large files cross from a tmpfs to the disk, so each takes a while and
    // the tool is caught in the middle of the move.
    QTest::addColumn<int>("filesInPlace"); // interrupt once this many have arrived; -1: at the first change
    QTest::addColumn<bool>("closeInput"); // ask to stop by closing stdin instead of killing

    QTest::newRow("killed while the first file is copied") << -1 << false;
    QTest::newRow("killed after one file") << 1 << false;
    QTest::newRow("killed after three files") << 3 << false;
    QTest::newRow("told to stop after one file") << 1 << true;
}

void TestRelocate::interrupted()
{
    QFETCH(int, filesInPlace);
    QFETCH(bool, closeInput);

    QTemporaryDir memory(QStringLiteral("/dev/shm/tst_app_relocate-XXXXXX"));
    QTemporaryDir disk;
    if (!memory.isValid())
        QSKIP("No /dev/shm to move from");
    if (QStorageInfo(memory.path()).rootPath() == QStorageInfo(disk.path()).rootPath())
        QSKIP("/dev/shm and the temporary directory share a file system here");

    const QString source = memory.filePath(QStringLiteral("staging"));
    const QString dest = disk.filePath(QStringLiteral("game"));
    const QList<BigFile> bigFiles {{QStringLiteral("a.pak"), noise(24, 1), noise(1, 2)},
                                   {QStringLiteral("data/b.pak"), noise(40, 3), noise(2, 4)},
                                   {QStringLiteral("data/c.pak"), noise(20, 5), {}},
                                   {QStringLiteral("bin/run"), noise(32, 6), {}}};
    const auto write = [](const QString &path, const QByteArray &content) {
        QFile out(path);
        return content.isEmpty()
            || (QDir().mkpath(QFileInfo(path).path()) && out.open(QIODevice::WriteOnly)
                && out.write(content) == content.size());
    };
    for (const BigFile &file : bigFiles) {
        QVERIFY(write(source + QLatin1Char('/') + file.path, file.content));
        QVERIFY(write(dest + QLatin1Char('/') + file.path, file.old));
    }
    const QFileDevice::Permissions executable
        = QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner | QFileDevice::ReadGroup;
    QVERIFY(QFile::setPermissions(source + QStringLiteral("/bin/run"), executable));
    QVERIFY(write(dest + QStringLiteral("/saved.cfg"), QByteArrayLiteral("mine")));

    const QStringList arguments {QStringLiteral("--source"), source, QStringLiteral("--dest"), dest};
    const QStringList destBefore = files(dest);
    const auto arrived = [&] {
        int count = 0;
        for (const BigFile &file : bigFiles)
            count += QFileInfo(dest + QLatin1Char('/') + file.path).size() == file.content.size();
        return count;
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
        QCOMPARE(tool.exitStatus(), QProcess::NormalExit);
        QCOMPARE(tool.exitCode(), 1);
        QVERIFY2(arrived() < bigFiles.size(), "stopped only when everything had arrived");
        QVERIFY2(!files(dest).join(QLatin1Char(' ')).contains(QLatin1String(".relocating")),
                 "stopped in the middle of a file");
    } else {
        tool.kill();
        tool.waitForFinished();
    }

    // Every target is whole, old or new; whatever has not arrived is still
    // whole in the source, so running the same command again finishes.
    for (const BigFile &file : bigFiles) {
        const QString there = contentOf(dest + QLatin1Char('/') + file.path, file);
        const QString left = contentOf(source + QLatin1Char('/') + file.path, file);
        const bool whole
            = there == QLatin1String("new") || there == QLatin1String(file.old.isEmpty() ? "missing" : "old");
        const bool recoverable
            = left == QLatin1String("new") || (there == QLatin1String("new") && left == QLatin1String("missing"));
        QVERIFY2(whole && recoverable,
                 qPrintable(file.path + QStringLiteral(": target ") + there + QStringLiteral(", source ") + left));
    }

    QCOMPARE(run(arguments, disk.path()).exitCode, 0);
    QStringList expected {QStringLiteral("saved.cfg 4")};
    for (const BigFile &file : bigFiles) {
        QCOMPARE(contentOf(dest + QLatin1Char('/') + file.path, file), QStringLiteral("new"));
        expected << file.path + QLatin1Char(' ') + QString::number(file.content.size());
    }
    expected.sort();
    QCOMPARE(files(dest), expected);
    QCOMPARE(files(source), QStringList());
    const QFileDevice::Permissions userBits = QFileDevice::ReadUser | QFileDevice::WriteUser | QFileDevice::ExeUser;
    QCOMPARE(QFile::permissions(dest + QStringLiteral("/bin/run")) & ~userBits, executable);
}

QTEST_GUILESS_MAIN(TestRelocate)
#include "tst_app_relocate.moc"
