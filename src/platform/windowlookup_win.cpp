#include "platform/windowlookup.h"

#include <windows.h>

std::optional<bool> Platform::isWindowVisible(const QString &title)
{
    const std::wstring wideTitle = title.toStdWString();
    const HWND window = FindWindowW(nullptr, wideTitle.c_str());
    return window != nullptr && IsWindowVisible(window);
}
