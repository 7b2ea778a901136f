// Verification throughput: the engine from checkForUpdates to its outcome,
// against a plain read of the same files with as many threads as the engine's
// pool has. Warm by default; with --cold the page cache is dropped before
// each side, which needs root.
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
    // As the launcher does: the engine's network threads are the ones measured.
    Platform::chooseEventDispatchers();
    QCoreApplication app(argc, argv);
    const bool cold = app.arguments().contains(QStringLiteral("--cold"));
    QStringList arguments = app.arguments();
    arguments.removeAll(QStringLiteral("--cold"));
    const BenchSetup::Size size = BenchSetup::parseSize(arguments, "2048", "5000");

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
    // Warm the page cache, then the baseline; or drop it again.
    if (!cold)
        plainRead(paths);
    else
        dropCaches();
    QElapsedTimer timer;
    timer.start();
    const qint64 readBytes = plainRead(paths);
    const qint64 plainMs = timer.elapsed();

    if (cold)
        dropCaches();
    timer.restart();
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
    // back end (about 12 ms here).
    QSignalSpy versionChecked(&updater, &Updater::launcherVersionCheckComplete);
    timer.restart();
    updater.checkLauncherVersion();
    if (!versionChecked.wait(10000) || !versionChecked.first().first().toBool()) {
        out << "failed: the launcher version check did not pass\n";
        return 1;
    }
    const qint64 versionMs = timer.elapsed();

    if (cold)
        dropCaches();
    timer.restart();
    gap.start();
    ticker.start(5);
    updater.checkForUpdates();
    while (done.isEmpty() && failed.isEmpty())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    const qint64 engineMs = timer.elapsed();
    ticker.stop();

    const double plain = megabytesPerSecond(readBytes, plainMs);
    const double engine = megabytesPerSecond(readBytes, engineMs);
    out << "cache:              " << (cold ? "cold (dropped before each side)" : "warm") << '\n';
    out << "threads:            " << QThreadPool::globalInstance()->maxThreadCount() << '\n';
    out << "plain read:         " << qRound(plain) << " MB/s (" << plainMs << " ms)\n";
    out << "digests alone:      " << qRound(megabytesPerSecond(readBytes, digestMs)) << " MB/s (" << digestMs
        << " ms)\n";
    out << "engine verify:      " << qRound(engine) << " MB/s (" << engineMs << " ms, incl. manifest fetch)\n";
    out << "  of which manifest: " << startedAtMs << " ms (fetch, parse, plan)\n";
    out << "version check before: " << versionMs << " ms (not counted)\n";
    out << "ratio:              " << QString::number(engine / plain, 'f', 2) << '\n';
    // The loopback server answering the manifest runs on this same thread.
    out << "ratio, verification after the manifest: "
        << QString::number(megabytesPerSecond(readBytes, engineMs - startedAtMs) / plain, 'f', 2) << '\n';
    out << "outcome:            " << (failed.isEmpty() ? "all files good" : "FILES FAILED") << '\n';
    out << "worst event-loop gap: " << worstGapMs << " ms\n";
    out << "peak RSS:           " << BenchSetup::peakResidentKiB() / 1024 << " MiB\n";
    return failed.isEmpty() ? 0 : 1;
}
