#include <QDir>
#include <QDirIterator>
#include <QTemporaryDir>
#include <QtTest>

#include <quazip.h>
#include <quazipfile.h>
#include <quazipnewinfo.h>

#include <memory>

#include "config/settings.h"
#include "isolatedsettings.h"
#include "support/testfiles.h"
#include "updater/updater.h"
#include "updater/userprompt.h"

// The legacy installation under APPDATA: found, unpacked in place and moved
// into the install directory by the real relocation tool.
class TestUpdaterMigrate : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void migrate_data();
    void migrate();

private:
    IsolatedSettings m_isolation;
    QTemporaryDir m_scratch;
    std::unique_ptr<Settings> m_settings;
};

namespace
{
    enum Archive
    {
        NoArchive,
        Zip,
        Corrupt,
        // A stored entry with one byte changed after its CRC-32 was taken.
        DamagedEntry,
    };

    const QString LegacyDir = QStringLiteral("Hollowmere/hollowmere_ptr");

    QByteArray contentOf(const QString &name)
    {
        return "content of " + name.toUtf8();
    }

    // Entries are names; "name/" is a folder and "name->target" a symbolic
    // link. A file holds contentOf(name).
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
            QCOMPARE(file.getZipError(), UNZ_OK);
        }
        zip.close();
        QCOMPARE(zip.getZipError(), UNZ_OK);
    }

    QStringList filesUnder(const QString &root)
    {
        QStringList files;
        QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                        QDirIterator::Subdirectories);
        while (it.hasNext())
            files << QDir(root).relativeFilePath(it.next());
        files.sort();
        return files;
    }
}

void TestUpdaterMigrate::initTestCase()
{
    m_settings = std::make_unique<Settings>(
        TestFiles::writeConfiguration(m_scratch.path(),
                                      {{QStringLiteral("applicationName"), QStringLiteral("Migrate Test")},
                                       {QStringLiteral("legacyDir"), LegacyDir}}),
        nullptr);
}

void TestUpdaterMigrate::migrate_data()
{
    QTest::addColumn<bool>("marker");
    QTest::addColumn<int>("archive");
    QTest::addColumn<QStringList>("entries");
    QTest::addColumn<bool>("migrated");
    QTest::addColumn<QStringList>("installed");
    QTest::addColumn<QStringList>("left");

    // Every legacy tree starts with "old/saved.dat" beside the archive.
    const QStringList refused {QStringLiteral(".initcomplete"), QStringLiteral("data.bin"),
                               QStringLiteral("old/saved.dat")};
    const QStringList good {QStringLiteral("good.txt")};

    QTest::newRow("no marker: no legacy installation")
        << false << int(Zip) << good << false << QStringList() << QStringList {"data.bin", "old/saved.dat"};
    QTest::newRow("nested folders and config.otml")
        << true << int(Zip)
        << QStringList {"config.otml", "game.exe", "data/", "data/maps/world.map", "data/config.otml", "empty/"} << true
        << QStringList {".initcomplete", "data/config.otml", "data/maps/world.map", "game.exe", "old/saved.dat"}
        << QStringList {"config.otml"};
    QTest::newRow("empty archive") << true << int(Zip) << QStringList() << true
                                   << QStringList {".initcomplete", "old/saved.dat"} << QStringList();
    QTest::newRow("no archive") << true << int(NoArchive) << QStringList() << true
                                << QStringList {".initcomplete", "old/saved.dat"} << QStringList();
    QTest::newRow("corrupt archive") << true << int(Corrupt) << QStringList() << false << QStringList() << refused;
    QTest::newRow("damaged entry") << true << int(DamagedEntry) << good << false << QStringList() << refused;
    QTest::newRow("dot-dot") << true << int(Zip) << QStringList {"good.txt", "../escape"} << false << QStringList()
                             << refused;
    QTest::newRow("deep dot-dot") << true << int(Zip) << QStringList {"good.txt", "a/../../../../outside/x"} << false
                                  << QStringList() << refused;
    QTest::newRow("absolute") << true << int(Zip)
                              << QStringList {"good.txt", m_scratch.filePath(QStringLiteral("outside/abs"))} << false
                              << QStringList() << refused;
    QTest::newRow("drive letter") << true << int(Zip) << QStringList {"good.txt", "C:x"} << false << QStringList()
                                  << refused;
    QTest::newRow("drive root") << true << int(Zip) << QStringList {"good.txt", "C:/x"} << false << QStringList()
                                << refused;
    QTest::newRow("backslash") << true << int(Zip) << QStringList {"good.txt", "..\\escape"} << false << QStringList()
                               << refused;
    QTest::newRow("symbolic link") << true << int(Zip)
                                   << QStringList {"good.txt", "link->" + m_scratch.filePath(QStringLiteral("outside")),
                                                   "link/planted"}
                                   << false << QStringList() << refused;
}

void TestUpdaterMigrate::migrate()
{
    QFETCH(bool, marker);
    QFETCH(int, archive);
    QFETCH(QStringList, entries);
    QFETCH(bool, migrated);
    QFETCH(QStringList, installed);
    QFETCH(QStringList, left);

    QTemporaryDir appData(m_scratch.filePath(QStringLiteral("appdata-XXXXXX")));
    QTemporaryDir install(m_scratch.filePath(QStringLiteral("install-XXXXXX")));
    qputenv("APPDATA", appData.path().toUtf8());
    m_settings->setInstallPath(install.filePath(QStringLiteral("Hollowmere PTR")));
    const QString legacy = appData.filePath(LegacyDir);
    const QString outside = m_scratch.filePath(QStringLiteral("outside"));
    QDir(outside).removeRecursively();
    QVERIFY(QDir().mkpath(outside));

    QVERIFY(TestFiles::write(legacy + QStringLiteral("/old/saved.dat"), contentOf(QStringLiteral("old/saved.dat"))));
    QVERIFY(!marker
            || TestFiles::write(legacy + QStringLiteral("/.initcomplete"), contentOf(QStringLiteral(".initcomplete"))));
    const QString archivePath = legacy + QStringLiteral("/data.bin");
    if (archive == Corrupt)
        QVERIFY(TestFiles::write(archivePath, "PK\x03\x04 this is no archive"));
    if (archive == Zip || archive == DamagedEntry)
        makeArchive(archivePath, entries, archive == DamagedEntry ? 0 : Z_DEFLATED);
    if (archive == DamagedEntry) {
        QByteArray bytes = TestFiles::read(archivePath);
        QVERIFY(bytes.indexOf(contentOf(QStringLiteral("good.txt"))) > 0);
        bytes[bytes.indexOf(contentOf(QStringLiteral("good.txt")))] = 'C';
        QVERIFY(TestFiles::write(archivePath, bytes));
    }

    // The engine tells nothing itself; the window's box follows a false result.
    int boxes = 0;
    const auto count = [&boxes](const QString &, const QString &, QWidget *) { ++boxes; };
    UserPrompt::setHandlers({count, count, count, [&boxes](const QString &, const QString &, QWidget *) {
                                 ++boxes;
                                 return UserPrompt::Answer::No;
                             }});
    Updater updater;
    updater.setToolProgram(QStringLiteral(LAUNCHER_BINARY));
    QSignalSpy errors(&updater, &Updater::downloadError);

    QCOMPARE(updater.hasLegacyInstallation(), marker);
    if (marker)
        QCOMPARE(updater.migrateLegacyInstallation(), migrated);
    QCOMPARE(updater.hasLegacyInstallation(), marker && !migrated);

    QCOMPARE(filesUnder(m_settings->installPath()), installed);
    for (const QString &file : std::as_const(installed))
        QCOMPARE(TestFiles::read(m_settings->installPath() + QLatin1Char('/') + file), contentOf(file));
    QCOMPARE(filesUnder(legacy), left);
    // Nothing was written beside the legacy directory or anywhere else.
    QStringList everything;
    for (const QString &file : std::as_const(left))
        everything << LegacyDir + QLatin1Char('/') + file;
    QCOMPARE(filesUnder(appData.path()), everything);
    QCOMPARE(filesUnder(outside), QStringList());
    QCOMPARE(errors.count(), 0);
    QCOMPARE(boxes, 0);
    UserPrompt::setHandlers({});
}

QTEST_GUILESS_MAIN(TestUpdaterMigrate)
#include "tst_updater_migrate.moc"
