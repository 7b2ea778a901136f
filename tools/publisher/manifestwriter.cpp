#include "manifestwriter.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtConcurrent/QtConcurrentMap>

#include "updater/crc32.h"

namespace
{
    struct Entry
    {
        QString key;
        QString path;
        qint64 size = 0;
        QString checksum;
    };
}

ManifestWriter::Result ManifestWriter::build(const QString &gameDirectory, const QStringList &excluded,
                                             const QString &binary)
{
    Result result;
    const QDir root(gameDirectory);
    if (!root.exists()) {
        result.error = QStringLiteral("No such directory: %1").arg(gameDirectory);
        return result;
    }

    QList<Entry> entries;
    QDirIterator it(root.absolutePath(), QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString relative = root.relativeFilePath(path);
        if (relative == QLatin1String(".initcomplete") || excluded.contains(relative))
            continue;
        entries.append({QLatin1Char('/') + relative, path, it.fileInfo().size(), QString()});
    }

    // Games are large; hash on every core.
    QtConcurrent::blockingMap(entries, [](Entry &entry) { entry.checksum = Crc32::fileDigest(entry.path); });

    QJsonObject files;
    for (const Entry &entry : std::as_const(entries)) {
        if (entry.checksum.isEmpty()) {
            result.error = QStringLiteral("Cannot read %1").arg(entry.path);
            return result;
        }
        files.insert(entry.key,
                     QJsonObject {{QStringLiteral("checksum"), entry.checksum}, {QStringLiteral("size"), entry.size}});
        ++result.files;
        result.bytes += entry.size;
    }

    QJsonObject document {{QStringLiteral("files"), files}};
    if (!binary.isEmpty()) {
        const QString key = binary.startsWith(QLatin1Char('/')) ? binary : QLatin1Char('/') + binary;
        const QJsonObject entry = files.value(key).toObject();
        if (entry.isEmpty()) {
            result.error = QStringLiteral("The binary %1 is not among the files").arg(binary);
            return result;
        }
        document.insert(
            QStringLiteral("binary"),
            QJsonObject {{QStringLiteral("file"), key},
                         {QStringLiteral("checksum"), entry.value(QLatin1String("checksum"))},
                         {QStringLiteral("size"), QString::number(entry.value(QLatin1String("size")).toInteger())}});
    }
    result.data = qCompress(QJsonDocument(document).toJson(QJsonDocument::Compact));
    return result;
}
