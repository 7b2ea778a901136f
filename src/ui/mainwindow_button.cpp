#include "ui/mainwindow.h"

#include <QElapsedTimer>
#include <QFontMetrics>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QTimer>

#include "config/settings.h"
#include "ui/buttonlayout.h"
#include "ui/circularprogresswidget.h"

namespace
{
    const int CheckingTickMs = 500;
    const int SpeedLabelIntervalMs = 1000;
    const int StagedRecheckDelayMs = 500;

    // Before the first check has settled: the frame of a busy button, with
    // no text that could claim a state.
    const QString NeutralStyle = QStringLiteral("background-image: url(:/resources/frame_update.png);");

    enum StagedInstallResult
    {
        StagedFilesInstalled = 0,
        StagedInstallFailed = 1,
        NothingStaged = 2,
    };
}

QString MainWindow::buttonState() const
{
    return currentState;
}

void MainWindow::setButtonState(const QString &state)
{
    if (state == currentState)
        return;
    currentState = state;

    QPushButton *button = manageButton();
    if (!button)
        return;

    // Before the style sheet is set again below, which is what makes the
    // [state="..."] rules take effect.
    button->setProperty("state", state);
    if (progressWidget)
        progressWidget->hide();
    if (speedLabel)
        speedLabel->hide();
    applyButtonVisuals(button, state);

    if (progressWidget)
        progressWidget->setBusy(state == QLatin1String("checking"));

    if (state == QLatin1String("checking")) {
        button->setEnabled(false);
        if (!checkingTimer) {
            checkingTimer = new QTimer(this);
            checkingDots = 0;
            connect(checkingTimer, &QTimer::timeout, this, &MainWindow::advanceCheckingText);
        }
        checkingDots = 0;
        checkingTimer->start(CheckingTickMs);
    } else if (state == QLatin1String("play")) {
        button->setEnabled(true);
        if (checkingTimer)
            checkingTimer->stop();
    } else if (state == QLatin1String("updating") || state == QLatin1String("installing")) {
        button->setEnabled(false);
        // A run shows its own speed or nothing, never the last run's.
        if (speedLabel)
            speedLabel->clear();
        sinceSpeedShown.invalidate();
    } else if (state == QLatin1String("install") || state == QLatin1String("update")) {
        button->setEnabled(true);
    }

    emit buttonStateChanged(state);
}

void MainWindow::setButtonVisuals(QPushButton *button, const QString &text, const QString &iconPath,
                                  const QString &style)
{
    button->setText(text);
    button->setIcon(iconPath.isEmpty() ? QIcon() : QIcon(iconPath));
    button->setStyleSheet(style);
}

void MainWindow::applyButtonVisuals(QPushButton *button, const QString &state)
{
    const QString downloadIcon = QStringLiteral(":/resources/icon_download.png");
    if (state.isEmpty()) {
        setButtonVisuals(button, QString(), QString(), NeutralStyle);
        button->setEnabled(false);
    } else if (state == QLatin1String("install")) {
        setButtonVisuals(button, tr("Install"), downloadIcon, QString());
    } else if (state == QLatin1String("update")) {
        setButtonVisuals(button, tr("Update"), downloadIcon, QString());
    } else if (state == QLatin1String("play")) {
        setButtonVisuals(button, tr("Play"), QStringLiteral(":/resources/icon_play.png"), QString());
    } else if (state == QLatin1String("checking")) {
        // The text is set first so that the fit measures it.
        button->setText(tr("Checking for updates"));
        setButtonVisuals(button, button->text(), QString(), manageButtonTextStyle(button));
        placeProgressWidget(button);
    } else if (state == QLatin1String("updating") || state == QLatin1String("installing")) {
        // The first fit still measures the previous text in the previous font;
        // placing the circle measures again in the 14 px font just set.
        const QString style = manageButtonTextStyle(button);
        setButtonVisuals(button, state == QLatin1String("updating") ? tr("Updating") : tr("Installing"), QString(),
                         style);
        placeProgressWidget(button);
        placeSpeedLabel(button);
    }
}

QString MainWindow::manageButtonTextStyle(QPushButton *button) const
{
    if (!button)
        return QString();
    const QFontMetrics metrics(button->font());
    return ButtonLayout::textStyle(currentState != QLatin1String("checking"), button->width(), button->height(),
                                   progressWidget ? progressWidget->width() : 0,
                                   metrics.horizontalAdvance(button->text()), metrics.height());
}

void MainWindow::placeProgressWidget(QPushButton *button)
{
    if (!button || !progressWidget)
        return;
    const int textWidth = QFontMetrics(button->font()).horizontalAdvance(button->text());
    progressWidget->move(ButtonLayout::circlePosition(button->width(), button->height(), progressWidget->width(),
                                                      progressWidget->height(), textWidth));
    button->setStyleSheet(manageButtonTextStyle(button));
    progressWidget->show();
    progressWidget->setProgress(0.0);
}

void MainWindow::placeSpeedLabel(QPushButton *button)
{
    if (!button || !progressWidget || !speedLabel)
        return;
    const int textWidth = QFontMetrics(button->font()).horizontalAdvance(button->text());
    speedLabel->move(ButtonLayout::speedLabelPosition(button->mapTo(this, QPoint(0, 0)), button->width(),
                                                      button->height(), progressWidget->width(), textWidth));
    speedLabel->raise();
    speedLabel->show();
}

void MainWindow::advanceCheckingText()
{
    QPushButton *button = manageButton();
    if (!button || currentState != QLatin1String("checking"))
        return;
    checkingDots = (checkingDots + 1) % 4;
    // The style is not fitted again: the dots grow to the right and the
    // circle stays where it is.
    button->setText(tr("Checking for updates") + QString(checkingDots, QLatin1Char('.')));
}

void MainWindow::updateDownloadSpeed(qlonglong bytesPerSecond)
{
    // The first sample of a run shows at once, later ones at most once a
    // second. A monotonic clock, so that midnight or a clock change cannot
    // freeze the label.
    if (!speedLabel)
        return;
    if (sinceSpeedShown.isValid() && sinceSpeedShown.elapsed() < SpeedLabelIntervalMs)
        return;
    speedLabel->setText(ButtonLayout::speedText(bytesPerSecond));
    sinceSpeedShown.start();
}

void MainWindow::updateOverallProgress(qlonglong bytesDownloaded, qlonglong totalBytes)
{
    if (progressWidget)
        progressWidget->setProgress(static_cast<double>(bytesDownloaded) / static_cast<double>(totalBytes));
}

void MainWindow::resetButtonToInstallation()
{
    setButtonState(updater.isInstalled() ? QStringLiteral("update") : QStringLiteral("install"));
}

void MainWindow::onNoUpdateAvailable()
{
    switch (updater.installStagedFiles()) {
    case StagedFilesInstalled:
        // What was installed is verified by a fresh check, which moves the
        // button on through "checking".
        QTimer::singleShot(StagedRecheckDelayMs, this, &MainWindow::recheckAfterInstall);
        break;
    case StagedInstallFailed:
        resetButtonToInstallation();
        break;
    default:
        setButtonState(QStringLiteral("play"));
        break;
    }
}

void MainWindow::recheckAfterInstall()
{
    // The engine drops a check within a second of the last one, and the
    // button still shows "checking" from it: a dropped re-check would leave
    // the player there for good, so try again until one goes out.
    const QString lastCheck = Settings::instance()->lastUpdateCheck();
    updater.checkForUpdates();
    if (Settings::instance()->lastUpdateCheck() == lastCheck)
        QTimer::singleShot(StagedRecheckDelayMs, this, &MainWindow::recheckAfterInstall);
}

void MainWindow::onInstallPathChanged(const QString &)
{
    updater.checkForUpdates();
}
