#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include "config/settings.h"
#include "isolatedsettings.h"
#include "support/testfiles.h"
#include "support/testhttpserver.h"
#include "support/testmanifest.h"
#include "updater/updater.h"
#include "updater/userprompt.h"

// Removing the game through the real relocation tool. A tree the player
// cannot write lies on a read-only mount; a stand-in pkexec first on PATH
// refuses, runs the tool as it is, or makes the mount writable first, as
// raised rights would.
class TestUpdaterUninstall : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void uninstall_data();
    void uninstall();

private:
    IsolatedSettings m_isolation;
    QTemporaryDir m_scratch;
    TestHttpServer m_server;
    Settings m_settings {
        TestFiles::writeConfiguration(
            m_scratch.path(),
            {{"applicationName", "Uninstall Test"}, {"updateUrl", QString(m_server.baseUrl().toString() + "/game")}}),
        nullptr};
    QString m_mountPoint = m_scratch.filePath(QStringLiteral("mount"));
    bool m_mounted = false;
};

namespace
{
    bool mount(const QStringList &arguments)
    {
        return QProcess::execute(QStringLiteral("mount"), arguments) == 0;
    }
}

void TestUpdaterUninstall::initTestCase()
{
    m_server.setContent(QStringLiteral("/game/checksums.txt.gz"),
                        TestManifest::body(QMap<QString, QByteArray> {{"/data.bin", "game data"}}));
    const QString pkexec = m_scratch.filePath(QStringLiteral("bin/pkexec"));
    QVERIFY(TestFiles::write(pkexec,
                             "#!/bin/sh\ntouch \"$0.asked\"\ncase \"$STANDIN_MODE\" in\nrefuse) exit 126 ;;\n"
                             "grant) mount -o remount,rw \"${0%/bin/pkexec}/mount\" || exit 127 ;;\nesac\n"
                             "exec \"$@\"\n"));
    QFile::setPermissions(pkexec, QFile::ReadOwner | QFile::ExeOwner);
    qputenv("PATH", m_scratch.filePath(QStringLiteral("bin:")).toUtf8() + qgetenv("PATH"));
    QVERIFY(TestFiles::write(Updater::stagingDirectory() + QStringLiteral("/data.bin"), "staged"));
}

void TestUpdaterUninstall::cleanup()
{
    if (std::exchange(m_mounted, false) && mount({"-o", "remount,rw", m_mountPoint}))
        QProcess::execute(QStringLiteral("umount"), {m_mountPoint});
    UserPrompt::setHandlers({});
}

void TestUpdaterUninstall::uninstall_data()
{
    QTest::addColumn<QString>("tree"); // "missing", "declined", "writable", or pkexec's answer if read-only
    QTest::addColumn<QStringList>("events");

    const QStringList removed {"question", "state:install", "available:install"};
    QTest::newRow("missing directory") << "missing" << QStringList();
    QTest::newRow("declined") << "declined" << QStringList {"question"};
    QTest::newRow("writable tree") << "writable" << removed;
    QTest::newRow("read-only, elevation refused")
        << "refuse" << QStringList {"question", "error:Failed to uninstall - could not get necessary permissions"};
    QTest::newRow("read-only, tool cannot remove")
        << "run" << QStringList {"question", "error:Some files could not be removed during uninstall"};
    QTest::newRow("read-only, elevation granted") << "grant" << removed;
}

void TestUpdaterUninstall::uninstall()
{
    QFETCH(QString, tree);
    QFETCH(QStringList, events);
    const bool readOnly = QStringList {"refuse", "run", "grant"}.contains(tree);

    // Below the mount point, since a mount point itself cannot be removed;
    // the blank must survive the elevated command line.
    const QString installPath = m_mountPoint + QStringLiteral("/game files");
    QVERIFY(QDir(installPath).removeRecursively() && QDir().mkpath(m_mountPoint));
    if (readOnly && !(m_mounted = mount({"-t", "tmpfs", "-o", "size=1m", "tmpfs", m_mountPoint})))
        QSKIP("A tree that cannot be written needs a read-only mount, which needs root");
    // Nested and a dot-file, which a removal that lists only visible files would leave.
    QVERIFY(tree == QLatin1String("missing") || TestFiles::write(installPath + QStringLiteral("/data/.hidden"), "a"));
    QVERIFY(!readOnly || mount({"-o", "remount,ro", m_mountPoint}));
    m_settings.setInstallPath(installPath);
    m_settings.setHasSelectedInstallPath(true);
    m_settings.setLastUpdateCheck(QString());
    qputenv("STANDIN_MODE", tree.toUtf8());

    Updater updater;
    updater.setToolProgram(QStringLiteral(LAUNCHER_BINARY));
    QStringList seen;
    connect(&updater, &Updater::stateChanged, this, [&seen](const QString &state) { seen << "state:" + state; });
    connect(&updater, &Updater::updateAvailable, this, [&seen](const QString &state) { seen << "available:" + state; });
    connect(&updater, &Updater::downloadError, this, [&seen](const QString &error) { seen << "error:" + error; });
    const auto answer = tree == QLatin1String("declined") ? UserPrompt::Answer::No : UserPrompt::Answer::Yes;
    UserPrompt::setHandlers({{}, {}, {}, [&seen, answer](const QString &, const QString &, QWidget *) {
                                 seen << QStringLiteral("question");
                                 return answer;
                             }});

    updater.uninstall();
    QTRY_COMPARE(seen, events);
    // Raised rights only for a tree the player cannot write.
    QCOMPARE(QFile::remove(m_scratch.filePath(QStringLiteral("bin/pkexec.asked"))), readOnly);
    QCOMPARE(QFileInfo::exists(installPath), tree != QLatin1String("missing") && !events.contains("state:install"));
    // The player's choice of folder and the staged downloads outlive the tree.
    QCOMPARE(m_settings.installPath(), QDir::toNativeSeparators(installPath));
    QVERIFY(m_settings.hasSelectedInstallPath());
    QVERIFY(QFileInfo::exists(Updater::stagingDirectory() + QStringLiteral("/data.bin")));
}

QTEST_GUILESS_MAIN(TestUpdaterUninstall)
#include "tst_updater_uninstall.moc"
