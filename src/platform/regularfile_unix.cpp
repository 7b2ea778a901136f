#include "platform/regularfile.h"

#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
    // O_NOFOLLOW turns a link away at the open, and O_NONBLOCK keeps a FIFO
    // with no writer from holding the open for good; the fstat then judges
    // what was opened. That is one look at the file instead of a stat before
    // the open and another after it. -1 when refused.
    int openRegularFile(const QString &path)
    {
        const QByteArray name = QFile::encodeName(path);
        const int fd = ::open(name.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0)
            return -1;
        struct stat status;
        if (::fstat(fd, &status) == 0 && S_ISREG(status.st_mode))
            return fd;
        ::close(fd);
        return -1;
    }
}

bool Platform::readRegularFile(const QString &path, char *buffer, qint64 bufferSize,
                               const std::function<void(const char *, qint64)> &consume)
{
    const int fd = openRegularFile(path);
    if (fd < 0)
        return false;
    ssize_t read = 0;
    for (;;) {
        read = ::read(fd, buffer, static_cast<size_t>(bufferSize));
        if (read > 0)
            consume(buffer, read);
        else if (read == 0 || errno != EINTR)
            break;
    }
    ::close(fd);
    return read == 0;
}

void Platform::readAhead(const QString &path)
{
    const int fd = openRegularFile(path);
    if (fd < 0)
        return;
    // Queues the reads and returns; the pages stay cached after the close.
    ::posix_fadvise(fd, 0, 0, POSIX_FADV_WILLNEED);
    ::close(fd);
}
