#include "platform/stagingroot.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

QString Platform::stagingRoot()
{
    // /tmp is shared by every account and emptied at boot; the user's cache
    // folder is neither.
    return QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation);
}

bool Platform::makePrivateDirectory(const QString &path)
{
    const QString absolute = QFileInfo(path).absoluteFilePath();
    if (!QDir().mkpath(QFileInfo(absolute).path()))
        return false;

    const QByteArray native = QFile::encodeName(absolute);
    if (::mkdir(native.constData(), 0700) != 0 && errno != EEXIST)
        return false;

    struct stat status;
    if (::lstat(native.constData(), &status) != 0)
        return false;
    // Another account could have made the folder first and kept a way in.
    if (!S_ISDIR(status.st_mode) || status.st_uid != ::geteuid())
        return false;
    if ((status.st_mode & 077) != 0 && ::chmod(native.constData(), 0700) != 0)
        return false;
    return true;
}
