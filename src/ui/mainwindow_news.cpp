#include "ui/mainwindow.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPushButton>

#include "config/settings.h"
#include "ui/announcementwidget.h"
#include "ui/newsfeed.h"
#include "updater/userprompt.h"

void MainWindow::setUpNews()
{
    // Hidden until the feed has filled them: without news the launcher
    // simply shows none.
    announcement1 = new AnnouncementWidget(this);
    announcement2 = new AnnouncementWidget(this);
    const int y = height() - announcement1->height() - 26;
    announcement1->move(509, y);
    announcement2->move(888, y);
    announcement1->hide();
    announcement2->hide();

    newsManager = new QNetworkAccessManager(this);
    QNetworkRequest request(QUrl(Settings::instance()->newsUrl()));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    QNetworkReply *reply = newsManager->get(request);
    connect(reply, &QNetworkReply::finished, this, [this, reply] { handleNewsReply(reply); });
}

void MainWindow::handleNewsReply(QNetworkReply *reply)
{
    reply->deleteLater();
    if (reply->error() != QNetworkReply::NoError)
        return;
    const QList<QJsonObject> elements = NewsFeed::cardElements(reply->readAll());
    if (elements.size() > 0)
        announcement1->setAnnouncement(elements.at(0));
    if (elements.size() > 1)
        announcement2->setAnnouncement(elements.at(1));
}

void MainWindow::offerLegacyMigration()
{
    if (!updater.hasLegacyInstallation() || Settings::instance()->ignoreLegacyInstallationMigration())
        return;
    // Enabled again by the next button state that allows a press.
    if (QPushButton *button = manageButton())
        button->setEnabled(false);

    // Asked through the prompt hook, so that tests can answer it.
    if (UserPrompt::question(tr("Legacy Installation Detected"),
                             tr("We have detected a legacy installation. Would you like to migrate old files to the "
                                "new installation path?"),
                             this)
        != UserPrompt::Answer::Yes) {
        Settings::instance()->setIgnoreLegacyInstallationMigration(true);
        return;
    }
    if (updater.migrateLegacyInstallation())
        UserPrompt::information(tr("Migration Complete"),
                                tr("Old files have been migrated to the new installation path successfully!"), this);
    else
        UserPrompt::critical(tr("Migration Failed"), tr("Failed to migrate old files to the new installation path."),
                             this);
}
