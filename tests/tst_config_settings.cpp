#include <QCoreApplication>
#include <QDir>
#include <QSettings>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include "config/settings.h"
#include "isolatedsettings.h"
#include "support/testfiles.h"

class TestSettings : public QObject
{
    Q_OBJECT

private slots:
    void configurations_data();
    void configurations();
    void expandPath_data();
    void expandPath();
    void storedValues();

private:
    IsolatedSettings m_isolation;
    QTemporaryDir m_files;
};

namespace
{
    QString native(const QString &path)
    {
        return QDir::toNativeSeparators(QDir::cleanPath(path));
    }

    const auto dataHome = [] { return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation); };
}

void TestSettings::configurations_data()
{
    QTest::addColumn<QString>("file"); // a resource, or one written in a scratch folder
    QTest::addColumn<QByteArray>("contents"); // of that one; empty: no file at all

    for (const char *product : {"hollowmere", "hollowmere_ptr", "hollowmere_test", "hollowmere_tournament", "ashfallow",
                                "ashfallow_ptr", "ashfallow_test", "dev"})
        QTest::newRow(product) << QStringLiteral(":/resources/settings_%1.json").arg(QLatin1String(product))
                               << QByteArray();
    QTest::newRow("compiled in") << QString() << QByteArray();
    QTest::newRow("missing") << "missing" << QByteArray();
    QTest::newRow("not JSON") << "not-json" << QByteArray("{\"version\": \"1\",");
    QTest::newRow("array at the root") << "array" << QByteArray("[{\"version\": \"1\"}]");
    QTest::newRow("wrong types") << "types" << QByteArray(R"({"version": 2, "updateUrl": [], "categories": {}})");
}

void TestSettings::configurations()
{
    QFETCH(QString, file);
    QFETCH(QByteArray, contents);

    const bool broken = !file.isEmpty() && !file.startsWith(QLatin1Char(':'));
    const QString path = broken ? m_files.filePath(file) : file.isEmpty() ? Settings::configurationResource() : file;
    QVERIFY(contents.isEmpty() || TestFiles::write(path, contents));
    const Settings settings(path, nullptr);
    QCOMPARE(QCoreApplication::organizationName(), settings.companyName());
    QCOMPARE(QCoreApplication::applicationName(), settings.applicationName() + QStringLiteral(" Launcher"));
    const QList<bool> empty {settings.version().isEmpty(), settings.companyName().isEmpty(),
                             settings.updateUrl().isEmpty(), settings.categories().isEmpty()};
    QCOMPARE(empty, QList<bool>(4, broken));
    if (broken)
        return;

    // Company and game once below the data folder; only the parent is made.
    const QString names = QLatin1Char('/') + settings.companyName() + QLatin1Char('/') + settings.applicationName();
    QCOMPARE(settings.defaultInstallPath(), native(dataHome() + names));
    QVERIFY(QDir(dataHome() + QLatin1Char('/') + settings.companyName()).exists());
    QVERIFY(!QDir(settings.defaultInstallPath()).exists());
    // Windows' template, from a variable whose name holds parentheses.
    qputenv("ProgramFiles(x86)", m_files.path().toUtf8());
    const QJsonObject templates = settings.config().value(QLatin1String("defaultPaths")).toObject();
    QCOMPARE(settings.expandPath(templates.value(QLatin1String("windows")).toString()), native(m_files.path() + names));
}

void TestSettings::expandPath_data()
{
    // @tmp@ is a scratch directory, @appData@ the user's data folder.
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("expected");

    QTest::newRow("placeholders, normalised") << "{appData}//{companyName}/./x/../{applicationName}/"
                                              << "@appData@/Brindlewood Works/Hollowmere PTR";
    QTest::newRow("case-sensitive") << "@tmp@/{CompanyName}/{applicationname}"
                                    << "@tmp@/{CompanyName}/{applicationname}";
    QTest::newRow("unset stays") << "@tmp@/%TST_UNSET%%TST_ROOT%/%TST_NAME%"
                                 << "@tmp@/%TST_UNSET%root/a-long-name";
    QTest::newRow("variable naming a variable naming a placeholder") << "%TST_NESTED%/x"
                                                                     << "@appData@/nested/x";
    QTest::newRow("variable naming itself ends") << "%TST_SELF%" << QString();
}

void TestSettings::expandPath()
{
    QFETCH(QString, path);
    QFETCH(QString, expected);

    qputenv("TST_ROOT", "root");
    qputenv("TST_NAME", "a-long-name");
    qputenv("TST_NESTED", "%TST_PLACE%/nested");
    qputenv("TST_PLACE", "{appData}");
    qputenv("TST_SELF", "x%TST_SELF%");
    qunsetenv("TST_UNSET");

    const Settings settings(QStringLiteral(":/resources/settings_hollowmere_ptr.json"), nullptr);
    const auto substitute = [this](QString text) {
        return text.replace(QLatin1String("@tmp@"), m_files.path()).replace(QLatin1String("@appData@"), dataHome());
    };
    const QString result = settings.expandPath(substitute(path));
    if (expected.isEmpty())
        QVERIFY(result.startsWith(QLatin1String("xxxx")) && result.contains(QLatin1String("%TST_SELF%")));
    else
        QCOMPARE(result, native(substitute(expected)));
}

void TestSettings::storedValues()
{
    {
        Settings settings(nullptr);
        QSignalSpy path(&settings, &Settings::installPathChanged), language(&settings, &Settings::languageChanged),
            autoUpdate(&settings, &Settings::autoUpdateChanged),
            lastCheck(&settings, &Settings::lastUpdateCheckChanged);
        QCOMPARE(settings.language(), QLocale::system().name().section(QLatin1Char('_'), 0, 0));
        QCOMPARE(settings.installPath(), settings.defaultInstallPath());
        // A missing key compares as "", "en" and on: no change, nothing written.
        settings.setInstallPath(QString());
        settings.setLanguage(QStringLiteral("en"));
        settings.setAutoUpdate(true);
        QVERIFY(QSettings().allKeys().isEmpty());

        for (int i = 0; i < 2; ++i) {
            settings.setInstallPath(QStringLiteral("/games//hollowmere/"));
            settings.setLanguage(QStringLiteral("pt"));
            settings.setAutoUpdate(false);
            settings.setLastUpdateCheck(QStringLiteral("2026-11-23T10:00:00"));
            // These write even an unchanged value.
            settings.setAnimationsEnabled(false);
            settings.setHasSelectedInstallPath(false);
            settings.setIgnoreLegacyInstallationMigration(false);
        }
        QCOMPARE(QList<qsizetype>({path.count(), language.count(), autoUpdate.count(), lastCheck.count()}),
                 QList<qsizetype>({1, 1, 1, 1}));
        // Stored as given, normalised on reading, compared as stored.
        QCOMPARE(path.first().first().toString(), QStringLiteral("/games//hollowmere/"));
        QCOMPARE(settings.installPath(), native(QStringLiteral("/games/hollowmere")));
        settings.setInstallPath(QStringLiteral("/games/hollowmere"));
        QCOMPARE(path.count(), 2);
    }
    // The last check is kept in memory only.
    QCOMPARE(QSettings().allKeys(),
             QStringList({"animationsEnabled", "autoUpdate", "hasSelectedInstallPath",
                          "ignoreLegacyInstallationMigration", "installPath", "language"}));
    const Settings settings(nullptr);
    QCOMPARE(settings.language(), QStringLiteral("pt"));
    QVERIFY(settings.lastUpdateCheck().isEmpty());
}

QTEST_GUILESS_MAIN(TestSettings)
#include "tst_config_settings.moc"
