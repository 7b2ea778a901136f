#include "relocatedirectory.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include "platform/hiddenfiles.h"

bool relocateDirectory(QString source, QString dest, const QString &ignore)
{
    // The launcher quotes paths for the elevated shell; quotes are never part
    // of a directory name we are handed.
    source.remove(QLatin1Char('"'));
    dest.remove(QLatin1Char('"'));

    const bool deleteMode = dest.isEmpty();
    const QDir sourceDir(source);
    const QStringList ignored = ignore.split(QLatin1Char(','), Qt::KeepEmptyParts);

    bool success = true;
    QStringList directories;

    if (!deleteMode)
        QDir(dest).mkpath(QStringLiteral("."));

    QDirIterator it(source, QDir::Dirs | QDir::Files | QDir::NoDotAndDotDot | Platform::visibleDotFileFilter(),
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString relative = QDir::fromNativeSeparators(sourceDir.relativeFilePath(path));
        if (ignored.contains(relative))
            continue;

        const QFileInfo entry = it.fileInfo();
        if (entry.isDir()) {
            if (deleteMode)
                directories.prepend(path);
            else
                QDir(dest).mkpath(relative);
            continue;
        }

        if (deleteMode) {
            if (!QFile::remove(path))
                success = false;
            continue;
        }

        const QString target = QDir(dest).filePath(relative);
        QDir().mkpath(QFileInfo(target).path());
        if (QFile::exists(target))
            QFile::remove(target);
        if (!QFile::rename(path, target))
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
