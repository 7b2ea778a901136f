#include "platform/regularfile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include "platform/regularfile_wincore.h"

namespace
{
    // Enough for the first reads of a file to find the cache; the system's
    // own read-ahead keeps up with the rest.
    const qint64 ReadAheadBytes = 8 * 1024 * 1024;
}

bool Platform::readRegularFile(const QString &path, char *buffer, qint64 bufferSize,
                               const std::function<void(const char *, qint64)> &consume)
{
    // Shortcuts and symbolic links count as links here, a junction is a
    // folder, and there are no FIFOs to open by name.
    const QFileInfo info(path);
    if (info.isSymLink() || !info.isFile())
        return false;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return false;
    for (;;) {
        const qint64 read = file.read(buffer, bufferSize);
        if (read <= 0)
            return read == 0;
        consume(buffer, read);
    }
}

void Platform::readAhead(const QString &path)
{
    Win32::prefetchFileStart(QDir::toNativeSeparators(path).toStdWString(), ReadAheadBytes);
}
