#include "platform/filemove_wincore.h"

#include <windows.h>

Platform::Win32::RenameOutcome Platform::Win32::renameReplacing(const std::wstring &from, const std::wstring &to)
{
    // Without MOVEFILE_COPY_ALLOWED a move to another volume fails instead
    // of copying straight onto the target, which a crash could leave half
    // written.
    if (MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        return RenameOutcome::Renamed;
    return GetLastError() == ERROR_NOT_SAME_DEVICE ? RenameOutcome::OtherVolume : RenameOutcome::Failed;
}

bool Platform::Win32::syncFile(const std::wstring &path)
{
    // FlushFileBuffers needs a handle with write access.
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                    nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return false;
    const bool flushed = FlushFileBuffers(file) != 0;
    CloseHandle(file);
    return flushed;
}

bool Platform::Win32::stdinClosedByCaller()
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
