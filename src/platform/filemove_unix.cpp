#include "platform/filemove.h"

#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
    bool syncPath(const QString &path, int flags)
    {
        const int fd = ::open(QFile::encodeName(path).constData(), flags | O_CLOEXEC);
        if (fd < 0)
            return false;
        // Some file systems (FUSE, network shares) cannot flush a directory
        // and say so; there is nothing more to wait for on those.
        const bool synced = ::fsync(fd) == 0 || errno == EINVAL || errno == ENOTSUP;
        ::close(fd);
        return synced;
    }
}

Platform::RenameResult Platform::renameReplacing(const QString &from, const QString &to)
{
    if (::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0)
        return RenameResult::Renamed;
    return errno == EXDEV ? RenameResult::OtherFileSystem : RenameResult::Failed;
}

bool Platform::syncFile(const QString &path)
{
    // fsync works on the file, not the descriptor, so a read-only one is
    // enough even for a file whose permissions forbid writing.
    return syncPath(path, O_RDONLY);
}

bool Platform::syncDirectory(const QString &directory)
{
    return syncPath(directory, O_RDONLY | O_DIRECTORY);
}

bool Platform::stdinClosedByCaller()
{
    struct stat info;
    if (::fstat(STDIN_FILENO, &info) != 0 || !S_ISFIFO(info.st_mode))
        return false;

    pollfd input {STDIN_FILENO, POLLIN, 0};
    if (::poll(&input, 1, 0) <= 0)
        return false;
    if (input.revents & (POLLHUP | POLLERR))
        return true;
    // Readable with the writer still there means bytes nobody asked for;
    // they are dropped, and only a read of nothing means end of file.
    char discarded[256];
    return (input.revents & POLLIN) && ::read(STDIN_FILENO, discarded, sizeof discarded) == 0;
}
