#include "ui/locationdialog.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "config/settings.h"
#include "ui/mainwindow.h"
#include "updater/userprompt.h"

namespace
{
    QString comparablePath(const QString &path)
    {
        return QDir::cleanPath(QDir::toNativeSeparators(path));
    }
}

LocationDialog::LocationDialog(MainWindow *window, bool firstRun)
    : QDialog(window)
    , m_window(window)
    , m_firstRun(firstRun)
{
    // The window's catalogue holds these texts, so they are looked up in its
    // context rather than in this class's own.
    setWindowTitle(QCoreApplication::translate("MainWindow", "Game Files Location"));
    setFixedSize(500, 150);
    // A title bar without a close button, in both variants: the first run
    // must not be dismissed by a click beside the buttons.
    setWindowFlags(Qt::Dialog | Qt::WindowTitleHint | Qt::CustomizeWindowHint);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 20, 20, 20);
    layout->setSpacing(10);

    auto *pathRow = new QHBoxLayout;
    m_pathEdit = new QLineEdit(this);
    m_pathEdit->setObjectName(QStringLiteral("locationPathEdit"));
    // Only a directory that the file dialog has shown to exist gets in.
    m_pathEdit->setReadOnly(true);
    const QString currentPath = QDir::toNativeSeparators(Settings::instance()->installPath());
    if (firstRun)
        m_pathEdit->setPlaceholderText(currentPath);
    else
        m_pathEdit->setText(currentPath);
    auto *browseButton = new QPushButton(QCoreApplication::translate("MainWindow", "Browse"), this);
    browseButton->setObjectName(QStringLiteral("browseButton"));
    pathRow->addWidget(m_pathEdit);
    pathRow->addWidget(browseButton);
    layout->addLayout(pathRow);

    auto *message = new QLabel(this);
    message->setObjectName(QStringLiteral("locationMessage"));
    message->setWordWrap(true);
    if (firstRun) {
        message->setText(
            QCoreApplication::translate("MainWindow", "Please select where you would like to install the game."));
    } else {
        message->setText(QCoreApplication::translate(
            "MainWindow", "Warning: Changing the location might require a full reinstallation of the game."));
        message->setStyleSheet(QStringLiteral("color: #FFA500;"));
    }
    layout->addWidget(message);
    layout->addStretch();

    auto *buttonRow = new QHBoxLayout;
    auto *cancelButton = new QPushButton(QCoreApplication::translate("MainWindow", "Cancel"), this);
    cancelButton->setObjectName(QStringLiteral("cancelButton"));
    cancelButton->setEnabled(!firstRun);
    auto *confirmButton = new QPushButton(QCoreApplication::translate("MainWindow", "Confirm"), this);
    confirmButton->setObjectName(QStringLiteral("confirmButton"));
    buttonRow->addStretch();
    buttonRow->addWidget(cancelButton);
    buttonRow->addWidget(confirmButton);
    layout->addLayout(buttonRow);

    connect(browseButton, &QPushButton::clicked, this, &LocationDialog::browseForDirectory);
    connect(cancelButton, &QPushButton::clicked, this, &QDialog::reject);
    connect(confirmButton, &QPushButton::clicked, this, &LocationDialog::confirmLocation);
}

QString LocationDialog::chosenPath() const
{
    return m_pathEdit->text();
}

bool LocationDialog::launcherDirectoryRefused() const
{
    return m_launcherDirectoryRefused;
}

void LocationDialog::browseForDirectory()
{
    // The default location usually does not exist yet; the picker opens on
    // the nearest folder above it that does.
    QDir nearest(Settings::instance()->defaultInstallPath());
    while (!nearest.exists() && nearest.path().length() > 1) {
        if (!nearest.cdUp())
            break;
    }
    const QString start = m_pathEdit->text().isEmpty() ? nearest.path() : m_pathEdit->text();
    const QString chosen = QFileDialog::getExistingDirectory(
        this, QCoreApplication::translate("MainWindow", "Select Game Files Directory"), start,
        QFileDialog::ShowDirsOnly | QFileDialog::DontResolveSymlinks);
    if (!chosen.isEmpty())
        m_pathEdit->setText(QDir::toNativeSeparators(chosen));
}

void LocationDialog::confirmLocation()
{
    Settings *settings = Settings::instance();
    if (m_firstRun && m_pathEdit->text().isEmpty())
        m_pathEdit->setText(m_pathEdit->placeholderText());

    // Ending rejected with a filled field is how the first run keeps the
    // default location; the caller tells it from a dismissal by the field.
    const QString newPath = m_pathEdit->text();
    if (newPath.isEmpty() || newPath == settings->installPath()) {
        reject();
        return;
    }

    // The move or a later uninstall would take the launcher with the game.
    if (comparablePath(newPath) == comparablePath(QCoreApplication::applicationDirPath())) {
        m_launcherDirectoryRefused = true;
        reject();
        UserPrompt::warning(QCoreApplication::translate("MainWindow", "Error"),
                            QCoreApplication::translate(
                                "MainWindow", "Game files cannot be installed to the same directory as the launcher."),
                            this);
        return;
    }

    Updater &updater = m_window->engine();
    if (!m_firstRun && updater.isInstalled()
        && UserPrompt::question(
               QCoreApplication::translate("MainWindow", "Confirm Location Change"),
               QCoreApplication::translate("MainWindow",
                                           "Would you like to move your current game files to the new location?"),
               this)
            == UserPrompt::Answer::Yes) {
        if (!updater.runInstaller(settings->installPath(), newPath, {})) {
            // The engine has usually reported its own failure already; the
            // window keeps the first message of the two.
            m_window->showErrorMessage(
                QCoreApplication::translate("MainWindow", "Error"),
                QCoreApplication::translate("MainWindow", "Failed to move game files. Please try again."));
            reject();
            return;
        }
        UserPrompt::information(QCoreApplication::translate("MainWindow", "Success"),
                                QCoreApplication::translate("MainWindow", "Game files moved successfully."), this);
    }

    // Starts the update check for the new place through the window's
    // connection, before the dialog has closed.
    settings->setInstallPath(newPath);
    accept();
}
