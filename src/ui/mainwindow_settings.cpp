#include "ui/mainwindow.h"
#include "ui_mainwindow.h"

#include <QActionGroup>
#include <QCoreApplication>
#include <QDesktopServices>
#include <QDir>
#include <QMap>
#include <QMenu>
#include <QPushButton>
#include <QUrl>

#include "config/settings.h"

namespace
{
    const QString CatalogueResource = QStringLiteral(":/translations/translations/bwd-launcher_pt.qm");

    // Display names stay in their own language whatever the interface shows.
    QMap<QString, QString> languages()
    {
        return {
            {QStringLiteral("en"), QStringLiteral("English")},
            {QStringLiteral("pt"), QStringLiteral("Português (Brasil)")},
        };
    }
}

void MainWindow::showSettingsMenu()
{
    auto *menu = new QMenu(this);
    menu->setObjectName(QStringLiteral("settingsMenu"));

    QMenu *languageMenu = menu->addMenu(tr("Language"));
    auto *languageGroup = new QActionGroup(this);
    // The group belongs to the window but lives only as long as its menu.
    connect(menu, &QObject::destroyed, languageGroup, &QObject::deleteLater);
    const QString current = Settings::instance()->language();
    const QMap<QString, QString> names = languages();
    for (auto it = names.cbegin(); it != names.cend(); ++it) {
        QAction *action = languageMenu->addAction(it.value());
        action->setCheckable(true);
        action->setData(it.key());
        action->setChecked(it.key() == current);
        languageGroup->addAction(action);
    }
    connect(languageGroup, &QActionGroup::triggered, this, [this](QAction *action) {
        const QString code = action->data().toString();
        Settings::instance()->setLanguage(code);
        applyLanguage(code);
    });

    // Looked at once per menu; the next click builds a new one.
    const QString installPath = Settings::instance()->installPath();
    const bool installed = QDir(installPath).exists();

    // Entries that start engine work stay clickable in every state; they only
    // act while the manage button would accept a press, so a running check,
    // download or install is never disturbed.
    const auto whenIdle = [this](auto work) {
        return [this, work] {
            QPushButton *button = manageButton();
            if (button && button->isEnabled())
                work();
        };
    };

    if (installed) {
        connect(menu->addAction(tr("Show in Explorer")), &QAction::triggered, this,
                [installPath] { QDesktopServices::openUrl(QUrl::fromLocalFile(installPath)); });
        connect(menu->addAction(tr("Check for Updates")), &QAction::triggered, this,
                whenIdle([this] { updater.checkForUpdates(); }));
    }

    QAction *animations = menu->addAction(Settings::instance()->animationsEnabled() ? tr("Disable Animations")
                                                                                    : tr("Enable Animations"));
    connect(animations, &QAction::triggered, this, [this, animations] {
        Settings *settings = Settings::instance();
        settings->setAnimationsEnabled(!settings->animationsEnabled());
        if (settings->animationsEnabled()) {
            animations->setText(tr("Disable Animations"));
            ensurePlaying();
        } else {
            animations->setText(tr("Enable Animations"));
            ensurePaused();
        }
    });

    menu->addSeparator();

    connect(menu->addAction(tr("Modify Install")), &QAction::triggered, this,
            whenIdle([this] { showLocationDialog(false); }));
    if (installed) {
        connect(menu->addAction(tr("Uninstall")), &QAction::triggered, this, whenIdle([this] { updater.uninstall(); }));
    }

    if (auto *button = findChild<QPushButton *>(QStringLiteral("settingsButton"))) {
        // The style sheet's paddings count only once the menu is polished,
        // which popup would do too late for the height taken here.
        menu->ensurePolished();
        QPoint position = button->mapToGlobal(QPoint(0, 0));
        position.ry() -= menu->sizeHint().height();
        menu->popup(position);
    }
    // Deferred: a triggered action is delivered after aboutToHide.
    connect(menu, &QMenu::aboutToHide, menu, &QObject::deleteLater);
}

void MainWindow::applyLanguage(const QString &code)
{
    QCoreApplication::removeTranslator(&translator);
    if (code == QLatin1String("pt") && translator.load(CatalogueResource))
        QCoreApplication::installTranslator(&translator);

    // Nothing listens to LanguageChange: re-translation is these steps.
    ui->retranslateUi(this);
    buildCategories();
    if (QPushButton *button = manageButton())
        applyButtonVisuals(button, currentState);
}
