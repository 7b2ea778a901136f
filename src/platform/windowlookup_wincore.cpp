#include "platform/windowlookup_wincore.h"

#include <windows.h>

namespace
{
    std::wstring windowTitle(HWND window)
    {
        const int length = GetWindowTextLengthW(window);
        if (length <= 0)
            return {};
        std::wstring title(static_cast<std::wstring::size_type>(length) + 1, L'\0');
        title.resize(static_cast<std::wstring::size_type>(GetWindowTextW(window, title.data(), length + 1)));
        return title;
    }
}

bool Platform::Win32::isWindowVisible(const std::wstring &title)
{
    // FindWindowW ignores letter case and returns only the first match, which
    // may be a hidden window above the visible one; so every match is looked
    // at.
    HWND window = nullptr;
    while ((window = FindWindowExW(nullptr, window, nullptr, title.c_str())) != nullptr) {
        if (IsWindowVisible(window) && windowTitle(window) == title)
            return true;
    }
    return false;
}
