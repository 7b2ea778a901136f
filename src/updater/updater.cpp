#include "updater/updater.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QLockFile>
#include <QSslConfiguration>
#include <QStandardPaths>
#include <QThread>
#include <QTimer>

#include "config/settings.h"
#include "platform/stagingroot.h"
#include "updater/crc32.h"
#include "updater/manifest.h"

namespace
{
    // Less than this in one stall period counts as no progress at all, so a
    // server that sends a byte now and then cannot hold a transfer open.
    const qint64 MinimumBytesPerPeriod = 1024;
}

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

    unlockStaging();
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

void Updater::retireVerification()
{
    if (!verificationWatcher)
        return;
    // Its outcome must never be used, not even a finished signal already
    // queued; its chunks in progress end on their own, without holding up
    // the GUI thread.
    QObject::disconnect(verificationWatcher, nullptr, this, nullptr);
    verificationWatcher->cancel();
    retiredVerifications.removeIf([](const QFuture<void> &future) { return future.isFinished(); });
    if (verificationWatcher->isRunning())
        retiredVerifications.append(verificationWatcher->future());
    verificationWatcher->deleteLater();
    verificationWatcher = nullptr;
    currentVerification.reset();
    awaitingManifest = false;
    outcomeWaiting = false;
}

void Updater::stopVerification()
{
    QFuture<void> running;
    if (verificationWatcher)
        running = verificationWatcher->future();
    retireVerification();
    // Chunks post their progress to this object, so none may outlive it.
    running.waitForFinished();
    for (QFuture<void> &retired : retiredVerifications)
        retired.waitForFinished();
    retiredVerifications.clear();
}

void Updater::setToolProgram(const QString &program)
{
    toolProgram = program;
}

void Updater::setStallTimeout(int milliseconds)
{
    stallTimeoutMs = milliseconds;
}

QString Updater::stagingDirectory()
{
    const Settings *settings = Settings::instance();
    QString company = settings->companyName();
    QString application = settings->applicationName();
    return QDir(Platform::stagingRoot()).absolutePath() + QLatin1Char('/')
        + company.replace(QLatin1Char('/'), QLatin1Char('_')) + QLatin1Char('/')
        + application.replace(QLatin1Char('/'), QLatin1Char('_'));
}

void Updater::watchTransfer(QNetworkReply *reply)
{
    // QNetworkRequest's own transfer time-out starts again with every byte,
    // so one byte a minute would keep a transfer open for ever; each period
    // must bring a little more than that instead.
    auto *timer = new QTimer(reply);
    timer->setInterval(stallTimeoutMs);
    auto received = std::make_shared<qint64>(0);
    auto atLastTick = std::make_shared<qint64>(0);
    connect(reply, &QNetworkReply::downloadProgress, timer, [received](qint64 bytes, qint64) { *received = bytes; });
    connect(timer, &QTimer::timeout, reply, [reply, received, atLastTick] {
        if (*received - *atLastTick >= MinimumBytesPerPeriod) {
            *atLastTick = *received;
            return;
        }
        reply->setProperty(StalledProperty, true);
        reply->abort();
    });
    timer->start();
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
    // Servers end an HTTP/2 connection after so many requests (nginx after a
    // thousand), and Qt then fails the requests queued on it instead of
    // sending them on a new one: a game of more files could never install.
    // HTTP/1.1 connections that close are simply opened again.
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    return request;
}

QUrl Updater::fileUrl(const QString &fileName) const
{
    return Manifest::fileUrl(Settings::instance()->updateUrl(), fileName);
}
