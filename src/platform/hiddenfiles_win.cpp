#include "platform/hiddenfiles.h"

QDir::Filters Platform::visibleDotFileFilter()
{
    // A dot-file is not hidden on Windows unless it has the attribute, and
    // QDir already lists it.
    return {};
}
