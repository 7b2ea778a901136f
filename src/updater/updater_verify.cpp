#include "updater/updater.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QMutex>
#include <QMutexLocker>
#include <QThread>
#include <QtConcurrent/QtConcurrentMap>

#include <memory>

#include "config/settings.h"
#include "updater/manifest.h"

// One verification's progress, shared by its chunks and the GUI thread.
struct SharedProgress
{
    QMutex mutex;
    int filesChecked = 0;
    int totalFiles = 0;
    // Counts up to here have been announced; a flush is on its way to the
    // GUI thread while `flushPosted` is set.
    int filesAnnounced = 0;
    bool flushPosted = false;
    QElapsedTimer sinceFlush;
};

namespace
{
    const qint64 ProgressIntervalMs = 16;

    struct VerificationTask
    {
        QString relativePath;
        QString expectedChecksum;
    };

    QString filePath(const QString &root, const QString &relativePath)
    {
        return QDir::toNativeSeparators(QDir::cleanPath(root + QLatin1Char('/') + relativePath));
    }

    bool isStagedCopyValid(const QString &stagingDirectory, const QString &relativePath,
                           const QString &expectedChecksum)
    {
        const QString path = filePath(stagingDirectory, relativePath);
        return QFile::exists(path) && Updater::fileChecksum(path) == expectedChecksum;
    }
}

bool Updater::isStagedFileValid(const QString &relativePath, const QString &expectedChecksum)
{
    return isStagedCopyValid(stagingDirectory(), relativePath, expectedChecksum);
}

QList<QString> Updater::verifyInstallation()
{
    // A check that replaces a running one waits for its chunks in progress;
    // its outcome must never arrive.
    stopVerification();
    verificationResults.clear();
    filesToDownload.clear();

    QList<VerificationTask> tasks;
    for (auto it = manifest.constBegin(); it != manifest.constEnd(); ++it) {
        const QString checksum = it.value().toObject().value(QLatin1String("checksum")).toString(QString());
        if (checksum.isEmpty() || !Manifest::isSafeRelativePath(it.key()))
            continue;
        tasks.append({it.key(), checksum});
    }
    if (tasks.isEmpty())
        return verificationResults;

    verificationWatcher = new QFutureWatcher<QList<QString>>(this);
    auto progress = std::make_shared<SharedProgress>();
    progress->totalFiles = static_cast<int>(tasks.size());
    progress->sinceFlush.start();
    connect(verificationWatcher, &QFutureWatcher<QList<QString>>::finished, this, &Updater::handleVerificationFinished);
    emit verificationStarted(progress->totalFiles);

    const qsizetype chunkSize = QThread::idealThreadCount();
    QList<QList<VerificationTask>> chunks;
    for (qsizetype start = 0; start < tasks.size(); start += chunkSize)
        chunks.append(tasks.mid(start, chunkSize));

    // The workers get the paths by value: the settings store is the GUI
    // thread's, and a new install path brings a new check anyway.
    const QString installPath = Settings::instance()->installPath();
    const QString staging = stagingDirectory();
    const auto verifyChunk = [this, progress, installPath, staging](const QList<VerificationTask> &chunk) {
        QList<QString> failed;
        for (const VerificationTask &task : chunk) {
            const QString path = filePath(installPath, task.relativePath);
            const QFileInfo info(path);
            bool good = false;
            // An unreadable file fails to open and counts as a mismatch, the
            // same outcome without asking the file system once more per file.
            if (info.exists() && info.isFile()) {
                const QString digest = fileChecksum(path);
                good = !digest.isEmpty() && digest == task.expectedChecksum;
            }
            if (!good)
                good = isStagedCopyValid(staging, task.relativePath, task.expectedChecksum);
            if (!good)
                failed.append(task.relativePath);

            // Every count is announced once, in ascending order, and before
            // the watcher's finished, but the GUI thread is woken at most once
            // a frame: waking it for every file would take a core's share
            // away from the hashing. The last count always goes out.
            const QMutexLocker locker(&progress->mutex);
            ++progress->filesChecked;
            const bool last = progress->filesChecked == progress->totalFiles;
            if (!progress->flushPosted && (last || progress->sinceFlush.hasExpired(ProgressIntervalMs))) {
                progress->flushPosted = true;
                QMetaObject::invokeMethod(
                    this, [this, progress] { announceProgress(progress); }, Qt::QueuedConnection);
            }
        }
        return failed;
    };

    verificationWatcher->setFuture(
        QtConcurrent::mapped(QThreadPool::globalInstance(), chunks,
                             std::function<QList<QString>(const QList<VerificationTask> &)>(verifyChunk)));
    return verificationResults;
}

void Updater::announceProgress(const std::shared_ptr<SharedProgress> &progress)
{
    int from = 0;
    int to = 0;
    {
        const QMutexLocker locker(&progress->mutex);
        from = progress->filesAnnounced;
        to = progress->filesChecked;
        progress->filesAnnounced = to;
        progress->flushPosted = false;
        progress->sinceFlush.start();
    }
    for (int checked = from + 1; checked <= to; ++checked)
        emit verificationProgress(checked, progress->totalFiles);
}

void Updater::handleVerificationFinished()
{
    const QList<QList<QString>> results = verificationWatcher->future().results();
    for (const QList<QString> &chunk : results)
        verificationResults.append(chunk);
    filesToDownload = verificationResults;

    if (!filesToDownload.isEmpty())
        emit updateAvailable(isInstalled() ? QStringLiteral("update") : QStringLiteral("install"));
    else
        emit noUpdateAvailable();
}
