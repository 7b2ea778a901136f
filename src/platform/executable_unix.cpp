#include "platform/executable.h"

#include <QFile>

void Platform::makeExecutable(const QString &path)
{
    const QFile::Permissions permissions = QFile::permissions(path);
    const QFile::Permissions executable = QFile::ExeOwner | QFile::ExeUser | QFile::ExeGroup | QFile::ExeOther;
    if ((permissions & executable) != executable)
        QFile::setPermissions(path, permissions | executable);
}
