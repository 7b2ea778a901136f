#include "platform/filemove.h"

#include <QDir>

#include <windows.h>

namespace
{
    std::wstring nativePath(const QString &path)
    {
        return QDir::toNativeSeparators(path).toStdWString();
    }
}

Platform::RenameResult Platform::renameReplacing(const QString &from, const QString &to)
{
    // Without MOVEFILE_COPY_ALLOWED a move to another volume fails instead
    // of copying straight onto the target, which a crash could leave half
    // written.
    if (MoveFileExW(nativePath(from).c_str(), nativePath(to).c_str(),
                    MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        return RenameResult::Renamed;
    return GetLastError() == ERROR_NOT_SAME_DEVICE ? RenameResult::OtherFileSystem : RenameResult::Failed;
}

bool Platform::syncFile(const QString &path)
{
    // FlushFileBuffers needs a handle with write access.
    const HANDLE file
        = CreateFileW(nativePath(path).c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return false;
    const bool flushed = FlushFileBuffers(file) != 0;
    CloseHandle(file);
    return flushed;
}

bool Platform::syncDirectory(const QString &)
{
    // A directory cannot be flushed here; MOVEFILE_WRITE_THROUGH has already
    // waited for the rename to reach the disk.
    return true;
}

bool Platform::stdinClosedByCaller()
{
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    if (input == nullptr || input == INVALID_HANDLE_VALUE || GetFileType(input) != FILE_TYPE_PIPE)
        return false;
    DWORD available = 0;
    if (PeekNamedPipe(input, nullptr, 0, nullptr, &available, nullptr))
        return false;
    // A closed anonymous pipe reports a broken pipe, a named one (as
    // QProcess makes them) may report its server end as disconnected.
    const DWORD error = GetLastError();
    return error == ERROR_BROKEN_PIPE || error == ERROR_PIPE_NOT_CONNECTED;
}
