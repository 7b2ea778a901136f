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

    // Whether the destination can be written as we are; creates it when it
    // is missing, as the move would.
    bool needsElevation(const QString &destination)
    {
        if (QFileInfo(destination).exists()) {
            QFile probe(destination + QStringLiteral("/.write_test"));
            if (!probe.open(QIODevice::WriteOnly))
                return true;
            probe.close();
            probe.remove();
            return false;
        }
        return !QDir().mkpath(destination);
    }
}

void Updater::finishRun()
{
    updating = false;

    // The marker travels with the staged files, so it arrives only when the
    // whole move has.
    QFile marker(QDir::toNativeSeparators(QDir::cleanPath(stagingDirectory() + QStringLiteral("/.initcomplete"))));
    if (marker.open(QIODevice::WriteOnly))
        marker.close();

    const QString staging = QDir::toNativeSeparators(QDir::cleanPath(stagingDirectory()));
    if (runInstaller(staging, Settings::instance()->installPath(), {})) {
        emit updateComplete();
        return;
    }
    emit stateChanged(QStringLiteral("update"));
    recheckRequired = true;
}

bool Updater::runInstaller(const QString &source, const QString &destination, const QStringList &ignore)
{
    const bool elevate = Platform::canElevate() && needsElevation(destination);
    const QString program
        = QDir::toNativeSeparators(toolProgram.isEmpty() ? QCoreApplication::applicationFilePath() : toolProgram);
    const QString joinedIgnore = ignore.join(QLatin1Char(','));
    if (elevate)
        return runInstallerElevated(program, QDir::toNativeSeparators(source), QDir::toNativeSeparators(destination),
                                    joinedIgnore);
    return runInstallerDirectly(program, QDir::toNativeSeparators(source), QDir::toNativeSeparators(destination),
                                joinedIgnore);
}

bool Updater::runInstallerElevated(const QString &program, const QString &source, const QString &destination,
                                   const QString &ignore)
{
    // One pass, so a "%2" inside a path is not replaced again.
    const QString parameters
        = QStringLiteral("--source \"%1\" --dest \"%2\" --ignore \"%3\"").arg(source, destination, ignore);
    const Platform::ElevatedRun run = Platform::runElevated(program, parameters, ToolRunTimeoutMs);
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

bool Updater::runInstallerDirectly(const QString &program, const QString &source, const QString &destination,
                                   const QString &ignore)
{
    QProcess process;
    // The tool shows nothing, and must run also where no display is reachable.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    process.setProcessEnvironment(environment);
    process.start(
        program,
        {QStringLiteral("--source"), source, QStringLiteral("--dest"), destination, QStringLiteral("--ignore"), ignore},
        QIODevice::ReadWrite);
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
    const QString staging = stagingDirectory();
    if (!QDir(staging).exists())
        return 2;

    // Empty directories of an earlier run count for nothing; a marker left
    // by a run whose move failed does count.
    QDirIterator it(staging, QDir::Files | QDir::NoDotAndDotDot | Platform::visibleDotFileFilter(),
                    QDirIterator::Subdirectories);
    if (!it.hasNext())
        return 2;

    return runInstaller(staging, Settings::instance()->installPath(), {}) ? 0 : 1;
}
