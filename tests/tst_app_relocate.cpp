#include <QtTest>

#include "support/testfiles.h"

namespace
{
    // Trees list "dir/" (empty), "path=content", "path->target" (a link, target relative to the root) and
    // "path|" (a named pipe); the directories that hold anything are implied.
    void makeTree(const QString &root, const QStringList &tree)
    {
        for (const QString &entry : tree) {
            const QString path = root + '/' + entry.section(QRegularExpression(QStringLiteral("=|->|\\|")), 0, 0);
            QVERIFY(QDir().mkpath(entry.endsWith('/') ? path : QFileInfo(path).path()));
            if (entry.contains(QLatin1String("->")))
                QVERIFY(QFile::link(root + '/' + entry.section(QLatin1String("->"), 1), path));
            else if (entry.endsWith('|'))
                QCOMPARE(QProcess::execute(QStringLiteral("mkfifo"), {path}), 0);
            else if (!entry.endsWith('/'))
                QVERIFY(TestFiles::write(path, entry.section('=', 1).toUtf8()));
        }
    }

    QStringList readTree(const QString &root)
    {
        QStringList tree;
        const QDir::Filters everything = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;
        for (QDirIterator it(root, everything, QDirIterator::Subdirectories); it.hasNext();) {
            const QString relative = QDir(root).relativeFilePath(it.next());
            const QFileInfo info = it.fileInfo();
            if (info.isSymbolicLink())
                tree << relative + "->" + QDir(root).relativeFilePath(info.symLinkTarget());
            else if (info.isFile())
                tree << relative + '=' + QString::fromUtf8(TestFiles::read(info.filePath()));
            else if (!info.isDir() || QDir(info.filePath()).isEmpty(everything))
                tree << relative + (info.isDir() ? '/' : '|');
        }
        tree.sort();
        return tree;
    }
}

// Runs the real launcher executable in its relocation mode on temporary trees.
class TestRelocate : public QObject
{
    Q_OBJECT

private slots:
    void relocate_data()
    {
        QTest::addColumn<QString>("tree");
        QTest::addColumn<QString>("arguments"); // %r: the root, also the working directory; '': empty
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("treeAfter");
        const auto in
            = [](QString dir, QString tree) -> QString { return dir + '/' + tree.replace(' ', ' ' + dir + '/'); };
        // A file, a nested one, an empty one, a dot-file and an empty directory.
        const QString game = QStringLiteral("x.exe=x data/maps/a=A data/empty/ .init=");
        const QString emptied = QStringLiteral("staging/data/empty/ staging/data/maps/ ");
        const QString toGame = QStringLiteral("--source %r/staging --dest %r/game");
        QTest::newRow("relative paths, into a missing target with its parents")
            << in("staging", game) << "--source staging --dest new/deep/game" << 0
            << emptied + in("new/deep/game", game);
        QTest::newRow("values after '=', quotes in paths, over an existing target")
            << in("staging", game) + R"( ""/x.exe=old ""/saved.cfg=mine)"
            << R"(--source=%r/staging --dest=%r/"")" << 0 << emptied + in(R"("")", game) + R"( ""/saved.cfg=mine)";
        QTest::newRow("ignore matches exact relative paths, directories not pruned")
            << "staging/config= staging/sub/config= staging/sub/skip= staging/sub/other= staging/q= staging/lonely/"
            << toGame + R"( --ignore config,sub/skip,sub\other,"q",lonely,sub)" << 0
            << "staging/config= staging/lonely/ staging/sub/skip= game/q= game/sub/config= game/sub/other=";
        QTest::newRow("links and pipes stay behind and fail the move")
            << "staging/a=1 staging/sub/b=2 staging/link->staging/a staging/dirlink->staging/sub staging/pipe|"
            << toGame << 1
            << "staging/link->staging/a staging/dirlink->staging/sub staging/pipe| staging/sub/ game/a=1 game/sub/b=2";
        QTest::newRow("a link in the destination carries nothing out")
            << "staging/data/x=new staging/y=2 game/data->outside outside/x=mine" << toGame << 1
            << "staging/data/x=new game/data->outside game/y=2 outside/x=mine";
        // Overlapping trees, however spelt or linked, and a wrong command line: refused, nothing touched.
        const QString nested = QStringLiteral("game/file=x game/sub/deep=y link->game");
        for (const char *arguments :
             {"--source %r/game --dest %r/x/../game/", "--source %r/game --dest %r/game/sub/new",
              "--source %r/game/sub --dest %r/game", "--source %r/game --dest %r/link/new",
              "--frobnicate --source %r/game --dest %r/new"})
            QTest::addRow("refused: %s", arguments) << nested << arguments << 1 << nested;
        const QString installed = in("game", "x.exe=x a/b/c/deep.txt=y a/empty/ .init= a/.hid=z");
        QTest::newRow("an empty destination deletes the tree, dot-files, links and pipes, never what links lead to")
            << installed + " game/dirlink->outside game/filelink->outside/keep game/pipe| outside/keep=x"
            << "--source %r/game --dest ''" << 0 << "outside/keep=x";
        QTest::newRow("an ignored file stays and fails the delete")
            << installed << "--source %r/game --dest '' --ignore a/b/c/deep.txt" << 1 << "game/a/b/c/deep.txt=y";
        QTest::newRow("deleting a missing source fails") << QString() << "--source %r/game --dest ''" << 1 << QString();
    }

    void relocate()
    {
        QFETCH(QString, tree);
        QFETCH(QString, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, treeAfter);
        // An elevated run finds no display; the tool must not need one.
        for (const char *name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
            qunsetenv(name);
        QTemporaryDir root;
        makeTree(root.path(), tree.split(' ', Qt::SkipEmptyParts));
        QVERIFY(QDir::setCurrent(root.path()));
        const QStringList argumentList
            = arguments.replace("%r", root.path()).split(' ').replaceInStrings(QRegularExpression("^''$"), QString());
        QCOMPARE(QProcess::execute(QStringLiteral(LAUNCHER_BINARY), argumentList), exitCode);
        QStringList expected = treeAfter.split(' ', Qt::SkipEmptyParts);
        expected.sort();
        QCOMPARE(readTree(root.path()), expected);
    }

    // Told to stop, then killed, then run to the end. Large files cross from a tmpfs to the disk, so that the
    // tool is caught in the middle of the move.
    void interrupted()
    {
        QTemporaryDir memory(QStringLiteral("/dev/shm/tst_app_relocate-XXXXXX")), disk;
        if (!memory.isValid() || QStorageInfo(memory.path()).rootPath() == QStorageInfo(disk.path()).rootPath())
            QSKIP("No /dev/shm on a file system of its own to move from");
        const QDir source(memory.path()), dest(disk.path());
        const QStringList paths {"a.pak", "b.pak", "c.pak", "run"};
        // Random, so that a block written twice or out of place shows.
        QByteArrayList content;
        for (int i = 0; i < paths.size(); ++i) {
            content << QByteArray((24 + 8 * i) << 20, Qt::Uninitialized);
            QRandomGenerator(quint32(i))
                .fillRange(reinterpret_cast<quint32 *>(content[i].data()), content[i].size() / 4);
            QVERIFY(TestFiles::write(source.filePath(paths[i]), content[i])
                    && TestFiles::write(dest.filePath(paths[i]), "old"));
        }
        const QFile::Permissions executable = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadGroup;
        QVERIFY(QFile::setPermissions(source.filePath(QStringLiteral("run")), executable));
        const QStringList arguments {"--source", source.path(), "--dest", dest.path()};
        // Killed while a file is copied; told to stop through stdin once a file has left the source.
        const auto interrupt = [&](bool kill) {
            const qsizetype files = source.entryList(QDir::Files).size();
            QProcess tool;
            tool.start(QStringLiteral(LAUNCHER_BINARY), arguments);
            while (
                tool.state() != QProcess::NotRunning
                && (kill ? dest.entryList({"*.relocating"}).isEmpty() : source.entryList(QDir::Files).size() == files))
                tool.waitForFinished(1);
            kill ? tool.kill() : tool.closeWriteChannel();
            return tool.waitForFinished(60000) ? tool.exitCode() : -1;
        };
        // Told to stop, it fails between two files and before the last, leaving nothing half copied.
        QCOMPARE(interrupt(false), 1);
        QVERIFY(!source.isEmpty(QDir::Files) && dest.entryList({"*.relocating"}).isEmpty());
        interrupt(true);
        // Each target is whole, old or new; that the rest is whole in the source shows in the rerun.
        for (int i = 0; i < paths.size(); ++i)
            QVERIFY(QByteArrayList({"old", content[i]}).contains(TestFiles::read(dest.filePath(paths[i]))));
        QCOMPARE(QProcess::execute(QStringLiteral(LAUNCHER_BINARY), arguments), 0);
        for (int i = 0; i < paths.size(); ++i)
            QVERIFY(TestFiles::read(dest.filePath(paths[i])) == content[i]);
        // What a killed run left half copied is gone, and the mode crossed without this process's user bits.
        QCOMPARE(source.entryList(QDir::Files) + dest.entryList(QDir::Files), paths);
        QCOMPARE(QFile::permissions(dest.filePath(QStringLiteral("run")))
                     & ~(QFile::ReadUser | QFile::WriteUser | QFile::ExeUser),
                 executable);
    }
};

QTEST_GUILESS_MAIN(TestRelocate)
#include "tst_app_relocate.moc"
