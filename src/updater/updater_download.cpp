#include "updater/updater.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QThread>
#include <QTimer>
#include <QtConcurrent/QtConcurrentRun>

#include <limits>
#include <memory>

#include "config/settings.h"
#include "updater/crc32.h"
#include "updater/manifest.h"

namespace
{
    // What a reply may hold before the network thread stops reading from
    // the socket: enough to keep the connection busy while the GUI thread
    // paints, small enough that a file of any size costs the same memory.
    const qint64 ReplyBufferBytes = 1024 * 1024;
    // The most taken from a reply in one piece.
    const qint64 WriteBatchBytes = 1024 * 1024;

    // One buffer for every transfer: taking a reply's bytes into a fresh
    // array each time costs a large allocation, its page faults and an
    // extra copy, which were most of the GUI thread's work.
    char *transferBuffer()
    {
        static std::unique_ptr<char[]> buffer(new char[WriteBatchBytes]);
        return buffer.get();
    }

    const QString NotStaged = QStringLiteral("Could not create temporary file for download");
    const QString Stalled = QStringLiteral("The patch server stopped sending data. Please try again later.");

    QString stagedPathOf(const QString &stagingDirectory, const QString &fileName)
    {
        return stagingDirectory + QLatin1Char('/')
            + (fileName.startsWith(QLatin1Char('/')) ? fileName.mid(1) : fileName);
    }

    // Opens the staged file for writing and hands it to `owner`, the thread
    // that writes it. Opened ahead of its transfer, the file keeps what an
    // earlier attempt left until its turn comes: a run that ends before then
    // must not have destroyed anything.
    StagedFile openStagedFile(const QString &stagedPath, QThread *owner, bool ahead)
    {
        const QFileInfo info(stagedPath);
        if (!QDir().mkpath(info.absolutePath()))
            return {nullptr, QStringLiteral("Could not create directory path for download")};
        auto *file = new QFile(stagedPath);
        const bool created = !info.exists();
        if (info.isSymLink() || !file->open(ahead ? QIODevice::ReadWrite : QIODevice::WriteOnly)) {
            delete file;
            return {nullptr, NotStaged};
        }
        file->moveToThread(owner);
        return {file, QString(), created};
    }
}

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
    if (!lockStaging())
        return;
    if (!prepareStagingDirectory()) {
        unlockStaging();
        return;
    }
    // What a run may move is what verification accepted and what this run
    // fetches and checks; folders in the way of a file and leftovers of
    // older versions go now.
    pruneStagingDirectory();

    updating = true;
    currentFileIndex = 0;
    bytesDownloaded = 0;
    totalBytes = 0;
    fileBytesReceived.clear();
    // A run's speed and progress are its own.
    lastSpeedSampleTime = QDateTime::currentMSecsSinceEpoch();
    lastOverallReportTime = 0;
    bytesSinceSpeedSample = 0;
    speedSamples.clear();

    // Verification queued the largest file first, so that the biggest file
    // never runs alone at the end and the largest not yet started is always
    // the next one.
    totalBytes = queuedBytes;

    emit stateChanged(isInstalled() ? QStringLiteral("updating") : QStringLiteral("installing"));
    emit overallProgress(0, totalBytes);
    downloadNextFile();
}

void Updater::downloadNextFile()
{
    while (updating && activeDownloads.size() < maxConcurrentDownloads && currentFileIndex < filesToDownload.size()) {
        const QString file = filesToDownload.at(currentFileIndex);
        ++currentFileIndex;
        startFileDownload(fileUrl(file), file);
    }
}

void Updater::startFileDownload(const QUrl &url, const QString &fileName)
{
    if (activeDownloads.size() >= maxConcurrentDownloads) {
        pendingDownloads.append({url, fileName});
        return;
    }

    // Asked for first: the network thread sends the request while this one
    // takes the file.
    QNetworkReply *reply = transferManager()->get(makeRequest(url));
    reply->setReadBufferSize(ReplyBufferBytes);
    const auto dropReply = [reply] {
        QObject::disconnect(reply, nullptr, nullptr, nullptr);
        reply->abort();
        reply->deleteLater();
    };

    const StagedFile staged = takeStagedFile(stagedPathOf(stagingDirectory(), fileName));
    if (!staged.file) {
        dropReply();
        failRun(staged.error);
        return;
    }
    QFile *file = staged.file;

    const QJsonObject entry = manifest.value(fileName).toObject();
    const QString checksum = entry.value(QLatin1String("checksum")).toString();
    const qint64 byteLimit
        = unsizedFiles.contains(fileName) ? -1 : Manifest::byteLimit(entry.value(QLatin1String("size")));
    activeDownloads.insert(reply, ActiveDownload {fileName, checksum, reply, file, byteLimit});

    connect(reply, &QNetworkReply::readyRead, this, [this, reply] { writeReceivedData(reply); });
    connect(reply, &QNetworkReply::downloadProgress, this,
            [this, reply](qint64 bytesReceived, qint64) { handleFileProgress(reply, bytesReceived); });
    connect(reply, &QNetworkReply::finished, this, [this, reply] { handleFileFinished(reply); });
    watchTransfer(reply);
    openFilesAhead();
}

StagedFile Updater::takeStagedFile(const QString &stagedPath)
{
    const auto ahead = filesOpenedAhead.find(stagedPath);
    if (ahead != filesOpenedAhead.end()) {
        const StagedFile staged = ahead->result();
        filesOpenedAhead.erase(ahead);
        // Transfers never resume: what an earlier attempt left goes now.
        // A file that holds nothing is left alone: on ext4 truncating even
        // an empty file makes its close start writing it out at once, on
        // this thread, for every file of the run.
        if (staged.file && (staged.file->size() == 0 || staged.file->resize(0)))
            return staged;
        delete staged.file;
    }
    return openStagedFile(stagedPath, thread(), false);
}

void Updater::openFilesAhead()
{
    // The queue is fetched in order, so its next entries are the next files.
    // Two for each transfer slot keep a slot from waiting; more would only
    // lengthen the wait for them when a run fails. The staging directory is
    // asked for once: settings and system paths cost more than the rest.
    const qsizetype end = qMin<qsizetype>(currentFileIndex + 2 * maxConcurrentDownloads, filesToDownload.size());
    const QString staging = stagingDirectory();
    for (qsizetype i = currentFileIndex; i < end; ++i) {
        const QString stagedPath = stagedPathOf(staging, filesToDownload.at(i));
        if (!filesOpenedAhead.contains(stagedPath))
            filesOpenedAhead.insert(stagedPath,
                                    QtConcurrent::run(&stagingPool, openStagedFile, stagedPath, thread(), true));
    }
}

void Updater::discardFilesOpenedAhead()
{
    for (const QFuture<StagedFile> &ahead : std::as_const(filesOpenedAhead)) {
        const StagedFile staged = ahead.result();
        if (staged.file && staged.created)
            staged.file->remove();
        delete staged.file;
    }
    filesOpenedAhead.clear();
}

QNetworkAccessManager *Updater::transferManager()
{
    if (transferManagers.empty()) {
        for (int i = 0; i < maxConcurrentDownloads; ++i) {
            auto manager = std::make_unique<QNetworkAccessManager>();
            connect(manager.get(), &QNetworkAccessManager::finished, this, &Updater::handleNetworkReply);
            transferManagers.push_back(std::move(manager));
        }
    }
    // The least busy one.
    QNetworkAccessManager *best = nullptr;
    int fewest = std::numeric_limits<int>::max();
    for (const auto &manager : transferManagers) {
        int busy = 0;
        for (auto it = activeDownloads.cbegin(); it != activeDownloads.cend(); ++it)
            busy += it.key()->manager() == manager.get();
        if (busy < fewest) {
            fewest = busy;
            best = manager.get();
        }
    }
    return best;
}

void Updater::writeReceivedData(QNetworkReply *reply)
{
    char *buffer = transferBuffer();
    for (;;) {
        // Looked up on every piece: a failed write ends the run, and with it
        // this transfer's entry.
        const auto it = activeDownloads.find(reply);
        if (it == activeDownloads.end() || !it->file)
            return;
        const qint64 read = reply->read(buffer, WriteBatchBytes);
        if (read <= 0)
            return;
        // A body longer than the manifest's size cannot be the file, and an
        // endless one would fill the disk.
        if (it->byteLimit >= 0 && it->file->pos() + read > it->byteLimit) {
            failRun(QStringLiteral("File verification failed"));
            return;
        }
        if (it->file->write(buffer, read) != read) {
            failRun(QStringLiteral("Failed to write download data to file"));
            return;
        }
        it->crc = Crc32::update(it->crc, buffer, read);
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

    writeReceivedData(reply);
    if (!updating)
        return;
    QFile *file = it->file;
    const QString fileName = it->fileName;
    const QString expectedChecksum = it->expectedChecksum;
    const QString digest = Crc32::toDigest(it->crc);
    // The digest covers what was handed to the file, so the file must be
    // known to hold all of it: a full disk often shows only at the flush.
    const bool flushed = file->flush();
    file->close();
    if (!flushed || file->error() != QFileDevice::NoError) {
        failRun(QStringLiteral("Failed to write download data to file"));
        return;
    }

    // The digest alone decides; the manifest's size is not compared.
    if (digest != expectedChecksum) {
        emit downloadError(QStringLiteral("File verification failed"));
        cancelAllDownloads();
        return;
    }
    verifiedStagedFiles.insert(fileName);

    handleFileProgress(reply, QFileInfo(file->fileName()).size());
    finishDownload(reply);

    while (updating && !pendingDownloads.isEmpty() && activeDownloads.size() < maxConcurrentDownloads) {
        const PendingDownload next = pendingDownloads.takeFirst();
        startFileDownload(next.url, next.fileName);
    }
    downloadNextFile();

    if (updating && activeDownloads.isEmpty() && pendingDownloads.isEmpty()
        && currentFileIndex >= filesToDownload.size())
        finishRun();
}

void Updater::handleFileFailure(QNetworkReply *reply)
{
    failRun(reply->property(StalledProperty).toBool() ? Stalled : reply->errorString());
}

void Updater::failRun(const QString &message)
{
    // Cleared first, so releasing the replies starts nothing deferred.
    updating = false;
    pendingDownloads.clear();
    const QList<QNetworkReply *> replies = activeDownloads.keys();
    for (QNetworkReply *reply : replies)
        finishDownload(reply);
    unlockStaging();

    if (QCoreApplication::closingDown())
        return;
    emit stateChanged(QStringLiteral("update"));
    emit downloadError(message);
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
    while (updating && activeDownloads.size() < maxConcurrentDownloads && !pendingDownloads.isEmpty()) {
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
    unlockStaging();

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
    if (delta > 0) {
        // Kept as a running sum: adding up every file on every event would
        // make a run of many files quadratic.
        bytesDownloaded += bytesReceived - fileBytesReceived.value(it->fileName, 0);
        fileBytesReceived.insert(it->fileName, bytesReceived);
        bytesSinceSpeedSample += delta;
    }
    lastBytesByReply.insert(reply, bytesReceived);

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
    }
    // Timed from the last overall report, not from the speed sample: with
    // bursty delivery every event could otherwise fall in the sample's
    // shadow and the circle would never move.
    if (now - lastOverallReportTime >= 50) {
        lastOverallReportTime = now;
        QMetaObject::invokeMethod(
            this, [this] { emit overallProgress(bytesDownloaded, totalBytes); }, Qt::QueuedConnection);
    }
}
