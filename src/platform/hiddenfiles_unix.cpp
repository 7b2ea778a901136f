#include "platform/hiddenfiles.h"

QDir::Filters Platform::visibleDotFileFilter()
{
    // QDir treats every dot-file as hidden here, which would leave the
    // installation marker behind on a move or a delete.
    return QDir::Hidden;
}
