#include <QDirIterator>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

#include "config/settings.h"
#include "isolatedsettings.h"
#include "support/testfiles.h"
#include "support/testhttpserver.h"
#include "support/testmanifest.h"
#include "updater/updater.h"

Q_DECLARE_METATYPE(TestHttpServer::Fault)

// The engine against a real loopback server, from the check to the files in
// the install directory, with the relocation tool run for real.
class TestUpdaterRun : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void freshInstallThenUpdate();
    void interruptedRunIsTakenUp();
    void progressCountsEveryFileOnce();
    void failedRuns_data();
    void failedRuns();
    void stalledRunCanBeCancelled();
    void largestFirstWithinTheLimit();
    void progressAndSpeed_data();
    void progressAndSpeed();
    void hostileKeysAreNeverTouched();
    void manifests_data();
    void manifests();
    void olderCheckNeverReplacesANewerOne();
    void stagingIsPrivate();
    void linkedFolderIsLeftAlone();
    void fileThatCannotBeStagedFailsTheRun();
    void fullDiskFailsTheRun();
    void secondLauncherIsTurnedAway();
    void ownTreeIsDeletedWithoutPassword();
    void installFailureRequiresRecheck();
    void gameRunning();

private:
    using Files = QMap<QString, QByteArray>;

    // Published the way a patch server publishes.
    void serve(const Files &files);
    void serveManifest(const QJsonObject &files) { m_server.setContent(ManifestPath, TestManifest::body(files)); }
    void startCheck();
    // These return the events once the outcome is known.
    QStringList check();
    QStringList run(int timeoutMs = 20000);
    QStringList waitForOutcome(int timeoutMs = 20000);
    QByteArray installed(const QString &relativePath) const;
    QStringList fileRequests() const;

    static inline const QString ManifestPath = QStringLiteral("/game/checksums.txt.gz");
    IsolatedSettings m_isolation;
    QTemporaryDir m_scratch;
    TestHttpServer m_server;
    std::unique_ptr<Settings> m_settings;
    std::unique_ptr<QTemporaryDir> m_install;
    std::unique_ptr<QTemporaryDir> m_served;
    std::unique_ptr<Updater> m_updater;
    QStringList m_events;
};

namespace
{
    using Fault = TestHttpServer::Fault;
    const QStringList Installed {QStringLiteral("state:installing"), QStringLiteral("complete")};
    const QStringList Available {QStringLiteral("available:install")};
    const QString Stalled = QStringLiteral("The patch server stopped sending data. Please try again later.");

    QByteArray bytes(qsizetype size, char fill)
    {
        QByteArray data(size, fill);
        for (qsizetype i = 0; i < size; i += 997)
            data[i] = static_cast<char>(i / 997);
        return data;
    }
}

void TestUpdaterRun::initTestCase()
{
    m_settings = std::make_unique<Settings>(
        TestFiles::writeConfiguration(
            m_scratch.path(),
            {{QStringLiteral("applicationName"), QStringLiteral("Run Test")},
             {QStringLiteral("updateUrl"), QString(m_server.baseUrl().toString() + QStringLiteral("/game"))},
             {QStringLiteral("executableName"), QStringLiteral("rungame.bin")}}),
        nullptr);
    // Private to the user and kept across reboots, not in the shared /tmp.
    QVERIFY(Updater::stagingDirectory().startsWith(
        QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation) + QLatin1Char('/')));
    QVERIFY(Updater::stagingDirectory().startsWith(m_isolation.home()));
}

void TestUpdaterRun::init()
{
    m_install = std::make_unique<QTemporaryDir>(m_scratch.filePath(QStringLiteral("install-XXXXXX")));
    m_served = std::make_unique<QTemporaryDir>(m_scratch.filePath(QStringLiteral("served-XXXXXX")));
    m_settings->setInstallPath(m_install->filePath(QStringLiteral("Hollowmere Run")));
    QDir(Updater::stagingDirectory()).removeRecursively();
    m_server.setRootDirectory(QStringLiteral("/game"), m_served->path());
    m_server.reset();

    m_updater = std::make_unique<Updater>();
    m_updater->setToolProgram(QStringLiteral(LAUNCHER_BINARY));
    m_events.clear();
    Updater *updater = m_updater.get();
    connect(updater, &Updater::updateAvailable, this, [this](const QString &kind) { m_events << "available:" + kind; });
    connect(updater, &Updater::noUpdateAvailable, this, [this] { m_events << QStringLiteral("none"); });
    connect(updater, &Updater::stateChanged, this, [this](const QString &state) { m_events << "state:" + state; });
    connect(updater, &Updater::downloadError, this, [this](const QString &error) { m_events << "error:" + error; });
    connect(updater, &Updater::updateComplete, this, [this] { m_events << QStringLiteral("complete"); });
}

void TestUpdaterRun::cleanup()
{
    if (QTest::currentTestFailed())
        qWarning() << "events:" << m_events;
    m_updater.reset();
}

void TestUpdaterRun::serve(const Files &files)
{
    for (auto it = files.cbegin(); it != files.cend(); ++it)
        QVERIFY(TestFiles::write(m_served->path() + it.key(), it.value()));
    QProcess publisher;
    publisher.start(
        QStringLiteral(LAUNCHER_PUBLISH_BINARY),
        {QStringLiteral("--output"), m_served->filePath(QStringLiteral("checksums.txt.gz")), m_served->path()});
    QVERIFY(publisher.waitForFinished(30000));
    QCOMPARE(publisher.exitCode(), 0);
}

void TestUpdaterRun::startCheck()
{
    // The engine collapses checks within one second of each other.
    m_settings->setLastUpdateCheck(QString());
    m_events.clear();
    m_updater->checkForUpdates();
}

QStringList TestUpdaterRun::check()
{
    startCheck();
    return waitForOutcome();
}

QStringList TestUpdaterRun::run(int timeoutMs)
{
    m_events.clear();
    m_updater->startUpdate();
    return waitForOutcome(timeoutMs);
}

QStringList TestUpdaterRun::waitForOutcome(int timeoutMs)
{
    // A time-out shows as the events so far.
    static_cast<void>(QTest::qWaitFor(
        [this] {
            return std::any_of(m_events.cbegin(), m_events.cend(), [](const QString &event) {
                return event == QLatin1String("none") || event == QLatin1String("complete")
                    || event.startsWith(QLatin1String("available:")) || event.startsWith(QLatin1String("error:"));
            });
        },
        timeoutMs));
    return m_events;
}

QByteArray TestUpdaterRun::installed(const QString &relativePath) const
{
    return TestFiles::read(m_settings->installPath() + relativePath);
}

QStringList TestUpdaterRun::fileRequests() const
{
    QStringList files = m_server.requests();
    files.removeAll(ManifestPath);
    return files;
}

void TestUpdaterRun::freshInstallThenUpdate()
{
    const Files files {{"/game.bin", bytes(300000, 'g')},
                       {"/data/maps/first map.map", bytes(5000, 'm')},
                       {"/data/empty.dat", QByteArray()}};
    serve(files);
    QVERIFY(!m_updater->isInstalled());
    QCOMPARE(check(), Available);
    QSignalSpy overall(m_updater.get(), &Updater::overallProgress);
    QCOMPARE(run(), Installed);
    QCOMPARE(overall.first(), (QVariantList {0LL, 305000LL}));
    for (auto it = files.cbegin(); it != files.cend(); ++it)
        QCOMPARE(installed(it.key()), it.value());
    QVERIFY(QFile::exists(m_settings->installPath() + QStringLiteral("/.initcomplete")));
    QVERIFY(m_updater->isInstalled());
    // Up to date now, and nothing is left staged.
    QCOMPARE(check(), QStringList {"none"});
    QCOMPARE(m_updater->installStagedFiles(), 2);

    // A patch fetches the changed file alone.
    serve({{"/data/maps/first map.map", bytes(5500, 'M')}});
    m_server.resetStatistics();
    QCOMPARE(check(), QStringList {"available:update"});
    QCOMPARE(run(), (QStringList {"state:updating", "complete"}));
    QCOMPARE(fileRequests(), QStringList {"/game/data/maps/first map.map"});
    QCOMPARE(installed(QStringLiteral("/data/maps/first map.map")), bytes(5500, 'M'));
    QCOMPARE(installed(QStringLiteral("/game.bin")), files.value(QStringLiteral("/game.bin")));
}

void TestUpdaterRun::interruptedRunIsTakenUp()
{
    serve({{"/a.bin", bytes(1000, 'a')}, {"/b.bin", bytes(2000, 'b')}});
    // What a run broken off leaves: one good staged file, one partial one.
    const QString staging = Updater::stagingDirectory();
    QVERIFY(TestFiles::write(staging + QStringLiteral("/a.bin"), bytes(1000, 'a')));
    QVERIFY(TestFiles::write(staging + QStringLiteral("/b.bin"), bytes(700, 'b')));
    QCOMPARE(check(), Available);
    QCOMPARE(run(), Installed);
    QCOMPARE(fileRequests(), QStringList {"/game/b.bin"});
    QCOMPARE(installed(QStringLiteral("/a.bin")), bytes(1000, 'a'));

    // Killed between download and move: everything good is staged.
    serve({{"/a.bin", bytes(1100, 'A')}});
    QVERIFY(TestFiles::write(staging + QStringLiteral("/a.bin"), bytes(1100, 'A')));
    QCOMPARE(check(), QStringList {"none"});
    QCOMPARE(m_updater->installStagedFiles(), 0);
    QCOMPARE(installed(QStringLiteral("/a.bin")), bytes(1100, 'A'));
    QCOMPARE(m_updater->installStagedFiles(), 2);
}

void TestUpdaterRun::progressCountsEveryFileOnce()
{
    Files files;
    for (int i = 0; i < 400; ++i)
        files.insert(QStringLiteral("/many/f%1.bin").arg(i, 3, 10, QLatin1Char('0')),
                     bytes(2000 + i, char('a' + i % 26)));
    serve(files);

    QSignalSpy started(m_updater.get(), &Updater::verificationStarted);
    QList<int> counts;
    bool outcomeSeen = false;
    bool countAfterOutcome = false;
    connect(m_updater.get(), &Updater::verificationProgress, this, [&](int checked, int total) {
        QCOMPARE(total, 400);
        counts.append(checked);
        countAfterOutcome |= outcomeSeen;
    });
    connect(m_updater.get(), &Updater::updateAvailable, this, [&] { outcomeSeen = true; });
    QCOMPARE(check(), Available);

    // Each count once, in order, all of them before the outcome.
    QCOMPARE(started.count(), 1);
    QCOMPARE(started.first().first().toInt(), 400);
    QCOMPARE(counts.size(), 400);
    for (int i = 0; i < counts.size(); ++i)
        QCOMPARE(counts.at(i), i + 1);
    QVERIFY(!countAfterOutcome);
}

void TestUpdaterRun::failedRuns_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<QByteArray>("listed"); // what the manifest says a.bin is, when not what is served
    QTest::addColumn<QString>("error"); // empty: the run completes; "*": the network stack's own text

    const QString file = QStringLiteral("/game/a.bin");
    const QString network = QStringLiteral("Network error occurred");
    const QString verification = QStringLiteral("File verification failed");
    QTest::newRow("file not found") << file << Fault {Fault::Status, 404} << QByteArray() << "*";
    QTest::newRow("reset in the body") << file << Fault {Fault::Reset, 0, 5000} << QByteArray() << "*";
    QTest::newRow("short body") << file << Fault {Fault::ShortBody, 0, 5000} << QByteArray() << "*";
    QTest::newRow("slow but steady") << file << Fault {Fault::Trickle, 0, 20000, 100} << QByteArray() << QString();
    QTest::newRow("file stalls") << file << Fault {Fault::Stall, 0, 1000} << QByteArray() << Stalled;
    QTest::newRow("file trickles") << file << Fault {Fault::Trickle, 0, 1, 100} << QByteArray() << Stalled;
    QTest::newRow("checksum differs") << file << Fault() << bytes(200000, 'x') << verification;
    // The manifest speaks of 4 KiB; the server sends on and on.
    QTest::newRow("file longer than listed") << file << Fault() << bytes(4096, 'a') << verification;
    QTest::newRow("manifest answers 503") << ManifestPath << Fault {Fault::Status, 503} << QByteArray() << network;
    QTest::newRow("manifest trickles") << ManifestPath << Fault {Fault::Trickle, 0, 1, 100} << QByteArray() << network;
    QTest::newRow("manifest held open") << ManifestPath << Fault {Fault::Stall, 0, 8} << QByteArray() << network;
}

void TestUpdaterRun::failedRuns()
{
    QFETCH(QString, path);
    QFETCH(Fault, fault);
    QFETCH(QByteArray, listed);
    QFETCH(QString, error);

    m_updater->setStallTimeout(500);
    serve({{"/a.bin", bytes(200000, 'a')}, {"/b.bin", bytes(1000, 'b')}});
    if (!listed.isEmpty())
        serveManifest({{QStringLiteral("/a.bin"), TestManifest::entry(listed)},
                       {QStringLiteral("/b.bin"), TestManifest::entry(bytes(1000, 'b'))}});
    m_server.setFault(path, fault);
    check();
    if (path != ManifestPath)
        run();
    if (error.isEmpty()) {
        QCOMPARE(m_events, Installed);
        QCOMPARE(installed(QStringLiteral("/a.bin")), bytes(200000, 'a'));
        return;
    }

    const QString reported = m_events.filter(QRegularExpression("^error:")).value(0);
    if (error == QLatin1String("*"))
        QVERIFY2(reported.size() > 10 && !reported.contains(QLatin1String("verification")), qPrintable(reported));
    else
        QCOMPARE(reported, "error:" + error);
    QTRY_VERIFY(m_events.contains(QStringLiteral("state:update")));
    QVERIFY(QFileInfo(Updater::stagingDirectory() + QStringLiteral("/a.bin")).size()
            <= (listed.isEmpty() ? 200000 : listed.size()));
    QVERIFY(!m_updater->isInstalled());
    if (path == ManifestPath || !listed.isEmpty())
        return;

    // The queue survives for the next click.
    m_server.clearFaults();
    QCOMPARE(run(), Installed);
}

void TestUpdaterRun::stalledRunCanBeCancelled()
{
    serve({{"/a.bin", bytes(100000, 'a')}});
    m_server.setFault(QStringLiteral("/game/a.bin"), {Fault::Stall, 0, 1000});
    check();
    m_events.clear();
    m_updater->startUpdate();
    QTRY_VERIFY(fileRequests().contains(QStringLiteral("/game/a.bin")));
    QTest::qWait(300);
    QCOMPARE(m_events, QStringList {"state:installing"});

    m_updater->cancelAllDownloads();
    QCOMPARE(m_events, (QStringList {"state:installing", "state:update"}));
    // What arrived is on disk and stays staged; the next check fetches it again.
    QCOMPARE(QFileInfo(Updater::stagingDirectory() + QStringLiteral("/a.bin")).size(), 1000);
    QCOMPARE(check(), Available);
}

void TestUpdaterRun::largestFirstWithinTheLimit()
{
    Files files {{"/zz_largest.bin", bytes(400000, 'z')}};
    for (int i = 0; i < maxConcurrentDownloads * 3; ++i)
        files.insert(QStringLiteral("/f%1.bin").arg(i), bytes(20000 + i * 1000, char('a' + i)));
    serve(files);
    // Slow enough that transfers overlap.
    for (auto it = files.cbegin(); it != files.cend(); ++it)
        m_server.setFault(QStringLiteral("/game") + it.key(), {Fault::Trickle, 0, 10000, 20});
    check();
    m_server.resetStatistics();
    QCOMPARE(run(30000), Installed);
    QCOMPARE(fileRequests().size(), files.size());
    QCOMPARE(fileRequests().first(), QStringLiteral("/game/zz_largest.bin"));
    QCOMPARE(m_server.maxConcurrentRequests(), qMin(maxConcurrentDownloads, int(files.size())));
}

void TestUpdaterRun::progressAndSpeed_data()
{
    QTest::addColumn<qint64>("piece");
    QTest::addColumn<int>("intervalMs");
    QTest::newRow("steady") << qint64(30000) << 100;
    // As a rate-limited server delivers: a burst a second.
    QTest::newRow("bursts") << qint64(150000) << 1000;
}

void TestUpdaterRun::progressAndSpeed()
{
    QFETCH(qint64, piece);
    QFETCH(int, intervalMs);
    serve({{"/big.bin", bytes(600000, 'p')}});
    m_server.setFault(QStringLiteral("/game/big.bin"), {Fault::Trickle, 0, piece, intervalMs});
    check();
    QSignalSpy overall(m_updater.get(), &Updater::overallProgress);
    QSignalSpy speed(m_updater.get(), &Updater::downloadProgress);
    QCOMPARE(run(30000), Installed);

    // The circle moves while bytes arrive, not only at the end, and never back.
    QCOMPARE(overall.first(), (QVariantList {0LL, 600000LL}));
    QVERIFY(std::any_of(overall.cbegin(), overall.cend(), [](const QVariantList &a) {
        return a.at(0).toLongLong() > 0 && a.at(0).toLongLong() < 600000;
    }));
    qlonglong previous = 0;
    for (const QVariantList &arguments : std::as_const(overall)) {
        QVERIFY(arguments.at(0).toLongLong() >= previous);
        QCOMPARE(arguments.at(1).toLongLong(), 600000LL);
        previous = arguments.at(0).toLongLong();
    }
    QVERIFY(
        std::any_of(speed.cbegin(), speed.cend(), [](const QVariantList &a) { return a.first().toLongLong() > 0; }));
}

void TestUpdaterRun::hostileKeysAreNeverTouched()
{
    const QByteArray payload("owned");
    QJsonObject files;
    for (const char *key :
         {"/../escape.txt", "/sub/../../escape2.txt", "C:/escape3.txt", "//escape4.txt", "/", "/ok.txt"})
        files.insert(QLatin1String(key), TestManifest::entry(payload));
    serveManifest(files);
    m_server.setContent(QStringLiteral("/game/ok.txt"), payload);
    m_server.setContent(QStringLiteral("/escape.txt"), payload);

    QSignalSpy started(m_updater.get(), &Updater::verificationStarted);
    check();
    QCOMPARE(started.first().first().toInt(), 1);
    QCOMPARE(run(), Installed);
    QCOMPARE(fileRequests(), QStringList {"/game/ok.txt"});
    QDirIterator it(m_scratch.path(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext())
        QVERIFY2(!QFileInfo(it.next()).fileName().startsWith(QLatin1String("escape")), qPrintable(it.filePath()));
}

void TestUpdaterRun::manifests_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("redirected");
    // Whatever makes the parser give up takes one path here; the parser's
    // own test has the many ways to get there.
    QTest::newRow("redirected") << TestManifest::body(Files {{"/a.bin", "a"}}) << true;
    QTest::newRow("not framed") << QByteArray(R"({"files": {"/a.bin": {"checksum": "00000000", "size": 0}}})") << false;
    QTest::newRow("empty body") << QByteArray() << false;
    QTest::newRow("no files listed") << qCompress(R"({"files": {}})") << false;
    QTest::newRow("every key refused") << qCompress(R"({"files": {"/../a.bin": {"checksum": "0", "size": 0}}})")
                                       << false;
    QTest::newRow("over 64 MiB") << QByteArray(65 * 1024 * 1024, 'x') << false;
}

void TestUpdaterRun::manifests()
{
    QFETCH(QByteArray, body);
    QFETCH(bool, redirected);
    // A redirect is followed; the newest check is known by its request.
    const QString path = redirected ? QStringLiteral("/game/mirror.dat") : ManifestPath;
    m_server.setContent(path, body);
    if (redirected) {
        m_server.setRedirect(ManifestPath, path);
        QCOMPARE(check(), Available);
        return;
    }
    QCOMPARE(check(),
             QStringList {"error:The patch server sent a list of game files that cannot be used. Please try "
                          "again later."});

    // The button stays usable, and a press asks the server again.
    QSignalSpy checking(m_updater.get(), &Updater::checkingForUpdates);
    m_settings->setLastUpdateCheck(QString());
    m_updater->startUpdate();
    QCOMPARE(checking.count(), 1);
}

void TestUpdaterRun::olderCheckNeverReplacesANewerOne()
{
    serve({{"/a.bin", bytes(100000, 'a')}});
    // The first check's manifest is slow and would land in the middle of
    // the run that the second check allows.
    m_server.setFault(ManifestPath, {Fault::Trickle, 0, 20, 300});
    startCheck();
    QTRY_VERIFY(m_server.requests().contains(ManifestPath));
    m_server.clearFaults();
    QCOMPARE(check(), Available);

    m_server.setFault(QStringLiteral("/game/a.bin"), {Fault::Trickle, 0, 10000, 300});
    QCOMPARE(run(), Installed);
    QCOMPARE(fileRequests(), QStringList {"/game/a.bin"});
    QCOMPARE(installed(QStringLiteral("/a.bin")), bytes(100000, 'a'));
}

void TestUpdaterRun::stagingIsPrivate()
{
    serve({{"/a.bin", bytes(1000, 'a')}, {"/b.bin", bytes(2000, 'b')}});
    const QString staging = Updater::stagingDirectory();
    const QString victim = m_scratch.filePath(QStringLiteral("victim.txt"));
    // What another account or an old version could leave: a link to
    // someone's file, a file the manifest never named, and pipes that block
    // whoever reads them.
    QVERIFY(TestFiles::write(victim, "precious"));
    QVERIFY(TestFiles::write(staging + QStringLiteral("/planted.exe"), "planted"));
    QVERIFY(QFile::link(victim, staging + QStringLiteral("/a.bin")));
    QDir().mkpath(m_settings->installPath());
    QCOMPARE(QProcess::execute(QStringLiteral("mkfifo"), {staging + QStringLiteral("/b.bin")}), 0);
    QCOMPARE(QProcess::execute(QStringLiteral("mkfifo"), {m_settings->installPath() + QStringLiteral("/b.bin")}), 0);

    QCOMPARE(check(), Available);
    QCOMPARE(run(), Installed);
    QCOMPARE(TestFiles::read(victim), QByteArray("precious"));
    QCOMPARE(installed(QStringLiteral("/a.bin")), bytes(1000, 'a'));
    QCOMPARE(installed(QStringLiteral("/b.bin")), bytes(2000, 'b'));
    QVERIFY(!QFileInfo::exists(m_settings->installPath() + QStringLiteral("/planted.exe")));
    const QFile::Permissions others = QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup | QFile::ReadOther
        | QFile::WriteOther | QFile::ExeOther;
    QCOMPARE(QFileInfo(staging).permissions() & others, QFile::Permissions());

    // A staging folder that belongs to someone else is not written to.
    if (QFileInfo(m_scratch.path()).ownerId() != 0)
        QSKIP("Handing a folder to another account needs root");
    QCOMPARE(QProcess::execute(QStringLiteral("chown"), {QStringLiteral("65534"), staging}), 0);
    serve({{"/a.bin", bytes(1500, 'A')}});
    check();
    m_server.resetStatistics();
    const QStringList events = run();
    QCOMPARE(events.size(), 1);
    QVERIFY2(events.first().startsWith(QLatin1String("error:The download folder")), qPrintable(events.first()));
    QVERIFY(fileRequests().isEmpty());
}

void TestUpdaterRun::linkedFolderIsLeftAlone()
{
    const QString outside = m_scratch.filePath(QStringLiteral("outside"));
    QVERIFY(TestFiles::write(outside + QStringLiteral("/x.bin"), "mine"));
    QDir().mkpath(m_settings->installPath());
    QVERIFY(QFile::link(outside, m_settings->installPath() + QStringLiteral("/data")));
    serve({{"/data/x.bin", bytes(100, 'x')}, {"/y.bin", bytes(100, 'y')}});

    check();
    QVERIFY(QTest::qWaitFor([this] { return m_events.size() >= 2; }, 10000));
    QCOMPARE(m_events.first(), QStringLiteral("available:install"));
    QVERIFY2(m_events.at(1).contains(QLatin1String("/data/x.bin")), qPrintable(m_events.at(1)));
    QCOMPARE(run(), Installed);
    QCOMPARE(fileRequests(), QStringList {"/game/y.bin"});
    QCOMPARE(TestFiles::read(outside + QStringLiteral("/x.bin")), QByteArray("mine"));
}

void TestUpdaterRun::fileThatCannotBeStagedFailsTheRun()
{
    // A folder of an older version where a file now goes is cleared away.
    serve({{"/a.bin", bytes(1000, 'a')}});
    QVERIFY(TestFiles::write(Updater::stagingDirectory() + QStringLiteral("/a.bin/old.dat"), "old"));
    check();
    QCOMPARE(run(), Installed);
    QCOMPARE(installed(QStringLiteral("/a.bin")), bytes(1000, 'a'));

    // "/c" and "/c/d.bin" cannot both be files: the run must not pass for
    // complete without one of them.
    QDir(m_settings->installPath()).removeRecursively();
    serve({{"/c/d.bin", bytes(3000, 'd')}});
    m_server.setContent(QStringLiteral("/game/c"), bytes(10, 'c'));
    serveManifest({{QStringLiteral("/c"), TestManifest::entry(bytes(10, 'c'))},
                   {QStringLiteral("/c/d.bin"), TestManifest::entry(bytes(3000, 'd'))}});
    check();
    QCOMPARE(run(),
             (QStringList {"state:installing", "state:update", "error:Could not create temporary file for download"}));
    QVERIFY(!m_updater->isInstalled());
}

void TestUpdaterRun::fullDiskFailsTheRun()
{
    if (QFileInfo(m_scratch.path()).ownerId() != 0)
        QSKIP("Mounting a small file system for the staging folder needs root");
    const QString staging = Updater::stagingDirectory();
    QDir().mkpath(staging);
    if (QProcess::execute(QStringLiteral("mount"), {"-t", "tmpfs", "-o", "size=1m,mode=0700", "tmpfs", staging}) != 0)
        QSKIP("This system does not let a test mount a file system");
    const auto unmount = qScopeGuard([&] { QProcess::execute(QStringLiteral("umount"), {staging}); });

    serve({{"/big.bin", bytes(3 * 1024 * 1024, 'b')}, {"/small.bin", bytes(1000, 's')}});
    check();
    QCOMPARE(run(), (QStringList {"state:installing", "state:update", "error:Failed to write download data to file"}));
    QVERIFY(!m_updater->isInstalled());
}

void TestUpdaterRun::secondLauncherIsTurnedAway()
{
    serve({{"/a.bin", bytes(100000, 'a')}});
    m_server.setFault(QStringLiteral("/game/a.bin"), {Fault::Trickle, 0, 20000, 200});
    check();
    m_events.clear();
    m_updater->startUpdate();

    Updater second;
    QStringList secondEvents;
    connect(&second, &Updater::updateAvailable, this, [&](const QString &kind) { secondEvents << kind; });
    connect(&second, &Updater::downloadError, this, [&](const QString &error) { secondEvents << error; });
    connect(&second, &Updater::stateChanged, this, [&](const QString &state) { secondEvents << state; });
    m_settings->setLastUpdateCheck(QString());
    second.checkForUpdates();
    QTRY_COMPARE(secondEvents, QStringList {"install"});
    second.startUpdate();
    // Turned away before it touches the staging directory: no run starts.
    QCOMPARE(secondEvents.size(), 2);
    QVERIFY2(secondEvents.last().contains(QLatin1String("another launcher")), qPrintable(secondEvents.last()));

    QCOMPARE(waitForOutcome(), Installed);
    QCOMPARE(installed(QStringLiteral("/a.bin")), bytes(100000, 'a'));
}

void TestUpdaterRun::ownTreeIsDeletedWithoutPassword()
{
    // A stand-in for polkit that notes it was asked.
    const QString bin = m_scratch.filePath(QStringLiteral("bin"));
    const QString asked = m_scratch.filePath(QStringLiteral("asked"));
    QVERIFY(
        TestFiles::write(bin + QStringLiteral("/pkexec"), "#!/bin/sh\ntouch '" + asked.toUtf8() + "'\nexec \"$@\"\n"));
    QFile::setPermissions(bin + QStringLiteral("/pkexec"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    const QByteArray path = qgetenv("PATH");
    qputenv("PATH", bin.toUtf8() + ':' + path);

    const QString tree = m_scratch.filePath(QStringLiteral("tree"));
    QVERIFY(TestFiles::write(tree + QStringLiteral("/sub/a.bin"), "a"));
    QVERIFY(TestFiles::write(tree + QStringLiteral("/.initcomplete"), ""));
    const bool removed = m_updater->runInstaller(tree, QString(), {});
    qputenv("PATH", path);
    QVERIFY(removed);
    QVERIFY(!QFileInfo::exists(tree));
    QVERIFY(!QFileInfo::exists(asked));
}

void TestUpdaterRun::installFailureRequiresRecheck()
{
    serve({{"/a.bin", bytes(1000, 'a')}});
    check();
    // A tool that cannot run: the move fails after a good download.
    m_updater->setToolProgram(m_scratch.filePath(QStringLiteral("no-such-tool")));
    run();
    QTRY_COMPARE(m_events,
                 (QStringList {"state:installing", "error:Failed to start installation process", "state:update"}));

    m_updater->setToolProgram(QStringLiteral(LAUNCHER_BINARY));
    QSignalSpy checking(m_updater.get(), &Updater::checkingForUpdates);
    m_settings->setLastUpdateCheck(QString());
    QCOMPARE(run(), QStringList {"none"});
    QCOMPARE(checking.count(), 1);
    QCOMPARE(m_updater->installStagedFiles(), 0);
    QCOMPARE(installed(QStringLiteral("/a.bin")), bytes(1000, 'a'));
}

void TestUpdaterRun::gameRunning()
{
    serve({{"/a.bin", bytes(1000, 'a')}});
    const QString sleep = QStandardPaths::findExecutable(QStringLiteral("sleep"));
    const QString game = m_settings->installPath() + QStringLiteral("/rungame.bin");
    QDir().mkpath(m_settings->installPath());
    QVERIFY(QFile::copy(sleep, game));
    QVERIFY(!m_updater->isGameRunning());

    const auto start = [](QProcess &process, const QString &program) {
        process.start(program, {QStringLiteral("30")});
        return process.waitForStarted();
    };
    {
        // The same name started from elsewhere is not this installation's game.
        const QString other = m_scratch.filePath(QStringLiteral("rungame.bin"));
        QFile::copy(sleep, other);
        QProcess process;
        QVERIFY(start(process, other));
        QVERIFY(!m_updater->isGameRunning());
        process.kill();
        process.waitForFinished();
    }

    QProcess process;
    QVERIFY(start(process, game));
    QVERIFY(m_updater->isGameRunning());
    // Separators and letter case of the stored path do not matter.
    const QString stored = m_settings->installPath();
    m_settings->setInstallPath(stored.toUpper() == stored ? stored : stored + QStringLiteral("/./"));
    QVERIFY(m_updater->isGameRunning());
    m_settings->setInstallPath(stored);

    check();
    QCOMPARE(run(),
             QStringList {"error:Update cannot be performed while the game is running. Please close the game "
                          "before updating."});
    process.kill();
    process.waitForFinished();
    QVERIFY(!m_updater->isGameRunning());
}

QTEST_GUILESS_MAIN(TestUpdaterRun)
#include "tst_updater_run.moc"
