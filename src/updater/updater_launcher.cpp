#include "updater/updater.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QProcess>

#include "config/settings.h"
#include "updater/userprompt.h"

void Updater::checkLauncherVersion()
{
    const Settings *settings = Settings::instance();
    if (settings->version() == QLatin1String("dev")) {
        emit launcherVersionCheckComplete(true);
        return;
    }

    QNetworkReply *reply = networkManager.get(makeRequest(QUrl(settings->launcherUpdateUrl())));
    launcherVersionReply = reply;
    watchTransfer(reply);
    // A failure is seen in the reply itself when it finishes.
    connect(reply, &QNetworkReply::finished, this, [this, reply] { handleLauncherVersionReply(reply); });
}

void Updater::handleLauncherVersionReply(QNetworkReply *reply)
{
    if (reply->error() != QNetworkReply::NoError) {
        emit launcherVersionCheckComplete(false);
        UserPrompt::critical(QStringLiteral("Launch Error"),
                             QStringLiteral("Unable to connect to the patching server."));
        QCoreApplication::exit(0);
        return;
    }

    const QJsonObject launcherManifest = QJsonDocument::fromJson(reply->readAll()).object();
    const QString serverVersion = launcherManifest.value(QLatin1String("version")).toString(QString());
    const QString url = launcherManifest.value(QLatin1String("url")).toString(QString());

    // Versions have no order: any difference means this launcher must go.
    if (serverVersion.isEmpty() || serverVersion == Settings::instance()->version()) {
        emit launcherVersionCheckComplete(true);
        reply->deleteLater();
        return;
    }

    if (UserPrompt::question(QStringLiteral("Launcher Update"), QStringLiteral("Install new version now?"))
        == UserPrompt::Answer::Yes) {
        // The updater replaces this file, so it must run on after we exit.
        const QString updater = QCoreApplication::applicationDirPath() + QStringLiteral("/updater.exe");
        const bool started = QFileInfo(updater).isFile()
            && QProcess::startDetached(updater,
                                       {QStringLiteral("--path"), QCoreApplication::applicationFilePath(),
                                        QStringLiteral("--url"), url},
                                       QString());
        if (!started) {
            // Leaving without a word would look like a crash; an old
            // launcher that still works is better than none.
            UserPrompt::critical(QStringLiteral("Launcher Update"),
                                 QStringLiteral("The launcher updater could not be started (%1). This launcher will "
                                                "carry on with its current version.")
                                     .arg(QDir::toNativeSeparators(updater)));
            emit launcherVersionCheckComplete(true);
            reply->deleteLater();
            return;
        }
    } else {
        UserPrompt::critical(QStringLiteral("Launcher Update"), QStringLiteral("Update cancelled. Exiting now."));
    }
    emit launcherVersionCheckComplete(false);
    QCoreApplication::exit(0);
}
