#pragma once

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <algorithm>
#include <type_traits>

#include "updater/crc32.h"

// Shared by the benchmarks: a synthetic game and a product configuration
// that points the engine at a loopback server.
namespace BenchSetup
{
    // `files` files adding up to `totalBytes`, some large and many small, as
    // real games are; returns the manifest's "files" table.
    inline QJsonObject makeGame(const QString &root, qint64 totalBytes, int files)
    {
        QByteArray block(1 << 20, Qt::Uninitialized);
        QRandomGenerator generator(42);
        for (qsizetype i = 0; i < block.size(); i += 4)
            *reinterpret_cast<quint32 *>(block.data() + i) = generator.generate();

        QJsonObject table;
        // Half of the bytes in 1% of the files, the rest spread evenly.
        const int large = qMax(1, files / 100);
        const qint64 largeSize = totalBytes / 2 / large;
        const qint64 smallSize = (totalBytes - largeSize * large) / qMax(1, files - large);
        for (int i = 0; i < files; ++i) {
            const qint64 size = i < large ? largeSize : smallSize;
            const QString key = QStringLiteral("/data/%1/file%2.bin").arg(i % 50).arg(i);
            const QString path = root + key;
            QDir().mkpath(QFileInfo(path).path());
            QFile file(path);
            if (!file.open(QIODevice::WriteOnly))
                qFatal("cannot write %s", qPrintable(path));
            quint32 crc = 0;
            for (qint64 written = 0; written < size;) {
                const qint64 piece = qMin<qint64>(size - written, block.size());
                block[0] = static_cast<char>(i); // every file differs
                file.write(block.constData(), piece);
                crc = Crc32::update(crc, block.constData(), piece);
                written += piece;
            }
            table.insert(
                key, QJsonObject {{QStringLiteral("checksum"), Crc32::toDigest(crc)}, {QStringLiteral("size"), size}});
        }
        return table;
    }

    struct Size
    {
        qint64 bytes = 0;
        int files = 0;
    };

    // The size of the synthetic game, from --size-mib and --files; `parser`
    // may hold options of the caller's own.
    inline Size parseSize(QCommandLineParser &parser, const QStringList &arguments, const char *defaultMiB,
                          const char *defaultFiles)
    {
        parser.addHelpOption();
        const QCommandLineOption sizeOption(QStringLiteral("size-mib"), QStringLiteral("Total size in MiB."),
                                            QStringLiteral("n"), QLatin1String(defaultMiB));
        const QCommandLineOption filesOption(QStringLiteral("files"), QStringLiteral("Number of files."),
                                             QStringLiteral("n"), QLatin1String(defaultFiles));
        parser.addOptions({sizeOption, filesOption});
        parser.process(arguments);
        return {parser.value(sizeOption).toLongLong() * 1024 * 1024, parser.value(filesOption).toInt()};
    }

    inline QString writeConfiguration(const QString &directory, const QUrl &server)
    {
        const QJsonObject configuration {
            // A released version: the launcher asks the server for its own
            // version first, before any check, as a shipped one does.
            {QStringLiteral("version"), QStringLiteral("1.0.0")},
            {QStringLiteral("launcherUpdateUrl"), QString(server.toString() + QStringLiteral("/launcher.json"))},
            {QStringLiteral("applicationName"), QStringLiteral("Bench")},
            {QStringLiteral("companyName"), QStringLiteral("Brindlewood Works")},
            {QStringLiteral("manifestFile"), QStringLiteral("checksums.txt.gz")},
            {QStringLiteral("updateUrl"), QString(server.toString() + QStringLiteral("/game"))},
            {QStringLiteral("executableName"), QStringLiteral("bench.bin")},
        };
        const QString path = directory + QStringLiteral("/settings.json");
        QFile file(path);
        if (file.open(QIODevice::WriteOnly))
            file.write(QJsonDocument(configuration).toJson());
        return path;
    }

    inline QByteArray manifest(const QJsonObject &table)
    {
        return qCompress(QJsonDocument(QJsonObject {{QStringLiteral("files"), table}}).toJson(QJsonDocument::Compact));
    }

    // Sorted and joined: "min/.../max".
    template <typename T> QString spread(QList<T> values)
    {
        std::sort(values.begin(), values.end());
        QStringList parts;
        for (const T value : values) {
            if constexpr (std::is_floating_point_v<T>)
                parts << QString::number(value, 'f', 2);
            else
                parts << QString::number(value);
        }
        return parts.join(QLatin1Char('/'));
    }

    // Peak resident memory of a process, "self" by default.
    inline qint64 peakResidentKiB(const QString &pid = QStringLiteral("self"))
    {
        QFile status(QStringLiteral("/proc/%1/status").arg(pid));
        if (!status.open(QIODevice::ReadOnly))
            return -1;
        for (const QByteArray &line : status.readAll().split('\n')) {
            if (line.startsWith("VmHWM:"))
                return line.mid(6).trimmed().split(' ').first().toLongLong();
        }
        return -1;
    }

    // A player's home in `home` for the bench build of the launcher: one who
    // has chosen where the game goes (so no first-run dialog), and the
    // environment that points the launcher at that home and at `display`.
    // Empty when the settings cannot be written.
    inline QProcessEnvironment launcherEnvironment(const QString &home, const QString &install, bool animations,
                                                   const QString &display)
    {
        const QString config = home + QStringLiteral("/config/Brindlewood Works");
        QDir().mkpath(config);
        QDir().mkpath(home + QStringLiteral("/tmp"));
        // Qt wants a runtime folder only its user can enter.
        const QString runtime = home + QStringLiteral("/runtime");
        QDir().mkpath(runtime);
        QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QFile store(config + QStringLiteral("/Hollowmere Bench Launcher.conf"));
        if (!store.open(QIODevice::WriteOnly))
            return {};
        store.write("[General]\nhasSelectedInstallPath=true\ninstallPath=" + install.toUtf8()
                    + "\nanimationsEnabled=" + (animations ? "true" : "false") + "\n");

        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("HOME"), home);
        environment.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/config"));
        environment.insert(QStringLiteral("XDG_DATA_HOME"), home + QStringLiteral("/data"));
        environment.insert(QStringLiteral("XDG_CACHE_HOME"), home + QStringLiteral("/cache"));
        environment.insert(QStringLiteral("TMPDIR"), home + QStringLiteral("/tmp"));
        environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime);
        environment.insert(QStringLiteral("DISPLAY"), display);
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
        return environment;
    }

    // Asks first, so that the launcher ends as a player's would.
    inline void stopProcess(QProcess &process)
    {
        process.terminate();
        if (!process.waitForFinished(5000))
            process.kill();
        process.waitForFinished();
    }
}
