#include "updater/updater.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>

#include "config/settings.h"
#include "updater/manifest.h"
#include "updater/userprompt.h"

void Updater::checkForUpdates()
{
    if (updating)
        return;

    // Collapses calls that arrive in the same moment; it is not a schedule.
    Settings *settings = Settings::instance();
    const QDateTime lastCheck = QDateTime::fromString(settings->lastUpdateCheck(), Qt::ISODate);
    if (lastCheck.isValid() && lastCheck.addSecs(1) > QDateTime::currentDateTime())
        return;

    emit checkingForUpdates();
    settings->setLastUpdateCheck(QDateTime::currentDateTime().toString(Qt::ISODate));

    const QUrl url(settings->updateUrl() + QLatin1Char('/') + settings->manifestFile(), QUrl::TolerantMode);
    QNetworkReply *reply = networkManager.get(makeRequest(url));
    connect(reply, &QNetworkReply::errorOccurred, this, &Updater::handleDownloadError);

    updating = false;
    recheckRequired = false;
}

void Updater::handleNetworkReply(QNetworkReply *reply)
{
    // Every reply of the engine ends here; only the manifest is read.
    if (reply->url().toString().endsWith(Settings::instance()->manifestFile())) {
        if (reply->error() == QNetworkReply::NoError) {
            const QByteArray data = reply->readAll();
            if (!data.isEmpty())
                parseManifest(data);
        }
    }
    reply->deleteLater();
}

bool Updater::isInstalled() const
{
    const QDir dir(QDir::toNativeSeparators(QDir::cleanPath(Settings::instance()->installPath())));
    return dir.exists() && dir.exists(QStringLiteral(".initcomplete"));
}

void Updater::parseManifest(const QByteArray &data)
{
    // Wiped first, so a rejected body leaves nothing of an earlier check.
    manifest = QJsonObject();
    filesToDownload.clear();

    const std::optional<QJsonObject> parsed = Manifest::parse(data);
    if (!parsed)
        return;
    manifest = *parsed;
    verifyInstallation();
}

void Updater::handleDownloadError(QNetworkReply::NetworkError)
{
    if (QCoreApplication::closingDown()) {
        cancelAllDownloads();
        return;
    }

    // Once the launcher has talked to the patch server, losing it is fatal.
    if (launcherVersionReply) {
        emit launcherVersionCheckComplete(false);
        UserPrompt::critical(QStringLiteral("Launch Error"),
                             QStringLiteral("Unable to connect to the patching server."));
        QCoreApplication::quit();
        return;
    }

    updating = false;
    cancelAllDownloads();
    if (QCoreApplication::closingDown())
        return;
    emit stateChanged(QStringLiteral("update"));
    emit downloadError(QStringLiteral("Network error occurred"));
}
