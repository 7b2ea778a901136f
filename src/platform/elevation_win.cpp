#include "platform/elevation.h"

#include "platform/elevation_wincore.h"

bool Platform::canElevate()
{
    return true;
}

Platform::ElevatedRun Platform::runElevated(const QString &program, const QStringList &arguments, int timeoutMs)
{
    std::vector<std::wstring> wideArguments;
    wideArguments.reserve(static_cast<std::size_t>(arguments.size()));
    for (const QString &argument : arguments)
        wideArguments.push_back(argument.toStdWString());

    const Win32::ElevatedResult result = Win32::runElevated(program.toStdWString(), wideArguments, timeoutMs);
    switch (result.outcome) {
    case Win32::ElevatedResult::Refused:
        return {ElevatedRun::Refused};
    case Win32::ElevatedResult::NoProcess:
        return {ElevatedRun::NoProcess};
    case Win32::ElevatedResult::TimedOut:
        return {ElevatedRun::TimedOut};
    case Win32::ElevatedResult::WaitFailed:
        return {ElevatedRun::WaitFailed};
    case Win32::ElevatedResult::NoExitCode:
        return {ElevatedRun::NoExitCode};
    case Win32::ElevatedResult::Finished:
        break;
    }
    // Exit codes are unsigned here; NTSTATUS values such as 0xC0000005 come
    // out negative, which is still not 0.
    return {ElevatedRun::Finished, static_cast<int>(result.exitCode)};
}
