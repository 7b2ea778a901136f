#include "platform/processlist.h"

#include "platform/processlist_wincore.h"

std::optional<QString> Platform::firstProcessImagePath(const QString &fileName)
{
    const std::optional<std::wstring> path = Win32::firstProcessImagePath(fileName.toStdWString());
    if (!path)
        return std::nullopt;
    return QString::fromStdWString(*path);
}

bool Platform::isSameExecutable(const QString &imagePath, const QString &expectedPath)
{
    return Win32::isSameExecutable(imagePath.toStdWString(), expectedPath.toStdWString());
}
