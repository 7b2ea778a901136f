#pragma once

// The Win32 side of windowlookup.h, free of Qt (see elevation_wincore.h).

#include <string>

namespace Platform::Win32
{
    // Whether a visible top-level window has exactly `title`, letter case
    // included.
    bool isWindowVisible(const std::wstring &title);
}
