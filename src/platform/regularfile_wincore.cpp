#include "platform/regularfile_wincore.h"

#include <windows.h>

bool Platform::Win32::prefetchFileStart(const std::wstring &path, unsigned long long maxBytes)
{
    // FILE_FLAG_OPEN_REPARSE_POINT opens a link or a junction itself, which
    // the attributes then turn away, instead of what it leads to.
    const HANDLE file
        = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                      OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return false;
    BY_HANDLE_FILE_INFORMATION information;
    bool asked = false;
    if (GetFileType(file) == FILE_TYPE_DISK && GetFileInformationByHandle(file, &information)
        && !(information.dwFileAttributes & (FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY))) {
        const unsigned long long size
            = (static_cast<unsigned long long>(information.nFileSizeHigh) << 32) | information.nFileSizeLow;
        const SIZE_T length = static_cast<SIZE_T>(size < maxBytes ? size : maxBytes);
        // An empty file cannot be mapped, and there is nothing to fetch.
        const HANDLE mapping = length > 0 ? CreateFileMappingW(file, nullptr, PAGE_READONLY, 0, 0, nullptr) : nullptr;
        if (mapping) {
            // A prefetched range of a mapped file comes in with a few large
            // reads and stays in the standby list once the view is gone,
            // where the file's own reads find it.
            void *view = MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, length);
            if (view) {
                WIN32_MEMORY_RANGE_ENTRY range {view, length};
                asked = PrefetchVirtualMemory(GetCurrentProcess(), 1, &range, 0) != 0;
                UnmapViewOfFile(view);
            }
            CloseHandle(mapping);
        }
    }
    CloseHandle(file);
    return asked;
}
