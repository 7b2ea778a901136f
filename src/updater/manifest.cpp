#include "updater/manifest.h"

#include <QJsonDocument>
#include <QJsonParseError>

std::optional<QJsonObject> Manifest::parse(const QByteArray &data)
{
    const QByteArray json = qUncompress(data);
    if (json.isEmpty())
        return std::nullopt;

    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;

    const QJsonObject root = document.object();
    if (root.isEmpty())
        return std::nullopt;
    const QJsonValue files = root.value(QLatin1String("files"));
    if (!files.isObject())
        return std::nullopt;

    QJsonObject manifest;
    const QJsonObject table = files.toObject();
    for (auto it = table.constBegin(); it != table.constEnd(); ++it) {
        const QJsonObject entry = it.value().toObject();
        if (!entry.contains(QLatin1String("checksum")) || !entry.contains(QLatin1String("size")))
            continue;
        manifest.insert(it.key(),
                        QJsonObject {
                            {QStringLiteral("checksum"), entry.value(QLatin1String("checksum")).toString(QString())},
                            {QStringLiteral("size"), entry.value(QLatin1String("size")).toInteger(0)},
                        });
    }

    // The "binary" entry keeps its size as text, so it never weighs in the
    // total or in the largest-first plan.
    if (root.contains(QLatin1String("binary"))) {
        const QJsonObject binary = root.value(QLatin1String("binary")).toObject();
        manifest.insert(binary.value(QLatin1String("file")).toString(QString()),
                        QJsonObject {
                            {QStringLiteral("checksum"), binary.value(QLatin1String("checksum")).toString(QString())},
                            {QStringLiteral("size"), binary.value(QLatin1String("size")).toString(QString())},
                        });
    }
    return manifest;
}

bool Manifest::isSafeRelativePath(const QString &key)
{
    if (key.isEmpty() || key == QLatin1String("/") || key.contains(QChar(0)))
        return false;
    // A backslash is a separator on Windows and a colon names a drive or an
    // alternate stream there; neither belongs in a published path.
    if (key.contains(QLatin1Char('\\')) || key.contains(QLatin1Char(':')))
        return false;

    // One leading "/" is the normal form; more would make a UNC or absolute
    // path once it is appended to a directory and cleaned.
    const QString relative = key.startsWith(QLatin1Char('/')) ? key.mid(1) : key;
    if (relative.isEmpty() || relative.startsWith(QLatin1Char('/')))
        return false;

    int depth = 0;
    for (const QString &segment : relative.split(QLatin1Char('/'))) {
        if (segment.isEmpty() || segment == QLatin1String("."))
            continue;
        if (segment == QLatin1String("..")) {
            if (--depth < 0)
                return false;
            continue;
        }
        ++depth;
    }
    // Something must remain that names a file below the root.
    return depth > 0;
}

QUrl Manifest::fileUrl(const QString &updateUrl, const QString &relativePath)
{
    return QUrl(updateUrl + QString::fromLatin1(QUrl::toPercentEncoding(relativePath)), QUrl::TolerantMode);
}
