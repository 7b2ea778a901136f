#include <QtTest>

#include <quazipfile.h>

#include "config/settings.h"
#include "isolatedsettings.h"
#include "support/testfiles.h"
#include "updater/updater.h"

namespace
{
    const QString LegacyDir = QStringLiteral("Hollowmere/hollowmere_ptr");
    const auto contentOf = [](const QString &name) -> QByteArray { return "content of " + name.toUtf8(); };

    // "name/" is a folder, "name->target" a symbolic link, a file holds contentOf(name).
    QByteArray archive(const QStringList &entries, int method = Z_DEFLATED)
    {
        QBuffer buffer;
        QuaZip zip(&buffer);
        zip.open(QuaZip::mdCreate);
        for (const QString &entry : entries) {
            const QStringList link = entry.split(QStringLiteral("->"));
            QuaZipNewInfo info(link.first());
            info.externalAttr = (link.size() == 2 ? 0120777u : entry.endsWith('/') ? 040755u : 0100644u) << 16;
            QuaZipFile file(&zip);
            file.open(QIODevice::WriteOnly, info, nullptr, 0, method, Z_DEFAULT_COMPRESSION);
            file.write(link.size() == 2 ? link.last().toUtf8() : entry.endsWith('/') ? QByteArray() : contentOf(entry));
        }
        zip.close();
        if (zip.getZipError() != UNZ_OK)
            qFatal("cannot build a test archive");
        return buffer.data();
    }

    // Relative to `base`, so that a file outside it shows as "../name"; one not holding contentOf(name) is starred.
    QStringList filesUnder(const QString &root, const QString &base)
    {
        QStringList files;
        for (QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
             it.hasNext();) {
            const QString name = QDir(base).relativeFilePath(it.next());
            files << name + (TestFiles::read(it.filePath()) == contentOf(name) ? "" : "*");
        }
        files.sort();
        return files;
    }
}

// The legacy installation, unpacked in place and moved by the real relocation tool.
class TestUpdaterMigrate : public QObject
{
    Q_OBJECT

    IsolatedSettings m_isolation;
    QTemporaryDir m_scratch;
    Settings m_settings {TestFiles::writeConfiguration(m_scratch.path(),
                                                       {{"applicationName", "Migrate Test"}, {"legacyDir", LegacyDir}}),
                         nullptr};

private slots:
    void migrate_data()
    {
        // Every legacy tree holds "old/saved.dat" and the marker.
        QTest::addColumn<QByteArray>("archive");
        QTest::addColumn<QStringList>("installed"); // empty: not migrated
        QTest::addColumn<QStringList>("left");

        QTest::newRow("nested folders and config.otml")
            << archive({"config.otml", "game.exe", "data/", "data/maps/world.map", "data/config.otml", "empty/"})
            << QStringList {".initcomplete", "data/config.otml", "data/maps/world.map", "game.exe", "old/saved.dat"}
            << QStringList {"config.otml"};
        QTest::newRow("empty archive") << archive({}) << QStringList {".initcomplete", "old/saved.dat"}
                                       << QStringList();

        // Refused whole, before anything is written.
        const auto refused = [](const char *tag, const QByteArray &bytes) {
            QTest::newRow(tag) << bytes << QStringList() << QStringList {".initcomplete", "data.bin*", "old/saved.dat"};
        };
        refused("corrupt archive", "PK\x03\x04 this is no archive");
        // Stored, so that one byte of the entry can be changed after its CRC-32 was taken.
        refused("damaged entry", archive({"good.txt"}, 0).replace("content of", "Content of"));
        refused("dot-dot", archive({"good.txt", "a/../../escape"}));
        refused("absolute", archive({"good.txt", "/tmp/abs"}));
        refused("drive letter", archive({"good.txt", "C:x"}));
        refused("backslash", archive({"good.txt", "..\\escape"}));
        refused("symbolic link", archive({"good.txt", "link->/tmp", "link/planted"}));
    }

    void migrate()
    {
        QFETCH(QByteArray, archive);
        QFETCH(QStringList, installed);
        QFETCH(QStringList, left);
        QTemporaryDir appData(m_scratch.filePath(QStringLiteral("appdata-XXXXXX")));
        qputenv("APPDATA", appData.path().toUtf8());
        m_settings.setInstallPath(appData.path() + QStringLiteral(" install/Hollowmere PTR"));
        const QString root = appData.filePath(LegacyDir);
        QTest::failOnWarning(QRegularExpression(QStringLiteral("."))); // a box the engine showed would be logged
        Updater updater;
        updater.setToolProgram(QStringLiteral(LAUNCHER_BINARY));
        QSignalSpy errors(&updater, &Updater::downloadError);
        QVERIFY(TestFiles::write(root + "/old/saved.dat", contentOf("old/saved.dat"))
                && TestFiles::write(root + "/data.bin", archive) && !updater.hasLegacyInstallation()); // no marker yet
        QVERIFY(TestFiles::write(root + "/.initcomplete", contentOf(".initcomplete"))
                && updater.hasLegacyInstallation());

        QCOMPARE(updater.migrateLegacyInstallation(), !installed.isEmpty());
        QCOMPARE(filesUnder(m_settings.installPath(), m_settings.installPath()), installed);
        // Nothing was written beside the legacy directory either.
        QCOMPARE(filesUnder(appData.path(), root), left);
        QVERIFY(errors.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestUpdaterMigrate)
#include "tst_updater_migrate.moc"
