#include "platform/filemove.h"

#include "platform/filemove_wincore.h"

#include <QDir>

namespace
{
    std::wstring nativePath(const QString &path)
    {
        return QDir::toNativeSeparators(path).toStdWString();
    }
}

Platform::RenameResult Platform::renameReplacing(const QString &from, const QString &to)
{
    switch (Win32::renameReplacing(nativePath(from), nativePath(to))) {
    case Win32::RenameOutcome::Renamed:
        return RenameResult::Renamed;
    case Win32::RenameOutcome::OtherVolume:
        return RenameResult::OtherFileSystem;
    case Win32::RenameOutcome::Failed:
        break;
    }
    return RenameResult::Failed;
}

bool Platform::syncFile(const QString &path)
{
    return Win32::syncFile(nativePath(path));
}

bool Platform::syncDirectory(const QString &)
{
    // A directory cannot be flushed here; MOVEFILE_WRITE_THROUGH has already
    // waited for the rename to reach the disk.
    return true;
}

bool Platform::stdinClosedByCaller()
{
    return Win32::stdinClosedByCaller();
}
