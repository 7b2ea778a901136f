#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace ManifestWriter
{
    struct Result
    {
        QByteArray data; // qCompress-framed JSON, ready to serve
        int files = 0;
        qint64 bytes = 0;
        QString error;
    };

    // Lists every file below `gameDirectory` (dot-files included; the
    // installation marker and `excluded` relative paths left out) with its
    // CRC-32 and size, under keys with a leading "/". `binary`, when given,
    // is also written as the separate "binary" entry.
    Result build(const QString &gameDirectory, const QStringList &excluded, const QString &binary);
}
