#pragma once

#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>

#include "updater/crc32.h"

// Manifests as a patch server publishes them.
namespace TestManifest
{
    inline QJsonObject entry(const QByteArray &content)
    {
        return {{QStringLiteral("checksum"), Crc32::toDigest(Crc32::update(0, content.constData(), content.size()))},
                {QStringLiteral("size"), content.size()}};
    }

    inline QByteArray body(const QJsonObject &files)
    {
        return qCompress(QJsonDocument(QJsonObject {{QStringLiteral("files"), files}}).toJson());
    }

    inline QByteArray body(const QMap<QString, QByteArray> &files)
    {
        QJsonObject entries;
        for (auto it = files.cbegin(); it != files.cend(); ++it)
            entries.insert(it.key(), entry(it.value()));
        return body(entries);
    }
}
