#pragma once

#include <QString>

namespace Platform
{
    // Whether this system can run a program with administrator rights at all.
    bool canElevate();

    struct ElevatedRun
    {
        enum Outcome
        {
            Refused, // the user declined, or the program could not be started
            NoProcess, // started, but nothing to wait for
            TimedOut, // still running at the limit; it has been ended
            WaitFailed,
            NoExitCode,
            Finished,
        };
        Outcome outcome = Refused;
        int exitCode = -1;
    };

    // Runs `program` elevated and hidden with the whole command line in one
    // string (values quoted), and waits up to `timeoutMs` for it to end.
    // Blocks the calling thread.
    ElevatedRun runElevated(const QString &program, const QString &parameters, int timeoutMs);
}
