#include <QProcess>
#include <QtTest>

#include "config/settings.h"
#include "isolatedsettings.h"
#include "support/testfiles.h"
#include "updater/updater.h"
#include "updater/userprompt.h"

namespace
{
    const auto mount = [](const QStringList &arguments) { return QProcess::execute("mount", arguments) == 0; };
}

// Removal by the real relocation tool. A tree the player cannot write lies on a read-only mount; a stand-in
// pkexec first on PATH refuses, runs the tool as it is, or makes the mount writable as raised rights would.
class TestUpdaterUninstall : public QObject
{
    Q_OBJECT

    IsolatedSettings m_isolation;
    QTemporaryDir m_scratch;
    Settings m_settings {TestFiles::writeConfiguration(m_scratch.path(), {{"applicationName", "Uninstall Test"}}),
                         nullptr};
    const QString m_mountPoint = m_scratch.filePath(QStringLiteral("mount"));
    // Below the mount point, which cannot itself be removed; the blank must survive the elevated command line.
    const QString m_installPath = m_mountPoint + QStringLiteral("/game files");
    const QString m_staged = Updater::stagingDirectory() + QStringLiteral("/data.bin");
    bool m_mounted = false;

private slots:
    void initTestCase()
    {
        const QString pkexec = m_scratch.filePath(QStringLiteral("bin/pkexec"));
        QVERIFY(TestFiles::write(pkexec,
                                 "#!/bin/sh\ntouch \"$0.asked\"\ncase \"$STANDIN_MODE\" in\nrefuse) exit 126 ;;\n"
                                 "grant) mount -o remount,rw \"${0%/bin/pkexec}/mount\" || exit 127 ;;\nesac\n"
                                 "exec \"$@\"\n"));
        QVERIFY(QFile::setPermissions(pkexec, QFile::ReadOwner | QFile::ExeOwner));
        qputenv("PATH", m_scratch.filePath(QStringLiteral("bin:")).toUtf8() + qgetenv("PATH"));
        QVERIFY(TestFiles::write(m_staged, "staged"));
        m_settings.setInstallPath(m_installPath);
        m_settings.setHasSelectedInstallPath(true);
    }

    void cleanup()
    {
        if (std::exchange(m_mounted, false) && mount({"-o", "remount,rw", m_mountPoint}))
            QProcess::execute(QStringLiteral("umount"), {m_mountPoint});
    }

    void uninstall_data()
    {
        QTest::addColumn<QString>("tree"); // "declined", "writable", or pkexec's answer if read-only
        QTest::addColumn<QStringList>("events");

        const QStringList removed {"install", "check"}; // the game's state, then a fresh check
        QTest::newRow("declined") << "declined" << QStringList();
        QTest::newRow("writable tree") << "writable" << removed;
        QTest::newRow("read-only, elevation refused")
            << "refuse" << QStringList {"Failed to uninstall - could not get necessary permissions"};
        QTest::newRow("read-only, tool cannot remove")
            << "run" << QStringList {"Some files could not be removed during uninstall"};
        QTest::newRow("read-only, elevation granted") << "grant" << removed;
    }

    void uninstall()
    {
        QFETCH(QString, tree);
        QFETCH(QStringList, events);
        const bool readOnly = QStringList {"refuse", "run", "grant"}.contains(tree);
        QVERIFY(QDir(m_installPath).removeRecursively() && QDir().mkpath(m_mountPoint));
        if (readOnly && !(m_mounted = mount({"-t", "tmpfs", "-o", "size=1m", "tmpfs", m_mountPoint})))
            QSKIP("A tree that cannot be written needs a read-only mount, which needs root");
        // Nested and a dot-file, which a removal that lists only visible files would leave.
        QVERIFY(TestFiles::write(m_installPath + "/data/.hidden", "a"));
        QVERIFY(!readOnly || mount({"-o", "remount,ro", m_mountPoint}));
        m_settings.setLastUpdateCheck(QString()); // else a second check within the second is skipped
        qputenv("STANDIN_MODE", tree.toUtf8());

        Updater updater;
        updater.setToolProgram(QStringLiteral(LAUNCHER_BINARY));
        QStringList seen;
        connect(&updater, &Updater::stateChanged, this, [&seen](const QString &state) { seen << state; });
        connect(&updater, &Updater::checkingForUpdates, this, [&seen] { seen << QStringLiteral("check"); });
        connect(&updater, &Updater::downloadError, this, [&seen](const QString &error) { seen << error; });
        const auto answer = tree == QLatin1String("declined") ? UserPrompt::Answer::No : UserPrompt::Answer::Yes;
        UserPrompt::setHandlers({{}, {}, {}, [answer](auto &&...) { return answer; }});

        updater.uninstall();
        QCOMPARE(seen, events);
        // Raised rights only for a tree the player cannot write.
        QCOMPARE(QFile::remove(m_scratch.filePath(QStringLiteral("bin/pkexec.asked"))), readOnly);
        QCOMPARE(QFileInfo::exists(m_installPath), !events.contains("install"));
        // The player's choice of folder and the staged downloads outlive the tree.
        QVERIFY(m_settings.installPath() == QDir::toNativeSeparators(m_installPath)
                && m_settings.hasSelectedInstallPath() && QFileInfo::exists(m_staged));
    }
};

QTEST_GUILESS_MAIN(TestUpdaterUninstall)
#include "tst_updater_uninstall.moc"
