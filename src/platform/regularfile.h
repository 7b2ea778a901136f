#pragma once

#include <QString>
#include <QtGlobal>

#include <functional>

namespace Platform
{
    // Reads the file at `path` from start to end through `buffer`, handing
    // each piece to `consume` in order, if it is a regular file in its own
    // right: a link (even to a regular file), a FIFO, a device or a folder is
    // refused without blocking. The test is made on the file that was
    // opened, so nothing can be swapped in between. False when the file is
    // refused, cannot be opened or a read fails; `consume` may then have
    // seen part of it.
    bool readRegularFile(const QString &path, char *buffer, qint64 bufferSize,
                         const std::function<void(const char *data, qint64 size)> &consume);

    // Asks the system to bring the start of the regular file at `path` into
    // its cache, so that a read soon after finds it there instead of waiting
    // for the disk. What readRegularFile refuses is left alone, and never
    // blocks the call. Only a hint: nothing else changes whether it works.
    void readAhead(const QString &path);
}
