#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QSet>
#include <QString>
#include <QUrl>

#include <optional>

// The server's list of game files: relative path to {"checksum", "size"}.
namespace Manifest
{
    // A manifest body larger than this is refused before it is read whole,
    // and one that inflates to more than the second limit is refused while
    // it inflates: a broken or hostile server must not exhaust memory.
    constexpr qint64 MaxCompressedSize = 64 * 1024 * 1024;
    constexpr qsizetype MaxInflatedSize = 512 * 1024 * 1024;

    // Inflates a qCompress block (a 4-byte big-endian length, then a zlib
    // stream) piece by piece. The declared length is only a hint: it is
    // neither trusted for an allocation nor required to be right. Empty when
    // the block is broken, declares no data, or inflates beyond `limit`.
    std::optional<QByteArray> uncompress(const QByteArray &data, qsizetype limit = MaxInflatedSize);

    // Reads the inflated JSON text of a manifest. Empty when it is no JSON
    // object or has no "files" object; entries without both "checksum" and
    // "size" are left out, and so are entries with a negative size or one
    // that would carry the total past what a 64-bit count holds. `unsized`,
    // if given, receives the files whose published size is no whole number:
    // they are stored with size 0, which must not bound their transfer.
    std::optional<QJsonObject> parseDocument(const QByteArray &json, QSet<QString> *unsized = nullptr);

    // One entry as the parsed manifest holds it, with its size read as a
    // whole number (0 for the "binary" entry, whose size is text).
    struct Entry
    {
        QString key;
        QString checksum;
        qint64 size = 0;
    };

    // A quick reading of the JSON text, for the one plain form servers write:
    // ASCII strings whose only escape is "\/", and entries of exactly a
    // "checksum" string and a "size" whole number. Gives the entries
    // parseDocument() keeps, in its key order, and nothing for any text
    // outside that form or without entries, which parseDocument() alone can
    // then read.
    std::optional<QList<Entry>> scan(const QByteArray &json);

    // The most bytes a file of this stored "size" may have: a whole number,
    // or text holding one as the "binary" entry keeps it; -1 for anything
    // else.
    qint64 byteLimit(const QJsonValue &size);

    // Whether a manifest key names a file below the directory it is resolved
    // against. Keys normally start with "/"; a key that would climb out with
    // "..", name another drive or an absolute path, or that is the bare "/",
    // is refused, so a hostile manifest can neither read nor write elsewhere.
    bool isSafeRelativePath(const QString &key);

    // updateUrl directly followed by the key with every byte but unreserved
    // ones percent-encoded, "/" included: the server sees %2F as separator.
    QUrl fileUrl(const QString &updateUrl, const QString &relativePath);
}
