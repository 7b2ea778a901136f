#include <QDir>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

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
    bool mount(const QStringList &arguments);

    IsolatedSettings m_isolation;
    QTemporaryDir m_scratch;
    TestHttpServer m_server;
    std::unique_ptr<Settings> m_settings;
    QString m_mountPoint;
    bool m_mounted = false;
};

namespace
{
    const QByteArray StandInPkexec = "touch \"$STANDIN_ASKED\"\n"
                                     "case \"$STANDIN_MODE\" in\n"
                                     "refuse) exit 126 ;;\n"
                                     "grant) mount -o remount,rw \"$STANDIN_MOUNT\" || exit 127 ;;\n"
                                     "esac\n"
                                     "exec \"$@\"\n";
}

bool TestUpdaterUninstall::mount(const QStringList &arguments)
{
    QProcess process;
    process.start(QStringLiteral("mount"), arguments);
    return process.waitForFinished() && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

void TestUpdaterUninstall::initTestCase()
{
    m_server.setContent(QStringLiteral("/game/data.bin"), "game data");
    m_server.setContent(QStringLiteral("/game/checksums.txt.gz"),
                        TestManifest::body(QMap<QString, QByteArray> {{"/data.bin", "game data"}}));
    m_settings = std::make_unique<Settings>(
        TestFiles::writeConfiguration(
            m_scratch.path(),
            {{"applicationName", "Uninstall Test"}, {"updateUrl", QString(m_server.baseUrl().toString() + "/game")}}),
        nullptr);

    const QString bin = m_scratch.filePath(QStringLiteral("bin"));
    QVERIFY(TestFiles::write(bin + QStringLiteral("/pkexec"), "#!/bin/sh\n" + StandInPkexec));
    QFile::setPermissions(bin + QStringLiteral("/pkexec"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    qputenv("PATH", bin.toUtf8() + ':' + qgetenv("PATH"));
    qputenv("STANDIN_ASKED", m_scratch.filePath(QStringLiteral("asked")).toUtf8());
    m_mountPoint = m_scratch.filePath(QStringLiteral("mount"));
    qputenv("STANDIN_MOUNT", m_mountPoint.toUtf8());
}

void TestUpdaterUninstall::cleanup()
{
    if (m_mounted && mount({QStringLiteral("-o"), QStringLiteral("remount,rw"), m_mountPoint}))
        QProcess::execute(QStringLiteral("umount"), {m_mountPoint});
    m_mounted = false;
    UserPrompt::setHandlers({});
}

void TestUpdaterUninstall::uninstall_data()
{
    QTest::addColumn<QString>("tree"); // "missing", "writable" or "read-only"
    QTest::addColumn<bool>("answerYes");
    QTest::addColumn<QByteArray>("pkexec");
    QTest::addColumn<bool>("asked");
    QTest::addColumn<bool>("elevated");
    QTest::addColumn<QStringList>("events");

    const QStringList removed {"state:install", "checking", "available:install"};
    const QStringList none;
    QTest::newRow("missing directory") << "missing" << true << QByteArray() << false << false << none;
    QTest::newRow("declined") << "writable" << false << QByteArray() << true << false << none;
    QTest::newRow("writable tree") << "writable" << true << QByteArray() << true << false << removed;
    QTest::newRow("read-only, elevation refused")
        << "read-only" << true << QByteArray("refuse") << true << true
        << QStringList {"error:Failed to uninstall - could not get necessary permissions"};
    QTest::newRow("read-only, tool cannot remove")
        << "read-only" << true << QByteArray("run") << true << true
        << QStringList {"error:Some files could not be removed during uninstall"};
    QTest::newRow("read-only, elevation granted")
        << "read-only" << true << QByteArray("grant") << true << true << removed;
}

void TestUpdaterUninstall::uninstall()
{
    QFETCH(QString, tree);
    QFETCH(bool, answerYes);
    QFETCH(QByteArray, pkexec);
    QFETCH(bool, asked);
    QFETCH(bool, elevated);
    QFETCH(QStringList, events);

    // Below the mount point, since a mount point itself cannot be removed;
    // the blank must survive the elevated command line.
    const QString installPath = m_mountPoint + QStringLiteral("/game files");
    QDir(m_mountPoint).removeRecursively();
    QVERIFY(QDir().mkpath(m_mountPoint));
    if (tree == QLatin1String("read-only")) {
        if (!mount({QStringLiteral("-t"), QStringLiteral("tmpfs"), QStringLiteral("-o"), QStringLiteral("size=1m"),
                    QStringLiteral("tmpfs"), m_mountPoint}))
            QSKIP("A tree that cannot be written needs a read-only mount, which needs root");
        m_mounted = true;
    }
    if (tree != QLatin1String("missing")) {
        QVERIFY(TestFiles::write(installPath + QStringLiteral("/.initcomplete"), {}));
        QVERIFY(TestFiles::write(installPath + QStringLiteral("/data/a.bin"), "a"));
    }
    if (m_mounted)
        QVERIFY(mount({QStringLiteral("-o"), QStringLiteral("remount,ro"), m_mountPoint}));
    const QString staged = Updater::stagingDirectory() + QStringLiteral("/data.bin");
    QVERIFY(TestFiles::write(staged, "staged"));

    m_settings->setInstallPath(installPath);
    m_settings->setHasSelectedInstallPath(true);
    m_settings->setLastUpdateCheck(QString());
    qputenv("STANDIN_MODE", pkexec);
    QFile::remove(m_scratch.filePath(QStringLiteral("asked")));

    Updater updater;
    updater.setToolProgram(QStringLiteral(LAUNCHER_BINARY));
    QStringList seen;
    connect(&updater, &Updater::stateChanged, this, [&seen](const QString &state) { seen << "state:" + state; });
    connect(&updater, &Updater::checkingForUpdates, this, [&seen] { seen << QStringLiteral("checking"); });
    connect(&updater, &Updater::updateAvailable, this, [&seen](const QString &state) { seen << "available:" + state; });
    connect(&updater, &Updater::downloadError, this, [&seen](const QString &error) { seen << "error:" + error; });
    QStringList questions;
    UserPrompt::setHandlers({{}, {}, {}, [&questions, answerYes](const QString &title, const QString &text, QWidget *) {
                                 questions << title << text;
                                 return answerYes ? UserPrompt::Answer::Yes : UserPrompt::Answer::No;
                             }});

    updater.uninstall();
    QTRY_COMPARE(seen, events);

    QCOMPARE(questions.isEmpty(), !asked);
    QCOMPARE(QFileInfo::exists(m_scratch.filePath(QStringLiteral("asked"))), elevated);
    const bool gone = events == QStringList {"state:install", "checking", "available:install"};
    QCOMPARE(QFileInfo::exists(installPath), tree != QLatin1String("missing") && !gone);
    QCOMPARE(m_settings->installPath(), QDir::toNativeSeparators(installPath));
    QVERIFY(m_settings->hasSelectedInstallPath());
    QVERIFY(QFileInfo::exists(staged));
}

QTEST_GUILESS_MAIN(TestUpdaterUninstall)
#include "tst_updater_uninstall.moc"
