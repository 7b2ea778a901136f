#include "platform/elevation.h"

#include <QProcess>
#include <QStandardPaths>

#include <memory>

namespace
{
    QString pkexec()
    {
        return QStandardPaths::findExecutable(QStringLiteral("pkexec"));
    }

    // pkexec's own codes: the dialog was dismissed or the user is not
    // authorised (126), or authentication failed or the program could not
    // be run (127).
    const int PkexecNotAuthorized = 126;
    const int PkexecFailed = 127;

    // How long a program that has been asked to stop may take to do so.
    const int StopGraceMs = 5000;
}

bool Platform::canElevate()
{
    return !pkexec().isEmpty();
}

Platform::ElevatedRun Platform::runElevated(const QString &program, const QStringList &arguments, int timeoutMs)
{
    const QString elevator = pkexec();
    if (elevator.isEmpty())
        return {ElevatedRun::Refused};

    // pkexec hands its arguments on untouched and names its first one in the
    // password prompt, so the program goes there itself, with no wrapper.
    auto process = std::make_unique<QProcess>();
    process->setProcessChannelMode(QProcess::ForwardedChannels);
    // Read-write keeps a pipe on the program's input for the whole run: the
    // tool stops between two files once that pipe is closed, the one way to
    // stop a program that runs as root.
    process->start(elevator, QStringList {program} + arguments, QIODevice::ReadWrite);
    if (!process->waitForStarted())
        return {ElevatedRun::Refused};

    if (!process->waitForFinished(timeoutMs) && process->state() != QProcess::NotRunning) {
        process->closeWriteChannel();
        // Ends pkexec while it still waits for the password; a program that
        // already runs as root does not let this user end it.
        process->kill();
        if (!process->waitForFinished(StopGraceMs) && process->state() != QProcess::NotRunning) {
            // ~QProcess would wait another 30 s for a process it cannot end.
            // Let the event loop reap it whenever it does end.
            QProcess *stillRunning = process.release();
            QObject::connect(stillRunning, &QProcess::finished, stillRunning, &QObject::deleteLater);
        }
        return {ElevatedRun::TimedOut};
    }

    if (process->exitStatus() != QProcess::NormalExit)
        return {ElevatedRun::NoExitCode};
    if (process->exitCode() == PkexecNotAuthorized || process->exitCode() == PkexecFailed)
        return {ElevatedRun::Refused};
    return {ElevatedRun::Finished, process->exitCode()};
}
