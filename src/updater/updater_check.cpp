#include "updater/updater.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFutureWatcher>
#include <QtConcurrent/QtConcurrentRun>

#include "config/settings.h"
#include "updater/manifest.h"
#include "updater/userprompt.h"

namespace
{
    const QString UnusableManifest
        = QStringLiteral("The patch server sent a list of game files that cannot be used. Please try again later.");
}

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
    // Only the newest check may fill the manifest: an older reply arriving
    // late would replace the queue under a verification or a run.
    if (manifestReply) {
        QNetworkReply *older = manifestReply;
        manifestReply = nullptr;
        QObject::disconnect(older, nullptr, this, nullptr);
        older->abort();
    }
    manifestReply = reply;
    // A parse of an older reply still under way is dropped as well.
    ++manifestGeneration;
    connect(reply, &QNetworkReply::errorOccurred, this, &Updater::handleDownloadError);
    watchTransfer(reply);
    connect(reply, &QNetworkReply::downloadProgress, this, [this, reply](qint64 received, qint64 total) {
        if (received <= Manifest::MaxCompressedSize && total <= Manifest::MaxCompressedSize)
            return;
        // Refused before it is buffered whole; no connection error, so the
        // launcher stays open and says what is wrong.
        QObject::disconnect(reply, nullptr, this, nullptr);
        manifestReply = nullptr;
        reply->abort();
        reportUnusableManifest();
    });

    updating = false;
    recheckRequired = false;
}

void Updater::handleNetworkReply(QNetworkReply *reply)
{
    // Every reply of the engine ends here; only the newest manifest is
    // read. It is known by the request, not by its URL, which a redirect
    // may have changed.
    if (reply == manifestReply) {
        manifestReply = nullptr;
        // A run that started meanwhile owns the queue.
        if (reply->error() == QNetworkReply::NoError && !updating) {
            const QByteArray data = reply->readAll();
            if (data.isEmpty())
                reportUnusableManifest();
            else
                parseManifest(data);
        }
    }
    reply->deleteLater();
}

void Updater::reportUnusableManifest()
{
    // Without this the window would wait on "checking" for good; the next
    // press checks again instead of using what is left of the queue.
    manifest = QJsonObject();
    unsizedFiles.clear();
    filesToDownload.clear();
    recheckRequired = true;
    emit downloadError(UnusableManifest);
}

bool Updater::isInstalled() const
{
    const QDir dir(QDir::toNativeSeparators(QDir::cleanPath(Settings::instance()->installPath())));
    return dir.exists() && dir.exists(QStringLiteral(".initcomplete"));
}

namespace
{
    struct ParsedManifest
    {
        bool valid = false;
        QJsonObject entries;
        QSet<QString> unsized;
        VerificationPlan plan;
    };
}

void Updater::parseManifest(const QByteArray &data)
{
    // Wiped first, so a rejected body leaves nothing of an earlier check.
    manifest = QJsonObject();
    unsizedFiles.clear();
    filesToDownload.clear();

    // Inflating, parsing and planning a manifest of a large game take longer
    // than a frame, so they run on a pool thread; the work touches nothing
    // of this object, and only the newest parse is used.
    const quint64 generation = ++manifestGeneration;
    auto *watcher = new QFutureWatcher<ParsedManifest>(this);
    connect(watcher, &QFutureWatcher<ParsedManifest>::finished, this, [this, watcher, generation] {
        watcher->deleteLater();
        if (generation != manifestGeneration || updating)
            return;
        const ParsedManifest parsed = watcher->result();
        if (!parsed.valid) {
            reportUnusableManifest();
            return;
        }
        manifest = parsed.entries;
        unsizedFiles = parsed.unsized;
        startVerification(parsed.plan);
        // Nothing in it could be checked: every key was refused, or there
        // was none.
        if (!verificationWatcher)
            reportUnusableManifest();
    });
    watcher->setFuture(QtConcurrent::run([data] {
        ParsedManifest parsed;
        const std::optional<QJsonObject> entries = Manifest::parse(data, &parsed.unsized);
        if (entries) {
            parsed.valid = true;
            parsed.entries = *entries;
            parsed.plan = planVerification(parsed.entries);
        }
        return parsed;
    }));
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
