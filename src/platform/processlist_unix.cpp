#include "platform/processlist.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>

namespace
{
    // The kernel marks the link of an executable replaced on disk; the
    // process still is that program.
    const QLatin1String DeletedSuffix(" (deleted)");

    // The kernel reports the image with every link resolved, while an install
    // path may go through a link of its own.
    QString resolved(const QString &path)
    {
        const QFileInfo file(path);
        const QString canonical = file.canonicalFilePath();
        if (!canonical.isEmpty())
            return canonical;
        // A program removed or replaced since its start no longer resolves,
        // but the folder it ran from usually still does.
        const QString folder = QFileInfo(file.absolutePath()).canonicalFilePath();
        return QDir::cleanPath((folder.isEmpty() ? file.absolutePath() : folder) + QLatin1Char('/') + file.fileName());
    }
}

std::optional<QString> Platform::firstProcessImagePath(const QString &fileName)
{
    const QDir proc(QStringLiteral("/proc"));
    QList<qint64> pids;
    for (const QString &entry : proc.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        bool isPid = false;
        const qint64 pid = entry.toLongLong(&isPid);
        if (isPid)
            pids.append(pid);
    }
    // Ascending ids, the nearest thing here to the order of a process snapshot.
    std::sort(pids.begin(), pids.end());

    for (const qint64 pid : std::as_const(pids)) {
        // comm is cut at 15 characters, so the name comes from the link.
        QString image = QFile::symLinkTarget(QStringLiteral("/proc/%1/exe").arg(pid));
        if (image.isEmpty())
            continue;
        if (image.endsWith(DeletedSuffix))
            image.chop(DeletedSuffix.size());
        if (QFileInfo(image).fileName() != fileName)
            continue;
        return image;
    }
    return std::nullopt;
}

bool Platform::isSameExecutable(const QString &imagePath, const QString &expectedPath)
{
    if (imagePath.isEmpty() || expectedPath.isEmpty())
        return false;
    // Letter case matters here: a folder that differs only in case is
    // another folder, with another game in it.
    return resolved(imagePath) == resolved(expectedPath);
}
