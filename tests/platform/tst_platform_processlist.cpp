#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>
#include <vector>

#include "platform/processlist.h"

// Runs real processes under chosen names and asks the process list for them.
class TestProcessList : public QObject
{
    Q_OBJECT

private slots:
    void firstProcessImagePath_data();
    void firstProcessImagePath();
    void isSameExecutable_data();
    void isSameExecutable();
};

namespace
{
    // A copy of sleep under another name, so the process list shows that name.
    QString makeProgram(const QString &path)
    {
        QDir().mkpath(QFileInfo(path).path());
        if (!QFile::copy(QStandardPaths::findExecutable(QStringLiteral("sleep")), path))
            return QString();
        QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return path;
    }

    class Running
    {
    public:
        bool start(const QString &program)
        {
            m_processes.push_back(std::make_unique<QProcess>());
            m_processes.back()->start(program, {QStringLiteral("30")});
            return m_processes.back()->waitForStarted();
        }
        ~Running()
        {
            for (const auto &process : m_processes) {
                process->kill();
                process->waitForFinished();
            }
        }

    private:
        std::vector<std::unique_ptr<QProcess>> m_processes;
    };
}

void TestProcessList::firstProcessImagePath_data()
{
    // Programs are started in the order given; ids ascend with the start
    // on an idle test machine.
    QTest::addColumn<QStringList>("programs");
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<QString>("found");

    QTest::newRow("no process of that name")
        << QStringList {QStringLiteral("install/plist_game.bin")} << "plist_other.bin" << QString();
    QTest::newRow("running program") << QStringList {QStringLiteral("Game Dir/plist_dx.exe")} << "plist_dx.exe"
                                     << "Game Dir/plist_dx.exe";
    QTest::newRow("first of the name decides")
        << QStringList {QStringLiteral("elsewhere/plist_copy.bin"), QStringLiteral("install/plist_copy.bin")}
        << "plist_copy.bin"
        << "elsewhere/plist_copy.bin";
    QTest::newRow("name is case-sensitive")
        << QStringList {QStringLiteral("PlistCase.bin")} << "plistcase.bin" << QString();
}

void TestProcessList::firstProcessImagePath()
{
    QFETCH(QStringList, programs);
    QFETCH(QString, fileName);
    QFETCH(QString, found);

    QTemporaryDir dir;
    {
        Running running;
        for (const QString &program : std::as_const(programs))
            QVERIFY(running.start(makeProgram(dir.filePath(program))));
        const std::optional<QString> image = Platform::firstProcessImagePath(fileName);
        QCOMPARE(image, found.isEmpty() ? std::nullopt : std::optional<QString>(dir.filePath(found)));
    }
    QVERIFY(!Platform::firstProcessImagePath(fileName));
}

void TestProcessList::isSameExecutable_data()
{
    // The game runs from "install"; "link" points there, "Install" is a
    // folder of its own with a copy of the game.
    QTest::addColumn<QString>("expected");
    QTest::addColumn<bool>("replaced");
    QTest::addColumn<bool>("same");

    QTest::newRow("same path") << "install/plist_same.bin" << false << true;
    QTest::newRow("through a symlinked folder") << "link/plist_same.bin" << false << true;
    QTest::newRow("doubled separator and dot steps") << "./install//./plist_same.bin" << false << true;
    QTest::newRow("folder differing only in case") << "Install/plist_same.bin" << false << false;
    QTest::newRow("another folder") << "elsewhere/plist_same.bin" << false << false;
    QTest::newRow("removed, through a symlinked folder") << "link/plist_same.bin" << true << true;
    QTest::newRow("removed, folder differing only in case") << "Install/plist_same.bin" << true << false;
}

void TestProcessList::isSameExecutable()
{
    QFETCH(QString, expected);
    QFETCH(bool, replaced);
    QFETCH(bool, same);

    QTemporaryDir dir;
    const QString program = makeProgram(dir.filePath(QStringLiteral("install/plist_same.bin")));
    QVERIFY(!makeProgram(dir.filePath(QStringLiteral("Install/plist_same.bin"))).isEmpty());
    QVERIFY(!makeProgram(dir.filePath(QStringLiteral("elsewhere/plist_same.bin"))).isEmpty());
    QVERIFY(QFile::link(dir.filePath(QStringLiteral("install")), dir.filePath(QStringLiteral("link"))));

    Running running;
    QVERIFY(running.start(program));
    // The kernel still names the image of a program deleted under it.
    if (replaced)
        QVERIFY(QFile::remove(program));

    const std::optional<QString> image = Platform::firstProcessImagePath(QStringLiteral("plist_same.bin"));
    QVERIFY(image);
    QCOMPARE(Platform::isSameExecutable(*image, dir.path() + QLatin1Char('/') + expected), same);
}

QTEST_GUILESS_MAIN(TestProcessList)
#include "tst_platform_processlist.moc"
