#include "ui/mainwindow.h"

void MainWindow::onBackgroundSetupComplete()
{
    offerLegacyMigration();
    updater.checkLauncherVersion();
}

void MainWindow::onLauncherVersionCheckComplete(bool success)
{
    // On failure the process is already on its way out.
    if (!success)
        return;
    setVisible(true);
    raise();
    activateWindow();
    updater.checkForUpdates();
}
