#include "updater/updater.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTimer>

#include "config/settings.h"

void Updater::startUpdate()
{
    if (recheckRequired) {
        checkForUpdates();
        return;
    }
    if (updating || filesToDownload.isEmpty()) {
        emit noUpdateAvailable();
        return;
    }
    if (isGameRunning()) {
        emit downloadError(QStringLiteral(
            "Update cannot be performed while the game is running. Please close the game before updating."));
        return;
    }

    updating = true;
    currentFileIndex = 0;
    bytesDownloaded = 0;
    totalBytes = 0;
    fileBytesReceived.clear();

    // The largest file goes first so that it is never the one left running
    // alone at the end.
    qint64 largestSize = 0;
    qsizetype largest = -1;
    for (qsizetype i = 0; i < filesToDownload.size(); ++i) {
        const qint64 size = manifestSize(filesToDownload.at(i));
        totalBytes += size;
        if (size > largestSize) {
            largestSize = size;
            largest = i;
        }
    }
    if (largest >= 0)
        filesToDownload.move(largest, 0);

    emit stateChanged(isInstalled() ? QStringLiteral("updating") : QStringLiteral("installing"));
    emit overallProgress(0, totalBytes);
    downloadNextFile();
    endRunIfStalled();
}

void Updater::endRunIfStalled()
{
    // Every start failed (a full disk, say) and each already said why:
    // nothing in flight could ever end the run, so end it here.
    if (updating && activeDownloads.isEmpty() && pendingDownloads.isEmpty())
        cancelAllDownloads();
}

void Updater::downloadNextFile()
{
    while (activeDownloads.size() < maxConcurrentDownloads && currentFileIndex < filesToDownload.size()) {
        const QString file = filesToDownload.at(currentFileIndex);
        startFileDownload(fileUrl(file), file);
        ++currentFileIndex;
    }
}

void Updater::startFileDownload(const QUrl &url, const QString &fileName)
{
    if (activeDownloads.size() >= maxConcurrentDownloads) {
        pendingDownloads.append({url, fileName});
        return;
    }

    const QString relative = fileName.startsWith(QLatin1Char('/')) ? fileName.mid(1) : fileName;
    const QString stagedPath = stagingDirectory() + QLatin1Char('/') + relative;
    if (!QDir().mkpath(QFileInfo(stagedPath).absolutePath())) {
        emit downloadError(QStringLiteral("Could not create directory path for download"));
        return;
    }

    // Truncates what an earlier attempt left: transfers never resume.
    auto *file = new QFile(stagedPath);
    if (!file->open(QIODevice::WriteOnly)) {
        delete file;
        emit downloadError(QStringLiteral("Could not create temporary file for download"));
        return;
    }

    QNetworkReply *reply = networkManager.get(makeRequest(url));
    const QString checksum = manifest.value(fileName).toObject().value(QLatin1String("checksum")).toString();
    activeDownloads.insert(reply, ActiveDownload {fileName, checksum, reply, file});

    connect(reply, &QNetworkReply::readyRead, this, [this, reply] { writeReceivedData(reply); });
    connect(reply, &QNetworkReply::downloadProgress, this,
            [this, reply](qint64 bytesReceived, qint64) { handleFileProgress(reply, bytesReceived); });
    connect(reply, &QNetworkReply::finished, this, [this, reply] { handleFileFinished(reply); });
}

void Updater::writeReceivedData(QNetworkReply *reply)
{
    const auto it = activeDownloads.constFind(reply);
    if (it == activeDownloads.constEnd() || !it->file)
        return;
    const QByteArray data = reply->readAll();
    if (it->file->write(data) != data.size()) {
        emit downloadError(QStringLiteral("Failed to write download data to file"));
        finishDownload(reply);
        // The file is dropped from this run; the rest goes on.
        if (activeDownloads.isEmpty())
            downloadNextFile();
        endRunIfStalled();
    }
}

void Updater::handleFileFinished(QNetworkReply *reply)
{
    if (QCoreApplication::closingDown()) {
        finishDownload(reply);
        return;
    }
    const auto it = activeDownloads.find(reply);
    if (it == activeDownloads.end())
        return;
    if (reply->error() != QNetworkReply::NoError) {
        handleFileFailure(reply);
        return;
    }

    QFile *file = it->file;
    const QString fileName = it->fileName;
    const QString expectedChecksum = it->expectedChecksum;
    const QByteArray rest = reply->readAll();
    if (!rest.isEmpty())
        file->write(rest);
    file->flush();
    file->close();

    // The digest alone decides; the manifest's size is not compared.
    if (fileChecksum(file->fileName()) != expectedChecksum) {
        emit downloadError(QStringLiteral("File verification failed"));
        cancelAllDownloads();
        return;
    }

    const qint64 size = manifestSize(fileName);
    bool largest = true;
    for (const ActiveDownload &download : std::as_const(activeDownloads)) {
        if (download.reply != reply && manifestSize(download.fileName) > size) {
            largest = false;
            break;
        }
    }

    handleFileProgress(reply, QFileInfo(file->fileName()).size());
    finishDownload(reply);
    if (largest)
        startLargestRemainingFile();

    while (!pendingDownloads.isEmpty() && activeDownloads.size() < maxConcurrentDownloads) {
        const PendingDownload next = pendingDownloads.takeFirst();
        startFileDownload(next.url, next.fileName);
    }
    downloadNextFile();

    if (activeDownloads.isEmpty() && pendingDownloads.isEmpty() && currentFileIndex >= filesToDownload.size())
        finishRun();
}

void Updater::startLargestRemainingFile()
{
    QString best;
    qint64 bestSize = 0;
    for (qsizetype i = currentFileIndex; i < filesToDownload.size(); ++i) {
        const QString &name = filesToDownload.at(i);
        const bool inFlight
            = std::any_of(activeDownloads.cbegin(), activeDownloads.cend(),
                          [&name](const ActiveDownload &download) { return download.fileName == name; });
        if (inFlight)
            continue;
        const qint64 size = manifestSize(name);
        if (size > bestSize) {
            bestSize = size;
            best = name;
        }
    }
    if (best.isEmpty())
        return;

    startFileDownload(fileUrl(best), best);
    // Keep the started files exactly the ones before currentFileIndex.
    const qsizetype index = filesToDownload.indexOf(best);
    if (index >= currentFileIndex) {
        filesToDownload.move(index, currentFileIndex);
        ++currentFileIndex;
    }
}

void Updater::handleFileFailure(QNetworkReply *reply)
{
    // Cleared first, so releasing the reply starts nothing deferred.
    updating = false;
    const QString error = reply->errorString();
    finishDownload(reply);
    pendingDownloads.clear();

    const QList<QNetworkReply *> others = activeDownloads.keys();
    for (QNetworkReply *other : others) {
        ActiveDownload download = activeDownloads.take(other);
        QObject::disconnect(other, nullptr, nullptr, nullptr);
        lastBytesByReply.remove(other);
        other->abort();
        delete download.file;
        other->deleteLater();
    }

    if (QCoreApplication::closingDown())
        return;
    emit stateChanged(QStringLiteral("update"));
    emit downloadError(error);
}

void Updater::releaseReply(QNetworkReply *reply)
{
    // Disconnected before the abort, which can emit finished at once.
    QObject::disconnect(reply, nullptr, nullptr, nullptr);
    const auto it = activeDownloads.find(reply);
    if (it != activeDownloads.end() && it->file) {
        if (it->file->isOpen())
            it->file->close();
        delete it->file;
        it->file = nullptr;
    }
    reply->abort();
    reply->close();
    lastBytesByReply.remove(reply);
    QTimer::singleShot(0, reply, &QObject::deleteLater);
}

void Updater::finishDownload(QNetworkReply *reply)
{
    if (!reply || !activeDownloads.contains(reply))
        return;
    releaseReply(reply);
    activeDownloads.remove(reply);

    if (QCoreApplication::closingDown() || !updating)
        return;
    while (activeDownloads.size() < maxConcurrentDownloads && !pendingDownloads.isEmpty()) {
        const PendingDownload next = pendingDownloads.takeFirst();
        startFileDownload(next.url, next.fileName);
    }
}

void Updater::cancelAllDownloads()
{
    const QList<QNetworkReply *> replies = activeDownloads.keys();
    for (QNetworkReply *reply : replies) {
        if (reply)
            releaseReply(reply);
    }
    activeDownloads.clear();
    pendingDownloads.clear();
    fileBytesReceived.clear();
    bytesDownloaded = 0;
    currentFileIndex = 0;
    updating = false;

    if (!QCoreApplication::closingDown())
        emit stateChanged(QStringLiteral("update"));
}

void Updater::handleFileProgress(QNetworkReply *reply, qint64 bytesReceived)
{
    const auto it = activeDownloads.constFind(reply);
    if (it == activeDownloads.constEnd())
        return;

    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    const qint64 elapsed = now - lastSpeedSampleTime;
    const qint64 delta = bytesReceived - lastBytesByReply.value(reply, 0);
    if (delta > 0)
        fileBytesReceived.insert(it->fileName, bytesReceived);

    bytesDownloaded = 0;
    for (const qint64 bytes : std::as_const(fileBytesReceived))
        bytesDownloaded += bytes;
    lastBytesByReply.insert(reply, bytesReceived);
    if (delta > 0)
        bytesSinceSpeedSample += delta;

    if (elapsed >= 1000) {
        speedSamples.append(bytesSinceSpeedSample * 1000 / elapsed);
        while (speedSamples.size() > 3)
            speedSamples.removeFirst();
        qint64 sum = 0;
        for (const qint64 sample : std::as_const(speedSamples))
            sum += sample;
        const qint64 average = sum / speedSamples.size();
        lastSpeedSampleTime = now;
        bytesSinceSpeedSample = 0;
        QMetaObject::invokeMethod(
            this, [this, average] { emit downloadProgress(average); }, Qt::QueuedConnection);
    } else if (elapsed >= 50) {
        QMetaObject::invokeMethod(
            this, [this] { emit overallProgress(bytesDownloaded, totalBytes); }, Qt::QueuedConnection);
    }
}
