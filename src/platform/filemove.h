#pragma once

#include <QString>

namespace Platform
{
    enum class RenameResult
    {
        Renamed,
        OtherFileSystem, // nothing was touched; the caller has to copy
        Failed,
    };

    // Puts the file `from` in the place of `to` in one step, replacing a file
    // already there, so that `to` never goes missing or holds half a file.
    // Never falls back to copying.
    RenameResult renameReplacing(const QString &from, const QString &to);

    // Returns once the data written to the closed file at `path` is on the
    // disk, so that it survives a crash of the system as well as of the
    // process.
    bool syncFile(const QString &path);

    // Returns once renames into `directory` are on the disk.
    bool syncDirectory(const QString &directory);

    // True when standard input is a pipe whose writing end the caller has
    // closed: the way a caller that cannot end this process asks it to stop.
    // Never blocks, and never true for a terminal, a file or no input at all.
    bool stdinClosedByCaller();
}
