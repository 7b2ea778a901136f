#include "platform/stagingroot.h"

#include <QDir>
#include <QStandardPaths>

QString Platform::stagingRoot()
{
    // %TEMP% lies inside the user's own profile here.
    return QStandardPaths::writableLocation(QStandardPaths::TempLocation);
}

bool Platform::makePrivateDirectory(const QString &path)
{
    // The profile's access list already keeps other accounts out.
    return QDir().mkpath(path);
}
