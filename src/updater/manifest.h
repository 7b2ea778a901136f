#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QUrl>

#include <optional>

// The server's list of game files: relative path to {"checksum", "size"}.
namespace Manifest
{
    // Reads a qCompress-framed JSON manifest. Empty when the body is not in
    // that framing, is no JSON object, or has no "files" object; entries
    // without both "checksum" and "size" are left out.
    std::optional<QJsonObject> parse(const QByteArray &data);

    // Whether a manifest key names a file below the directory it is resolved
    // against. Keys normally start with "/"; a key that would climb out with
    // "..", name another drive or an absolute path, or that is the bare "/",
    // is refused, so a hostile manifest can neither read nor write elsewhere.
    bool isSafeRelativePath(const QString &key);

    // updateUrl directly followed by the key with every byte but unreserved
    // ones percent-encoded, "/" included: the server sees %2F as separator.
    QUrl fileUrl(const QString &updateUrl, const QString &relativePath);
}
