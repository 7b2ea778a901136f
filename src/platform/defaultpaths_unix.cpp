#include "platform/defaultpaths.h"

#include <QStandardPaths>

QString Platform::defaultPathsKey()
{
    // The Windows template starts with %ProgramFiles(x86)%, which is unset
    // here and would leave a relative path to the working directory.
    return QStringLiteral("other");
}

QString Platform::appDataLocation()
{
    // The XDG data home itself: the application's own data location already
    // ends in the organisation and application names, which the templates
    // add once more.
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
}
