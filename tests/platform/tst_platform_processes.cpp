#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include "platform/elevation.h"
#include "platform/processlist.h"

// Runs real processes under chosen names and asks the process list for them.
class TestProcesses : public QObject
{
    Q_OBJECT

private slots:
    void findsRunningProgram();
    void firstProcessOfTheNameDecides();
    void nameIsCaseSensitive();
};

namespace
{
    // A copy of sleep under another name, so the process list shows that name.
    QString makeProgram(const QString &directory, const QString &name)
    {
        const QString path = directory + QLatin1Char('/') + name;
        QDir().mkpath(directory);
        if (!QFile::copy(QStandardPaths::findExecutable(QStringLiteral("sleep")), path))
            return QString();
        QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return path;
    }

    struct Running
    {
        explicit Running(const QString &program)
        {
            process.start(program, {QStringLiteral("30")});
            process.waitForStarted();
        }
        ~Running()
        {
            process.kill();
            process.waitForFinished();
        }
        QProcess process;
    };
}

void TestProcesses::findsRunningProgram()
{
    QTemporaryDir dir;
    const QString program = makeProgram(dir.filePath(QStringLiteral("Game Dir")), QStringLiteral("hollowmere_dx.exe"));
    QVERIFY(!program.isEmpty());
    QVERIFY(!Platform::firstProcessImagePath(QStringLiteral("hollowmere_dx.exe")));
    {
        const Running game(program);
        QCOMPARE(Platform::firstProcessImagePath(QStringLiteral("hollowmere_dx.exe")), std::optional<QString>(program));
    }
    QVERIFY(!Platform::firstProcessImagePath(QStringLiteral("hollowmere_dx.exe")));
}

void TestProcesses::firstProcessOfTheNameDecides()
{
    QTemporaryDir dir;
    const QString elsewhere = makeProgram(dir.filePath(QStringLiteral("elsewhere")), QStringLiteral("game_copy.bin"));
    const QString installed = makeProgram(dir.filePath(QStringLiteral("install")), QStringLiteral("game_copy.bin"));
    const Running first(elsewhere);
    const Running second(installed);
    // Process ids ascend with the start on an idle test machine.
    QCOMPARE(Platform::firstProcessImagePath(QStringLiteral("game_copy.bin")), std::optional<QString>(elsewhere));
}

void TestProcesses::nameIsCaseSensitive()
{
    QTemporaryDir dir;
    const Running game(makeProgram(dir.path(), QStringLiteral("CaseGame.bin")));
    QVERIFY(Platform::firstProcessImagePath(QStringLiteral("CaseGame.bin")));
    QVERIFY(!Platform::firstProcessImagePath(QStringLiteral("casegame.bin")));
}

QTEST_GUILESS_MAIN(TestProcesses)
#include "tst_platform_processes.moc"
