#pragma once

// The Win32 side of filemove.h, free of Qt (see elevation_wincore.h). Paths
// are native, with backslashes.

#include <string>

namespace Platform::Win32
{
    enum class RenameOutcome
    {
        Renamed,
        OtherVolume, // nothing was touched
        Failed,
    };

    // MoveFileExW replacing `to`, through to the disk, never as a copy.
    RenameOutcome renameReplacing(const std::wstring &from, const std::wstring &to);

    bool syncFile(const std::wstring &path);

    // Whether standard input is a pipe whose writing end is closed.
    bool stdinClosedByCaller();
}
