#include "platform/regularfile.h"

#include <QFile>
#include <QFileInfo>

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
