#pragma once

// The Win32 side of regularfile.h, free of Qt (see elevation_wincore.h).
// Paths are native, with backslashes.

#include <string>

namespace Platform::Win32
{
    // Asks the memory manager to bring up to `maxBytes` from the start of
    // the regular file at `path` into the cache. A link, a junction, a
    // folder or a device is left alone, unopened beyond its own entry. False
    // when the file was refused or the request failed.
    bool prefetchFileStart(const std::wstring &path, unsigned long long maxBytes);
}
