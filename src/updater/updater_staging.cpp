#include "updater/updater.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QSet>

#include <algorithm>

#include "platform/stagingroot.h"

namespace
{
    const QString Marker = QStringLiteral(".initcomplete");

    QString stagedName(const QString &relativePath)
    {
        return QDir::cleanPath(relativePath.startsWith(QLatin1Char('/')) ? relativePath.mid(1) : relativePath);
    }
}

bool Updater::lockStaging()
{
    if (stagingLock)
        return true;
    // One staging directory serves every launcher of this game on the
    // account; two runs at once would truncate each other's files.
    const QString staging = stagingDirectory();
    QDir().mkpath(QFileInfo(staging).path());
    auto lock = std::make_unique<QLockFile>(staging + QStringLiteral(".lock"));
    // A run may take hours; only a lock whose process is gone is stale.
    lock->setStaleLockTime(0);
    if (!lock->tryLock(0)) {
        emit downloadError(QStringLiteral(
            "The game is being updated by another launcher. Please wait until it has finished, then try again."));
        return false;
    }
    stagingLock = std::move(lock);
    return true;
}

void Updater::unlockStaging()
{
    // Files being created ahead must not outlive the lock that lets this
    // launcher alone write the staging directory.
    discardFilesOpenedAhead();
    stagingLock.reset();
}

bool Updater::prepareStagingDirectory()
{
    if (Platform::makePrivateDirectory(stagingDirectory()))
        return true;
    emit downloadError(QStringLiteral("The download folder %1 cannot be used: it belongs to another account or cannot "
                                      "be made private.")
                           .arg(QDir::toNativeSeparators(stagingDirectory())));
    return false;
}

void Updater::pruneStagingDirectory() const
{
    const QString staging = stagingDirectory();
    if (!QFileInfo(staging).isDir() || QFileInfo(staging).isSymLink())
        return;

    QSet<QString> keep {Marker};
    for (const QString &file : verifiedStagedFiles)
        keep.insert(stagedName(file));

    const QDir root(staging);
    QStringList folders;
    QDirIterator it(staging, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QFileInfo info = it.fileInfo();
        if (info.isDir() && !info.isSymLink()) {
            folders.append(path);
            continue;
        }
        // Links, pipes and anything not verified never reach the game.
        if (!info.isFile() || info.isSymLink() || !keep.contains(root.relativeFilePath(path)))
            QFile::remove(path);
    }
    // Deepest first; a folder that still holds a kept file stays.
    std::sort(folders.begin(), folders.end(), [](const QString &a, const QString &b) { return a.size() > b.size(); });
    for (const QString &folder : std::as_const(folders))
        QDir().rmdir(folder);
}
