#include "updater/updater.h"

#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include "config/settings.h"
#include "platform/elevation.h"
#include "platform/hiddenfiles.h"

namespace
{
    const int ToolStartTimeoutMs = 30000;
    const int ToolRunTimeoutMs = 300000;

    const QString NoWriteAccess = QStringLiteral(
        "Failed to write to install directory.\nPlease ensure you have write access to the install directory.");
    const QString TimedOut = QStringLiteral("Installation process timed out after 5 minutes");
    const QString ToolFailed = QStringLiteral("Installation process failed");

    bool canWriteProbe(const QString &directory)
    {
        QFile probe(directory + QStringLiteral("/.write_test"));
        if (!probe.open(QIODevice::WriteOnly))
            return false;
        probe.close();
        probe.remove();
        return true;
    }

    // Removing a tree takes the right to change every folder in it and the
    // one that holds it; a tree the player owns goes without a password.
    bool canRemoveTree(const QString &root)
    {
        const QFileInfo info(root);
        if (!info.exists() || !QFileInfo(info.absolutePath()).isWritable() || !canWriteProbe(root))
            return false;
        QDirIterator it(root, QDir::Dirs | QDir::Hidden | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            it.next();
            if (!it.fileInfo().isSymLink() && !it.fileInfo().isWritable())
                return false;
        }
        return true;
    }

    // Whether the destination can be written as we are; creates it when it
    // is missing, as the move would.
    bool needsElevation(const QString &source, const QString &destination)
    {
        if (destination.isEmpty())
            return !canRemoveTree(source);
        if (QFileInfo(destination).exists())
            return !canWriteProbe(destination);
        return !QDir().mkpath(destination);
    }
}

void Updater::finishRun()
{
    updating = false;
    pruneStagingDirectory();

    // The marker travels with the staged files, so it arrives only when the
    // whole move has.
    QFile marker(QDir::toNativeSeparators(QDir::cleanPath(stagingDirectory() + QStringLiteral("/.initcomplete"))));
    if (marker.open(QIODevice::WriteOnly))
        marker.close();

    const QString staging = QDir::toNativeSeparators(QDir::cleanPath(stagingDirectory()));
    const bool installed = runInstaller(staging, Settings::instance()->installPath(), {});
    unlockStaging();
    if (installed) {
        verifiedStagedFiles.clear();
        emit updateComplete();
        return;
    }
    emit stateChanged(QStringLiteral("update"));
    recheckRequired = true;
}

bool Updater::runInstaller(const QString &source, const QString &destination, const QStringList &ignore)
{
    const bool elevate = Platform::canElevate() && needsElevation(source, destination);
    const QStringList arguments = relocationArguments(
        QDir::toNativeSeparators(source), QDir::toNativeSeparators(destination), ignore.join(QLatin1Char(',')));
    return elevate ? runInstallerElevated(arguments) : runInstallerDirectly(arguments);
}

QString Updater::relocationTool() const
{
    return QDir::toNativeSeparators(toolProgram.isEmpty() ? QCoreApplication::applicationFilePath() : toolProgram);
}

QStringList Updater::relocationArguments(const QString &source, const QString &destination, const QString &ignore)
{
    return {QStringLiteral("--source"), source, QStringLiteral("--dest"), destination,
            QStringLiteral("--ignore"), ignore};
}

bool Updater::runInstallerElevated(const QStringList &arguments)
{
    const Platform::ElevatedRun run = Platform::runElevated(relocationTool(), arguments, ToolRunTimeoutMs);
    switch (run.outcome) {
    case Platform::ElevatedRun::Refused:
        emit downloadError(NoWriteAccess);
        return false;
    case Platform::ElevatedRun::TimedOut:
        emit downloadError(TimedOut);
        return false;
    case Platform::ElevatedRun::Finished:
        if (run.exitCode != 0) {
            emit downloadError(ToolFailed);
            return false;
        }
        return true;
    default:
        return false;
    }
}

bool Updater::runInstallerDirectly(const QStringList &arguments)
{
    QProcess process;
    // The tool shows nothing, and must run also where no display is reachable.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    process.setProcessEnvironment(environment);
    process.start(relocationTool(), arguments, QIODevice::ReadWrite);
    if (!process.waitForStarted(ToolStartTimeoutMs)) {
        emit downloadError(QStringLiteral("Failed to start installation process"));
        return false;
    }
    if (!process.waitForFinished(ToolRunTimeoutMs)) {
        process.kill();
        process.waitForFinished();
        emit downloadError(TimedOut);
        return false;
    }
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        emit downloadError(ToolFailed);
        return false;
    }
    return true;
}

int Updater::installStagedFiles()
{
    // Only what the last complete verification vouched for may be moved,
    // and never under a run that is still filling the folder.
    const QString staging = stagingDirectory();
    if (updating || !stagedFilesKnown || !QDir(staging).exists())
        return 2;
    if (!lockStaging())
        return 1;
    pruneStagingDirectory();

    // Empty directories of an earlier run count for nothing; a marker left
    // by a run whose move failed does count.
    QDirIterator it(staging, QDir::Files | QDir::NoDotAndDotDot | Platform::visibleDotFileFilter(),
                    QDirIterator::Subdirectories);
    if (!it.hasNext()) {
        unlockStaging();
        return 2;
    }

    const bool installed = runInstaller(staging, Settings::instance()->installPath(), {});
    unlockStaging();
    if (installed)
        verifiedStagedFiles.clear();
    return installed ? 0 : 1;
}
