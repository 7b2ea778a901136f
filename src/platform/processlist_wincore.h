#pragma once

// The Win32 side of processlist.h, free of Qt (see elevation_wincore.h).

#include <optional>
#include <string>

namespace Platform::Win32
{
    // The image path of the first process in a Toolhelp snapshot whose file
    // name is exactly `fileName` and whose path can be read.
    std::optional<std::wstring> firstProcessImagePath(const std::wstring &fileName);

    // Both paths made absolute and cleaned ("/" for "\", no "." or ".."
    // steps) and compared without letter case, as Windows file systems do.
    bool isSameExecutable(const std::wstring &imagePath, const std::wstring &expectedPath);
}
