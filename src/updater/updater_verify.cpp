#include "updater/updater.h"

#include <QDir>
#include <QFileInfo>
#include <QMutex>
#include <QMutexLocker>
#include <QThread>
#include <QtConcurrent/QtConcurrentMap>

#include <memory>

#include "config/settings.h"
#include "updater/manifest.h"

namespace
{
    struct VerificationTask
    {
        QString relativePath;
        QString expectedChecksum;
    };

    struct SharedProgress
    {
        QMutex mutex;
        int filesChecked = 0;
        int totalFiles = 0;
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
    connect(verificationWatcher, &QFutureWatcher<QList<QString>>::finished, this,
            &Updater::handleVerificationFinished);
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
            if (info.exists() && info.isFile() && info.isReadable()) {
                const QString digest = fileChecksum(path);
                good = !digest.isEmpty() && digest == task.expectedChecksum;
            }
            if (!good)
                good = isStagedCopyValid(staging, task.relativePath, task.expectedChecksum);
            if (!good)
                failed.append(task.relativePath);

            // Posted under the lock, so the counts arrive in ascending order.
            const QMutexLocker locker(&progress->mutex);
            const int checked = ++progress->filesChecked;
            const int total = progress->totalFiles;
            QMetaObject::invokeMethod(
                this, [this, checked, total] { emit verificationProgress(checked, total); }, Qt::QueuedConnection);
        }
        return failed;
    };

    verificationWatcher->setFuture(QtConcurrent::mapped(QThreadPool::globalInstance(), chunks,
                                                        std::function<QList<QString>(const QList<VerificationTask> &)>(verifyChunk)));
    return verificationResults;
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
