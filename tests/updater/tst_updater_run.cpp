#include <QtTest>

#include <memory>

#include "config/settings.h"
#include "isolatedsettings.h"
#include "support/testfiles.h"
#include "support/testhttpserver.h"
#include "support/testmanifest.h"
#include "updater/updater.h"

Q_DECLARE_METATYPE(TestHttpServer::Fault)

// The engine against a loopback server, from the check to the installed files, with the real relocation tool.
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
    void queueBehindAFailure();
    void foreignFilesAreLeftAlone();
    void overlappingChecksAndLaunchers();

private:
    using Files = QMap<QString, QByteArray>;

    // Published the way a patch server publishes.
    void serve(const Files &files);
    // These return the events once the outcome is known.
    QStringList check() { return start(&Updater::checkForUpdates); }
    QStringList run() { return start(&Updater::startUpdate); }
    QStringList start(void (Updater::*action)());
    QStringList waitForOutcome();
    QByteArray installed(const QString &relativePath) const { return TestFiles::read(installPath() + relativePath); }
    QString installPath() const { return m_settings->installPath(); }
    QString served() const { return m_dir->filePath("served"); }
    // Sorted, the manifest left out.
    QStringList fileRequests() const;

    static inline const QString ManifestPath = QStringLiteral("/game/checksums.txt.gz");
    IsolatedSettings m_isolation;
    QTemporaryDir m_scratch;
    TestHttpServer m_server;
    std::unique_ptr<Settings> m_settings;
    // The install directory and what the server publishes, new for each test.
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Updater> m_updater;
    QStringList m_events;
};

namespace
{
    using Fault = TestHttpServer::Fault;
    const QStringList Installed {"state:installing", "complete"};
    const QStringList Available {"available:install"};
    const QStringList Unusable {
        "error:The patch server sent a list of game files that cannot be used. Please try again later."};

    QByteArray bytes(qsizetype size, char fill)
    {
        QByteArray data(size, fill);
        for (qsizetype i = 0; i < size; i += 997)
            data[i] = static_cast<char>(i / 997);
        return data;
    }

    // A run that stops with `error` while the files come in.
    const auto failed = [](const QString &e) { return QStringList {"state:installing", "state:update", "error:" + e}; };

    void record(Updater *updater, QStringList *events)
    {
        const auto add = [events](const QString &event) { *events << event; };
        QObject::connect(updater, &Updater::updateAvailable, updater,
                         [add](const QString &k) { add("available:" + k); });
        QObject::connect(updater, &Updater::noUpdateAvailable, updater, [add] { add("none"); });
        QObject::connect(updater, &Updater::stateChanged, updater, [add](const QString &s) { add("state:" + s); });
        QObject::connect(updater, &Updater::downloadError, updater, [add](const QString &e) { add("error:" + e); });
        QObject::connect(updater, &Updater::updateComplete, updater, [add] { add("complete"); });
    }
}

void TestUpdaterRun::initTestCase()
{
    const QString url = m_server.baseUrl().toString() + "/game";
    const QJsonObject keys {{"applicationName", "Run Test"}, {"executableName", "rungame.bin"}, {"updateUrl", url}};
    m_settings = std::make_unique<Settings>(TestFiles::writeConfiguration(m_scratch.path(), keys), nullptr);
    // Private to the user and kept across reboots, not in the shared /tmp.
    QVERIFY(Updater::stagingDirectory().startsWith(
        QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation) + '/'));
}

void TestUpdaterRun::init()
{
    m_dir = std::make_unique<QTemporaryDir>(m_scratch.filePath("test-XXXXXX"));
    m_settings->setInstallPath(m_dir->filePath("Hollowmere Run"));
    QDir(Updater::stagingDirectory()).removeRecursively();
    m_server.setRootDirectory("/game", served());
    m_server.reset();
    m_updater = std::make_unique<Updater>();
    m_updater->setToolProgram(LAUNCHER_BINARY);
    record(m_updater.get(), &m_events);
}

void TestUpdaterRun::serve(const Files &files)
{
    for (auto it = files.cbegin(); it != files.cend(); ++it)
        QVERIFY(TestFiles::write(served() + it.key(), it.value()));
    QProcess publisher;
    publisher.start(LAUNCHER_PUBLISH_BINARY, {"--output", served() + "/checksums.txt.gz", served()});
    QVERIFY(publisher.waitForFinished(30000));
    QCOMPARE(publisher.exitCode(), 0);
}

QStringList TestUpdaterRun::start(void (Updater::*action)())
{
    // The engine collapses checks within one second of each other.
    m_settings->setLastUpdateCheck(QString());
    m_events.clear();
    (m_updater.get()->*action)();
    return waitForOutcome();
}

QStringList TestUpdaterRun::waitForOutcome()
{
    // A time-out shows as the events so far.
    static const QRegularExpression outcome("^(none|complete|available:|error:)");
    static_cast<void>(QTest::qWaitFor([this] { return !m_events.filter(outcome).isEmpty(); }, 30000));
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
    // Left by a broken-off run: a good staged file, a partial one, and an old folder where a file now goes.
    const QString staging = Updater::stagingDirectory(), map = "/data/maps/first map.map";
    QVERIFY(TestFiles::write(staging + "/game.bin", bytes(300000, 'g')));
    QVERIFY(TestFiles::write(staging + map, bytes(700, 'm')));
    QVERIFY(TestFiles::write(staging + "/empty.dat/old.dat", "old"));
    const int total = int(files.size());
    int counted = 0;
    connect(m_updater.get(), &Updater::verificationProgress, this, [&](int checked, int of) {
        // Each count once, in order, all of them before the outcome; a slip sticks.
        counted = checked == counted + 1 && of == total && m_events.isEmpty() ? checked : -total;
    });
    QCOMPARE(check(), Available);
    QCOMPARE(counted, total);

    QCOMPARE(run(), Installed);
    QVERIFY(fileRequests().size() == total - 1 && !fileRequests().contains("/game/game.bin"));
    for (auto it = files.cbegin(); it != files.cend(); ++it)
        QCOMPARE(installed(it.key()), it.value());
    // Up to date now, and nothing is left staged.
    QCOMPARE(check(), QStringList {"none"});
    QCOMPARE(m_updater->installStagedFiles(), 2);

    // Killed between download and move: everything good is staged.
    serve({{map, bytes(5500, 'M')}});
    QVERIFY(TestFiles::write(staging + map, bytes(5500, 'M')));
    QCOMPARE(check(), QStringList {"none"});
    QCOMPARE(m_updater->installStagedFiles(), 0);
    QCOMPARE(installed(map), bytes(5500, 'M'));

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
    QTest::addColumn<QString>("where"); // the server path that misbehaves, or what else is wrong
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<QStringList>("events"); // "error:*": the network stack's own text
    QTest::addColumn<QStringList>("next"); // what the next press brings, if one is made
    QTest::addColumn<QByteArray>("listed"); // what the manifest says a.bin is; in the manifest's rows, the manifest
    const auto row = [](const char *name, const QString &where, const Fault &fault, const QStringList &events,
                        const QStringList &next = {}, const QByteArray &listed = {}) {
        QTest::newRow(name) << where << fault << events << next << listed;
    };

    const QString file = "/game/a.bin";
    const QString stalled = "The patch server stopped sending data. Please try again later.";
    const QString wrong = "File verification failed";
    const QStringList network {"state:update", "error:Network error occurred"};
    // A failed transfer keeps the queue for the next press.
    row("file not found", file, {Fault::Status, 404}, failed("*"), Installed);
    row("reset in the body", file, {Fault::Reset, 0, 5000}, failed("*"), Installed);
    row("short body", file, {Fault::ShortBody, 0, 5000}, failed("*"), Installed);
    row("slow but steady", file, {Fault::Trickle, 0, 20000, 100}, Installed);
    row("file stalls", file, {Fault::Stall, 0, 1000}, failed(stalled), Installed);
    row("file trickles", file, {Fault::Trickle, 0, 1, 100}, failed(stalled), Installed);
    row("checksum differs", file, {}, {"state:installing", "error:" + wrong, "state:update"}, {}, bytes(200000, 'x'));
    // The manifest speaks of 4 KiB; the server sends on and on.
    row("file longer than listed", file, {}, failed(wrong), {}, bytes(4096, 'a'));
    // Stored as 0, which must not bound the transfer.
    QJsonObject textSize = TestManifest::entry(bytes(200000, 'a'));
    textSize.insert("size", "5");
    row("size given as text", ManifestPath, {}, Installed, {},
        TestManifest::body(QJsonObject {{"/a.bin", textSize}, {"/b.bin", TestManifest::entry(bytes(1000, 'b'))}}));
    row("manifest answers 503", ManifestPath, {Fault::Status, 503}, network);
    row("manifest trickles", ManifestPath, {Fault::Trickle, 0, 1, 100}, network);
    // Every way the parser gives up takes one path here; the next press asks again.
    row("manifest not framed", ManifestPath, {}, Unusable, Unusable, R"({"files": {"/a.bin": {}}})");
    row("every key refused", ManifestPath, {}, Unusable, Unusable,
        qCompress(R"({"files": {"/../a.bin": {"checksum": "0", "size": 0}}})"));
    row("manifest over 64 MiB", ManifestPath, {}, Unusable, Unusable, QByteArray(65 * 1024 * 1024, 'x'));
    // "/c" and "/c/d.bin" cannot both be files: the run must not pass for complete without one.
    row("file and folder of one name", ManifestPath, {}, failed("Could not create temporary file for download"), {},
        TestManifest::body(Files {{"/c", "c"}, {"/c/d.bin", bytes(3000, 'd')}}));
    row("disk full", "full disk", {}, failed("Failed to write download data to file"));
    row("staging folder of another account", "foreign", {},
        {"error:The download folder " + Updater::stagingDirectory()
         + " cannot be used: it belongs to another account or cannot be made private."});
    // The move failed after a good download: the next press checks again and finds all staged.
    row("relocation tool missing", "no tool", {},
        {"state:installing", "error:Failed to start installation process", "state:update"}, {"none"});
    // Only this installation's game holds a run up, and only while it runs.
    row("game running", "game", {},
        {"error:Update cannot be performed while the game is running. Please close the game before updating."},
        Installed);
    row("same name elsewhere", "game elsewhere", {}, Installed);
}

void TestUpdaterRun::failedRuns()
{
    QFETCH(QString, where);
    QFETCH(Fault, fault);
    QFETCH(QStringList, events);
    QFETCH(QStringList, next);
    QFETCH(QByteArray, listed);
    const QString staging = Updater::stagingDirectory();
    QVERIFY(QDir().mkpath(staging));
    const auto unmount = qScopeGuard([&] {
        if (where == "full disk")
            QProcess::execute("umount", {staging});
    });
    if ((where == "full disk"
         && QProcess::execute("mount", {"-t", "tmpfs", "-o", "size=100k,mode=0700", "tmpfs", staging}) != 0)
        || (where == "foreign" && QProcess::execute("chown", {"65534", staging}) != 0))
        QSKIP("Mounting a file system or handing a folder to another account needs root");
    m_updater->setToolProgram(where == "no tool" ? m_scratch.filePath("no-such-tool") : LAUNCHER_BINARY);
    QProcess game;
    if (where.startsWith("game")) {
        const QString folder = where == "game" ? installPath() : m_scratch.path();
        QVERIFY(QDir().mkpath(folder) && QFile::copy(QStandardPaths::findExecutable("sleep"), folder + "/rungame.bin"));
        game.start(folder + "/rungame.bin", {"30"});
        QVERIFY(game.waitForStarted());
    }

    m_updater->setStallTimeout(500);
    serve({{"/a.bin", bytes(200000, 'a')}, {"/b.bin", bytes(1000, 'b')}});
    m_server.setContent("/game/c/d.bin", bytes(3000, 'd'));
    if (where == ManifestPath && !listed.isEmpty())
        m_server.setContent(ManifestPath, listed);
    else if (!listed.isEmpty())
        m_server.setContent(ManifestPath, TestManifest::body(Files {{"/a.bin", listed}, {"/b.bin", bytes(1000, 'b')}}));
    m_server.setFault(where, fault);
    if (check() == Available)
        run();
    // A state said twice in a row counts once.
    QStringList seen = m_events;
    seen.erase(std::unique(seen.begin(), seen.end()), seen.end());
    const qsizetype own = events.indexOf("error:*");
    if (own >= 0 && seen.value(own).size() > 16 && !seen.value(own).contains("verification"))
        seen[own] = events.at(own);
    QCOMPARE(seen, events);
    QVERIFY(QFileInfo(staging + "/a.bin").size() <= (listed.isEmpty() ? 200000 : listed.size()));
    QCOMPARE(m_updater->isInstalled(), events == Installed);
    game.kill();
    game.waitForFinished();
    if (next.isEmpty())
        return;

    m_server.clearFaults();
    m_updater->setToolProgram(LAUNCHER_BINARY);
    QSignalSpy checking(m_updater.get(), &Updater::checkingForUpdates);
    QCOMPARE(run(), next);
    QCOMPARE(checking.count(), next == Installed ? 0 : 1);
    if (where == "no tool")
        QCOMPARE(m_updater->installStagedFiles(), 0);
    if (next != Unusable)
        QCOMPARE(installed("/a.bin"), bytes(200000, 'a'));
}

void TestUpdaterRun::transfers_data()
{
    QTest::addColumn<int>("others"); // files beside the largest, in multiples of the limit on transfers
    QTest::addColumn<Fault>("delivery");
    QTest::newRow("many files overlap") << 3 << Fault {Fault::Trickle, 0, 10000, 20};
    QTest::newRow("bursts") << 0 << Fault {Fault::Trickle, 0, 150000, 1000}; // as a rate-limited server sends
}

void TestUpdaterRun::transfers()
{
    QFETCH(int, others);
    QFETCH(Fault, delivery);
    Files files {{"/zz_largest.bin", bytes(600000, 'z')}};
    for (int i = 0; i < maxConcurrentDownloads * others; ++i)
        files.insert(QStringLiteral("/f%1.bin").arg(i), bytes(20000 + i * 1000, char('a' + i)));
    serve(files);
    qlonglong total = 0;
    for (auto it = files.cbegin(); it != files.cend(); ++it) {
        m_server.setFault("/game" + it.key(), delivery);
        total += it.value().size();
    }
    check();
    m_server.resetStatistics();
    QSignalSpy overall(m_updater.get(), &Updater::overallProgress);
    QSignalSpy speed(m_updater.get(), &Updater::downloadProgress);
    QCOMPARE(run(), Installed);

    // Largest first, within the limit; the first requests go out together and may arrive in any order.
    QVERIFY(m_server.requests().mid(0, maxConcurrentDownloads).contains("/game/zz_largest.bin"));
    QCOMPARE(m_server.maxConcurrentRequests(), qMin(maxConcurrentDownloads, int(files.size())));
    // The circle starts at nought and moves while bytes arrive, not only at the end, and never back.
    QCOMPARE(overall.first().first().toLongLong(), 0LL);
    qlonglong previous = 0;
    bool midway = false;
    for (const QVariantList &arguments : std::as_const(overall)) {
        QVERIFY(arguments.at(0).toLongLong() >= previous && arguments.at(1).toLongLong() == total);
        previous = arguments.at(0).toLongLong();
        midway |= previous > 0 && previous < total;
    }
    QVERIFY(midway);
    QVERIFY(
        std::any_of(speed.cbegin(), speed.cend(), [](const QVariantList &a) { return a.first().toLongLong() > 0; }));
}

void TestUpdaterRun::queueBehindAFailure()
{
    // The largest file fails at once; a long queue of slow small files waits behind it.
    Files files {{"/a.bin", bytes(200000, 'a')}};
    for (int i = 0; i < 40; ++i)
        files.insert(QStringLiteral("/q/%1.bin").arg(i, 2, 10, QChar('0')), bytes(1000, 'q'));
    serve(files);
    for (auto it = std::next(files.cbegin()); it != files.cend(); ++it)
        m_server.setFault("/game" + it.key(), {Fault::Trickle, 0, 100, 100});
    m_server.setFault("/game/a.bin", {Fault::Status, 404});
    QCOMPARE(check(), Available);
    const QStringList events = run();
    QVERIFY2(events.size() == 3 && events.last().startsWith("error:") && failed("").mid(0, 2) == events.mid(0, 2),
             qPrintable(events.join(" | ")));

    // The slots beside the largest file took the first of the queue; nothing of the rest is staged.
    const QString staging = Updater::stagingDirectory();
    for (auto it = std::next(files.cbegin(), maxConcurrentDownloads); it != files.cend(); ++it)
        QVERIFY2(!QFileInfo::exists(staging + it.key()), qPrintable(it.key()));
}

void TestUpdaterRun::foreignFilesAreLeftAlone()
{
    // Left by another account or an old version: a link to someone's file, a file no manifest named,
    // pipes that block their reader, and a folder that leads out of the install directory.
    const QString staging = Updater::stagingDirectory(), victim = m_scratch.filePath("victim.txt"),
                  outside = m_scratch.filePath("outside");
    QVERIFY(TestFiles::write(victim, "precious") && TestFiles::write(outside + "/x.bin", "mine"));
    QVERIFY(TestFiles::write(staging + "/planted.exe", "planted") && QFile::link(victim, staging + "/a.bin"));
    QVERIFY(QDir().mkpath(installPath()) && QFile::link(outside, installPath() + "/data"));
    for (const QString &fifo : QStringList {staging + "/b.bin", installPath() + "/b.bin"})
        QCOMPARE(QProcess::execute("mkfifo", {fifo}), 0);

    // Keys that climb out of the install directory are never fetched.
    const Files files {{"/a.bin", bytes(1000, 'a')}, {"/b.bin", bytes(2000, 'b')}, {"/data/x.bin", bytes(100, 'x')}};
    serve(files);
    Files listed = files;
    for (const char *key : {"/../escape.txt", "/sub/../../escape2.txt", "C:/escape3.txt", "//escape4.txt", "/"})
        listed.insert(key, "owned");
    m_server.setContent(ManifestPath, TestManifest::body(listed));

    const QStringList events = check();
    QVERIFY2(events.size() == 2 && events.first() == Available.first() && events.last().contains("/data/x.bin"),
             qPrintable(events.join(" | ")));
    QCOMPARE(run(), Installed);
    QCOMPARE(fileRequests(), (QStringList {"/game/a.bin", "/game/b.bin"}));
    QCOMPARE(installed("/a.bin"), files["/a.bin"]);
    QCOMPARE(installed("/b.bin"), files["/b.bin"]);
    QCOMPARE(TestFiles::read(victim) + TestFiles::read(outside + "/x.bin"), QByteArray("preciousmine"));
    QVERIFY(!QFileInfo::exists(installPath() + "/planted.exe"));
    QCOMPARE(QFileInfo(staging).permissions().toInt() & 0x77, 0); // nothing for group or others
}

void TestUpdaterRun::overlappingChecksAndLaunchers()
{
    serve({{"/a.bin", bytes(100000, 'a')}});
    // The first check's manifest is slow and would land in the run that the second check allows.
    m_server.setFault(ManifestPath, {Fault::Trickle, 0, 20, 300});
    m_settings->setLastUpdateCheck(QString());
    m_updater->checkForUpdates();
    QTRY_VERIFY(m_server.requests().contains(ManifestPath));
    // The newer check is redirected: it is known by its request, not its address.
    m_server.clearFaults();
    m_server.setContent("/game/mirror.dat", TestFiles::read(served() + "/checksums.txt.gz"));
    m_server.setRedirect(ManifestPath, "/game/mirror.dat");
    QCOMPARE(check(), Available);
    m_server.resetStatistics();
    m_server.setFault("/game/a.bin", {Fault::Trickle, 0, 10000, 300});
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
    QVERIFY2(events.size() == 2 && events.last().contains("another launcher"), qPrintable(events.join(" | ")));

    QCOMPARE(waitForOutcome(), Installed);
    QCOMPARE(m_server.requests().count("/game/a.bin"), 1);
    QCOMPARE(installed("/a.bin"), bytes(100000, 'a'));
}

QTEST_GUILESS_MAIN(TestUpdaterRun)
#include "tst_updater_run.moc"
