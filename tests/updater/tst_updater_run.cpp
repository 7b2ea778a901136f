#include <QDirIterator>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>
#include <numeric>

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
    void cleanup() { m_updater.reset(); }

    void installThenPatch();
    void failedRuns_data();
    void failedRuns();
    void transfers_data();
    void transfers();
    void foreignFilesAreLeftAlone();
    void refusedRuns_data();
    void refusedRuns();
    void overlappingChecksAndLaunchers();
    void gameRunning();

private:
    using Files = QMap<QString, QByteArray>;

    // Published the way a patch server publishes.
    void serve(const Files &files);
    void serveManifest(const QJsonObject &files) { m_server.setContent(ManifestPath, TestManifest::body(files)); }
    void record(Updater *updater, QStringList *events);
    // These return the events once the outcome is known.
    QStringList check();
    QStringList run(int timeoutMs = 20000);
    QStringList waitForOutcome(int timeoutMs = 20000);
    QByteArray installed(const QString &relativePath) const { return TestFiles::read(installPath() + relativePath); }
    QString installPath() const { return m_settings->installPath(); }
    // Sorted, the manifest left out.
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
    record(m_updater.get(), &m_events);
}

void TestUpdaterRun::record(Updater *updater, QStringList *events)
{
    connect(updater, &Updater::updateAvailable, this,
            [events](const QString &kind) { *events << "available:" + kind; });
    connect(updater, &Updater::noUpdateAvailable, this, [events] { *events << QStringLiteral("none"); });
    connect(updater, &Updater::stateChanged, this, [events](const QString &state) { *events << "state:" + state; });
    connect(updater, &Updater::downloadError, this, [events](const QString &error) { *events << "error:" + error; });
    connect(updater, &Updater::updateComplete, this, [events] { *events << QStringLiteral("complete"); });
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

QStringList TestUpdaterRun::check()
{
    // The engine collapses checks within one second of each other.
    m_settings->setLastUpdateCheck(QString());
    m_events.clear();
    m_updater->checkForUpdates();
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
    static const QRegularExpression outcome(QStringLiteral("^(none|complete|available:|error:)"));
    static_cast<void>(QTest::qWaitFor([this] { return !m_events.filter(outcome).isEmpty(); }, timeoutMs));
    return m_events;
}

QStringList TestUpdaterRun::fileRequests() const
{
    QStringList files = m_server.requests();
    files.removeAll(ManifestPath);
    files.sort();
    return files;
}

void TestUpdaterRun::installThenPatch()
{
    // Enough files that the verification's workers share them out.
    Files files {{"/game.bin", bytes(300000, 'g')}, {"/data/maps/first map.map", bytes(5000, 'm')}, {"/empty.dat", {}}};
    for (int i = 0; i < 400; ++i)
        files.insert(QStringLiteral("/many/f%1.bin").arg(i), bytes(100 + i, char('a' + i % 26)));
    serve(files);
    // What a run broken off leaves: one good staged file, one partial one,
    // and a folder of an older version where a file now goes.
    const QString staging = Updater::stagingDirectory();
    QVERIFY(TestFiles::write(staging + QStringLiteral("/game.bin"), bytes(300000, 'g')));
    QVERIFY(TestFiles::write(staging + QStringLiteral("/data/maps/first map.map"), bytes(700, 'm')));
    QVERIFY(TestFiles::write(staging + QStringLiteral("/empty.dat/old.dat"), "old"));
    QVERIFY(!m_updater->isInstalled());
    QList<int> counts;
    connect(m_updater.get(), &Updater::verificationProgress, this, [&](int checked, int total) {
        // Each count once, in order, all of them before the outcome.
        counts << (total == files.size() && m_events.isEmpty() ? checked : -1);
    });
    QCOMPARE(check(), Available);
    QList<int> everyCount(files.size());
    std::iota(everyCount.begin(), everyCount.end(), 1);
    QCOMPARE(counts, everyCount);

    QCOMPARE(run(), Installed);
    QCOMPARE(fileRequests().size(), files.size() - 1);
    QVERIFY(!fileRequests().contains(QStringLiteral("/game/game.bin")));
    for (auto it = files.cbegin(); it != files.cend(); ++it)
        QCOMPARE(installed(it.key()), it.value());
    QVERIFY(QFile::exists(installPath() + QStringLiteral("/.initcomplete")));
    QVERIFY(m_updater->isInstalled());
    // Up to date now, and nothing is left staged.
    QCOMPARE(check(), QStringList {"none"});
    QCOMPARE(m_updater->installStagedFiles(), 2);

    // Killed between download and move: everything good is staged.
    const QString map = QStringLiteral("/data/maps/first map.map");
    serve({{map, bytes(5500, 'M')}});
    QVERIFY(TestFiles::write(staging + map, bytes(5500, 'M')));
    QCOMPARE(check(), QStringList {"none"});
    QCOMPARE(m_updater->installStagedFiles(), 0);
    QCOMPARE(installed(map), bytes(5500, 'M'));
    QCOMPARE(m_updater->installStagedFiles(), 2);

    // A patch fetches the changed file alone.
    serve({{map, bytes(6000, 'n')}});
    m_server.resetStatistics();
    QCOMPARE(check(), QStringList {"available:update"});
    QCOMPARE(run(), (QStringList {"state:updating", "complete"}));
    QCOMPARE(fileRequests(), QStringList {"/game" + map});
    QCOMPARE(installed(map), bytes(6000, 'n'));
}

void TestUpdaterRun::failedRuns_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<Fault>("fault");
    // What the manifest says a.bin is, when not what is served; for the
    // manifest's own rows, the manifest.
    QTest::addColumn<QByteArray>("listed");
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
    // Stored as 0, which must not bound the transfer.
    QJsonObject textSize = TestManifest::entry(bytes(200000, 'a'));
    textSize.insert(QStringLiteral("size"), QStringLiteral("5"));
    QTest::newRow("size given as text") << ManifestPath << Fault()
                                        << TestManifest::body(QJsonObject {
                                               {QStringLiteral("/a.bin"), textSize},
                                               {QStringLiteral("/b.bin"), TestManifest::entry(bytes(1000, 'b'))}})
                                        << QString();
    QTest::newRow("manifest answers 503") << ManifestPath << Fault {Fault::Status, 503} << QByteArray() << network;
    QTest::newRow("manifest trickles") << ManifestPath << Fault {Fault::Trickle, 0, 1, 100} << QByteArray() << network;
    QTest::newRow("manifest held open") << ManifestPath << Fault {Fault::Stall, 0, 8} << QByteArray() << network;
    // Whatever makes the parser give up takes one path here; the parser's
    // own test has the many ways to get there.
    const QString unusable
        = QStringLiteral("The patch server sent a list of game files that cannot be used. Please try again later.");
    QTest::newRow("manifest not framed") << ManifestPath << Fault() << QByteArray(R"({"files": {"/a.bin": {}}})")
                                         << unusable;
    QTest::newRow("every key refused") << ManifestPath << Fault()
                                       << qCompress(R"({"files": {"/../a.bin": {"checksum": "0", "size": 0}}})")
                                       << unusable;
    QTest::newRow("manifest over 64 MiB") << ManifestPath << Fault() << QByteArray(65 * 1024 * 1024, 'x') << unusable;
}

void TestUpdaterRun::failedRuns()
{
    QFETCH(QString, path);
    QFETCH(Fault, fault);
    QFETCH(QByteArray, listed);
    QFETCH(QString, error);

    m_updater->setStallTimeout(500);
    serve({{"/a.bin", bytes(200000, 'a')}, {"/b.bin", bytes(1000, 'b')}});
    if (path == ManifestPath && !listed.isEmpty())
        m_server.setContent(ManifestPath, listed);
    else if (!listed.isEmpty())
        serveManifest({{QStringLiteral("/a.bin"), TestManifest::entry(listed)},
                       {QStringLiteral("/b.bin"), TestManifest::entry(bytes(1000, 'b'))}});
    m_server.setFault(path, fault);
    check();
    if (path != ManifestPath || error.isEmpty())
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
    const bool unusable = path == ManifestPath && !listed.isEmpty();
    QTRY_VERIFY(unusable || m_events.contains(QStringLiteral("state:update")));
    QVERIFY(QFileInfo(Updater::stagingDirectory() + QStringLiteral("/a.bin")).size()
            <= (listed.isEmpty() ? 200000 : listed.size()));
    QVERIFY(!m_updater->isInstalled());
    if (unusable) {
        // The button stays usable, and a press asks the server again.
        QSignalSpy checking(m_updater.get(), &Updater::checkingForUpdates);
        m_settings->setLastUpdateCheck(QString());
        m_updater->startUpdate();
        QCOMPARE(checking.count(), 1);
        return;
    }
    if (path == ManifestPath || !listed.isEmpty())
        return;

    // The queue survives for the next click.
    m_server.clearFaults();
    QCOMPARE(run(), Installed);
}

void TestUpdaterRun::transfers_data()
{
    QTest::addColumn<int>("others"); // files beside the largest, in multiples of the limit on transfers
    QTest::addColumn<qint64>("piece");
    QTest::addColumn<int>("intervalMs");
    QTest::newRow("many files overlap") << 3 << qint64(10000) << 20;
    QTest::newRow("steady") << 0 << qint64(30000) << 100;
    // As a rate-limited server delivers: a burst a second.
    QTest::newRow("bursts") << 0 << qint64(150000) << 1000;
}

void TestUpdaterRun::transfers()
{
    QFETCH(int, others);
    QFETCH(qint64, piece);
    QFETCH(int, intervalMs);
    Files files {{"/zz_largest.bin", bytes(600000, 'z')}};
    for (int i = 0; i < maxConcurrentDownloads * others; ++i)
        files.insert(QStringLiteral("/f%1.bin").arg(i), bytes(20000 + i * 1000, char('a' + i)));
    serve(files);
    qlonglong total = 0;
    for (auto it = files.cbegin(); it != files.cend(); ++it) {
        m_server.setFault(QStringLiteral("/game") + it.key(), {Fault::Trickle, 0, piece, intervalMs});
        total += it.value().size();
    }
    check();
    m_server.resetStatistics();
    QSignalSpy overall(m_updater.get(), &Updater::overallProgress);
    QSignalSpy speed(m_updater.get(), &Updater::downloadProgress);
    QCOMPARE(run(30000), Installed);

    // Largest first, within the limit on transfers. The first requests go
    // out together, each on a thread of its own, so any of them may arrive
    // first.
    QCOMPARE(m_server.requests().size(), files.size());
    QVERIFY(m_server.requests().mid(0, maxConcurrentDownloads).contains(QStringLiteral("/game/zz_largest.bin")));
    QCOMPARE(m_server.maxConcurrentRequests(), qMin(maxConcurrentDownloads, int(files.size())));
    // The circle starts at nought and moves while bytes arrive, not only at
    // the end, and never back.
    QCOMPARE(overall.first().first().toLongLong(), 0LL);
    qlonglong previous = 0;
    bool midway = false;
    for (const QVariantList &arguments : std::as_const(overall)) {
        QVERIFY(arguments.at(0).toLongLong() >= previous);
        QCOMPARE(arguments.at(1).toLongLong(), total);
        previous = arguments.at(0).toLongLong();
        midway |= previous > 0 && previous < total;
    }
    QVERIFY(midway);
    QVERIFY(
        std::any_of(speed.cbegin(), speed.cend(), [](const QVariantList &a) { return a.first().toLongLong() > 0; }));
}

void TestUpdaterRun::foreignFilesAreLeftAlone()
{
    // What another account or an old version could leave in the staging
    // folder: a link to someone's file, a file the manifest never named, and
    // pipes that block whoever reads them; and a folder that leads out of
    // the install directory.
    const QString staging = Updater::stagingDirectory();
    const QString victim = m_scratch.filePath(QStringLiteral("victim.txt"));
    const QString outside = m_scratch.filePath(QStringLiteral("outside"));
    QVERIFY(TestFiles::write(victim, "precious"));
    QVERIFY(TestFiles::write(outside + QStringLiteral("/x.bin"), "mine"));
    QVERIFY(TestFiles::write(staging + QStringLiteral("/planted.exe"), "planted"));
    QVERIFY(QFile::link(victim, staging + QStringLiteral("/a.bin")));
    QVERIFY(QDir().mkpath(installPath()));
    QVERIFY(QFile::link(outside, installPath() + QStringLiteral("/data")));
    for (const QString &fifo : {QString(staging + "/b.bin"), QString(installPath() + "/b.bin")})
        QCOMPARE(QProcess::execute(QStringLiteral("mkfifo"), {fifo}), 0);

    // Keys that climb out of the install directory are never fetched.
    const Files files {{"/a.bin", bytes(1000, 'a')}, {"/b.bin", bytes(2000, 'b')}, {"/data/x.bin", bytes(100, 'x')}};
    serve(files);
    QJsonObject entries;
    for (const char *key : {"/../escape.txt", "/sub/../../escape2.txt", "C:/escape3.txt", "//escape4.txt", "/"})
        entries.insert(QLatin1String(key), TestManifest::entry("owned"));
    for (auto it = files.cbegin(); it != files.cend(); ++it)
        entries.insert(it.key(), TestManifest::entry(it.value()));
    serveManifest(entries);
    m_server.setContent(QStringLiteral("/escape.txt"), "owned");

    QSignalSpy started(m_updater.get(), &Updater::verificationStarted);
    check();
    QTRY_COMPARE(m_events.size(), 2);
    QCOMPARE(m_events.first(), QStringLiteral("available:install"));
    QVERIFY2(m_events.at(1).contains(QLatin1String("/data/x.bin")), qPrintable(m_events.at(1)));
    QCOMPARE(started.first().first().toInt(), int(files.size()));
    QCOMPARE(run(), Installed);
    QCOMPARE(fileRequests(), (QStringList {"/game/a.bin", "/game/b.bin"}));
    QCOMPARE(installed(QStringLiteral("/a.bin")), bytes(1000, 'a'));
    QCOMPARE(installed(QStringLiteral("/b.bin")), bytes(2000, 'b'));
    QCOMPARE(TestFiles::read(victim), QByteArray("precious"));
    QCOMPARE(TestFiles::read(outside + QStringLiteral("/x.bin")), QByteArray("mine"));
    QVERIFY(!QFileInfo::exists(installPath() + QStringLiteral("/planted.exe")));
    const QFile::Permissions others = QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup | QFile::ReadOther
        | QFile::WriteOther | QFile::ExeOther;
    QCOMPARE(QFileInfo(staging).permissions() & others, QFile::Permissions());
    QDirIterator it(m_scratch.path(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext())
        QVERIFY2(!QFileInfo(it.next()).fileName().startsWith(QLatin1String("escape")), qPrintable(it.filePath()));
}

void TestUpdaterRun::refusedRuns_data()
{
    QTest::addColumn<QString>("cause");
    QTest::addColumn<QStringList>("events");

    const QString installing = QStringLiteral("state:installing");
    const QString update = QStringLiteral("state:update");
    // "/c" and "/c/d.bin" cannot both be files: the run must not pass for
    // complete without one of them.
    QTest::newRow("file and folder of one name")
        << "clash" << QStringList {installing, update, "error:Could not create temporary file for download"};
    QTest::newRow("disk full") << "full disk"
                               << QStringList {installing, update, "error:Failed to write download data to file"};
    QTest::newRow("staging folder of another account")
        << "foreign"
        << QStringList {"error:The download folder " + Updater::stagingDirectory()
                        + " cannot be used: it belongs to another account or cannot be made private."};
    QTest::newRow("relocation tool missing")
        << "no tool" << QStringList {installing, "error:Failed to start installation process", update};
}

void TestUpdaterRun::refusedRuns()
{
    QFETCH(QString, cause);
    QFETCH(QStringList, events);
    const QString staging = Updater::stagingDirectory();
    QVERIFY(QDir().mkpath(staging));
    if ((cause == QLatin1String("full disk") || cause == QLatin1String("foreign"))
        && QFileInfo(m_scratch.path()).ownerId() != 0)
        QSKIP("Mounting a file system or handing a folder to another account needs root");
    bool mounted = false;
    const auto unmount = qScopeGuard([&] {
        if (mounted)
            QProcess::execute(QStringLiteral("umount"), {staging});
    });
    if (cause == QLatin1String("full disk")) {
        mounted
            = QProcess::execute(QStringLiteral("mount"), {"-t", "tmpfs", "-o", "size=1m,mode=0700", "tmpfs", staging})
            == 0;
        if (!mounted)
            QSKIP("This system does not let a test mount a file system");
    }
    if (cause == QLatin1String("foreign"))
        QCOMPARE(QProcess::execute(QStringLiteral("chown"), {QStringLiteral("65534"), staging}), 0);
    if (cause == QLatin1String("no tool"))
        m_updater->setToolProgram(m_scratch.filePath(QStringLiteral("no-such-tool")));
    serve({{"/c/d.bin", bytes(3000, 'd')}, {"/a.bin", bytes(3 * 1024 * 1024, 'a')}});
    if (cause == QLatin1String("clash")) {
        m_server.setContent(QStringLiteral("/game/c"), bytes(10, 'c'));
        serveManifest({{QStringLiteral("/c"), TestManifest::entry(bytes(10, 'c'))},
                       {QStringLiteral("/c/d.bin"), TestManifest::entry(bytes(3000, 'd'))}});
    }
    check();
    m_server.resetStatistics();
    run();
    QTRY_COMPARE(m_events, events);
    QVERIFY(!m_updater->isInstalled());
    if (cause == QLatin1String("foreign"))
        QVERIFY(fileRequests().isEmpty());
    if (cause != QLatin1String("no tool"))
        return;

    // The move failed after a good download: the next press checks again.
    m_updater->setToolProgram(QStringLiteral(LAUNCHER_BINARY));
    QSignalSpy checking(m_updater.get(), &Updater::checkingForUpdates);
    m_settings->setLastUpdateCheck(QString());
    QCOMPARE(run(), QStringList {"none"});
    QCOMPARE(checking.count(), 1);
    QCOMPARE(m_updater->installStagedFiles(), 0);
    QCOMPARE(installed(QStringLiteral("/a.bin")), bytes(3 * 1024 * 1024, 'a'));
}

void TestUpdaterRun::overlappingChecksAndLaunchers()
{
    serve({{"/a.bin", bytes(100000, 'a')}});
    // The first check's manifest is slow and would land in the middle of
    // the run that the second check allows.
    m_server.setFault(ManifestPath, {Fault::Trickle, 0, 20, 300});
    m_settings->setLastUpdateCheck(QString());
    m_updater->checkForUpdates();
    QTRY_VERIFY(m_server.requests().contains(ManifestPath));
    // The newer check is redirected: it is known by its request, not its address.
    m_server.clearFaults();
    m_server.setContent(QStringLiteral("/game/mirror.dat"), TestFiles::read(m_served->filePath("checksums.txt.gz")));
    m_server.setRedirect(ManifestPath, QStringLiteral("/game/mirror.dat"));
    QCOMPARE(check(), Available);
    m_server.resetStatistics();
    m_server.setFault(QStringLiteral("/game/a.bin"), {Fault::Trickle, 0, 10000, 300});
    m_events.clear();
    m_updater->startUpdate();

    // A second launcher is turned away before it touches the staging directory.
    Updater second;
    QStringList events;
    record(&second, &events);
    m_settings->setLastUpdateCheck(QString());
    second.checkForUpdates();
    QTRY_COMPARE(events, Available);
    second.startUpdate();
    QCOMPARE(events.size(), 2);
    QVERIFY2(events.last().contains(QLatin1String("another launcher")), qPrintable(events.last()));

    QCOMPARE(waitForOutcome(), Installed);
    QCOMPARE(m_server.requests().count(QStringLiteral("/game/a.bin")), 1);
    QCOMPARE(installed(QStringLiteral("/a.bin")), bytes(100000, 'a'));
}

void TestUpdaterRun::gameRunning()
{
    serve({{"/a.bin", bytes(1000, 'a')}});
    const QString sleep = QStandardPaths::findExecutable(QStringLiteral("sleep"));
    const QString game = installPath() + QStringLiteral("/rungame.bin");
    const QString other = m_scratch.filePath(QStringLiteral("rungame.bin"));
    QVERIFY(QDir().mkpath(installPath()));
    QVERIFY(QFile::copy(sleep, game) && QFile::copy(sleep, other));
    // The same name started from elsewhere is not this installation's game.
    QProcess otherGame;
    otherGame.start(other, {QStringLiteral("30")});
    QVERIFY(otherGame.waitForStarted());
    QVERIFY(!m_updater->isGameRunning());
    otherGame.kill();
    otherGame.waitForFinished();
    QProcess process;
    process.start(game, {QStringLiteral("30")});
    QVERIFY(process.waitForStarted());
    QVERIFY(m_updater->isGameRunning());
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
