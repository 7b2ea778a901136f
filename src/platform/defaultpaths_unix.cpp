#include "platform/defaultpaths.h"

QString Platform::defaultPathsKey()
{
    // The Windows template starts with %ProgramFiles(x86)%, which is unset
    // here and would leave a relative path to the working directory.
    return QStringLiteral("other");
}
