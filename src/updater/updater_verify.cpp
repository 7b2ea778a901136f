#include "updater/updater.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QHash>
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

    QString filePath(const QString &root, const QString &relativePath)
    {
        return QDir::toNativeSeparators(QDir::cleanPath(root + QLatin1Char('/') + relativePath));
    }

    // Only a regular file is ever opened: a FIFO would block its reader for
    // good, and a link may lead anywhere.
    bool isPlainFile(const QFileInfo &info)
    {
        return info.isFile() && !info.isSymLink();
    }

    bool isStagedCopyValid(const QString &stagingDirectory, const QString &relativePath,
                           const QString &expectedChecksum)
    {
        const QString path = filePath(stagingDirectory, relativePath);
        return isPlainFile(QFileInfo(path)) && Updater::fileChecksum(path) == expectedChecksum;
    }

    // Whether folders of the install directory stay inside it once links
    // are followed. A folder is resolved once per verification and shared by
    // all chunks, since a game holds many files per folder.
    class Containment
    {
    public:
        explicit Containment(const QString &root)
            : m_root(QDir::cleanPath(QFileInfo(root).absoluteFilePath()))
            , m_canonicalRoot(QFileInfo(root).canonicalFilePath())
        { }

        bool contains(const QString &path)
        {
            // Nothing is there yet, so nothing can lead out.
            if (m_canonicalRoot.isEmpty())
                return true;
            QString folder = QFileInfo(path).path();
            {
                const QMutexLocker locker(&m_mutex);
                const auto known = m_folders.constFind(folder);
                if (known != m_folders.constEnd())
                    return *known;
            }
            // A folder that does not exist yet is judged by the nearest one
            // that does; the move creates the rest below it.
            QString existing = folder;
            while (!QFileInfo::exists(existing) && existing.size() > m_root.size())
                existing = QFileInfo(existing).path();
            const QString canonical = QFileInfo(existing).canonicalFilePath();
            const bool inside
                = canonical == m_canonicalRoot || canonical.startsWith(m_canonicalRoot + QLatin1Char('/'));
            const QMutexLocker locker(&m_mutex);
            m_folders.insert(folder, inside);
            return inside;
        }

    private:
        const QString m_root;
        const QString m_canonicalRoot;
        QMutex m_mutex;
        QHash<QString, bool> m_folders;
    };
}

bool Updater::isStagedFileValid(const QString &relativePath, const QString &expectedChecksum)
{
    return isStagedCopyValid(stagingDirectory(), relativePath, expectedChecksum);
}

QList<VerificationTask> Updater::verificationTasks(const QJsonObject &manifest)
{
    QList<VerificationTask> tasks;
    tasks.reserve(manifest.size());
    for (auto it = manifest.constBegin(); it != manifest.constEnd(); ++it) {
        const QString checksum = it.value().toObject().value(QLatin1String("checksum")).toString(QString());
        if (checksum.isEmpty() || !Manifest::isSafeRelativePath(it.key()))
            continue;
        tasks.append({it.key(), checksum});
    }
    return tasks;
}

QList<QString> Updater::verifyInstallation()
{
    startVerification(verificationTasks(manifest));
    return verificationResults;
}

void Updater::startVerification(const QList<VerificationTask> &tasks)
{
    retireVerification();
    verificationResults.clear();
    filesToDownload.clear();
    verifiedStagedFiles.clear();
    stagedFilesKnown = false;
    if (tasks.isEmpty())
        return;

    verificationWatcher = new QFutureWatcher<VerificationChunkResult>(this);
    auto progress = std::make_shared<SharedProgress>();
    currentVerification = progress;
    progress->totalFiles = static_cast<int>(tasks.size());
    progress->sinceFlush.start();
    connect(verificationWatcher, &QFutureWatcher<VerificationChunkResult>::finished, this,
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
    auto containment = std::make_shared<Containment>(installPath);
    const auto verifyChunk = [this, progress, installPath, staging, containment](const QList<VerificationTask> &chunk) {
        VerificationChunkResult result;
        for (const VerificationTask &task : chunk) {
            const QString path = filePath(installPath, task.relativePath);
            if (!containment->contains(path)) {
                result.outside.append(task.relativePath);
            } else {
                bool good = false;
                const QFileInfo info(path);
                // An unreadable file fails to open and counts as a mismatch,
                // the same outcome without asking the file system once more.
                if (isPlainFile(info)) {
                    const QString digest = fileChecksum(path);
                    good = !digest.isEmpty() && digest == task.expectedChecksum;
                }
                if (!good && isStagedCopyValid(staging, task.relativePath, task.expectedChecksum)) {
                    good = true;
                    result.staged.append(task.relativePath);
                }
                if (!good)
                    result.failed.append(task.relativePath);
            }

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
        return result;
    };

    verificationWatcher->setFuture(
        QtConcurrent::mapped(QThreadPool::globalInstance(), chunks,
                             std::function<VerificationChunkResult(const QList<VerificationTask> &)>(verifyChunk)));
}

void Updater::announceProgress(const std::shared_ptr<SharedProgress> &progress)
{
    // A replaced verification's counts would move the circle backwards.
    if (progress != currentVerification)
        return;
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
    QList<QString> outside;
    const QList<VerificationChunkResult> results = verificationWatcher->future().results();
    for (const VerificationChunkResult &chunk : results) {
        verificationResults.append(chunk.failed);
        outside.append(chunk.outside);
        for (const QString &file : chunk.staged)
            verifiedStagedFiles.insert(file);
    }
    filesToDownload = verificationResults;
    stagedFilesKnown = true;

    if (!filesToDownload.isEmpty())
        emit updateAvailable(isInstalled() ? QStringLiteral("update") : QStringLiteral("install"));
    else
        emit noUpdateAvailable();

    // Left alone and said last, so that it is the message the player reads.
    if (!outside.isEmpty()) {
        emit downloadError(QStringLiteral("A folder in the install directory leads outside it, so these files were "
                                          "left alone: %1. Remove the link and check again.")
                               .arg(QStringList(outside.mid(0, 5)).join(QStringLiteral(", "))));
    }
}
