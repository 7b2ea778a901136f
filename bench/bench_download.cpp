// Download throughput of a whole run over loopback, through the engine:
// from startUpdate to updateComplete, the move into place included.
#include <QCoreApplication>
#include <QSignalSpy>
#include <QTextStream>

#include "benchsetup.h"
#include "config/settings.h"
#include "isolatedsettings.h"
#include "platform/eventdispatchers.h"
#include "support/testhttpserver.h"
#include "updater/updater.h"

int main(int argc, char *argv[])
{
    // As the launcher does, so that the engine's threads wait as they do there.
    Platform::chooseEventDispatchers();
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    const BenchSetup::Size size = BenchSetup::parseSize(parser, app.arguments(), "256", "200");

    IsolatedSettings isolation;
    QTemporaryDir root;
    TestHttpServer server;
    const QString served = root.filePath(QStringLiteral("served"));
    const qint64 bytes = size.bytes;
    const QJsonObject table = BenchSetup::makeGame(served, bytes, size.files);
    server.setRootDirectory(QStringLiteral("/game"), served);
    server.setContent(QStringLiteral("/game/checksums.txt.gz"), BenchSetup::manifest(table));

    Settings settings(BenchSetup::writeConfiguration(root.path(), server.baseUrl()), nullptr);
    settings.setInstallPath(root.filePath(QStringLiteral("install")));
    Updater updater;
    updater.setToolProgram(QStringLiteral(LAUNCHER_BINARY));
    QSignalSpy available(&updater, &Updater::updateAvailable);
    QSignalSpy complete(&updater, &Updater::updateComplete);
    QSignalSpy error(&updater, &Updater::downloadError);
    updater.checkForUpdates();
    if (!available.wait(600000))
        return 1;

    QElapsedTimer timer;
    timer.start();
    updater.startUpdate();
    while (complete.isEmpty() && error.isEmpty())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    const qint64 ms = timer.elapsed();

    QTextStream out(stdout);
    if (!error.isEmpty()) {
        out << "failed: " << error.first().first().toString() << '\n';
        return 1;
    }
    out << "files:     " << table.size() << '\n';
    out << "download:  " << qRound(bytes / 1e6 / (ms / 1000.0)) << " MB/s (" << ms << " ms for "
        << bytes / (1024 * 1024) << " MiB, parallel transfers " << maxConcurrentDownloads << ")\n";
    out << "peak RSS:  " << BenchSetup::peakResidentKiB() / 1024 << " MiB\n";
    return 0;
}
