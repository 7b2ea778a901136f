#include "updater/updater.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSslConfiguration>
#include <QStandardPaths>
#include <QThread>
#include <QTimer>

#include "config/settings.h"
#include "updater/crc32.h"
#include "updater/manifest.h"

const int maxConcurrentDownloads = QThread::idealThreadCount();

Updater::Updater(QObject *parent)
    : QObject(parent)
{
    // Settings do not exist yet when the window constructs the engine.
    connect(&networkManager, &QNetworkAccessManager::finished, this, &Updater::handleNetworkReply);
}

Updater::~Updater()
{
    updating = false;
    stopVerification();

    const QList<QNetworkReply *> replies = activeDownloads.keys();
    for (QNetworkReply *reply : replies) {
        if (!reply)
            continue;
        QObject::disconnect(reply, nullptr, nullptr, nullptr);
        const auto it = activeDownloads.find(reply);
        if (it != activeDownloads.end() && it->file) {
            it->file->close();
            delete it->file;
            it->file = nullptr;
        }
        reply->abort();
        reply->close();
        reply->deleteLater();
    }
    activeDownloads.clear();
    pendingDownloads.clear();
}

void Updater::stopVerification()
{
    if (!verificationWatcher)
        return;
    if (verificationWatcher->isRunning()) {
        verificationWatcher->cancel();
        verificationWatcher->waitForFinished();
        delete verificationWatcher;
    } else {
        // This may run from inside the finished watcher's own signal.
        verificationWatcher->deleteLater();
    }
    verificationWatcher = nullptr;
}

void Updater::setToolProgram(const QString &program)
{
    toolProgram = program;
}

QString Updater::stagingDirectory()
{
    const Settings *settings = Settings::instance();
    QString company = settings->companyName();
    QString application = settings->applicationName();
    return QDir(QStandardPaths::writableLocation(QStandardPaths::TempLocation)).absolutePath() + QLatin1Char('/')
        + company.replace(QLatin1Char('/'), QLatin1Char('_')) + QLatin1Char('/')
        + application.replace(QLatin1Char('/'), QLatin1Char('_'));
}

QString Updater::fileChecksum(const QString &path)
{
    return Crc32::fileDigest(path);
}

QNetworkRequest Updater::makeRequest(const QUrl &url) const
{
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::UserAgentHeader,
                      QString(Settings::instance()->applicationName() + QStringLiteral(" Launcher")));
    QSslConfiguration ssl = QSslConfiguration::defaultConfiguration();
    ssl.setProtocol(QSsl::TlsV1_2OrLater);
    request.setSslConfiguration(ssl);
    return request;
}

QUrl Updater::fileUrl(const QString &fileName) const
{
    return Manifest::fileUrl(Settings::instance()->updateUrl(), fileName);
}

qint64 Updater::manifestSize(const QString &fileName) const
{
    return manifest.value(fileName).toObject().value(QLatin1String("size")).toInteger(0);
}
