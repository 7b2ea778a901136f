#include "updater/updater.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QHash>
#include <QJsonObject>
#include <QMutex>
#include <QMutexLocker>
#include <QThread>
#include <QtConcurrent/QtConcurrentMap>

#include <algorithm>
#include <memory>
#include <vector>

#include "config/settings.h"
#include "platform/regularfile.h"
#include "updater/crc32.h"
#include "updater/manifest.h"
#include "updater/readahead.h"

// One verification, shared by its chunks and the GUI thread.
struct VerificationRun
{
    enum Outcome : quint8
    {
        Good,
        Staged,
        Failed,
        Outside
    };

    explicit VerificationRun(VerificationPlan checks)
        : plan(std::move(checks))
        , totalFiles(static_cast<int>(plan.tasks.size()))
        , outcomes(plan.tasks.size(), Good)
    { }

    // A run of tasks by position: copying the tasks into lists of their own
    // would cost the GUI thread a frame and more on a large game.
    struct Chunk
    {
        qsizetype begin;
        qsizetype end;
    };

    const VerificationPlan plan;
    const int totalFiles;
    // Worked on in place, so they live as long as the run.
    QList<Chunk> chunks;
    // One per task, each written by the one chunk that holds the task and
    // read once the last chunk has ended.
    std::vector<Outcome> outcomes;

    QMutex mutex;
    int filesChecked = 0;
    // Counts up to here have been announced; a flush is on its way to the
    // GUI thread while `flushPosted` is set.
    int filesAnnounced = 0;
    bool flushPosted = false;
    QElapsedTimer sinceFlush;
    ReadAhead readAhead;
};

namespace
{
    const qint64 ProgressIntervalMs = 16;

    QString filePath(const QString &root, const QString &relativePath)
    {
        return QDir::toNativeSeparators(QDir::cleanPath(root + QLatin1Char('/') + relativePath));
    }

    // Only a regular file is ever read: a FIFO would block its reader for
    // good, and a link may lead anywhere. A file that cannot be read counts
    // as a mismatch, like one that is not there.
    bool isCopyValid(const QString &path, const QString &expectedChecksum)
    {
        const QString digest = Crc32::regularFileDigest(path);
        return !digest.isEmpty() && digest == expectedChecksum;
    }

    bool isStagedCopyValid(const QString &stagingDirectory, const QString &relativePath,
                           const QString &expectedChecksum)
    {
        return isCopyValid(filePath(stagingDirectory, relativePath), expectedChecksum);
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

    void orderLargestFirst(VerificationPlan &plan)
    {
        // Sorted as pairs side by side in memory rather than through the
        // tasks, which a large game scatters over the heap; the position
        // breaks ties, so equal sizes keep their key order.
        std::vector<std::pair<qint64, qsizetype>> bySize;
        bySize.reserve(plan.tasks.size());
        for (qsizetype index = 0; index < plan.tasks.size(); ++index)
            bySize.emplace_back(-plan.tasks.at(index).size, index);
        std::sort(bySize.begin(), bySize.end());
        plan.largestFirst.reserve(plan.tasks.size());
        for (const auto &entry : bySize)
            plan.largestFirst.append(entry.second);
    }
}

bool Updater::isStagedFileValid(const QString &relativePath, const QString &expectedChecksum)
{
    return isStagedCopyValid(stagingDirectory(), relativePath, expectedChecksum);
}

VerificationPlan planVerification(const QJsonObject &manifest)
{
    VerificationPlan plan;
    plan.tasks.reserve(manifest.size());
    for (auto it = manifest.constBegin(); it != manifest.constEnd(); ++it) {
        const QJsonObject entry = it.value().toObject();
        QString checksum = entry.value(QLatin1String("checksum")).toString(QString());
        if (checksum.isEmpty())
            continue;
        // Each key() builds its string anew.
        QString key = it.key();
        if (!Manifest::isSafeRelativePath(key))
            continue;
        plan.tasks.append({std::move(key), std::move(checksum), entry.value(QLatin1String("size")).toInteger(0)});
    }
    orderLargestFirst(plan);
    return plan;
}

VerificationPlan planVerification(const QList<Manifest::Entry> &entries)
{
    VerificationPlan plan;
    plan.tasks.reserve(entries.size());
    for (const Manifest::Entry &entry : entries) {
        if (!entry.checksum.isEmpty() && Manifest::isSafeRelativePath(entry.key))
            plan.tasks.append(entry);
    }
    orderLargestFirst(plan);
    return plan;
}

QList<QString> Updater::verifyInstallation()
{
    startVerification(planVerification(manifest));
    return verificationResults;
}

void Updater::startVerification(VerificationPlan plan)
{
    retireVerification();
    verificationResults.clear();
    filesToDownload.clear();
    queuedBytes = 0;
    verifiedStagedFiles.clear();
    stagedFilesKnown = false;
    if (plan.tasks.isEmpty())
        return;

    verificationWatcher = new QFutureWatcher<void>(this);
    auto run = std::make_shared<VerificationRun>(std::move(plan));
    currentVerification = run;
    run->sinceFlush.start();
    connect(verificationWatcher, &QFutureWatcher<void>::finished, this, &Updater::handleVerificationFinished);
    emit verificationStarted(run->totalFiles);

    const qsizetype taskCount = run->plan.tasks.size();
    const qsizetype chunkSize = QThread::idealThreadCount();
    run->chunks.reserve(taskCount / chunkSize + 1);
    for (qsizetype begin = 0; begin < taskCount; begin += chunkSize)
        run->chunks.append({begin, std::min(begin + chunkSize, taskCount)});

    // The workers get the paths by value: the settings store is the GUI
    // thread's, and a new install path brings a new check anyway.
    const QString installPath = Settings::instance()->installPath();
    const QString staging = stagingDirectory();
    auto containment = std::make_shared<Containment>(installPath);
    const auto verifyChunk = [this, run, installPath, staging, containment](const VerificationRun::Chunk &chunk) {
        for (qsizetype index = chunk.begin; index < chunk.end; ++index) {
            const Manifest::Entry &task = run->plan.tasks.at(index);
            const QString path = filePath(installPath, task.key);
            while (run->readAhead.isActive()) {
                const qsizetype ahead = run->readAhead.claim(index, run->totalFiles);
                if (ahead < 0)
                    break;
                const QString aheadPath = filePath(installPath, run->plan.tasks.at(ahead).key);
                if (containment->contains(aheadPath))
                    Platform::readAhead(aheadPath);
            }
            QElapsedTimer timer;
            timer.start();
            VerificationRun::Outcome outcome = VerificationRun::Failed;
            if (!containment->contains(path)) {
                outcome = VerificationRun::Outside;
            } else if (isCopyValid(path, task.checksum)) {
                outcome = VerificationRun::Good;
            } else if (isStagedCopyValid(staging, task.key, task.checksum)) {
                outcome = VerificationRun::Staged;
            }
            run->outcomes[index] = outcome;
            run->readAhead.recordCheck(timer.nsecsElapsed(), task.size);

            // Every count is announced once, in ascending order, and before
            // the watcher's finished, but the GUI thread is woken at most once
            // a frame: waking it for every file would take a core's share
            // away from the hashing. The last count always goes out.
            const QMutexLocker locker(&run->mutex);
            ++run->filesChecked;
            const bool last = run->filesChecked == run->totalFiles;
            if (!run->flushPosted && (last || run->sinceFlush.hasExpired(ProgressIntervalMs))) {
                run->flushPosted = true;
                QMetaObject::invokeMethod(
                    this, [this, run] { announceProgress(run); }, Qt::QueuedConnection);
            }
        }
    };

    verificationWatcher->setFuture(QtConcurrent::map(QThreadPool::globalInstance(), run->chunks,
                                                     std::function<void(const VerificationRun::Chunk &)>(verifyChunk)));
}

void Updater::announceProgress(const std::shared_ptr<VerificationRun> &run)
{
    // A replaced verification's counts would move the circle backwards.
    if (run != currentVerification)
        return;
    int from = 0;
    int to = 0;
    {
        const QMutexLocker locker(&run->mutex);
        from = run->filesAnnounced;
        to = run->filesChecked;
        run->filesAnnounced = to;
        run->flushPosted = false;
        run->sinceFlush.start();
    }
    for (int checked = from + 1; checked <= to; ++checked)
        emit verificationProgress(checked, run->totalFiles);
}

void Updater::handleVerificationFinished()
{
    if (awaitingManifest) {
        outcomeWaiting = true;
        return;
    }
    const std::shared_ptr<VerificationRun> run = currentVerification;
    const QList<Manifest::Entry> &tasks = run->plan.tasks;
    QStringList outside;
    for (qsizetype index = 0; index < tasks.size(); ++index) {
        switch (run->outcomes[index]) {
        case VerificationRun::Failed:
            verificationResults.append(tasks.at(index).key);
            break;
        case VerificationRun::Staged:
            verifiedStagedFiles.insert(tasks.at(index).key);
            break;
        case VerificationRun::Outside:
            outside.append(tasks.at(index).key);
            break;
        case VerificationRun::Good:
            break;
        }
    }
    filesToDownload.reserve(verificationResults.size());
    for (const qsizetype index : run->plan.largestFirst) {
        if (run->outcomes[index] == VerificationRun::Failed) {
            filesToDownload.append(tasks.at(index).key);
            queuedBytes += tasks.at(index).size;
        }
    }
    stagedFilesKnown = true;

    if (!filesToDownload.isEmpty())
        emit updateAvailable(isInstalled() ? QStringLiteral("update") : QStringLiteral("install"));
    else
        emit noUpdateAvailable();

    // Left alone and said last, so that it is the message the player reads.
    if (!outside.isEmpty()) {
        emit downloadError(QStringLiteral("A folder in the install directory leads outside it, so these files were "
                                          "left alone: %1. Remove the link and check again.")
                               .arg(outside.mid(0, 5).join(QStringLiteral(", "))));
    }
}
