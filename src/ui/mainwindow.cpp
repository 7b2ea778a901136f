#include "ui/mainwindow.h"
#include "ui_mainwindow.h"

#include <QDesktopServices>
#include <QFile>
#include <QFontDatabase>
#include <QGraphicsOpacityEffect>
#include <QLabel>
#include <QMessageBox>
#include <QMouseEvent>
#include <QTimer>
#include <QUrl>

#include "config/settings.h"
#include "ui/backgroundvideo.h"
#include "ui/buttonlayout.h"
#include "ui/circularprogresswidget.h"
#include "updater/userprompt.h"

namespace
{
    // Offset between the pointer and the window's corner when a title bar
    // drag starts.
    QPoint dragOffset;

    const qreal HoverOpacity = 0.9;
    const qreal PressedOpacity = 0.8;

    const int DefaultLaunchTimeLimitMs = 60000;

    // Poppins ships with the program, since few systems have it. Its file
    // names the family "Poppins SemiBold", so the name the sidebar and the
    // style sheet ask for is mapped onto it; an installed Poppins still wins.
    void registerBundledFont()
    {
        static const bool registered = [] {
            const int id = QFontDatabase::addApplicationFont(QStringLiteral(":/resources/fonts/Poppins-SemiBold.ttf"));
            const QString family = QStringLiteral("Poppins");
            const QStringList families = QFontDatabase::applicationFontFamilies(id);
            for (const QString &name : families) {
                if (name != family)
                    QFont::insertSubstitution(family, name);
            }
            return id >= 0;
        }();
        Q_UNUSED(registered)
    }
}

MainWindow::MainWindow(QWidget *parent)
    : MainWindow(Settings::configurationResource(), parent)
{ }

MainWindow::MainWindow(const QString &configurationFile, QWidget *parent)
    : QMainWindow(parent)
    , ui(new Ui::MainWindow)
    , launchTimeLimitMs(DefaultLaunchTimeLimitMs)
{
    // The engine was constructed with the other members and must not have
    // read any settings yet; from here on everything may.
    new Settings(configurationFile, this);

    // A box takes the parent its caller names. The engine names none: its
    // boxes may come while the window is still hidden.
    UserPrompt::setHandlers({
        [](const QString &title, const QString &text, QWidget *owner) { QMessageBox::critical(owner, title, text); },
        [](const QString &title, const QString &text, QWidget *owner) { QMessageBox::warning(owner, title, text); },
        [](const QString &title, const QString &text, QWidget *owner) { QMessageBox::information(owner, title, text); },
        [](const QString &title, const QString &text, QWidget *owner) {
            return QMessageBox::question(owner, title, text, QMessageBox::Yes | QMessageBox::No, QMessageBox::NoButton)
                    == QMessageBox::Yes
                ? UserPrompt::Answer::Yes
                : UserPrompt::Answer::No;
        },
    });

    setWindowFlags(Qt::FramelessWindowHint);
    setAttribute(Qt::WA_TranslucentBackground, true);
    setAttribute(Qt::WA_QuitOnClose, true);
    setVisible(false);

    connect(this, &MainWindow::backgroundSetupComplete, this, &MainWindow::onBackgroundSetupComplete);

    connect(&updater, &Updater::launcherVersionCheckComplete, this, &MainWindow::onLauncherVersionCheckComplete);

    registerBundledFont();
    ui->setupUi(this);
    setWindowTitle(Settings::instance()->applicationName() + QStringLiteral(" Launcher"));

    setUpBackground();

    setAttribute(Qt::WA_OpaquePaintEvent, true);
    setAttribute(Qt::WA_TransparentForMouseEvents, false);
    loadStyleSheet();

    if (auto *button = findChild<QPushButton *>(QStringLiteral("minimizeButton")))
        connect(button, &QPushButton::clicked, this, &QWidget::showMinimized);
    if (auto *button = findChild<QPushButton *>(QStringLiteral("closeButton")))
        connect(button, &QPushButton::clicked, this, &QWidget::close);

    setLogo();
    installEventFilterOn("titleBar");
    buildCategories();
    installEventFilterOn("companyButton");
    if (auto *panel = findChild<QWidget *>(QStringLiteral("bottomPanel")))
        panel->raise();
    installEventFilterOn("minimizeButton");
    installEventFilterOn("closeButton");

    if (QPushButton *button = manageButton()) {
        progressWidget = new CircularProgressWidget(button);
        progressWidget->setFixedSize(40, 40);
        progressWidget->hide();

        speedLabel = new QLabel(this);
        speedLabel->setObjectName(QStringLiteral("speedLabel"));
        speedLabel->setFixedSize(100, 20);
        speedLabel->setAlignment(Qt::AlignLeft);
        speedLabel->setText(tr("Calculating..."));
        speedLabel->hide();

        button->installEventFilter(this);
        // Neither "Install" nor anything else is known before the first
        // check has settled.
        applyButtonVisuals(button, currentState);
    }

    connect(&updater, &Updater::checkingForUpdates, this, [this] { setButtonState(QStringLiteral("checking")); });
    connect(&updater, &Updater::updateAvailable, this, [this](const QString &state) { setButtonState(state); });
    connect(&updater, &Updater::noUpdateAvailable, this, &MainWindow::onNoUpdateAvailable);
    connect(&updater, &Updater::updateComplete, this, [this] { setButtonState(QStringLiteral("play")); });
    connect(&updater, &Updater::downloadProgress, this, &MainWindow::updateDownloadSpeed);
    connect(&updater, &Updater::overallProgress, this, &MainWindow::updateOverallProgress);
    connect(&updater, &Updater::stateChanged, this, &MainWindow::setButtonState);
    connect(&updater, &Updater::downloadError, this, [this](const QString &error) {
        showErrorMessage(tr("Download Error"), error);
        resetButtonToInstallation();
    });
    connect(&updater, &Updater::verificationStarted, this, [this](int) {
        if (!progressWidget)
            return;
        progressWidget->show();
        progressWidget->setProgress(0.0);
    });
    connect(&updater, &Updater::verificationProgress, this, [this](int filesChecked, int totalFiles) {
        if (progressWidget)
            progressWidget->setProgress(ButtonLayout::verificationPercent(filesChecked, totalFiles) / 100.0);
    });

    connect(Settings::instance(), &Settings::installPathChanged, this, &MainWindow::onInstallPathChanged);

    if (auto *button = findChild<QPushButton *>(QStringLiteral("settingsButton"))) {
        connect(button, &QPushButton::clicked, this, &MainWindow::showSettingsMenu);
        button->installEventFilter(this);
    }

    setUpNews();

    connect(&updater, &Updater::stateChanged, this, [this](const QString &state) {
        setButtonState(state);
        // The machine's full attention goes to a download run.
        if (state == QLatin1String("updating") || state == QLatin1String("installing"))
            ensurePaused();
        else
            ensurePlaying();
    });

    applyLanguage(Settings::instance()->language());
}

MainWindow::~MainWindow()
{
    delete ui;
    // Ends the decoding thread before anything it might touch goes.
    delete video;
    video = nullptr;

    // Verification workers read the settings; they must be gone before the
    // settings are.
    updater.stopVerification();
    delete Settings::instance();

    if (launchTimer)
        launchTimer->stop();
    delete launchTimer;
    if (checkingTimer)
        checkingTimer->stop();
    delete checkingTimer;

    if (errorBox) {
        // Closing normally finishes the box, which clears errorBox itself.
        errorBox->close();
        delete errorBox;
    }
}

Updater &MainWindow::engine()
{
    return updater;
}

void MainWindow::setLaunchTimeLimit(int milliseconds)
{
    launchTimeLimitMs = milliseconds;
}

QPushButton *MainWindow::manageButton() const
{
    return findChild<QPushButton *>(QStringLiteral("manageButton"));
}

void MainWindow::loadStyleSheet()
{
    QFile file(QStringLiteral(":/resources/style.qss"));
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return;
    setStyleSheet(QString::fromUtf8(file.readAll()));
    file.close();
}

void MainWindow::setLogo()
{
    // The logo is the background of logoWidget; the empty logoLabel on top of
    // it only reserves its size in the layout.
    auto *logoWidget = findChild<QWidget *>(QStringLiteral("logoWidget"));
    if (!logoWidget)
        return;
    logoWidget->setStyleSheet(QStringLiteral("background-image: url(:/resources/") + Settings::instance()->logoImage()
                              + QStringLiteral("); background-repeat: no-repeat; background-position: center;"));
}

void MainWindow::installEventFilterOn(const char *objectName)
{
    if (auto *widget = findChild<QWidget *>(QLatin1String(objectName)))
        widget->installEventFilter(this);
}

bool MainWindow::eventFilter(QObject *watched, QEvent *event)
{
    auto *button = qobject_cast<QPushButton *>(watched);
    if (button) {
        switch (event->type()) {
        case QEvent::Enter: {
            auto *effect = new QGraphicsOpacityEffect(button);
            effect->setOpacity(HoverOpacity);
            button->setGraphicsEffect(effect);
            break;
        }
        case QEvent::Leave:
            button->setGraphicsEffect(nullptr);
            break;
        case QEvent::MouseButtonPress:
        case QEvent::MouseButtonRelease:
            if (auto *effect = qobject_cast<QGraphicsOpacityEffect *>(button->graphicsEffect()))
                effect->setOpacity(event->type() == QEvent::MouseButtonPress ? PressedOpacity : HoverOpacity);
            break;
        default:
            break;
        }

        // On press, not on click, and without consuming the event.
        if (event->type() == QEvent::MouseButtonPress && button->objectName() == QLatin1String("companyButton"))
            QDesktopServices::openUrl(QUrl(Settings::instance()->companyUrl()));
    }

    if (watched->objectName() == QLatin1String("titleBar"))
        return handleTitleBarEvent(event);

    if (watched->property("class").toString() == QLatin1String("CategoryButton")) {
        if (event->type() != QEvent::MouseButtonRelease
            || static_cast<QMouseEvent *>(event)->button() != Qt::LeftButton)
            return false;
        const QString url = watched->property("url").toString();
        if (url.isEmpty())
            return false;
        QDesktopServices::openUrl(QUrl(url));
        return true;
    }

    if (button && button->objectName() == QLatin1String("manageButton"))
        return handleManageButtonPress(event);

    return QMainWindow::eventFilter(watched, event);
}

bool MainWindow::handleTitleBarEvent(QEvent *event)
{
    switch (event->type()) {
    case QEvent::MouseButtonPress: {
        const auto *mouseEvent = static_cast<QMouseEvent *>(event);
        if (mouseEvent->button() != Qt::LeftButton || isOverWindowButton())
            return false;
        dragOffset = mouseEvent->globalPosition().toPoint() - frameGeometry().topLeft();
        return true;
    }
    case QEvent::MouseMove: {
        const auto *mouseEvent = static_cast<QMouseEvent *>(event);
        if (isOverWindowButton() || !(mouseEvent->buttons() & Qt::LeftButton))
            return false;
        move(mouseEvent->globalPosition().toPoint() - dragOffset);
        return true;
    }
    default:
        return false;
    }
}

bool MainWindow::isOverWindowButton() const
{
    for (const char *name : {"minimizeButton", "closeButton"}) {
        const auto *button = findChild<QWidget *>(QLatin1String(name));
        if (button && button->underMouse())
            return true;
    }
    return false;
}

void MainWindow::showErrorMessage(const QString &title, const QString &text)
{
    if (errorBox)
        return;

    errorBox = new QMessageBox(QMessageBox::Critical, title, text, QMessageBox::Ok, this);
    // A message box is modal by default; this one must leave the launcher
    // usable while it is open.
    errorBox->setModal(false);
    connect(errorBox, &QMessageBox::finished, this, [this] {
        errorBox->deleteLater();
        errorBox = nullptr;
    });
    errorBox->show();
}
