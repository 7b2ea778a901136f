#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include "platform/elevation.h"

// Elevates through a stand-in pkexec put first on PATH. Like the real one
// once the user has agreed, it becomes the program with the arguments as
// given; told to refuse, it ends with the code it is given instead.
class TestElevation : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void canElevateFollowsPath();
    void runElevated_data();
    void runElevated();
    void timeOut_data();
    void timeOut();

private:
    QString writeScript(const QString &name, const QByteArray &body) const;

    QTemporaryDir m_dir;
    QString m_record;
    QString m_recorder;
};

namespace
{
    const QByteArray StandInPkexec = "[ -n \"$STANDIN_PKEXEC_EXIT\" ] && exit \"$STANDIN_PKEXEC_EXIT\"\n"
                                     "exec \"$@\"\n";

    // NUL-terminated, since an argument may hold anything but a NUL.
    const QByteArray Recorder = "printf '%s\\0' \"$@\" > \"$STANDIN_RECORD\"\n"
                                "exit \"$STANDIN_EXIT\"\n";
}

QString TestElevation::writeScript(const QString &name, const QByteArray &body) const
{
    QFile script(m_dir.filePath(name));
    if (!script.open(QIODevice::WriteOnly))
        return QString();
    script.write("#!/bin/sh\n" + body);
    script.close();
    script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return script.fileName();
}

void TestElevation::initTestCase()
{
    QVERIFY(QDir(m_dir.path()).mkpath(QStringLiteral("bin")));
    QVERIFY(!writeScript(QStringLiteral("bin/pkexec"), StandInPkexec).isEmpty());
    m_recorder = writeScript(QStringLiteral("tool with blanks"), Recorder);
    QVERIFY(!m_recorder.isEmpty());
    m_record = m_dir.filePath(QStringLiteral("record"));
    qputenv("STANDIN_RECORD", QFile::encodeName(m_record));
    qputenv("PATH", QFile::encodeName(m_dir.filePath(QStringLiteral("bin"))) + ':' + qgetenv("PATH"));
}

void TestElevation::canElevateFollowsPath()
{
    QVERIFY(Platform::canElevate());

    const QByteArray path = qgetenv("PATH");
    qputenv("PATH", QFile::encodeName(m_dir.filePath(QStringLiteral("no-such-folder"))));
    const bool withoutPkexec = Platform::canElevate();
    QFile::remove(m_record);
    const Platform::ElevatedRun run = Platform::runElevated(m_recorder, {QStringLiteral("x")}, 30000);
    qputenv("PATH", path);
    QVERIFY(!withoutPkexec);
    QCOMPARE(run.outcome, Platform::ElevatedRun::Refused);
    QVERIFY(!QFile::exists(m_record));
}

void TestElevation::runElevated_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("pkexecExit"); // empty: the user agrees
    QTest::addColumn<int>("programExit");
    QTest::addColumn<int>("outcome");

    const QStringList tool {QStringLiteral("--source"),  QStringLiteral("/srv/staging"), QStringLiteral("--dest"),
                            QStringLiteral("/opt/game"), QStringLiteral("--ignore"),     QString()};
    const int finished = Platform::ElevatedRun::Finished;
    const int refused = Platform::ElevatedRun::Refused;

    QTest::newRow("empty values") << QStringList {QStringLiteral("--source"), QStringLiteral("/opt/game"),
                                                  QStringLiteral("--dest"),   QString(),
                                                  QStringLiteral("--ignore"), QString()}
                                  << QByteArray() << 0 << finished;
    QTest::newRow("blanks, quotes, line feed")
        << QStringList {QStringLiteral("/home/a b/Brindlewood Works"), QStringLiteral("say \"hi\" 'there'"),
                        QStringLiteral("\""), QStringLiteral("two\nlines"), QStringLiteral(" ")}
        << QByteArray() << 0 << finished;
    QTest::newRow("backslashes") << QStringList {QStringLiteral("C:\\Program Files (x86)\\"), QStringLiteral("\\"),
                                                 QStringLiteral("a\\\\\"b")}
                                 << QByteArray() << 0 << finished;
    QTest::newRow("percent signs") << QStringList {QStringLiteral("%2"), QStringLiteral("%1 %3"),
                                                   QStringLiteral("100%"), QStringLiteral("%PATH%")}
                                   << QByteArray() << 0 << finished;
    QTest::newRow("program fails") << tool << QByteArray() << 1 << finished;
    QTest::newRow("dismissed") << tool << QByteArray("126") << 0 << refused;
    QTest::newRow("authentication failed") << tool << QByteArray("127") << 0 << refused;
}

void TestElevation::runElevated()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, pkexecExit);
    QFETCH(int, programExit);
    QFETCH(int, outcome);

    QFile::remove(m_record);
    qputenv("STANDIN_PKEXEC_EXIT", pkexecExit);
    qputenv("STANDIN_EXIT", QByteArray::number(programExit));
    const Platform::ElevatedRun run = Platform::runElevated(m_recorder, arguments, 30000);
    QCOMPARE(int(run.outcome), outcome);
    if (outcome != Platform::ElevatedRun::Finished) {
        QVERIFY(!QFile::exists(m_record));
        return;
    }
    QCOMPARE(run.exitCode, programExit);

    QFile record(m_record);
    QVERIFY(record.open(QIODevice::ReadOnly));
    QStringList received = QString::fromLocal8Bit(record.readAll()).split(QChar(0));
    QCOMPARE(received.takeLast(), QString());
    QCOMPARE(received, arguments);
}

void TestElevation::timeOut_data()
{
    // Each program notes its process id and then never ends by itself
    // while its input stays open. Their output goes nowhere, so one left
    // running cannot hold the test's output open.
    QTest::addColumn<QByteArray>("body");

    QTest::newRow("ignores its input") << QByteArray(
        "echo $$ > \"$STANDIN_RECORD\"\nexec sleep 600 > /dev/null 2>&1\n");
    QTest::newRow("stops when its input closes")
        << QByteArray("echo $$ > \"$STANDIN_RECORD\"\nexec cat > /dev/null 2>&1\n");
}

void TestElevation::timeOut()
{
    QFETCH(QByteArray, body);

    QFile::remove(m_record);
    qputenv("STANDIN_PKEXEC_EXIT", QByteArray());
    const QString program = writeScript(QStringLiteral("stuck"), body);

    const Platform::ElevatedRun run = Platform::runElevated(program, {QStringLiteral("--source")}, 2000);
    QCOMPARE(run.outcome, Platform::ElevatedRun::TimedOut);

    QFile record(m_record);
    QVERIFY(record.open(QIODevice::ReadOnly));
    const QByteArray pid = record.readAll().trimmed();
    QVERIFY(!pid.isEmpty());
    QVERIFY2(!QFile::exists(QStringLiteral("/proc/") + QString::fromLatin1(pid)), pid.constData());
}

QTEST_GUILESS_MAIN(TestElevation)
#include "tst_platform_elevation.moc"
