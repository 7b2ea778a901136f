#include "ui/mainwindow.h"

#include <QCoreApplication>
#include <QPushButton>

#include "config/settings.h"
#include "ui/locationdialog.h"

void MainWindow::onBackgroundSetupComplete()
{
    Settings *settings = Settings::instance();
    if (!settings->hasSelectedInstallPath()) {
        showLocationDialog(true);
        // Only a first run left without any location leaves the flag unset,
        // and then the application is already on its way out.
        if (!settings->hasSelectedInstallPath())
            return;
    }
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

void MainWindow::showLocationDialog(bool firstRun)
{
    // Files must not move under a check, a download or an install.
    if (!firstRun) {
        if (QPushButton *button = manageButton(); button && !button->isEnabled())
            return;
    }

    LocationDialog dialog(this, firstRun);
    const int result = dialog.exec();
    if (dialog.launcherDirectoryRefused())
        showLocationDialog(firstRun);
    if (!firstRun)
        return;

    if (result == QDialog::Accepted || !dialog.chosenPath().isEmpty())
        Settings::instance()->setHasSelectedInstallPath(true);
    else
        QCoreApplication::quit();
}
