// Download speed against curl: nginx on loopback serves a synthetic game, and
// the same files are fetched, with the same number of parallel transfers, by
// curl, by the engine alone (startUpdate to updateComplete) and by the real
// launcher on an X server of its own (first file request to .initcomplete,
// the button pressed the way a player presses it). Each side runs in turn,
// several times, and the ratio is curl's time over the side's time. With
// --tls nginx offers HTTPS and HTTP/2 with a certificate made for the run,
// as a real patch server does (curl takes HTTP/2, the engine HTTP/1.1), and
// the launcher side runs the bench build whose address is HTTPS.
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QPoint>
#include <QProcess>
#include <QRandomGenerator>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTextStream>
#include <QThread>

#include <optional>

#include "benchsetup.h"
#include "config/settings.h"
#include "isolatedsettings.h"
#include "platform/eventdispatchers.h"
#include "support/testtls.h"
#include "support/virtualdisplay.h"
#include "updater/updater.h"

namespace
{
    QTextStream out(stdout);

    struct FileGroup
    {
        int count = 0;
        qint64 size = 0;
    };

    struct Sample
    {
        qint64 ms = -1;
        qint64 peakKiB = -1;
        // From the last byte to the end, where that can be seen.
        qint64 installMs = -1;
        QString error;
    };

    // So that a run's peak is its own and not that of the set-up before it.
    void resetPeak()
    {
        QFile clear(QStringLiteral("/proc/self/clear_refs"));
        if (clear.open(QIODevice::WriteOnly))
            clear.write("5");
    }

    // Deleting thousands of files slows the next thousands of creations for
    // a minute or more on an ext4 without a journal (the inode allocator
    // steps over every inode freed recently), which taxed whichever side ran
    // after another. So the output of a set of many files is moved aside and
    // deleted when the bench ends; a single big file goes at once.
    QString retiredFolder;
    bool keepRetired = false;

    void discard(const QString &path)
    {
        static int retired = 0;
        if (!QFileInfo::exists(path))
            return;
        if (keepRetired && QDir().mkpath(retiredFolder)
            && QDir().rename(path, retiredFolder + QLatin1Char('/') + QString::number(++retired)))
            return;
        QDir(path).removeRecursively();
    }

    // The files of one set under `served`, and the manifest beside them.
    QJsonObject writeGame(const QString &served, const QList<FileGroup> &groups)
    {
        discard(served);
        QByteArray block(4 << 20, Qt::Uninitialized);
        QRandomGenerator generator(7);
        for (qsizetype i = 0; i < block.size(); i += 4)
            *reinterpret_cast<quint32 *>(block.data() + i) = generator.generate();

        QJsonObject table;
        int index = 0;
        for (const FileGroup &group : groups) {
            for (int n = 0; n < group.count; ++n, ++index) {
                const QString key = QStringLiteral("/data/%1/file%2.bin").arg(index % 50).arg(index);
                QDir().mkpath(QFileInfo(served + key).path());
                QFile file(served + key);
                if (!file.open(QIODevice::WriteOnly))
                    qFatal("cannot write %s", qPrintable(file.fileName()));
                quint32 crc = 0;
                block[0] = static_cast<char>(index);
                block[1] = static_cast<char>(index >> 8);
                for (qint64 written = 0; written < group.size;) {
                    const qint64 piece = qMin<qint64>(group.size - written, block.size());
                    if (file.write(block.constData(), piece) != piece)
                        qFatal("cannot write %s", qPrintable(file.fileName()));
                    crc = Crc32::update(crc, block.constData(), piece);
                    written += piece;
                }
                table.insert(key,
                             QJsonObject {{QStringLiteral("checksum"), Crc32::toDigest(crc)},
                                          {QStringLiteral("size"), group.size}});
            }
        }
        QFile manifest(served + QStringLiteral("/checksums.txt.gz"));
        if (!manifest.open(QIODevice::WriteOnly) || manifest.write(BenchSetup::manifest(table)) < 0)
            qFatal("cannot write the manifest");
        return table;
    }

    bool waitForPort(quint16 port)
    {
        for (int i = 0; i < 100; ++i) {
            QTcpSocket socket;
            socket.connectToHost(QHostAddress::LocalHost, port);
            if (socket.waitForConnected(100))
                return true;
            QThread::msleep(50);
        }
        return false;
    }

    Sample runCurl(const QString &base, const QJsonObject &table, const QString &target, int parallel,
                   const QString &caFile)
    {
        Sample sample;
        discard(target);
        QFile config(target + QStringLiteral(".curlrc"));
        if (!config.open(QIODevice::WriteOnly))
            qFatal("cannot write the curl configuration");
        // The URLs the engine asks for, "/" encoded as %2F.
        for (auto it = table.constBegin(); it != table.constEnd(); ++it) {
            config.write("url = \"" + base.toUtf8() + QUrl::toPercentEncoding(it.key()) + "\"\n");
            config.write("output = \"" + QString(target + it.key()).toUtf8() + "\"\n");
        }
        config.close();

        QProcess curl;
        QElapsedTimer timer;
        timer.start();
        QStringList arguments {QStringLiteral("--parallel"), QStringLiteral("--parallel-max"),
                               QString::number(parallel),    QStringLiteral("--no-progress-meter"),
                               QStringLiteral("--fail"),     QStringLiteral("--create-dirs"),
                               QStringLiteral("-K"),         config.fileName()};
        if (!caFile.isEmpty())
            arguments << QStringLiteral("--cacert") << caFile;
        curl.start(QStringLiteral("curl"), arguments);
        if (!curl.waitForStarted()) {
            sample.error = QStringLiteral("curl did not start");
            return sample;
        }
        curl.waitForFinished(-1);
        sample.ms = timer.elapsed();
        if (curl.exitStatus() != QProcess::NormalExit || curl.exitCode() != 0)
            sample.error = QStringLiteral("curl failed: %1").arg(QString::fromUtf8(curl.readAllStandardError()));
        discard(target);
        QFile::remove(config.fileName());
        return sample;
    }

    Sample runEngine(const QString &install)
    {
        Sample sample;
        discard(install);
        QDir(Updater::stagingDirectory()).removeRecursively();
        Settings::instance()->setLastUpdateCheck(QString());
        Updater updater;
        updater.setToolProgram(QStringLiteral(LAUNCHER_BINARY));
        QSignalSpy available(&updater, &Updater::updateAvailable);
        QSignalSpy complete(&updater, &Updater::updateComplete);
        QSignalSpy error(&updater, &Updater::downloadError);
        updater.checkForUpdates();
        if (!available.wait(600000)) {
            sample.error = QStringLiteral("no update offered");
            return sample;
        }
        resetPeak();
        QElapsedTimer timer;
        qint64 allBytesAt = -1;
        QObject::connect(&updater, &Updater::overallProgress, &updater, [&](qlonglong done, qlonglong total) {
            if (done == total && allBytesAt < 0)
                allBytesAt = timer.elapsed();
        });
        timer.start();
        updater.startUpdate();
        while (complete.isEmpty() && error.isEmpty())
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        sample.ms = timer.elapsed();
        sample.peakKiB = BenchSetup::peakResidentKiB();
        sample.installMs = allBytesAt >= 0 ? sample.ms - allBytesAt : -1;
        if (!error.isEmpty())
            sample.error = error.first().first().toString();
        discard(install);
        return sample;
    }

    QString xdotool(const QString &display, const QStringList &arguments)
    {
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("DISPLAY"), display);
        process.setProcessEnvironment(environment);
        process.start(QStringLiteral("xdotool"), arguments);
        process.waitForFinished();
        return QString::fromUtf8(process.readAllStandardOutput());
    }

    // The top-left corner of the launcher's window, once it is mapped: the
    // visible top-level window of its size.
    std::optional<QPoint> launcherWindow(const QString &display)
    {
        const QStringList ids = xdotool(display,
                                        {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                                         QStringLiteral("--name"), QStringLiteral("Launcher")})
                                    .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        for (const QString &id : ids) {
            QMap<QString, int> geometry;
            const QString shell
                = xdotool(display, {QStringLiteral("getwindowgeometry"), QStringLiteral("--shell"), id.trimmed()});
            for (const QString &line : shell.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
                geometry.insert(line.section(QLatin1Char('='), 0, 0), line.section(QLatin1Char('='), 1).toInt());
            if (geometry.value(QStringLiteral("WIDTH")) == 1360 && geometry.value(QStringLiteral("HEIGHT")) == 768)
                return QPoint(geometry.value(QStringLiteral("X")), geometry.value(QStringLiteral("Y")));
        }
        return std::nullopt;
    }

    Sample runLauncher(const QString &display, const QString &caFile)
    {
        Sample sample;
        QTemporaryDir home;
        home.setAutoRemove(false);
        const auto retire = qScopeGuard([&home] { discard(home.path()); });
        const QString install = home.filePath(QStringLiteral("install"));
        QProcessEnvironment environment = BenchSetup::launcherEnvironment(home.path(), install, true, display);
        if (environment.isEmpty())
            qFatal("cannot write the launcher settings");
        if (!caFile.isEmpty())
            environment.insert(QStringLiteral("LAUNCHER_BENCH_CA_FILE"), caFile);
        // Where the engine stages on this system, under the cache location.
        const QString firstFolder = home.filePath(QStringLiteral("cache/Brindlewood Works/Hollowmere Bench/data"));
        const QString marker = install + QStringLiteral("/.initcomplete");

        QProcess process;
        process.setProcessEnvironment(environment);
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.start(
            caFile.isEmpty() ? QStringLiteral(LAUNCHER_BENCH_BINARY) : QStringLiteral(LAUNCHER_BENCH_TLS_BINARY), {});
        if (!process.waitForStarted()) {
            sample.error = QStringLiteral("the launcher did not start");
            return sample;
        }
        const auto stop = qScopeGuard([&process] { BenchSetup::stopProcess(process); });
        const QString pid = QString::number(process.processId());

        QElapsedTimer wait;
        wait.start();
        std::optional<QPoint> origin;
        while (!origin && wait.elapsed() < 30000) {
            origin = launcherWindow(display);
            QThread::msleep(100);
        }
        if (!origin) {
            sample.error = QStringLiteral("no launcher window");
            return sample;
        }
        // The button takes a press once the first check has settled on
        // "Install"; until then presses go nowhere. The first request of a
        // file creates its folder in the staging directory.
        const QPoint button = *origin + QPoint(50, 745);
        QElapsedTimer timer;
        while (!QFileInfo::exists(firstFolder)) {
            if (wait.elapsed() > 60000) {
                sample.error = QStringLiteral("the press never started a download");
                return sample;
            }
            xdotool(display,
                    {QStringLiteral("mousemove"), QString::number(button.x()), QString::number(button.y()),
                     QStringLiteral("click"), QStringLiteral("1")});
            for (int i = 0; i < 150 && !QFileInfo::exists(firstFolder); ++i)
                QThread::msleep(2);
        }
        timer.start();
        while (!QFileInfo::exists(marker)) {
            if (process.state() != QProcess::Running) {
                sample.error = QStringLiteral("the launcher ended");
                return sample;
            }
            QThread::msleep(5);
        }
        sample.ms = timer.elapsed();
        sample.peakKiB = BenchSetup::peakResidentKiB(pid);
        return sample;
    }

    QString ratios(const QList<qint64> &baseline, const QList<qint64> &side)
    {
        QList<double> values;
        for (qsizetype i = 0; i < side.size() && i < baseline.size(); ++i)
            values << (side.at(i) > 0 ? double(baseline.at(i)) / double(side.at(i)) : 0.0);
        return BenchSetup::spread(values);
    }
}

int main(int argc, char *argv[])
{
    // As the launcher does, so that the engine's threads wait as they do there.
    Platform::chooseEventDispatchers();
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    const QCommandLineOption setsOption(QStringLiteral("sets"), QStringLiteral("small, mix, big, comma-separated."),
                                        QStringLiteral("list"), QStringLiteral("small,mix,big"));
    const QCommandLineOption smallOption(QStringLiteral("small-files"),
                                         QStringLiteral("Files of 64 KiB in the small set."), QStringLiteral("n"),
                                         QStringLiteral("5000"));
    const QCommandLineOption bigOption(QStringLiteral("big-mib"), QStringLiteral("Size of the one big file."),
                                       QStringLiteral("n"), QStringLiteral("4096"));
    const QCommandLineOption runsOption(QStringLiteral("runs"), QStringLiteral("Runs of each side."),
                                        QStringLiteral("n"), QStringLiteral("3"));
    const QCommandLineOption sidesOption(QStringLiteral("sides"), QStringLiteral("curl, engine, launcher."),
                                         QStringLiteral("list"), QStringLiteral("curl,engine,launcher"));
    const QCommandLineOption tlsOption(QStringLiteral("tls"), QStringLiteral("HTTPS, HTTP/2 offered."));
    parser.addOptions({setsOption, smallOption, bigOption, runsOption, sidesOption, tlsOption});
    parser.process(app);
    const QStringList sets = parser.value(setsOption).split(QLatin1Char(','));
    const QStringList sides = parser.value(sidesOption).split(QLatin1Char(','));
    const bool tls = parser.isSet(tlsOption);
    const int runs = qMax(1, parser.value(runsOption).toInt());
    const int parallel = maxConcurrentDownloads;

    IsolatedSettings isolation;
    QTemporaryDir root;
    retiredFolder = root.filePath(QStringLiteral("retired"));
    const QString www = root.filePath(QStringLiteral("www"));
    const QString served = www + QStringLiteral("/game");
    QDir().mkpath(www + QStringLiteral("/api"));
    QDir().mkpath(served);
    QFile news(www + QStringLiteral("/api/news"));
    if (news.open(QIODevice::WriteOnly))
        news.write("[]");
    news.close();
    // The launcher's compiled-in address names another folder.
    QFile::link(served, www + QStringLiteral("/hollowmere_bench"));

    // nginx the way the demo starts it, unthrottled.
    QFile templ(QStringLiteral(BENCH_NGINX_CONF));
    if (!templ.open(QIODevice::ReadOnly))
        qFatal("cannot read %s", BENCH_NGINX_CONF);
    QByteArray conf = templ.readAll();
    QString caFile;
    if (tls) {
        if (!TestTls::makeTrustedCertificate(root.path())) {
            out << "failed: openssl could not make a certificate\n";
            return 1;
        }
        caFile = root.filePath(QStringLiteral("cert.pem"));
        conf.replace("listen 127.0.0.1:@PORT@;",
                     "listen 127.0.0.1:@PORT@ ssl http2;\n"
                     "        ssl_certificate @ROOT@/cert.pem;\n"
                     "        ssl_certificate_key @ROOT@/key.pem;");
    }
    conf.replace("@ROOT@", root.path().toUtf8())
        .replace("@PORT@", QByteArray::number(BENCH_PORT))
        .replace("@RATE@", "0");
    QFile confFile(root.filePath(QStringLiteral("nginx.conf")));
    if (!confFile.open(QIODevice::WriteOnly) || confFile.write(conf) < 0)
        qFatal("cannot write the nginx configuration");
    confFile.close();
    QProcess nginx;
    nginx.setProcessChannelMode(QProcess::ForwardedChannels);
    nginx.start(QStringLiteral("nginx"),
                {QStringLiteral("-p"), root.path(), QStringLiteral("-c"), confFile.fileName()});
    const auto stopNginx = qScopeGuard([&nginx] { BenchSetup::stopProcess(nginx); });
    if (!nginx.waitForStarted() || !waitForPort(BENCH_PORT)) {
        out << "failed: nginx did not start on port " << BENCH_PORT << '\n';
        return 1;
    }
    const QString origin = QStringLiteral("%1://127.0.0.1:%2").arg(tls ? "https" : "http").arg(BENCH_PORT);
    const QString base = origin + QStringLiteral("/game");

    QTemporaryDir settingsDir;
    Settings settings(BenchSetup::writeConfiguration(settingsDir.path(), QUrl(origin)), nullptr);
    const QString install = root.filePath(QStringLiteral("install"));
    settings.setInstallPath(install);

    std::unique_ptr<VirtualDisplay> display;
    if (sides.contains(QStringLiteral("launcher"))) {
        display = std::make_unique<VirtualDisplay>();
        if (!display->isRunning()) {
            out << "failed: Xvfb did not start\n";
            return 1;
        }
    }

    out << "parallel transfers: " << parallel << "\n" << Qt::flush;
    int failures = 0;
    for (const QString &set : sets) {
        QList<FileGroup> groups;
        if (set == QLatin1String("small"))
            groups = {{parser.value(smallOption).toInt(), 64 * 1024}};
        else if (set == QLatin1String("mix"))
            groups = {{64, 16 << 20}, {200, 64 * 1024}};
        else if (set == QLatin1String("big"))
            groups = {{1, parser.value(bigOption).toLongLong() << 20}};
        else
            continue;
        keepRetired = set != QLatin1String("big");
        const QJsonObject table = writeGame(served, groups);
        qint64 bytes = 0;
        for (const FileGroup &group : std::as_const(groups))
            bytes += group.count * group.size;
        out << "\n" << set << ": " << table.size() << " files, " << bytes / (1024 * 1024) << " MiB\n" << Qt::flush;

        QMap<QString, QList<qint64>> times;
        QMap<QString, QList<qint64>> peaks;
        for (int run = 0; run < runs; ++run) {
            for (const QString &side : sides) {
                Sample sample;
                if (side == QLatin1String("curl"))
                    sample = runCurl(base, table, root.filePath(QStringLiteral("curl")), parallel, caFile);
                else if (side == QLatin1String("engine"))
                    sample = runEngine(install);
                else if (side == QLatin1String("launcher"))
                    sample = runLauncher(display->name(), caFile);
                else
                    continue;
                if (!sample.error.isEmpty()) {
                    out << "  " << side << " run " << run + 1 << " failed: " << sample.error << '\n' << Qt::flush;
                    ++failures;
                    continue;
                }
                times[side] << sample.ms;
                if (sample.peakKiB >= 0)
                    peaks[side] << sample.peakKiB / 1024;
                out << "  run " << run + 1 << ' ' << side << ": " << sample.ms << " ms, "
                    << qRound(bytes / 1e6 / (qMax<qint64>(1, sample.ms) / 1000.0)) << " MB/s";
                if (sample.peakKiB >= 0)
                    out << ", peak RSS " << sample.peakKiB / 1024 << " MiB";
                if (sample.installMs >= 0)
                    out << ", last " << sample.installMs << " ms after the last byte";
                out << '\n' << Qt::flush;
            }
        }
        for (const QString &side : sides) {
            if (!times.contains(side))
                continue;
            out << "  " << side << " ms (min/mid/max): " << BenchSetup::spread(times[side]);
            if (side != QLatin1String("curl") && times.contains(QStringLiteral("curl")))
                out << ", ratio to curl: " << ratios(times[QStringLiteral("curl")], times[side]);
            if (peaks.contains(side))
                out << ", peak RSS MiB: " << BenchSetup::spread(peaks[side]);
            out << '\n';
        }
        out.flush();
    }
    QDir(served).removeRecursively();
    return failures == 0 ? 0 : 1;
}
