#include "platform/processlist_wincore.h"

#include <windows.h>

#include <tlhelp32.h>

namespace
{
    std::optional<std::wstring> fullPath(const std::wstring &path)
    {
        const DWORD size = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
        if (size == 0)
            return std::nullopt;
        std::wstring full(size, L'\0');
        const DWORD length = GetFullPathNameW(path.c_str(), size, full.data(), nullptr);
        if (length == 0 || length >= size)
            return std::nullopt;
        full.resize(length);
        return full;
    }
}

std::optional<std::wstring> Platform::Win32::firstProcessImagePath(const std::wstring &fileName)
{
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (snapshot == INVALID_HANDLE_VALUE)
        return std::nullopt;

    PROCESSENTRY32W entry;
    entry.dwSize = sizeof(entry);
    if (!Process32FirstW(snapshot, &entry)) {
        CloseHandle(snapshot);
        return std::nullopt;
    }

    std::optional<std::wstring> result;
    do {
        if (fileName != entry.szExeFile)
            continue;
        // Limited rights are enough for the path, and are granted for
        // processes of other users and of higher integrity too.
        const HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, entry.th32ProcessID);
        if (!process)
            continue;
        wchar_t path[MAX_PATH];
        DWORD size = MAX_PATH;
        const bool read = QueryFullProcessImageNameW(process, 0, path, &size);
        CloseHandle(process);
        if (!read)
            continue;
        // The first readable process of that name decides.
        result = std::wstring(path, size);
        break;
    } while (Process32NextW(snapshot, &entry));

    CloseHandle(snapshot);
    return result;
}

bool Platform::Win32::isSameExecutable(const std::wstring &imagePath, const std::wstring &expectedPath)
{
    const std::optional<std::wstring> image = fullPath(imagePath);
    const std::optional<std::wstring> expected = fullPath(expectedPath);
    if (!image || !expected)
        return false;
    // Ordinal, without the user's locale: file systems fold case by a fixed
    // table.
    return CompareStringOrdinal(image->c_str(), static_cast<int>(image->size()), expected->c_str(),
                                static_cast<int>(expected->size()), TRUE)
        == CSTR_EQUAL;
}
