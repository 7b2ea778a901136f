#include "updater/updater.h"

#include <QDir>
#include <QFileInfo>

#include "config/settings.h"
#include "platform/elevation.h"
#include "updater/userprompt.h"

void Updater::uninstall()
{
    const QString installPath = Settings::instance()->installPath();
    if (!QDir(installPath).exists())
        return;
    if (UserPrompt::question(QStringLiteral("Confirm Uninstall"),
                             QStringLiteral("Are you sure you want to uninstall? This will remove all game files."))
        != UserPrompt::Answer::Yes)
        return;

    bool removed = false;
    if (QFileInfo(installPath).isWritable()) {
        removed = runInstaller(installPath, QString(), {});
    } else {
        // No time limit: a large installation on a slow disk may take long,
        // and a tool stopped half-way would leave a broken tree.
        const Platform::ElevatedRun run = Platform::runElevated(
            relocationTool(), relocationArguments(QDir::toNativeSeparators(installPath), QString(), QString()), -1);
        if (run.outcome == Platform::ElevatedRun::Refused) {
            emit downloadError(QStringLiteral("Failed to uninstall - could not get necessary permissions"));
            return;
        }
        removed = run.outcome == Platform::ElevatedRun::NoProcess
            || (run.outcome == Platform::ElevatedRun::Finished && run.exitCode == 0);
    }

    if (!removed) {
        emit downloadError(QStringLiteral("Some files could not be removed during uninstall"));
        return;
    }
    emit stateChanged(QStringLiteral("install"));
    // The manifest and the queue describe the tree that is now gone.
    recheckRequired = true;
    checkForUpdates();
}
