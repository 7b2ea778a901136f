#include <QCoreApplication>
#include <QDir>
#include <QSettings>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include "config/settings.h"
#include "isolatedsettings.h"

class TestSettings : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void configurations_data();
    void configurations();
    void brokenConfigurations_data();
    void brokenConfigurations();
    void compiledInConfiguration();
    void expandPath_data();
    void expandPath();
    void expandPathCreatesParent();
    void defaultInstallPath();
    void installPath();
    void changeRules_data();
    void changeRules();
    void alwaysWrittenKeys();
    void language();
    void lastUpdateCheck();

private:
    IsolatedSettings m_isolation;
    QTemporaryDir m_files;
};

namespace
{
    QString writeFile(const QTemporaryDir &dir, const QString &name, const QByteArray &contents)
    {
        QFile file(dir.filePath(name));
        if (!file.open(QIODevice::WriteOnly))
            return QString();
        file.write(contents);
        return file.fileName();
    }

    QString native(const QString &path)
    {
        return QDir::toNativeSeparators(QDir::cleanPath(path));
    }
}

void TestSettings::init()
{
    Settings settings(nullptr);
    QSettings().clear();
}

void TestSettings::configurations_data()
{
    QTest::addColumn<QString>("product");
    for (const char *product : {"hollowmere", "hollowmere_ptr", "hollowmere_test", "hollowmere_tournament", "ashfallow",
                                "ashfallow_ptr", "ashfallow_test", "dev"})
        QTest::newRow(product) << QString::fromLatin1(product);
}

// What every product file must give, whatever its values: a launcher that
// can reach its servers and draw its window from what we ship.
void TestSettings::configurations()
{
    QFETCH(QString, product);

    const Settings settings(QStringLiteral(":/resources/settings_%1.json").arg(product), nullptr);
    QVERIFY(!settings.version().isEmpty());
    QVERIFY(!settings.applicationName().isEmpty());
    QVERIFY(!settings.executableName().isEmpty());
    QCOMPARE(settings.manifestFile(), QStringLiteral("checksums.txt.gz"));
    QVERIFY(QFile::exists(QStringLiteral(":/resources/") + settings.logoImage()));

    const QUrl updateUrl(settings.updateUrl());
    QVERIFY(updateUrl.isValid());
    QVERIFY(!settings.updateUrl().endsWith(QLatin1Char('/')));
    QCOMPARE(QUrl(settings.launcherUpdateUrl()).host(), updateUrl.host());
    QVERIFY(QUrl(settings.companyUrl()).isValid() && !settings.companyUrl().isEmpty());

    // Every row is a link with an icon we ship, or the one empty separator.
    int separators = 0;
    for (const QJsonValue &value : settings.categories()) {
        const QJsonObject category = value.toObject();
        if (category.isEmpty()) {
            ++separators;
            continue;
        }
        QVERIFY(!category.value(QLatin1String("name")).toString().isEmpty());
        QVERIFY2(QFile::exists(category.value(QLatin1String("icon")).toString()),
                 qPrintable(category.value(QLatin1String("icon")).toString()));
        QVERIFY(QUrl(category.value(QLatin1String("url")).toString()).isValid());
    }
    QCOMPARE(separators, 1);

    QCOMPARE(QCoreApplication::organizationName(), settings.companyName());
    QCOMPARE(QCoreApplication::applicationName(), settings.applicationName() + QStringLiteral(" Launcher"));
    QCOMPARE(QCoreApplication::applicationVersion(), settings.version());
}

void TestSettings::brokenConfigurations_data()
{
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<QByteArray>("contents");
    QTest::addColumn<QString>("applicationName");
    QTest::addColumn<QString>("version");

    QTest::newRow("missing") << QStringLiteral("missing.json") << QByteArray() << QString() << QString();
    QTest::newRow("not JSON") << QStringLiteral("broken.json") << QByteArray("{\"version\": \"1\",") << QString()
                              << QString();
    QTest::newRow("array at the root") << QStringLiteral("array.json") << QByteArray("[{\"version\": \"1\"}]")
                                       << QString() << QString();
    QTest::newRow("wrong types") << QStringLiteral("types.json")
                                 << QByteArray("{\"version\": 2, \"applicationName\": \"Only\", \"categories\": {}}")
                                 << QStringLiteral("Only") << QString();
}

void TestSettings::brokenConfigurations()
{
    QFETCH(QString, fileName);
    QFETCH(QByteArray, contents);
    QFETCH(QString, applicationName);
    QFETCH(QString, version);

    const QString path = contents.isEmpty() ? m_files.filePath(fileName) : writeFile(m_files, fileName, contents);
    const Settings settings(path, nullptr);
    QCOMPARE(settings.applicationName(), applicationName);
    QCOMPARE(settings.version(), version);
    QVERIFY(settings.companyName().isEmpty());
    QVERIFY(settings.updateUrl().isEmpty());
    QVERIFY(settings.categories().isEmpty());
    QVERIFY(QCoreApplication::organizationName().isEmpty());
    QCOMPARE(QCoreApplication::applicationName(), applicationName + QStringLiteral(" Launcher"));
}

void TestSettings::compiledInConfiguration()
{
    const Settings settings(nullptr);
    QCOMPARE(Settings::instance(), &settings);
    QVERIFY(!settings.applicationName().isEmpty());
    QVERIFY(!settings.updateUrl().isEmpty());
}

void TestSettings::expandPath_data()
{
    // @tmp@ is a scratch directory, @appData@ the user's data folder.
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("expected");

    QTest::newRow("plain path, normalised") << "@tmp@//a/./b/../c/"
                                            << "@tmp@/a/c";
    QTest::newRow("unset variable stays") << "@tmp@/%LAUNCHER_TEST_UNSET%/y"
                                          << "@tmp@/%LAUNCHER_TEST_UNSET%/y";
    QTest::newRow("one variable") << "%LAUNCHER_TEST_ROOT%/game"
                                  << "@tmp@/root/game";
    QTest::newRow("two variables") << "%LAUNCHER_TEST_ROOT%/%LAUNCHER_TEST_NAME%"
                                   << "@tmp@/root/a-rather-long-name";
    QTest::newRow("unset before a set variable") << "%LAUNCHER_TEST_UNSET%%LAUNCHER_TEST_ROOT%"
                                                 << "%LAUNCHER_TEST_UNSET%@tmp@/root";
    QTest::newRow("variable naming a variable") << "%LAUNCHER_TEST_NESTED%/x"
                                                << "@tmp@/root/nested/x";
    QTest::newRow("variable naming itself ends") << "%LAUNCHER_TEST_SELF%" << QString();
    QTest::newRow("placeholders") << "{appData}/{companyName}/{applicationName}"
                                  << "@appData@/Brindlewood Works/Hollowmere PTR";
    QTest::newRow("placeholders are case-sensitive") << "@tmp@/{CompanyName}/{applicationname}"
                                                     << "@tmp@/{CompanyName}/{applicationname}";
    QTest::newRow("placeholder inside a variable") << "%LAUNCHER_TEST_PLACEHOLDER%/x"
                                                   << "@appData@/x";
}

void TestSettings::expandPath()
{
    QFETCH(QString, path);
    QFETCH(QString, expected);

    const QString scratch = m_files.filePath(QStringLiteral("expand"));
    qputenv("LAUNCHER_TEST_ROOT", QString(scratch + QStringLiteral("/root")).toUtf8());
    qputenv("LAUNCHER_TEST_NAME", "a-rather-long-name");
    qputenv("LAUNCHER_TEST_NESTED", "%LAUNCHER_TEST_ROOT%/nested");
    qputenv("LAUNCHER_TEST_SELF", "x%LAUNCHER_TEST_SELF%");
    qputenv("LAUNCHER_TEST_PLACEHOLDER", "{appData}");
    qunsetenv("LAUNCHER_TEST_UNSET");

    const Settings settings(QStringLiteral(":/resources/settings_hollowmere_ptr.json"), nullptr);
    const QString appData = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    const auto substitute = [&](QString text) {
        return text.replace(QLatin1String("@tmp@"), scratch).replace(QLatin1String("@appData@"), appData);
    };

    const QString result = settings.expandPath(substitute(path));
    if (expected.isEmpty()) {
        // It must come back at all, with the variable still unexpanded.
        QVERIFY(result.contains(QLatin1String("%LAUNCHER_TEST_SELF%")));
        QVERIFY(result.startsWith(QLatin1String("xxxx")));
    } else {
        QCOMPARE(result, native(substitute(expected)));
    }
}

void TestSettings::expandPathCreatesParent()
{
    const Settings settings(QStringLiteral(":/resources/settings_hollowmere_ptr.json"), nullptr);
    const QString path = m_files.filePath(QStringLiteral("made/by/expand/game"));
    QCOMPARE(settings.expandPath(path), native(path));
    QVERIFY(QDir(m_files.filePath(QStringLiteral("made/by/expand"))).exists());
    QVERIFY(!QDir(path).exists());
}

void TestSettings::defaultInstallPath()
{
    const Settings settings(QStringLiteral(":/resources/settings_ashfallow.json"), nullptr);
    // The template names the company and the game itself, right below the
    // data folder, so they must not appear twice.
    const QString dataHome = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    QCOMPARE(settings.defaultInstallPath(), native(dataHome + QStringLiteral("/Brindlewood Works/Ashfallow")));
    QVERIFY(QDir(dataHome + QStringLiteral("/Brindlewood Works")).exists());
}

void TestSettings::installPath()
{
    Settings settings(nullptr);
    QSignalSpy changed(&settings, &Settings::installPathChanged);

    // The default is computed on each call and never written back.
    QCOMPARE(settings.installPath(), settings.defaultInstallPath());
    QVERIFY(!QSettings().contains(QStringLiteral("installPath")));

    // Nothing stored compares as the empty string, not as the default.
    settings.setInstallPath(QString());
    QCOMPARE(changed.count(), 0);
    settings.setInstallPath(settings.defaultInstallPath());
    QCOMPARE(changed.count(), 1);
    QVERIFY(QSettings().contains(QStringLiteral("installPath")));

    // Stored as given, normalised on reading; other separators are a change.
    settings.setInstallPath(QStringLiteral("/games//hollowmere/"));
    QCOMPARE(changed.count(), 2);
    QCOMPARE(changed.last().first().toString(), QStringLiteral("/games//hollowmere/"));
    QCOMPARE(settings.installPath(), native(QStringLiteral("/games/hollowmere")));
    settings.setInstallPath(QStringLiteral("/games//hollowmere/"));
    QCOMPARE(changed.count(), 2);
    settings.setInstallPath(QStringLiteral("/games/hollowmere"));
    QCOMPARE(changed.count(), 3);
}

void TestSettings::changeRules_data()
{
    QTest::addColumn<QString>("setter");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("emitted");

    QTest::newRow("language en while nothing is stored") << "language" << QVariant(QStringLiteral("en")) << false;
    QTest::newRow("language pt while nothing is stored") << "language" << QVariant(QStringLiteral("pt")) << true;
    QTest::newRow("auto update on while nothing is stored") << "autoUpdate" << QVariant(true) << false;
    QTest::newRow("auto update off while nothing is stored") << "autoUpdate" << QVariant(false) << true;
}

void TestSettings::changeRules()
{
    QFETCH(QString, setter);
    QFETCH(QVariant, value);
    QFETCH(bool, emitted);

    Settings settings(nullptr);
    QSignalSpy languageChanged(&settings, &Settings::languageChanged);
    QSignalSpy autoUpdateChanged(&settings, &Settings::autoUpdateChanged);
    if (setter == QLatin1String("language"))
        settings.setLanguage(value.toString());
    else
        settings.setAutoUpdate(value.toBool());

    QCOMPARE(languageChanged.count() + autoUpdateChanged.count(), emitted ? 1 : 0);
    QCOMPARE(QSettings().contains(setter), emitted);

    // The same value again is no change.
    if (setter == QLatin1String("language"))
        settings.setLanguage(value.toString());
    else
        settings.setAutoUpdate(value.toBool());
    QCOMPARE(languageChanged.count() + autoUpdateChanged.count(), emitted ? 1 : 0);
}

void TestSettings::alwaysWrittenKeys()
{
    Settings settings(nullptr);
    QCOMPARE(settings.animationsEnabled(), false);
    QCOMPARE(settings.hasSelectedInstallPath(), false);
    QCOMPARE(settings.ignoreLegacyInstallationMigration(), false);

    // These write even an unchanged value, so the key exists afterwards.
    settings.setAnimationsEnabled(false);
    settings.setHasSelectedInstallPath(false);
    settings.setIgnoreLegacyInstallationMigration(false);
    const QSettings store;
    QVERIFY(store.contains(QStringLiteral("animationsEnabled")));
    QVERIFY(store.contains(QStringLiteral("hasSelectedInstallPath")));
    QVERIFY(store.contains(QStringLiteral("ignoreLegacyInstallationMigration")));

    settings.setAnimationsEnabled(true);
    settings.setHasSelectedInstallPath(true);
    settings.setIgnoreLegacyInstallationMigration(true);
    QVERIFY(settings.animationsEnabled());
    QVERIFY(settings.hasSelectedInstallPath());
    QVERIFY(settings.ignoreLegacyInstallationMigration());
}

void TestSettings::language()
{
    const QString systemLanguage = QLocale::system().name().section(QLatin1Char('_'), 0, 0);
    {
        Settings settings(nullptr);
        QCOMPARE(settings.language(), systemLanguage);
        settings.setLanguage(QStringLiteral("pt"));
        QCOMPARE(settings.language(), QStringLiteral("pt"));
    }
    // Written through to the store, so the next run reads it.
    const Settings settings(nullptr);
    QCOMPARE(settings.language(), QStringLiteral("pt"));
}

void TestSettings::lastUpdateCheck()
{
    {
        Settings settings(nullptr);
        QSignalSpy changed(&settings, &Settings::lastUpdateCheckChanged);
        QVERIFY(settings.lastUpdateCheck().isEmpty());
        settings.setLastUpdateCheck(QStringLiteral("2026-11-23T10:00:00"));
        settings.setLastUpdateCheck(QStringLiteral("2026-11-23T10:00:00"));
        QCOMPARE(changed.count(), 1);
        QCOMPARE(settings.lastUpdateCheck(), QStringLiteral("2026-11-23T10:00:00"));
    }
    // Kept in memory only.
    const Settings settings(nullptr);
    QVERIFY(settings.lastUpdateCheck().isEmpty());
}

QTEST_GUILESS_MAIN(TestSettings)
#include "tst_config_settings.moc"
