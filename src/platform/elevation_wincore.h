#pragma once

// The Win32 side of elevation.h, free of Qt, so that the Windows tests can
// build it with mingw-w64 alone and run it under Wine.

#include <string>
#include <vector>

namespace Platform::Win32
{
    // One argument quoted so that CommandLineToArgvW, and with it Qt's
    // QCoreApplication::arguments(), gives it back unchanged.
    std::wstring quoteArgument(const std::wstring &argument);

    // The arguments quoted and joined by blanks, as one parameter string.
    std::wstring commandLine(const std::vector<std::wstring> &arguments);

    struct ElevatedResult
    {
        enum Outcome
        {
            Refused,
            NoProcess,
            TimedOut,
            WaitFailed,
            NoExitCode,
            Finished,
        };
        Outcome outcome = Refused;
        unsigned long exitCode = 0;
    };

    // Runs `program` through the shell's "runas" verb, hidden, and waits up
    // to `timeoutMs` (no limit if negative) for it; at the time-out it is
    // terminated and given a few seconds to go.
    ElevatedResult runElevated(const std::wstring &program, const std::vector<std::wstring> &arguments, int timeoutMs);
}
