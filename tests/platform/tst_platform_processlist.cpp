#include <QtTest>

#include <list>

#include "platform/processlist.h"

// Runs copies of sleep under chosen names and asks the process list for them.
class TestProcessList : public QObject
{
    Q_OBJECT

private slots:
    void find_data();
    void find();
};

namespace
{
    bool copySleep(const QString &path)
    {
        return QDir().mkpath(QFileInfo(path).path()) && QFile::copy(QStandardPaths::findExecutable("sleep"), path);
    }
}

void TestProcessList::find_data()
{
    // Beside the programs: "link" points to "install", and "Install" is a
    // folder of its own with a copy of sleep.
    QTest::addColumn<QStringList>("programs");
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<bool>("removed"); // the first program is deleted while it runs
    QTest::addColumn<QString>("expected"); // empty: no such process
    QTest::addColumn<bool>("same");
    const auto row = [](const char *name, const QStringList &programs, const QString &fileName, bool removed,
                        const QString &expected,
                        bool same) { QTest::newRow(name) << programs << fileName << removed << expected << same; };

    const QStringList game {"install/plist_same.bin"};
    const QString name = "plist_same.bin";
    row("name is case-sensitive", game, "Plist_same.bin", false, {}, false);
    row("blank in the path", {"Game Dir/plist_dx.exe"}, "plist_dx.exe", false, "Game Dir/plist_dx.exe", true);
    row("first of the name decides", {"elsewhere/" + name, game.first()}, name, false, "elsewhere/" + name, true);
    row("symlinked folder, doubled separator, dot steps", game, name, false, "./link//./" + name, true);
    row("folder differing only in case", game, name, false, "Install/" + name, false);
    // The kernel still names the image of a program deleted under it.
    row("removed, through a symlinked folder", game, name, true, "link/" + name, true);
    row("removed, folder differing only in case", game, name, true, "Install/" + name, false);
}

void TestProcessList::find()
{
    QFETCH(QStringList, programs);
    QFETCH(QString, fileName);
    QFETCH(bool, removed);
    QFETCH(QString, expected);
    QFETCH(bool, same);

    QTemporaryDir dir;
    QVERIFY(copySleep(dir.filePath("Install/plist_same.bin")) && QDir(dir.path()).mkdir("install")
            && QFile::link(dir.filePath("install"), dir.filePath("link")));
    // Started in the order given, so ids ascend on an idle test machine.
    std::list<QProcess> running;
    for (const QString &program : std::as_const(programs)) {
        QVERIFY(copySleep(dir.filePath(program)));
        running.emplace_back().start(dir.filePath(program), {"30"});
        QVERIFY(running.back().waitForStarted());
    }
    QVERIFY(!removed || QFile::remove(dir.filePath(programs.first())));
    const std::optional<QString> image = Platform::firstProcessImagePath(fileName);
    QCOMPARE(bool(image), !expected.isEmpty());
    QCOMPARE(image && Platform::isSameExecutable(*image, dir.path() + '/' + expected), same);
    for (QProcess &process : running) {
        process.kill();
        process.waitForFinished();
    }
    QVERIFY(!Platform::firstProcessImagePath(fileName));
}

QTEST_GUILESS_MAIN(TestProcessList)
#include "tst_platform_processlist.moc"
