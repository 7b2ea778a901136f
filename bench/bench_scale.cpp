// A manifest of a very large game, with nothing installed: how long the
// manifest phase (fetch, inflate, parse, plan the checks), the verification
// of files that are all missing and the planning of the run take, and the
// longest time the event loop goes unserved meanwhile.
#include <QCoreApplication>
#include <QSignalSpy>
#include <QTextStream>
#include <QTimer>

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
    parser.addHelpOption();
    const QCommandLineOption filesOption(QStringLiteral("files"), QStringLiteral("Manifest entries."),
                                         QStringLiteral("n"), QStringLiteral("200000"));
    parser.addOption(filesOption);
    parser.process(app);
    const int files = parser.value(filesOption).toInt();

    IsolatedSettings isolation;
    QTemporaryDir root;
    TestHttpServer server;
    QJsonObject table;
    for (int i = 0; i < files; ++i) {
        // Sizes spread out, so that the plan has something to sort.
        const qint64 size = 1024 + (qint64(i) * 7919) % (64 << 20);
        table.insert(QStringLiteral("/data/%1/%2/file%3.bin").arg(i % 97).arg(i % 13).arg(i),
                     QJsonObject {{QStringLiteral("checksum"), QStringLiteral("%1").arg(i, 8, 16, QLatin1Char('0'))},
                                  {QStringLiteral("size"), size}});
    }
    const QByteArray manifest = BenchSetup::manifest(table);
    server.setContent(QStringLiteral("/game/checksums.txt.gz"), manifest);

    Settings settings(BenchSetup::writeConfiguration(root.path(), server.baseUrl()), nullptr);
    settings.setInstallPath(root.filePath(QStringLiteral("install")));
    Updater updater;
    QSignalSpy available(&updater, &Updater::updateAvailable);

    QElapsedTimer timer;
    qint64 startedAt = -1;
    QObject::connect(&updater, &Updater::verificationStarted, [&] { startedAt = timer.elapsed(); });
    qint64 worstGap = 0;
    QElapsedTimer gap;
    QTimer ticker;
    QObject::connect(&ticker, &QTimer::timeout, [&] { worstGap = qMax(worstGap, gap.restart()); });

    timer.start();
    gap.start();
    ticker.start(5);
    updater.checkForUpdates();
    if (!available.wait(600000))
        return 1;
    const qint64 verifiedAt = timer.elapsed();
    const qint64 checkGap = worstGap;

    // The plan and the first requests; the transfers themselves fail at once
    // on this server and do not matter here.
    worstGap = 0;
    gap.restart();
    QElapsedTimer planning;
    planning.start();
    updater.startUpdate();
    const qint64 planMs = planning.elapsed();
    QTimer::singleShot(200, &app, &QCoreApplication::quit);
    app.exec();
    ticker.stop();

    QTextStream out(stdout);
    out << "entries:                  " << files << " (manifest " << manifest.size() / 1024 << " KiB compressed)\n";
    out << "manifest phase:           " << startedAt << " ms (fetch, inflate, parse, plan the checks)\n";
    out << "verification, all missing: " << verifiedAt - startedAt << " ms\n";
    out << "worst event-loop gap, check: " << checkGap << " ms\n";
    out << "planning (startUpdate):   " << planMs << " ms\n";
    out << "worst event-loop gap, plan: " << worstGap << " ms\n";
    out << "peak RSS:                 " << BenchSetup::peakResidentKiB() / 1024 << " MiB\n";
    return 0;
}
