#include "platform/defaultpaths.h"

QString Platform::defaultPathsKey()
{
    return QStringLiteral("windows");
}
