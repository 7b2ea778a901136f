#include "platform/executable.h"

void Platform::makeExecutable(const QString &)
{
    // Any .exe runs as it is.
}
