// Verification throughput: the engine from checkForUpdates to its outcome,
// against a plain read of the same files with as many threads as the engine's
// pool has, the two taking turns for --runs rounds. Warm by default; with
// --cold the page cache is dropped before each side, which needs root.
#include <QCoreApplication>
#include <QDirIterator>
#include <QSignalSpy>
#include <QThread>
#include <QThreadPool>
#include <QTimer>
#include <QtConcurrent/QtConcurrentMap>

#include <unistd.h>

#include "benchsetup.h"
#include "config/settings.h"
#include "isolatedsettings.h"
#include "platform/eventdispatchers.h"
#include "support/testhttpserver.h"
#include "updater/updater.h"

namespace
{
    qint64 plainRead(const QStringList &files)
    {
        std::atomic<qint64> total {0};
        QtConcurrent::blockingMap(QThreadPool::globalInstance(), files, [&total](const QString &path) {
            QFile file(path);
            if (!file.open(QIODevice::ReadOnly))
                return;
            QByteArray buffer(256 * 1024, Qt::Uninitialized);
            qint64 read = 0;
            while ((read = file.read(buffer.data(), buffer.size())) > 0)
                total += read;
        });
        return total;
    }

    bool dropCaches()
    {
        ::sync();
        QFile control(QStringLiteral("/proc/sys/vm/drop_caches"));
        return control.open(QIODevice::WriteOnly) && control.write("3") == 1 && control.flush();
    }

    double megabytesPerSecond(qint64 bytes, qint64 ms)
    {
        return ms > 0 ? bytes / 1e6 / (ms / 1000.0) : 0.0;
    }
}

int main(int argc, char *argv[])
{
    // As the launcher does, so that the engine's threads wait as they do there.
    Platform::chooseEventDispatchers();
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    const QCommandLineOption coldOption(QStringLiteral("cold"),
                                        QStringLiteral("Drop the page cache before each side."));
    const QCommandLineOption runsOption(QStringLiteral("runs"), QStringLiteral("Runs of each side."),
                                        QStringLiteral("n"), QStringLiteral("3"));
    parser.addOptions({coldOption, runsOption});
    const BenchSetup::Size size = BenchSetup::parseSize(parser, app.arguments(), "2048", "5000");
    const bool cold = parser.isSet(coldOption);
    const int runs = qMax(1, parser.value(runsOption).toInt());

    IsolatedSettings isolation;
    QTemporaryDir root;
    TestHttpServer server;
    const QString install = root.filePath(QStringLiteral("install"));
    const qint64 bytes = size.bytes;
    const int fileCount = size.files;

    QTextStream out(stdout);
    out << "Writing " << fileCount << " files, " << bytes / (1024 * 1024) << " MiB ...\n" << Qt::flush;
    const QJsonObject table = BenchSetup::makeGame(install, bytes, fileCount);
    // Otherwise the game just written is still going out to the disk while
    // the engine runs, which then stalls now and then (event-loop gaps of
    // over half a second at 8 GiB) in a way that no player meets.
    ::sync();
    server.setContent(QStringLiteral("/game/checksums.txt.gz"), BenchSetup::manifest(table));
    server.setContent(QStringLiteral("/launcher.json"), R"({"version": "1.0.0"})");

    QStringList paths;
    for (auto it = table.constBegin(); it != table.constEnd(); ++it)
        paths << install + it.key();

    if (cold && !dropCaches()) {
        out << "cannot drop the page cache (needs root): no cold figures\n";
        return 1;
    }
    // Once, so that even the first baseline reads from the cache.
    if (!cold)
        plainRead(paths);

    QElapsedTimer timer;
    if (cold)
        dropCaches();
    timer.start();
    QtConcurrent::blockingMap(paths, [](const QString &path) { Crc32::fileDigest(path); });
    const qint64 digestMs = timer.elapsed();

    Settings settings(BenchSetup::writeConfiguration(root.path(), server.baseUrl()), nullptr);
    settings.setInstallPath(install);
    Updater updater;
    QSignalSpy done(&updater, &Updater::noUpdateAvailable);
    QSignalSpy failed(&updater, &Updater::updateAvailable);
    qint64 startedAtMs = 0;
    QObject::connect(&updater, &Updater::verificationStarted, [&] { startedAtMs = timer.elapsed(); });

    // How long the event loop goes unserved while workers hash.
    qint64 worstGapMs = 0;
    QElapsedTimer gap;
    QTimer ticker;
    QObject::connect(&ticker, &QTimer::timeout, [&] { worstGapMs = qMax(worstGapMs, gap.restart()); });

    // What the launcher does before its first check: it asks for its own
    // version, the first request of the engine, for which Qt loads its TLS
    // back end.
    QSignalSpy versionChecked(&updater, &Updater::launcherVersionCheckComplete);
    timer.restart();
    updater.checkLauncherVersion();
    if (!versionChecked.wait(10000) || !versionChecked.first().first().toBool()) {
        out << "failed: the launcher version check did not pass\n";
        return 1;
    }
    out << "cache:              " << (cold ? "cold (dropped before each side)" : "warm") << '\n';
    out << "threads:            " << QThreadPool::globalInstance()->maxThreadCount() << '\n';
    out << "digests alone:      " << qRound(megabytesPerSecond(bytes, digestMs)) << " MB/s (" << digestMs << " ms)\n";
    out << "version check before: " << timer.elapsed() << " ms (not counted)\n" << Qt::flush;

    // The baseline and the engine take turns, so that both meet the same
    // moods of the host.
    QList<double> ratios;
    QList<double> afterManifest;
    QList<qint64> gaps;
    for (int run = 1; run <= runs; ++run) {
        if (cold)
            dropCaches();
        timer.restart();
        const qint64 read = plainRead(paths);
        const qint64 plainMs = timer.elapsed();

        if (cold)
            dropCaches();
        // The engine collapses checks less than a second apart.
        settings.setLastUpdateCheck(QString());
        done.clear();
        failed.clear();
        worstGapMs = 0;
        timer.restart();
        gap.start();
        ticker.start(5);
        updater.checkForUpdates();
        while (done.isEmpty() && failed.isEmpty())
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        const qint64 engineMs = timer.elapsed();
        ticker.stop();
        if (!failed.isEmpty()) {
            out << "failed: the engine found files to fetch\n";
            return 1;
        }

        const double plain = megabytesPerSecond(read, plainMs);
        ratios << megabytesPerSecond(read, engineMs) / plain;
        // The loopback server answering the manifest runs on this same thread.
        afterManifest << megabytesPerSecond(read, engineMs - startedAtMs) / plain;
        gaps << worstGapMs;
        out << "run " << run << ": plain read " << plainMs << " ms (" << qRound(plain) << " MB/s), engine " << engineMs
            << " ms of which manifest " << startedAtMs << " ms; ratio " << QString::number(ratios.last(), 'f', 2)
            << ", after the manifest " << QString::number(afterManifest.last(), 'f', 2) << "; worst event-loop gap "
            << worstGapMs << " ms\n"
            << Qt::flush;
    }
    out << "ratio (min/mid/max):                         " << BenchSetup::spread(ratios) << '\n';
    out << "ratio, verification after the manifest:      " << BenchSetup::spread(afterManifest) << '\n';
    out << "worst event-loop gap, ms (min/mid/max):      " << BenchSetup::spread(gaps) << '\n';
    out << "peak RSS:           " << BenchSetup::peakResidentKiB() / 1024 << " MiB\n";
    return 0;
}
