#include "platform/elevation.h"

#include <windows.h>

#include <shellapi.h>

bool Platform::canElevate()
{
    return true;
}

Platform::ElevatedRun Platform::runElevated(const QString &program, const QString &parameters, int timeoutMs)
{
    const std::wstring file = program.toStdWString();
    const std::wstring arguments = parameters.toStdWString();

    SHELLEXECUTEINFOW info;
    ZeroMemory(&info, sizeof(info));
    info.cbSize = sizeof(info);
    info.fMask = SEE_MASK_NOCLOSEPROCESS;
    info.lpVerb = L"runas";
    info.lpFile = file.c_str();
    info.lpParameters = arguments.c_str();
    info.nShow = SW_HIDE;

    // This is where Windows asks the user for elevation.
    if (!ShellExecuteExW(&info))
        return {ElevatedRun::Refused};
    if (!info.hProcess)
        return {ElevatedRun::NoProcess};

    ElevatedRun run;
    const DWORD waited = WaitForSingleObject(info.hProcess, static_cast<DWORD>(timeoutMs));
    if (waited == WAIT_TIMEOUT) {
        TerminateProcess(info.hProcess, 1);
        run.outcome = ElevatedRun::TimedOut;
    } else if (waited != WAIT_OBJECT_0) {
        run.outcome = ElevatedRun::WaitFailed;
    } else {
        DWORD exitCode = 0;
        if (GetExitCodeProcess(info.hProcess, &exitCode)) {
            run.outcome = ElevatedRun::Finished;
            run.exitCode = static_cast<int>(exitCode);
        } else {
            run.outcome = ElevatedRun::NoExitCode;
        }
    }
    CloseHandle(info.hProcess);
    return run;
}
