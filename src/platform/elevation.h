#pragma once

#include <QString>
#include <QStringList>

namespace Platform
{
    // Whether this system has a way to run a program with administrator
    // rights at all.
    bool canElevate();

    struct ElevatedRun
    {
        enum Outcome
        {
            Refused, // the user declined, or the program could not be started
            NoProcess, // started, but nothing to wait for
            TimedOut, // still running at the limit; it has been told to stop
            WaitFailed,
            NoExitCode,
            Finished,
        };
        Outcome outcome = Refused;
        int exitCode = -1;
    };

    // Runs `program` elevated and hidden and waits up to `timeoutMs` for it.
    // Every element of `arguments` reaches the program as exactly one
    // argument, whatever it holds (blanks, quotes, trailing backslashes, or
    // nothing at all). At the time-out the program is stopped as far as this
    // user can stop a process of higher rights; the call then returns within
    // a few seconds. Blocks the calling thread.
    ElevatedRun runElevated(const QString &program, const QStringList &arguments, int timeoutMs);
}
