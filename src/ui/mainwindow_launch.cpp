#include "ui/mainwindow.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QIcon>
#include <QMouseEvent>
#include <QProcess>
#include <QPushButton>
#include <QTimer>

#include "config/settings.h"
#include "platform/eventdispatchers.h"
#include "platform/executable.h"
#include "platform/windowlookup.h"

namespace
{
    const int LaunchPollMs = 1000;
    const int WatchIntervalMs = 1000;
}

bool MainWindow::handleManageButtonPress(QEvent *event)
{
    // On press, with any mouse button, not on release.
    if (event->type() != QEvent::MouseButtonPress)
        return false;

    if (currentState == QLatin1String("install") || currentState == QLatin1String("update")) {
        updater.startUpdate();
        return false;
    }
    if (currentState == QLatin1String("play")) {
        // A press while the game starts or runs must not reach the button.
        if (gameRunning)
            return true;
        return launchGame();
    }
    return false;
}

bool MainWindow::launchGame()
{
    gameRunning = true;

    const Settings *settings = Settings::instance();
    const QString path = QDir::toNativeSeparators(
        QDir::cleanPath(settings->installPath() + QLatin1Char('/') + settings->executableName()));
    if (!QFile::exists(path)) {
        showErrorMessage(tr("Launch Failed"), tr("Game executable not found. Please verify your installation."));
        finishLaunch(false);
        return false;
    }

    Platform::makeExecutable(path);

    // Detached, so the game outlives the launcher. The process object only
    // carries the start; it reports nothing afterwards and goes right away.
    QProcess process;
    process.setProgram(path);
    process.setWorkingDirectory(QFileInfo(path).absolutePath());
    process.setProcessEnvironment(Platform::environmentForOtherPrograms());
    if (!process.startDetached()) {
        finishLaunch(false);
        return false;
    }

    if (QPushButton *button = manageButton()) {
        launchDots = 0;
        button->setText(tr("Launching"));
        button->setIcon(QIcon());
    }
    if (!launchTimer) {
        launchTimer = new QTimer(this);
        connect(launchTimer, &QTimer::timeout, this, &MainWindow::pollGameWindow);
    }
    launchElapsedMs = 0;
    launchTimer->start(LaunchPollMs);
    return true;
}

void MainWindow::pollGameWindow()
{
    launchElapsedMs += LaunchPollMs;
    launchDots = (launchDots + 1) % 4;
    if (QPushButton *button = manageButton())
        button->setText(tr("Launching") + QString(launchDots, QLatin1Char('.')));

    if (isGameWindowVisible()) {
        finishLaunch(true);
        return;
    }
    // The tick that reaches the limit still looks once more, above.
    if (launchElapsedMs >= launchTimeLimitMs)
        finishLaunch(false);
}

bool MainWindow::isGameWindowVisible()
{
    // Where the desktop cannot be asked, a running game process stands in
    // for its window, so a launch never fails only for that reason.
    const std::optional<bool> visible = Platform::isWindowVisible(Settings::instance()->applicationName());
    if (visible.has_value())
        return *visible;
    return updater.isGameRunning();
}

void MainWindow::finishLaunch(bool windowFound)
{
    if (!gameRunning)
        return;
    if (launchTimer)
        launchTimer->stop();
    QPushButton *button = manageButton();
    if (!button)
        return;

    if (!windowFound) {
        gameRunning = false;
        showErrorMessage(tr("Launch Failed"), tr("Failed to launch the game. Please verify your installation."));
        button->setText(tr("Play"));
        button->setIcon(QIcon(QStringLiteral(":/resources/icon_play.png")));
        updater.checkForUpdates();
        return;
    }

    button->setText(tr("Playing"));
    button->setIcon(QIcon());
    QTimer::singleShot(WatchIntervalMs, this, &MainWindow::watchGameProcess);
}

void MainWindow::watchGameProcess()
{
    if (updater.isGameRunning()) {
        QTimer::singleShot(WatchIntervalMs, this, [this] { finishLaunch(true); });
        return;
    }

    gameRunning = false;
    if (QPushButton *button = manageButton()) {
        // The state never left "play", so setButtonState would change nothing.
        button->setText(tr("Play"));
        button->setIcon(QIcon(QStringLiteral(":/resources/icon_play.png")));
    }
    updater.checkForUpdates();
}
