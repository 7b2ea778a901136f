#include "platform/elevation.h"

#include <QProcess>
#include <QStandardPaths>

namespace
{
    QString pkexec()
    {
        return QStandardPaths::findExecutable(QStringLiteral("pkexec"));
    }

    // pkexec's own codes for a dismissed or failed authentication.
    const int PkexecNotAuthorized = 126;
    const int PkexecDismissed = 127;
}

bool Platform::canElevate()
{
    return !pkexec().isEmpty();
}

Platform::ElevatedRun Platform::runElevated(const QString &program, const QString &parameters, int timeoutMs)
{
    // pkexec starts the program with a clean environment and no display;
    // the relocation tool needs none, but Qt must not look for one.
    QStringList arguments {QStringLiteral("env"), QStringLiteral("QT_QPA_PLATFORM=offscreen"), program};
    arguments += QProcess::splitCommand(parameters);

    QProcess process;
    process.start(pkexec(), arguments);
    if (!process.waitForStarted())
        return {ElevatedRun::Refused};
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished();
        return {ElevatedRun::TimedOut};
    }
    if (process.exitStatus() != QProcess::NormalExit)
        return {ElevatedRun::NoExitCode};
    if (process.exitCode() == PkexecNotAuthorized || process.exitCode() == PkexecDismissed)
        return {ElevatedRun::Refused};
    return {ElevatedRun::Finished, process.exitCode()};
}
