#include <QtTest>

#include "platform/elevation.h"

// Elevates through a stand-in pkexec put first on PATH. Like the real one
// once the user has agreed, it becomes the program with the arguments as
// given; told to refuse, it ends with the code it is given instead.
class TestElevation : public QObject
{
    Q_OBJECT

private slots:
    void runElevated_data();
    void runElevated();
};

namespace
{
    QString writeScript(const QString &path, const QByteArray &body)
    {
        QFile script(path);
        const bool written = QDir().mkpath(QFileInfo(path).path()) && script.open(QIODevice::WriteOnly)
            && script.write("#!/bin/sh\n" + body) > 0
            && script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return written ? path : QString();
    }
}

void TestElevation::runElevated_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("pkexecExit"); // empty: the user agrees; "none": no pkexec on PATH
    QTest::addColumn<QByteArray>("program"); // a shell script's body
    QTest::addColumn<int>("outcome");

    // NUL-terminated, since an argument may hold anything but a NUL.
    const QByteArray recorder = "printf '%s\\0' \"$@\" > \"$STANDIN_RECORD\"\nexit 3\n";
    const QStringList tool {QStringLiteral("--source"), QStringLiteral("/srv/staging")};
    const int refused = Platform::ElevatedRun::Refused;
    const int timedOut = Platform::ElevatedRun::TimedOut;

    // Split at "|": empty values, blanks, quotes, a line feed, backslashes, percent signs.
    const QStringList odd = QStringLiteral("--dest||/home/a b/Brindlewood Works|say \"hi\" 'there'|\"|two\nlines| |"
                                           "C:\\Program Files (x86)\\|\\|a\\\\\"b|%2|%1 %3|%PATH%|")
                                .split(QLatin1Char('|'));
    QTest::newRow("arguments pass untouched, exit code too")
        << odd << QByteArray() << recorder << int(Platform::ElevatedRun::Finished);
    QTest::newRow("dismissed") << tool << QByteArray("126") << recorder << refused;
    QTest::newRow("authentication failed") << tool << QByteArray("127") << recorder << refused;
    QTest::newRow("no pkexec") << tool << QByteArray("none") << recorder << refused;
    // Each notes its id and never ends by itself while its input stays open;
    // their output goes nowhere, so one left running cannot hold the test's.
    QTest::newRow("time-out, program ignores its input")
        << tool << QByteArray() << QByteArray("echo $$ > \"$STANDIN_RECORD\"\nexec sleep 600 > /dev/null 2>&1\n")
        << timedOut;
    QTest::newRow("time-out, program stops when its input closes")
        << tool << QByteArray() << QByteArray("echo $$ > \"$STANDIN_RECORD\"\nexec cat > /dev/null 2>&1\n") << timedOut;
}

void TestElevation::runElevated()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, pkexecExit);
    QFETCH(QByteArray, program);
    QFETCH(int, outcome);

    QTemporaryDir dir;
    const QString pkexec
        = writeScript(dir.filePath(QStringLiteral("bin/pkexec")),
                      "[ -n \"$STANDIN_PKEXEC_EXIT\" ] && exit \"$STANDIN_PKEXEC_EXIT\"\nexec \"$@\"\n");
    const QString script = writeScript(dir.filePath(QStringLiteral("tool with blanks")), program);
    QVERIFY(!pkexec.isEmpty() && !script.isEmpty());
    QFile record(dir.filePath(QStringLiteral("record")));
    qputenv("STANDIN_RECORD", QFile::encodeName(record.fileName()));
    qputenv("STANDIN_PKEXEC_EXIT", pkexecExit);
    const QByteArray path = qgetenv("PATH");
    qputenv("PATH",
            pkexecExit == "none" ? QByteArray("/no-such-folder")
                                 : QFile::encodeName(QFileInfo(pkexec).path()) + ':' + path);
    const bool canElevate = Platform::canElevate();
    const Platform::ElevatedRun run
        = Platform::runElevated(script, arguments, outcome == Platform::ElevatedRun::TimedOut ? 2000 : 30000);
    qputenv("PATH", path);
    QCOMPARE(canElevate, pkexecExit != "none");
    QCOMPARE(int(run.outcome), outcome);

    QCOMPARE(record.open(QIODevice::ReadOnly), outcome != Platform::ElevatedRun::Refused);
    if (outcome == Platform::ElevatedRun::TimedOut) {
        const QString pid = QString::fromLatin1(record.readAll().trimmed());
        QVERIFY2(!pid.isEmpty() && !QFile::exists(QStringLiteral("/proc/") + pid), qPrintable(pid));
    } else if (outcome == Platform::ElevatedRun::Finished) {
        QCOMPARE(run.exitCode, 3);
        QCOMPARE(QString::fromLocal8Bit(record.readAll()).split(QChar(0)), arguments + QStringList {QString()});
    }
}

QTEST_GUILESS_MAIN(TestElevation)
#include "tst_platform_elevation.moc"
