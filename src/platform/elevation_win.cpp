#include "platform/elevation.h"

#include <windows.h>

#include <shellapi.h>

namespace
{
    // The rules by which the C runtime and CommandLineToArgvW split a command
    // line: backslashes are literal unless they precede a double quote.
    QString quoteArgument(const QString &argument)
    {
        QString quoted(QLatin1Char('"'));
        qsizetype backslashes = 0;
        for (const QChar c : argument) {
            if (c == QLatin1Char('\\')) {
                ++backslashes;
                continue;
            }
            if (c == QLatin1Char('"'))
                quoted += QString(backslashes * 2 + 1, QLatin1Char('\\'));
            else
                quoted += QString(backslashes, QLatin1Char('\\'));
            quoted += c;
            backslashes = 0;
        }
        // Doubled, so that the closing quote is not taken for part of the value.
        quoted += QString(backslashes * 2, QLatin1Char('\\'));
        quoted += QLatin1Char('"');
        return quoted;
    }
}

bool Platform::canElevate()
{
    return true;
}

Platform::ElevatedRun Platform::runElevated(const QString &program, const QStringList &arguments, int timeoutMs)
{
    QStringList quoted;
    for (const QString &argument : arguments)
        quoted.append(quoteArgument(argument));
    const std::wstring file = program.toStdWString();
    const std::wstring parameters = quoted.join(QLatin1Char(' ')).toStdWString();

    SHELLEXECUTEINFOW info;
    ZeroMemory(&info, sizeof(info));
    info.cbSize = sizeof(info);
    // No error box of the shell's own: the caller reports a refusal itself.
    info.fMask = SEE_MASK_NOCLOSEPROCESS | SEE_MASK_FLAG_NO_UI;
    info.lpVerb = L"runas";
    info.lpFile = file.c_str();
    info.lpParameters = parameters.c_str();
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
