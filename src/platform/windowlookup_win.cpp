#include "platform/windowlookup.h"

#include "platform/windowlookup_wincore.h"

std::optional<bool> Platform::isWindowVisible(const QString &title)
{
    return Win32::isWindowVisible(title.toStdWString());
}
