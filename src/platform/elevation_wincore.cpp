#include "platform/elevation_wincore.h"

#include <windows.h>

#include <shellapi.h>

namespace
{
    // How long a terminated program may take to be gone.
    const DWORD StopGraceMs = 5000;
}

std::wstring Platform::Win32::quoteArgument(const std::wstring &argument)
{
    // Backslashes are literal unless a double quote follows them; there they
    // escape each other and the quote. Left unquoted, a value ending in a
    // backslash ("D:\") would escape the closing quote and swallow the next
    // argument.
    std::wstring quoted(1, L'"');
    std::wstring::size_type backslashes = 0;
    for (const wchar_t c : argument) {
        if (c == L'\\') {
            ++backslashes;
            continue;
        }
        if (c == L'"')
            quoted.append(backslashes * 2 + 1, L'\\');
        else
            quoted.append(backslashes, L'\\');
        quoted += c;
        backslashes = 0;
    }
    quoted.append(backslashes * 2, L'\\');
    quoted += L'"';
    return quoted;
}

std::wstring Platform::Win32::commandLine(const std::vector<std::wstring> &arguments)
{
    std::wstring line;
    for (const std::wstring &argument : arguments) {
        if (!line.empty())
            line += L' ';
        line += quoteArgument(argument);
    }
    return line;
}

Platform::Win32::ElevatedResult Platform::Win32::runElevated(const std::wstring &program,
                                                             const std::vector<std::wstring> &arguments, int timeoutMs)
{
    const std::wstring parameters = commandLine(arguments);

    SHELLEXECUTEINFOW info;
    ZeroMemory(&info, sizeof(info));
    info.cbSize = sizeof(info);
    // Without SEE_MASK_FLAG_NO_UI a missing program raises the shell's own
    // modal "not found" box, which blocks this thread until someone closes
    // it; the caller reports a refusal itself.
    info.fMask = SEE_MASK_NOCLOSEPROCESS | SEE_MASK_FLAG_NO_UI;
    info.lpVerb = L"runas";
    info.lpFile = program.c_str();
    info.lpParameters = parameters.c_str();
    info.nShow = SW_HIDE;

    // This is where Windows asks the user for elevation.
    if (!ShellExecuteExW(&info))
        return {ElevatedResult::Refused};
    if (!info.hProcess)
        return {ElevatedResult::NoProcess};

    ElevatedResult result;
    const DWORD waited = WaitForSingleObject(info.hProcess, timeoutMs < 0 ? INFINITE : static_cast<DWORD>(timeoutMs));
    if (waited == WAIT_TIMEOUT) {
        // A process of higher rights may refuse this; it is then left to
        // run, and the wait below ends at the grace period.
        TerminateProcess(info.hProcess, 1);
        WaitForSingleObject(info.hProcess, StopGraceMs);
        result.outcome = ElevatedResult::TimedOut;
    } else if (waited != WAIT_OBJECT_0) {
        result.outcome = ElevatedResult::WaitFailed;
    } else {
        DWORD exitCode = 0;
        if (GetExitCodeProcess(info.hProcess, &exitCode)) {
            result.outcome = ElevatedResult::Finished;
            result.exitCode = exitCode;
        } else {
            result.outcome = ElevatedResult::NoExitCode;
        }
    }
    CloseHandle(info.hProcess);
    return result;
}
