#include "updater/updater.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFutureWatcher>
#include <QPromise>
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
    // A parse of an older reply still under way is dropped as well, and so
    // is a verification still waiting for it.
    ++manifestGeneration;
    if (awaitingManifest)
        retireVerification();
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
        // Only a plan, read from the text ahead of the document; the
        // manifest follows in a second result.
        bool early = false;
        // In the second result: the document gives the checks of the early
        // plan, which can then go on.
        bool earlyPlanHeld = false;
        QJsonObject entries;
        QSet<QString> unsized;
        VerificationPlan plan;
    };

    bool sameEntries(const QJsonObject &manifest, const QList<Manifest::Entry> &entries)
    {
        if (manifest.size() != entries.size())
            return false;
        auto entry = entries.cbegin();
        for (auto it = manifest.constBegin(); it != manifest.constEnd(); ++it, ++entry) {
            const QJsonObject value = it.value().toObject();
            if (it.key() != entry->key || value.value(QLatin1String("checksum")).toString(QString()) != entry->checksum
                || value.value(QLatin1String("size")).toInteger(0) != entry->size) {
                return false;
            }
        }
        return true;
    }

    void readManifest(QPromise<ParsedManifest> &promise, const QByteArray &data)
    {
        ParsedManifest parsed;
        const std::optional<QByteArray> json = Manifest::uncompress(data);
        if (!json) {
            promise.addResult(parsed);
            return;
        }
        // The plain form servers write reads several times faster than the
        // document, so the checks start on it while the document is read;
        // the document still decides.
        const std::optional<QList<Manifest::Entry>> quick = Manifest::scan(*json);
        VerificationPlan earlyPlan;
        if (quick) {
            earlyPlan = planVerification(*quick);
            if (!earlyPlan.tasks.isEmpty()) {
                ParsedManifest early;
                early.valid = true;
                early.early = true;
                early.plan = earlyPlan;
                promise.addResult(early);
            }
        }
        if (const std::optional<QJsonObject> entries = Manifest::parseDocument(*json, &parsed.unsized)) {
            parsed.valid = true;
            parsed.entries = *entries;
            parsed.earlyPlanHeld = !earlyPlan.tasks.isEmpty() && sameEntries(parsed.entries, *quick);
            parsed.plan = parsed.earlyPlanHeld ? earlyPlan : planVerification(parsed.entries);
        }
        promise.addResult(parsed);
    }
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
    connect(watcher, &QFutureWatcher<ParsedManifest>::finished, watcher, &QObject::deleteLater);
    connect(watcher, &QFutureWatcher<ParsedManifest>::resultReadyAt, this, [this, watcher, generation](int index) {
        if (generation != manifestGeneration)
            return;
        const ParsedManifest parsed = watcher->resultAt(index);
        // A run that started meanwhile owns the queue.
        if (updating) {
            if (awaitingManifest)
                retireVerification();
            return;
        }
        if (parsed.early) {
            startVerification(parsed.plan);
            awaitingManifest = verificationWatcher != nullptr;
            return;
        }
        const bool earlyRunning = std::exchange(awaitingManifest, false);
        if (!parsed.valid) {
            if (earlyRunning)
                retireVerification();
            reportUnusableManifest();
            return;
        }
        manifest = parsed.entries;
        unsizedFiles = parsed.unsized;
        if (earlyRunning && parsed.earlyPlanHeld) {
            if (std::exchange(outcomeWaiting, false))
                handleVerificationFinished();
            return;
        }
        startVerification(parsed.plan);
        // Nothing in it could be checked: every key was refused, or there
        // was none.
        if (!verificationWatcher)
            reportUnusableManifest();
    });
    watcher->setFuture(QtConcurrent::run(readManifest, data));
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
