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
    using Run = Platform::ElevatedRun;

    bool writeScript(const QString &path, const QByteArray &body)
    {
        QFile script(path);
        return QDir().mkpath(QFileInfo(path).path()) && script.open(QIODevice::WriteOnly)
            && script.write("#!/bin/sh\n" + body) > 0
            && script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
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
    const QStringList tool {"--source", "/srv/staging"};
    // Split at "|": empty values, blanks, quotes, a line feed, backslashes, percent signs.
    QTest::newRow("arguments pass untouched, exit code too")
        << QString("--dest||/home/a b/Brindlewood Works|say \"hi\" 'there'|\"|two\nlines| |"
                   "C:\\Program Files (x86)\\|\\|a\\\\\"b|%2|%1 %3|%PATH%|")
               .split('|')
        << QByteArray() << recorder << int(Run::Finished);
    // Dismissed or not authorised, authentication failed, no pkexec at all.
    for (const char *code : {"126", "127", "none"})
        QTest::addRow("refused, pkexec %s", code) << tool << QByteArray(code) << recorder << int(Run::Refused);
    // Each notes its id and never ends by itself while its input stays open (cat stops once it closes); their output
    // goes nowhere, so one left running cannot hold the test's.
    for (const char *waiting : {"sleep 600", "cat"})
        QTest::addRow("time-out, %s", waiting)
            << tool << QByteArray()
            << QByteArray("echo $$ > \"$STANDIN_RECORD\"\nexec " + QByteArray(waiting) + " > /dev/null 2>&1\n")
            << int(Run::TimedOut);
}

void TestElevation::runElevated()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, pkexecExit);
    QFETCH(QByteArray, program);
    QFETCH(int, outcome);

    QTemporaryDir dir;
    const QString bin = dir.filePath("bin"), script = dir.filePath("tool with blanks");
    QVERIFY(
        writeScript(bin + "/pkexec", "[ -n \"$STANDIN_PKEXEC_EXIT\" ] && exit \"$STANDIN_PKEXEC_EXIT\"\nexec \"$@\"\n")
        && writeScript(script, program));
    QFile record(dir.filePath("record"));
    qputenv("STANDIN_RECORD", QFile::encodeName(record.fileName()));
    qputenv("STANDIN_PKEXEC_EXIT", pkexecExit);
    const QByteArray path = qgetenv("PATH");
    qputenv("PATH", pkexecExit == "none" ? QByteArray("/no-such-folder") : QFile::encodeName(bin) + ':' + path);
    const bool canElevate = Platform::canElevate();
    const Run run = Platform::runElevated(script, arguments, outcome == Run::TimedOut ? 2000 : 30000);
    qputenv("PATH", path);
    QCOMPARE(canElevate, pkexecExit != "none");
    QCOMPARE(int(run.outcome), outcome);
    QCOMPARE(run.exitCode, outcome == Run::Finished ? 3 : -1);
    QCOMPARE(record.open(QIODevice::ReadOnly), outcome != Run::Refused);
    const QString recorded = QString::fromLocal8Bit(record.isOpen() ? record.readAll() : QByteArray());
    if (outcome == Run::Finished)
        QCOMPARE(recorded.split(QChar(0)), arguments + QStringList {QString()});
    else if (outcome == Run::TimedOut) // stopped, not left running
        QVERIFY2(!recorded.trimmed().isEmpty() && !QFile::exists("/proc/" + recorded.trimmed()), qPrintable(recorded));
}

QTEST_GUILESS_MAIN(TestElevation)
#include "tst_platform_elevation.moc"
