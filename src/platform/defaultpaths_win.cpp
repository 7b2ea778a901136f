#include "platform/defaultpaths.h"

#include <QStandardPaths>

QString Platform::defaultPathsKey()
{
    return QStringLiteral("windows");
}

QString Platform::appDataLocation()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
}
