#include "platform/processlist.h"

#include <QDir>

#include <windows.h>

#include <tlhelp32.h>

std::optional<QString> Platform::firstProcessImagePath(const QString &fileName)
{
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (snapshot == INVALID_HANDLE_VALUE)
        return std::nullopt;

    PROCESSENTRY32W entry;
    entry.dwSize = sizeof(entry);
    if (!Process32FirstW(snapshot, &entry)) {
        CloseHandle(snapshot);
        return std::nullopt;
    }

    std::optional<QString> result;
    do {
        if (QString::fromWCharArray(entry.szExeFile) != fileName)
            continue;
        const HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, entry.th32ProcessID);
        if (!process)
            continue;
        wchar_t path[MAX_PATH];
        DWORD size = MAX_PATH;
        const bool read = QueryFullProcessImageNameW(process, 0, path, &size);
        CloseHandle(process);
        if (!read)
            continue;
        // The first readable process of that name decides.
        result = QString::fromWCharArray(path, static_cast<int>(size));
        break;
    } while (Process32NextW(snapshot, &entry));

    CloseHandle(snapshot);
    return result;
}

bool Platform::isSameExecutable(const QString &imagePath, const QString &expectedPath)
{
    // Windows file systems ignore letter case in names.
    return QString::compare(QDir::toNativeSeparators(QDir::cleanPath(imagePath)),
                            QDir::toNativeSeparators(QDir::cleanPath(expectedPath)), Qt::CaseInsensitive)
        == 0;
}
