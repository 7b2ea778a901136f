#include <QtTest>

#include <memory>

#include "config/settings.h"
#include "isolatedsettings.h"
#include "support/testfiles.h"
#include "support/testhttpserver.h"
#include "support/testmanifest.h"
#include "updater/updater.h"

Q_DECLARE_METATYPE(TestHttpServer::Fault)

namespace
{
    using Fault = TestHttpServer::Fault;
    using Files = QMap<QString, QByteArray>;
    const QString ManifestPath = QStringLiteral("/game/checksums.txt.gz");
    const QStringList Installed {"state:installing", "complete"};
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
}

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

private:
    // Published the way a patch server publishes.
    void serve(const Files &files);
    // These return the events once the outcome is known; a time-out shows as the events so far.
    QStringList check() { return start(&Updater::checkForUpdates); }
    QStringList run() { return start(&Updater::startUpdate); }
    QStringList start(void (Updater::*action)());
    QByteArray installed(const QString &path) const { return TestFiles::read(m_install + path); }
    QString served() const { return m_dir->filePath("served"); }
    QStringList fileRequests() const { return m_server.requests().filter(".bin"); }

    IsolatedSettings m_isolation;
    QTemporaryDir m_scratch;
    TestHttpServer m_server;
    std::unique_ptr<Settings> m_settings;
    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_install;
    std::unique_ptr<Updater> m_updater;
    QStringList m_events;
};

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
    m_install = m_dir->filePath("Hollowmere Run");
    m_settings->setInstallPath(m_install);
    QDir(Updater::stagingDirectory()).removeRecursively();
    m_server.setRootDirectory("/game", served());
    m_server.reset();
    m_updater = std::make_unique<Updater>();
    m_updater->setToolProgram(LAUNCHER_BINARY);
    const auto add = [this](const char *p) { return [this, p](const QString &d = {}) { m_events << p + d; }; };
    connect(m_updater.get(), &Updater::updateAvailable, this, add("available:"));
    connect(m_updater.get(), &Updater::noUpdateAvailable, this, add("none"));
    connect(m_updater.get(), &Updater::stateChanged, this, add("state:"));
    connect(m_updater.get(), &Updater::downloadError, this, add("error:"));
    connect(m_updater.get(), &Updater::updateComplete, this, add("complete"));
}

void TestUpdaterRun::serve(const Files &files)
{
    for (auto it = files.cbegin(); it != files.cend(); ++it)
        QVERIFY(TestFiles::write(served() + it.key(), it.value()));
    QCOMPARE(QProcess::execute(LAUNCHER_PUBLISH_BINARY, {"--output", served() + "/checksums.txt.gz", served()}), 0);
}

QStringList TestUpdaterRun::start(void (Updater::*action)())
{
    // The engine collapses checks within one second of each other.
    m_settings->setLastUpdateCheck(QString());
    m_events.clear();
    (m_updater.get()->*action)();
    static const QRegularExpression outcome("^(none|complete|available:|error:)");
    static_cast<void>(QTest::qWaitFor([this] { return !m_events.filter(outcome).isEmpty(); }, 30000));
    return m_events;
}

void TestUpdaterRun::installThenPatch()
{
    // Enough files that the verification's workers share them out, and large ones, sent slowly, that overlap.
    const QString map = "/data/maps/first map.bin", staging = Updater::stagingDirectory(),
                  victim = m_scratch.filePath("victim.txt"), outside = m_scratch.filePath("outside");
    Files files {{"/game.bin", bytes(300000, 'g')}, {map, bytes(5000, 'm')}, {"/empty.bin", {}}};
    for (int i = 0; i < 400; ++i)
        files.insert(QStringLiteral("/many/f%1.bin").arg(i), bytes(100 + i, char('a' + i % 26)));
    for (int i = 0; i < 3 * maxConcurrentDownloads; ++i)
        files.insert(QStringLiteral("/f%1.bin").arg(i), bytes(20000 + i * 1000, char('a' + i)));
    files.insert("/zz_largest.bin", bytes(600000, 'z'));
    serve(files);
    // Keys that climb out of the install directory, or that a link there leads out of it, are never fetched.
    Files listed {{"/linked/x.bin", "x"}, {"/../up.txt", "x"}};
    listed.insert(files);
    m_server.setContent(ManifestPath, TestManifest::body(listed));
    // A piece is sent at once, so only the large files come slowly.
    for (const QString &key : files.keys())
        m_server.setFault("/game" + key, {Fault::Trickle, 0, 10000, 20});
    // Left by a broken-off run, another account or an old version: a good staged file, a partial one, a folder where
    // a file now goes, one no manifest names, a link to someone's file, pipes, and a folder that leads outside.
    QVERIFY(TestFiles::write(staging + "/game.bin", files["/game.bin"]) && TestFiles::write(staging + map, "mm")
            && TestFiles::write(staging + "/empty.bin/old", "old") && TestFiles::write(staging + "/many/x", "x"));
    QVERIFY(TestFiles::write(victim, "precious") && TestFiles::write(outside + "/x.bin", "mine"));
    QVERIFY(QFile::link(victim, staging + "/many/f1.bin") && QDir().mkpath(m_install + "/many")
            && QFile::link(outside, m_install + "/linked"));
    QCOMPARE(QProcess::execute("mkfifo", {staging + "/many/f2.bin", m_install + "/many/f2.bin"}), 0);
    const int tasks = int(files.size()) + 1;
    int counted = 0;
    connect(m_updater.get(), &Updater::verificationProgress, this, [&](int checked, int of) {
        // Each count once, in order, all of them before the outcome; a slip sticks.
        counted = checked == counted + 1 && of == tasks && m_events.isEmpty() ? checked : -tasks;
    });
    QSignalSpy overall(m_updater.get(), &Updater::overallProgress), speed(m_updater.get(), &Updater::downloadProgress);
    // The circle starts at nought and moves while bytes arrive, not only at the end, and never back.
    const auto progressed = [&overall](qlonglong of) {
        QList<qlonglong> done;
        for (const QVariantList &arguments : std::as_const(overall))
            done << (arguments.at(1).toLongLong() == of ? arguments.at(0).toLongLong() : -1);
        return done.value(0, -1) == 0 && std::is_sorted(done.cbegin(), done.cend())
            && std::any_of(done.cbegin(), done.cend(), [of](qlonglong d) { return d > 0 && d < of; });
    };
    const QStringList events = check();
    QVERIFY(events.size() == 2 && events.first() == "available:install" && events.last().contains("/linked/x.bin"));
    QCOMPARE(counted, tasks);
    QCOMPARE(run(), Installed);
    QVERIFY(fileRequests().size() == tasks - 2 && !fileRequests().contains("/game/game.bin"));
    // Largest first, within the limit; the first requests go out together and may arrive in any order.
    QVERIFY(fileRequests().mid(0, maxConcurrentDownloads).contains("/game/zz_largest.bin"));
    QCOMPARE(m_server.maxConcurrentRequests(), maxConcurrentDownloads);
    QVERIFY(progressed(overall.value(0).value(1).toLongLong()));
    for (auto it = files.cbegin(); it != files.cend(); ++it)
        QCOMPARE(installed(it.key()), it.value());
    QCOMPARE(TestFiles::read(victim) + TestFiles::read(outside + "/x.bin"), QByteArray("preciousmine"));
    QVERIFY(!QFileInfo::exists(m_install + "/many/x"));
    QCOMPARE(QFileInfo(staging).permissions().toInt() & 0x77, 0); // nothing for group or others
    // Up to date now, and nothing is left staged.
    m_server.reset();
    QCOMPARE(check(), QStringList {"none"});
    QCOMPARE(m_updater->installStagedFiles(), 2);

    // The move fails after a good download: the next press checks again and finds all staged.
    serve({{map, bytes(5500, 'M')}});
    m_updater->setToolProgram(m_scratch.filePath("no-such-tool"));
    QCOMPARE(check(), QStringList {"available:update"});
    QCOMPARE(run(), (QStringList {"state:updating", "error:Failed to start installation process", "state:update"}));
    m_updater->setToolProgram(LAUNCHER_BINARY);
    QCOMPARE(run(), QStringList {"none"});
    QCOMPARE(m_updater->installStagedFiles(), 0);
    QCOMPARE(installed(map), bytes(5500, 'M'));

    // A patch fetches the changed file alone. The first check's manifest is slow and would land in the run that
    // the second check allows; that one is redirected: it is known by its request, not its address.
    serve({{map, bytes(600000, 'n')}});
    m_server.resetStatistics();
    const QByteArray manifest = TestFiles::read(served() + "/checksums.txt.gz");
    m_server.setFault(ManifestPath, {Fault::Trickle, 0, manifest.size() / 5, 300});
    m_settings->setLastUpdateCheck(QString());
    m_updater->checkForUpdates();
    QTRY_VERIFY(m_server.requests().contains(ManifestPath));
    m_server.clearFaults();
    m_server.setContent("/game/mirror.dat", manifest);
    m_server.setRedirect(ManifestPath, "/game/mirror.dat");
    QCOMPARE(check(), QStringList {"available:update"});
    // A second launcher is turned away before it touches the staging directory.
    Updater second;
    QSignalSpy available(&second, &Updater::updateAvailable), refused(&second, &Updater::downloadError);
    m_settings->setLastUpdateCheck(QString());
    second.checkForUpdates();
    QTRY_COMPARE(available.count(), 1);
    m_server.setFault("/game" + map, {Fault::Trickle, 0, 150000, 1000}); // as a rate-limited server sends
    m_events.clear();
    overall.clear();
    m_updater->startUpdate();
    second.startUpdate();
    QVERIFY(refused.count() == 1 && refused.first().first().toString().contains("another launcher"));
    QTRY_COMPARE_WITH_TIMEOUT(m_events, (QStringList {"state:updating", "complete"}), 30000);
    QCOMPARE(fileRequests(), QStringList {"/game" + map});
    QCOMPARE(installed(map), bytes(600000, 'n'));
    QVERIFY(progressed(600000));
    QVERIFY(std::any_of(speed.cbegin(), speed.cend(), [](const QVariantList &a) { return a.at(0).toLongLong() > 0; }));
}

void TestUpdaterRun::failedRuns_data()
{
    QTest::addColumn<QString>("where"); // the server path that misbehaves, or what else is wrong
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<QStringList>("events"); // "error:*": the network stack's own text
    QTest::addColumn<QStringList>("next"); // what the next press brings, if one is made
    QTest::addColumn<QByteArray>("body"); // what `where` answers instead
    const auto row = [](const char *name, const QString &where, const Fault &fault, const QStringList &events,
                        const QStringList &next = {}, const QByteArray &body = {}) {
        QTest::newRow(name) << where << fault << events << next << body;
    };

    const QString file = "/game/a.bin", wrong = "File verification failed";
    const QString stalled = "The patch server stopped sending data. Please try again later.";
    // A failed transfer keeps the queue for the next press. In "queue", a.bin is refused at once while a long
    // queue of slow small files waits behind it.
    row("queue behind a failure", "queue", {Fault::Status, 404}, failed("*"), Installed);
    row("slow but steady", file, {Fault::Trickle, 0, 20000, 100}, Installed);
    row("file stalls", file, {Fault::Stall, 0, 1000}, failed(stalled), Installed);
    row("file trickles", file, {Fault::Trickle, 0, 1, 100}, failed(stalled), Installed);
    row("checksum differs", file, {}, {"state:installing", "error:" + wrong, "state:update"}, {}, bytes(200000, 'x'));
    // Twice what the manifest says: an endless body would fill the disk.
    row("file longer than listed", file, {}, failed(wrong), {}, bytes(400000, 'a'));
    // Stored as 0, which must not bound the transfer.
    QJsonObject textSize = TestManifest::entry(bytes(200000, 'a'));
    textSize.insert("size", "5");
    row("size given as text", ManifestPath, {}, Installed, {}, TestManifest::body(QJsonObject {{"/a.bin", textSize}}));
    row("manifest answers 503", ManifestPath, {Fault::Status, 503}, {"state:update", "error:Network error occurred"});
    row("manifest drips", ManifestPath, {Fault::Trickle, 0, 1, 100}, {"state:update", "error:Network error occurred"});
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
    QFETCH(QByteArray, body);
    const QString staging = Updater::stagingDirectory();
    QVERIFY(QDir().mkpath(staging));
    const auto unmount = qScopeGuard([&] { QProcess::execute("umount", {"-q", staging}); });
    if ((where == "full disk"
         && QProcess::execute("mount", {"-t", "tmpfs", "-o", "size=100k,mode=0700", "tmpfs", staging}) != 0)
        || (where == "foreign" && QProcess::execute("chown", {"65534", staging}) != 0))
        QSKIP("Mounting a file system or handing a folder to another account needs root");
    m_updater->setStallTimeout(500);
    QProcess game;
    if (where.startsWith("game")) {
        const QString folder = where == "game" ? m_install : m_scratch.path();
        QVERIFY(QDir().mkpath(folder) && QFile::copy(QStandardPaths::findExecutable("sleep"), folder + "/rungame.bin"));
        game.start(folder + "/rungame.bin", {"30"});
        QVERIFY(game.waitForStarted());
    }

    Files files {{"/a.bin", bytes(200000, 'a')}, {"/b.bin", bytes(1000, 'b')}};
    for (int i = 0; where == "queue" && i < 40; ++i)
        files.insert(QStringLiteral("/q/%1.bin").arg(i), bytes(1000, 'q'));
    serve(files);
    for (auto it = std::next(files.cbegin()); where == "queue" && it != files.cend(); ++it)
        m_server.setFault("/game" + it.key(), {Fault::Trickle, 0, 100, 100});
    if (!body.isEmpty())
        m_server.setContent(where, body);
    m_server.setFault(where == "queue" ? "/game/a.bin" : where, fault);
    if (check() == QStringList {"available:install"})
        run();
    // A state said twice in a row counts once; the network stack's own text names the file.
    QStringList seen = m_events.replaceInStrings(QRegularExpression("^error:.*/game.*a\\.bin.*"), "error:*");
    seen.erase(std::unique(seen.begin(), seen.end()), seen.end());
    QCOMPARE(seen, events);
    QVERIFY(QFileInfo(staging + "/a.bin").size() <= 200000);
    QCOMPARE(m_updater->isInstalled(), events == Installed);
    // The slots beside the largest file took the first of the queue; nothing of the rest is staged.
    for (const QString &key : where == "queue" ? files.keys().mid(maxConcurrentDownloads) : QStringList())
        QVERIFY2(!QFileInfo::exists(staging + key), qPrintable(key));
    game.close();
    if (next.isEmpty())
        return;
    // A press that checks again where it should keep the queue shows as "available:", so the events tell.
    m_server.clearFaults();
    QCOMPARE(run(), next);
    if (next != Unusable)
        QCOMPARE(installed("/a.bin"), bytes(200000, 'a'));
}

QTEST_GUILESS_MAIN(TestUpdaterRun)
#include "tst_updater_run.moc"
