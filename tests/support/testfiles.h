#pragma once

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

// File chores the tests share. Header-only, so that a test that links none
// of the support library can use it too.
namespace TestFiles
{
    inline bool write(const QString &path, const QByteArray &content)
    {
        QFile file(path);
        return QDir().mkpath(QFileInfo(path).path()) && file.open(QIODevice::WriteOnly)
            && file.write(content) == content.size();
    }

    inline QByteArray read(const QString &path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
    }

    // A product configuration in `directory`: a dev build of "Brindlewood
    // Works" that `keys` completes or overrides. Returns its path.
    inline QString writeConfiguration(const QString &directory, const QJsonObject &keys)
    {
        QJsonObject configuration {{QStringLiteral("version"), QStringLiteral("dev")},
                                   {QStringLiteral("companyName"), QStringLiteral("Brindlewood Works")},
                                   {QStringLiteral("manifestFile"), QStringLiteral("checksums.txt.gz")}};
        for (auto it = keys.begin(); it != keys.end(); ++it)
            configuration.insert(it.key(), it.value());
        const QString path = directory + QStringLiteral("/settings.json");
        return write(path, QJsonDocument(configuration).toJson()) ? path : QString();
    }
}
