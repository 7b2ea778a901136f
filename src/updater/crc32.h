#pragma once

#include <QString>
#include <QtGlobal>

// The CRC-32 of zlib, PNG and IEEE 802.3 (reflected polynomial 0xEDB88320),
// computed with a vectorised library routine so that hashing keeps up with
// the disk rather than with a byte loop.
namespace Crc32
{
    // Continues a CRC over more bytes; start with 0. The same convention as
    // zlib's crc32().
    quint32 update(quint32 crc, const void *data, qsizetype length);

    // The digest text: exactly 8 lower-case hexadecimal digits.
    QString toDigest(quint32 crc);

    // The digest of a whole file, streamed through one fixed buffer, or an
    // empty string when the file cannot be opened or read.
    QString fileDigest(const QString &path);

    // The same for a file that is a regular file in its own right; a link,
    // FIFO, device or folder gives an empty string and is never read.
    QString regularFileDigest(const QString &path);
}
