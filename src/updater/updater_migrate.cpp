#include "updater/updater.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryFile>

#include <quazip.h>
#include <quazipfile.h>
#include <quazipfileinfo.h>

#include "config/settings.h"
#include "platform/filemove.h"

namespace
{
    const QString ArchiveName = QStringLiteral("data.bin");
    const QString ConfigName = QStringLiteral("config.otml");
    // Entries can be far larger than memory; they pass through in blocks.
    const qint64 CopyBlockSize = 256 * 1024;

    // Unix file type bits of a ZIP entry's external attributes.
    const quint32 FileTypeMask = 0170000;
    const quint32 SymbolicLinkType = 0120000;

    QString legacyDirectory()
    {
        const QString appData = QString::fromUtf8(qgetenv("APPDATA"));
        return QDir::toNativeSeparators(
            QDir::cleanPath(appData + QLatin1Char('/') + Settings::instance()->legacyDir()));
    }

    // A name from the archive is data from elsewhere: anything that could
    // reach past the legacy directory, or be read differently by Windows than
    // by this check, is turned away before a byte is written.
    bool isSafeEntryName(const QString &name)
    {
        static const QRegularExpression driveLetter(QStringLiteral("^[A-Za-z]:"));
        if (name.isEmpty() || name.startsWith(QLatin1Char('/')) || name.contains(QLatin1Char('\\'))
            || name.contains(QLatin1Char(':')) || name.contains(QChar(0)) || driveLetter.match(name).hasMatch())
            return false;
        const QStringList parts = name.split(QLatin1Char('/'), Qt::SkipEmptyParts);
        if (parts.isEmpty() || parts.contains(QStringLiteral("..")))
            return false;
        // The archive would be overwritten while it is being read.
        return !(parts.size() == 1 && parts.first() == ArchiveName && !name.endsWith(QLatin1Char('/')));
    }

    // An empty archive ends its walk at the first step, with this code.
    bool walkedToTheEnd(const QuaZip &archive)
    {
        return archive.getZipError() == UNZ_OK || archive.getZipError() == UNZ_END_OF_LIST_OF_FILE;
    }

    bool isSymbolicLink(const QuaZipFileInfo64 &info)
    {
        return ((info.externalAttr >> 16) & FileTypeMask) == SymbolicLinkType;
    }

    // Every entry is judged before the first one is written, so that a hostile
    // archive leaves the legacy directory as it was.
    bool archiveIsSafe(QuaZip &archive)
    {
        for (bool more = archive.goToFirstFile(); more; more = archive.goToNextFile()) {
            QuaZipFileInfo64 info;
            if (!archive.getCurrentFileInfo(&info) || !isSafeEntryName(info.name) || isSymbolicLink(info))
                return false;
        }
        return walkedToTheEnd(archive);
    }

    bool isWithin(const QString &path, const QString &directory)
    {
        return path == directory || path.startsWith(directory + QLatin1Char('/'));
    }

    // The resolved form of the deepest part of `path` that exists.
    QString canonicalAncestor(QString path)
    {
        while (!QFileInfo::exists(path) && QFileInfo(path).path() != path)
            path = QFileInfo(path).path();
        return QFileInfo(path).canonicalFilePath();
    }

    // Written beside the target under a temporary name and renamed over it
    // only once complete and intact, so an interrupted migration never leaves
    // half a file under a game file's name.
    bool extractEntry(QuaZip &archive, const QString &target)
    {
        QuaZipFile entry(&archive);
        if (!entry.open(QIODevice::ReadOnly))
            return false;

        QTemporaryFile partial(target + QStringLiteral(".XXXXXX.partial"));
        if (!partial.open())
            return false;
        QByteArray block(CopyBlockSize, Qt::Uninitialized);
        for (;;) {
            const qint64 read = entry.read(block.data(), block.size());
            if (read < 0)
                return false;
            if (read == 0)
                break;
            if (partial.write(block.constData(), read) != read)
                return false;
        }
        // Closing the entry is what compares its CRC-32 with the archive's.
        entry.close();
        if (entry.getZipError() != UNZ_OK || !partial.flush())
            return false;
        partial.close();
        // A temporary file is private to its owner; a game file is not.
        QFile::setPermissions(partial.fileName(),
                              QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup
                                  | QFileDevice::ReadOther);
        if (Platform::renameReplacing(partial.fileName(), target) != Platform::RenameResult::Renamed)
            return false;
        partial.setAutoRemove(false);
        return true;
    }

    // QuaZip refuses to open an archive without entries. Such an archive is
    // only its end record: 22 bytes, the signature, then zero disk numbers
    // and zero entry counts.
    bool isEmptyArchive(const QString &archivePath)
    {
        QFile file(archivePath);
        if (file.size() != 22 || !file.open(QIODevice::ReadOnly))
            return false;
        const QByteArray record = file.readAll();
        return record.startsWith(QByteArray("PK\x05\x06", 4)) && record.mid(4, 8) == QByteArray(8, '\0');
    }

    bool unpackArchive(const QString &archivePath, const QString &directory)
    {
        QuaZip archive(archivePath);
        if (!archive.open(QuaZip::mdUnzip))
            return isEmptyArchive(archivePath);
        if (!archiveIsSafe(archive))
            return false;

        // A link already in the legacy tree must not carry entries out of it.
        const QString root = QFileInfo(directory).canonicalFilePath();
        for (bool more = archive.goToFirstFile(); more; more = archive.goToNextFile()) {
            const QString name = archive.getCurrentFileName();
            const QString target = QDir::cleanPath(directory + QLatin1Char('/') + name);
            const bool isDirectory = name.endsWith(QLatin1Char('/'));
            const QString parent = isDirectory ? target : QFileInfo(target).path();
            // Checked before and after the folders are made, so that not even
            // an empty folder is made through a link.
            if (root.isEmpty() || !isWithin(canonicalAncestor(parent), root))
                return false;
            QDir().mkpath(parent);
            if (!isWithin(QFileInfo(parent).canonicalFilePath(), root))
                return false;
            if (!isDirectory && !extractEntry(archive, target))
                return false;
        }
        if (!walkedToTheEnd(archive))
            return false;
        archive.close();
        return true;
    }
}

bool Updater::hasLegacyInstallation() const
{
    // Without a configured folder the "legacy directory" would be APPDATA
    // itself, which is never to be moved.
    if (Settings::instance()->legacyDir().isEmpty())
        return false;
    const QString directory = legacyDirectory();
    return QFileInfo(directory).isDir() && QFileInfo(directory + QStringLiteral("/.initcomplete")).isFile();
}

bool Updater::migrateLegacyInstallation()
{
    if (Settings::instance()->legacyDir().isEmpty())
        return false;
    const QString directory = legacyDirectory();
    const QString installPath = Settings::instance()->installPath();

    const QString archivePath = directory + QLatin1Char('/') + ArchiveName;
    if (QFileInfo::exists(archivePath)) {
        if (!unpackArchive(archivePath, directory))
            return false;
        QFile::remove(archivePath);
    }

    return runInstaller(directory, installPath, {ConfigName, ArchiveName});
}
