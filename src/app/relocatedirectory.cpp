#include "relocatedirectory.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QStringList>

#include "platform/filemove.h"
#include "platform/hiddenfiles.h"

namespace
{
    // Beside the target while a file crosses file systems. A fixed name, so
    // that what an interrupted run left is found and replaced by the next.
    const QLatin1String PartialSuffix(".relocating");

    QString absolutePath(const QString &path)
    {
        return QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    }

    // Links are resolved as far as the path exists, so that neither a link
    // nor a not-yet-created destination can hide that two paths overlap.
    QString resolvedPath(const QString &absolute)
    {
        QString existing = absolute;
        QString missing;
        while (!QFileInfo::exists(existing)) {
            const QFileInfo info(existing);
            if (info.path() == existing)
                break;
            missing.prepend(QLatin1Char('/') + info.fileName());
            existing = info.path();
        }
        const QString canonical = QFileInfo(existing).canonicalFilePath();
        return canonical.isEmpty() ? absolute : QDir::cleanPath(canonical + missing);
    }

    bool isWithin(const QString &path, const QString &directory)
    {
        const QString prefix = directory.endsWith(QLatin1Char('/')) ? directory : directory + QLatin1Char('/');
        return path == directory || path.startsWith(prefix);
    }

    bool copyFile(const QString &source, const QString &target)
    {
        QFile in(source);
        QFile out(target);
        // NewOnly, so that a link planted at the target's name is never
        // written through, which matters when the tool runs elevated.
        if (!in.open(QIODevice::ReadOnly) || !out.open(QIODevice::WriteOnly | QIODevice::NewOnly))
            return false;
        QByteArray buffer(1 << 20, Qt::Uninitialized);
        for (;;) {
            const qint64 read = in.read(buffer.data(), buffer.size());
            if (read < 0)
                return false;
            if (read == 0)
                break;
            if (out.write(buffer.constData(), read) != read)
                return false;
        }
        if (!out.flush())
            return false;
        out.close();
        return out.error() == QFileDevice::NoError;
    }

    // At every instant the target is either its old or its new content, and
    // the source goes only once the new content is safely on the disk, so a
    // run that is killed can simply be run again.
    bool moveFile(const QString &source, const QString &target)
    {
        switch (Platform::renameReplacing(source, target)) {
        case Platform::RenameResult::Renamed:
            return true;
        case Platform::RenameResult::Failed:
            return false;
        case Platform::RenameResult::OtherFileSystem:
            break;
        }

        const QString partial = target + PartialSuffix;
        QFile::remove(partial);
        // The owner, group and other bits only: the "user" bits describe
        // this process's access and would widen what the copy allows.
        const QFileDevice::Permissions modeBits = QFile::permissions(source)
            & (QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner | QFileDevice::ReadGroup
               | QFileDevice::WriteGroup | QFileDevice::ExeGroup | QFileDevice::ReadOther | QFileDevice::WriteOther
               | QFileDevice::ExeOther);
        // Flushed before the permissions are set: a read-only copy could not
        // be opened for flushing on every system.
        if (!copyFile(source, partial) || !Platform::syncFile(partial) || !QFile::setPermissions(partial, modeBits)
            || Platform::renameReplacing(partial, target) != Platform::RenameResult::Renamed) {
            QFile::remove(partial);
            return false;
        }
        if (!Platform::syncDirectory(QFileInfo(target).path()))
            return false;
        return QFile::remove(source);
    }
}

bool relocateDirectory(QString source, QString dest, const QString &ignore)
{
    // QDir takes an empty path for the working directory, which no caller
    // ever means to move or delete. Other paths are used as given, quotes
    // included: they arrive as single arguments, and a quote is legal in a
    // file name.
    if (source.isEmpty())
        return false;
    const bool deleteMode = dest.isEmpty();
    source = absolutePath(source);
    if (!deleteMode) {
        dest = absolutePath(dest);
        // A tree moved into itself would nest without end, and one moved into
        // a directory that holds it would scatter over the tree it came from.
        const QString resolvedSource = resolvedPath(source);
        const QString resolvedDest = resolvedPath(dest);
        if (isWithin(resolvedDest, resolvedSource) || isWithin(resolvedSource, resolvedDest))
            return false;
    }

    // Folders of the destination that stay inside it once links are
    // followed; a link placed in an installation must not carry files out.
    const QString resolvedDest = deleteMode ? QString() : resolvedPath(dest);
    QHash<QString, bool> insideDest;
    const auto staysInside = [&](const QString &folder) {
        auto known = insideDest.find(folder);
        if (known == insideDest.end())
            known = insideDest.insert(folder, isWithin(resolvedPath(folder), resolvedDest));
        return *known;
    };

    const QDir sourceDir(source);
    const QStringList ignored = ignore.split(QLatin1Char(','), Qt::KeepEmptyParts);

    bool success = true;
    QStringList directories;

    if (!deleteMode)
        QDir(dest).mkpath(QStringLiteral("."));

    // System, so that pipes, sockets, devices and broken links are seen and
    // counted rather than passed over in silence.
    QDirIterator it(source,
                    QDir::Dirs | QDir::Files | QDir::System | QDir::NoDotAndDotDot | Platform::visibleDotFileFilter(),
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        // Checked between two files only, so that no file is left half done.
        if (Platform::stdinClosedByCaller())
            return false;

        const QString path = it.next();
        const QString relative = QDir::fromNativeSeparators(sourceDir.relativeFilePath(path));
        if (ignored.contains(relative))
            continue;

        const QFileInfo entry = it.fileInfo();
        const bool isLink = entry.isSymbolicLink() || entry.isJunction();
        if (deleteMode) {
            if (isLink || !entry.isDir()) {
                // A link to a directory is a directory entry on some systems;
                // either way only the link goes, never what it leads to.
                if (!QFile::remove(path) && !(isLink && QDir().rmdir(path)))
                    success = false;
            } else {
                directories.prepend(path);
            }
            continue;
        }

        // A link would carry the player's files elsewhere, or bring files
        // from elsewhere into the game; anything but a file or a directory
        // cannot be moved as data at all. The caller learns that not
        // everything arrived.
        if (isLink || !(entry.isDir() || entry.isFile())) {
            success = false;
            continue;
        }
        if (entry.isDir()) {
            QDir(dest).mkpath(relative);
            continue;
        }

        const QString target = QDir(dest).filePath(relative);
        if (!staysInside(QFileInfo(target).path())) {
            success = false;
            continue;
        }
        QDir().mkpath(QFileInfo(target).path());
        if (!moveFile(path, target))
            success = false;
    }

    if (deleteMode) {
        // Latest first, so every directory goes before its parent.
        for (const QString &directory : std::as_const(directories)) {
            if (!QDir().rmdir(directory))
                success = false;
        }
        if (!QDir().rmdir(source))
            success = false;
    }

    return success;
}
