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
        return QDir().mkpath(QFileInfo(path).path())
            && QFile::copy(QStandardPaths::findExecutable(QStringLiteral("sleep")), path);
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

    const QStringList game {QStringLiteral("install/plist_same.bin")};
    const QString name = QStringLiteral("plist_same.bin");
    QTest::newRow("no process of that name") << game << "plist_other.bin" << false << QString() << false;
    QTest::newRow("name is case-sensitive") << game << "Plist_same.bin" << false << QString() << false;
    QTest::newRow("blank in the path") << QStringList {QStringLiteral("Game Dir/plist_dx.exe")} << "plist_dx.exe"
                                       << false << "Game Dir/plist_dx.exe" << true;
    QTest::newRow("first of the name decides") << QStringList {QStringLiteral("elsewhere/plist_same.bin"), game.first()}
                                               << name << false << "elsewhere/plist_same.bin" << true;
    QTest::newRow("through a symlinked folder") << game << name << false << "link/plist_same.bin" << true;
    QTest::newRow("doubled separator and dot steps") << game << name << false << "./install//./plist_same.bin" << true;
    QTest::newRow("folder differing only in case") << game << name << false << "Install/plist_same.bin" << false;
    // The kernel still names the image of a program deleted under it.
    QTest::newRow("removed, through a symlinked folder") << game << name << true << "link/plist_same.bin" << true;
    QTest::newRow("removed, folder differing only in case")
        << game << name << true << "Install/plist_same.bin" << false;
}

void TestProcessList::find()
{
    QFETCH(QStringList, programs);
    QFETCH(QString, fileName);
    QFETCH(bool, removed);
    QFETCH(QString, expected);
    QFETCH(bool, same);

    QTemporaryDir dir;
    QVERIFY(copySleep(dir.filePath(QStringLiteral("Install/plist_same.bin"))));
    QVERIFY(QDir(dir.path()).mkdir(QStringLiteral("install")));
    QVERIFY(QFile::link(dir.filePath(QStringLiteral("install")), dir.filePath(QStringLiteral("link"))));
    // Started in the order given, so ids ascend on an idle test machine.
    std::list<QProcess> running;
    for (const QString &program : std::as_const(programs)) {
        QVERIFY(copySleep(dir.filePath(program)));
        running.emplace_back().start(dir.filePath(program), {QStringLiteral("30")});
        QVERIFY(running.back().waitForStarted());
    }
    if (removed)
        QVERIFY(QFile::remove(dir.filePath(programs.first())));
    const std::optional<QString> image = Platform::firstProcessImagePath(fileName);
    QCOMPARE(bool(image), !expected.isEmpty());
    if (image)
        QCOMPARE(Platform::isSameExecutable(*image, dir.path() + QLatin1Char('/') + expected), same);
    for (QProcess &process : running) {
        process.kill();
        process.waitForFinished();
    }
    QVERIFY(!Platform::firstProcessImagePath(fileName));
}

QTEST_GUILESS_MAIN(TestProcessList)
#include "tst_platform_processlist.moc"
