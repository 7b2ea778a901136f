#include <QDir>
#include <QDirIterator>
#include <QTemporaryDir>
#include <QtTest>

#include <quazip.h>
#include <quazipfile.h>
#include <quazipnewinfo.h>

#include "config/settings.h"
#include "isolatedsettings.h"
#include "support/testfiles.h"
#include "updater/updater.h"

namespace
{
    const QString LegacyDir = QStringLiteral("Hollowmere/hollowmere_ptr");

    enum Legacy
    {
        NoMarker,
        NoArchive,
        Zip,
        Corrupt,
        // A stored entry with one byte changed after its CRC-32 was taken.
        DamagedEntry,
    };

    QByteArray contentOf(const QString &name)
    {
        return "content of " + name.toUtf8();
    }

    // "name/" is a folder, "name->target" a symbolic link, a file holds contentOf(name).
    void makeArchive(const QString &path, const QStringList &entries, int method)
    {
        QuaZip zip(path);
        QVERIFY(zip.open(QuaZip::mdCreate));
        for (const QString &entry : entries) {
            const QStringList link = entry.split(QStringLiteral("->"));
            QuaZipNewInfo info(link.first());
            const bool folder = entry.endsWith(QLatin1Char('/'));
            info.externalAttr = (link.size() == 2 ? 0120777u : folder ? 040755u : 0100644u) << 16;
            QuaZipFile file(&zip);
            QVERIFY(file.open(QIODevice::WriteOnly, info, nullptr, 0, method, method == 0 ? 0 : 6));
            if (!folder)
                file.write(link.size() == 2 ? link.last().toUtf8() : contentOf(entry));
            file.close();
        }
        zip.close();
        QCOMPARE(zip.getZipError(), UNZ_OK);
    }

    QStringList filesUnder(const QString &root)
    {
        QStringList files;
        QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
        while (it.hasNext())
            files << QDir(root).relativeFilePath(it.next());
        files.sort();
        return files;
    }
}

// The legacy installation, unpacked in place and moved by the real relocation tool.
class TestUpdaterMigrate : public QObject
{
    Q_OBJECT

private slots:
    void migrate_data();
    void migrate();

private:
    IsolatedSettings m_isolation;
    QTemporaryDir m_scratch;
    Settings m_settings {
        TestFiles::writeConfiguration(m_scratch.path(),
                                      {{QStringLiteral("applicationName"), QStringLiteral("Migrate Test")},
                                       {QStringLiteral("legacyDir"), LegacyDir}}),
        nullptr};
};

void TestUpdaterMigrate::migrate_data()
{
    QTest::addColumn<int>("legacy");
    QTest::addColumn<QStringList>("entries");
    QTest::addColumn<QStringList>("installed"); // empty: not migrated
    QTest::addColumn<QStringList>("left");

    // Every legacy tree starts with "old/saved.dat" beside the archive.
    const QStringList kept {".initcomplete", "old/saved.dat"};
    QTest::newRow("no marker: no legacy installation")
        << int(NoMarker) << QStringList {"good.txt"} << QStringList() << QStringList {"data.bin", "old/saved.dat"};
    QTest::newRow("nested folders and config.otml")
        << int(Zip)
        << QStringList {"config.otml", "game.exe", "data/", "data/maps/world.map", "data/config.otml", "empty/"}
        << QStringList {".initcomplete", "data/config.otml", "data/maps/world.map", "game.exe", "old/saved.dat"}
        << QStringList {"config.otml"};
    QTest::newRow("empty archive") << int(Zip) << QStringList() << kept << QStringList();
    QTest::newRow("no archive") << int(NoArchive) << QStringList() << kept << QStringList();

    // Refused whole, before anything is written.
    const auto refused = [&kept](const char *tag, Legacy legacy, const QStringList &entries) {
        QTest::newRow(tag) << int(legacy) << entries << QStringList()
                           << QStringList {kept.first(), "data.bin", kept.last()};
    };
    refused("corrupt archive", Corrupt, {});
    refused("damaged entry", DamagedEntry, {"good.txt"});
    refused("dot-dot", Zip, {"good.txt", "../escape"});
    refused("deep dot-dot", Zip, {"good.txt", "a/../../../../outside/x"});
    refused("absolute", Zip, {"good.txt", m_scratch.filePath(QStringLiteral("outside/abs"))});
    refused("drive letter", Zip, {"good.txt", "C:x"});
    refused("drive root", Zip, {"good.txt", "C:/x"});
    refused("backslash", Zip, {"good.txt", "..\\escape"});
    refused("symbolic link", Zip,
            {"good.txt", "link->" + m_scratch.filePath(QStringLiteral("outside")), "link/planted"});
}

void TestUpdaterMigrate::migrate()
{
    QFETCH(int, legacy);
    QFETCH(QStringList, entries);
    QFETCH(QStringList, installed);
    QFETCH(QStringList, left);

    QTemporaryDir appData(m_scratch.filePath(QStringLiteral("appdata-XXXXXX")));
    QTemporaryDir install(m_scratch.filePath(QStringLiteral("install-XXXXXX")));
    qputenv("APPDATA", appData.path().toUtf8());
    m_settings.setInstallPath(install.filePath(QStringLiteral("Hollowmere PTR")));
    const QString root = appData.filePath(LegacyDir) + QLatin1Char('/');
    const QString outside = m_scratch.filePath(QStringLiteral("outside"));
    QVERIFY(QDir().mkpath(outside));

    for (const QString &file : {QStringLiteral("old/saved.dat"), QStringLiteral(".initcomplete")})
        QVERIFY((legacy == NoMarker && file.startsWith('.')) || TestFiles::write(root + file, contentOf(file)));
    const QString archive = root + QStringLiteral("data.bin");
    if (legacy == Corrupt)
        QVERIFY(TestFiles::write(archive, "PK\x03\x04 this is no archive"));
    if (legacy == Zip || legacy == DamagedEntry || legacy == NoMarker)
        makeArchive(archive, entries, legacy == DamagedEntry ? 0 : Z_DEFLATED);
    if (legacy == DamagedEntry) {
        QByteArray bytes = TestFiles::read(archive);
        const qsizetype at = bytes.indexOf(contentOf(QStringLiteral("good.txt")));
        QVERIFY(at > 0);
        bytes[at] = 'C';
        QVERIFY(TestFiles::write(archive, bytes));
    }

    // The engine tells nothing itself: a box it showed would be logged here.
    QTest::failOnWarning(QRegularExpression(QStringLiteral(".")));
    Updater updater;
    updater.setToolProgram(QStringLiteral(LAUNCHER_BINARY));
    QSignalSpy errors(&updater, &Updater::downloadError);

    QCOMPARE(updater.hasLegacyInstallation(), legacy != NoMarker);
    QVERIFY(legacy == NoMarker || updater.migrateLegacyInstallation() == !installed.isEmpty());
    QCOMPARE(updater.hasLegacyInstallation(), legacy != NoMarker && installed.isEmpty());

    QCOMPARE(filesUnder(m_settings.installPath()), installed);
    for (const QString &file : std::as_const(installed))
        QCOMPARE(TestFiles::read(m_settings.installPath() + QLatin1Char('/') + file), contentOf(file));
    // Nothing was written beside the legacy directory or anywhere else.
    QCOMPARE(filesUnder(root), left);
    QCOMPARE(filesUnder(appData.path()).size(), left.size());
    QCOMPARE(filesUnder(outside), QStringList());
    QVERIFY(errors.isEmpty());
}

QTEST_GUILESS_MAIN(TestUpdaterMigrate)
#include "tst_updater_migrate.moc"
