#pragma once

#include <QElapsedTimer>
#include <QImage>
#include <QMainWindow>
#include <QTranslator>

#include "updater/updater.h"

class AnnouncementWidget;
class BackgroundVideo;
class CircularProgressWidget;
class QLabel;
class QMessageBox;
class QNetworkAccessManager;
class QNetworkReply;
class QPushButton;
class QTimer;

namespace Ui
{
    class MainWindow;
}

// The launcher's one window: frameless and translucent, painting its own video
// background, with one large button whose state tells what the launcher is
// doing. It owns the user settings and the patching engine.
class MainWindow : public QMainWindow
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(MainWindow)

public:
    explicit MainWindow(QWidget *parent = nullptr);
    // Loads another product configuration in place of the compiled-in one.
    explicit MainWindow(const QString &configurationFile, QWidget *parent = nullptr);
    ~MainWindow() override;

    // Non-blocking; a message that arrives while a box is open is dropped, so
    // a burst of failures does not stack boxes on the player.
    void showErrorMessage(const QString &title, const QString &text);

    Updater &engine();

    // How long the launch watch waits for the game's window; tests shorten it.
    void setLaunchTimeLimit(int milliseconds);

    // Asks where the game's files live. The first-run variant cannot be
    // cancelled; the other one may move an existing installation.
    void showLocationDialog(bool firstRun);
    // Built anew on each click, so it always matches the moment.
    void showSettingsMenu();
    // Installs the catalogue for the code ("pt"; anything else is English)
    // and re-translates the window, the sidebar and the button.
    void applyLanguage(const QString &code);

signals:
    void buttonStateChanged(const QString &state);
    void backgroundSetupComplete();

public slots:
    void setButtonState(const QString &state);
    void onInstallPathChanged(const QString &path);
    void onLauncherVersionCheckComplete(bool success);
    void onBackgroundSetupComplete();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void changeEvent(QEvent *event) override;

private slots:
    void handleVideoFrame(const QImage &frame);
    void ensurePlaying();
    void ensurePaused();
    QString buttonState() const;

private:
    // Frame
    void loadStyleSheet();
    void setLogo();
    void installEventFilterOn(const char *objectName);
    bool handleTitleBarEvent(QEvent *event);
    bool isOverWindowButton() const;
    QPushButton *manageButton() const;

    // Manage button
    void applyButtonVisuals(QPushButton *button, const QString &state);
    void setButtonVisuals(QPushButton *button, const QString &text, const QString &iconPath, const QString &style);
    void placeProgressWidget(QPushButton *button);
    void placeSpeedLabel(QPushButton *button);
    QString manageButtonTextStyle(QPushButton *button) const;
    void advanceCheckingText();
    void updateDownloadSpeed(qlonglong bytesPerSecond);
    void updateOverallProgress(qlonglong bytesDownloaded, qlonglong totalBytes);
    void onNoUpdateAvailable();
    void recheckAfterInstall();
    void resetButtonToInstallation();

    // Sidebar
    void buildCategories();

    // News and start-up
    void setUpNews();
    void handleNewsReply(QNetworkReply *reply);
    void offerLegacyMigration();

    // Background
    void setUpBackground();
    void onFirstPaint();

    // Game launch and watch
    bool handleManageButtonPress(QEvent *event);
    bool launchGame();
    void pollGameWindow();
    void finishLaunch(bool windowFound);
    void watchGameProcess();
    bool isGameWindowVisible();

    Ui::MainWindow *ui = nullptr;
    BackgroundVideo *video = nullptr;
    QImage currentFrame;
    bool backgroundReady = false;
    QString currentState;
    CircularProgressWidget *progressWidget = nullptr;
    QLabel *speedLabel = nullptr;
    Updater updater;
    QTimer *launchTimer = nullptr;
    int launchDots = 0;
    bool gameRunning = false;
    int launchElapsedMs = 0;
    QMessageBox *errorBox = nullptr;
    QTimer *checkingTimer = nullptr;
    int checkingDots = 0;
    QElapsedTimer sinceSpeedShown;
    int launchTimeLimitMs;
    AnnouncementWidget *announcement1 = nullptr;
    AnnouncementWidget *announcement2 = nullptr;
    QNetworkAccessManager *newsManager = nullptr;
    QTranslator translator;
};
