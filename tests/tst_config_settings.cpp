#include <QCoreApplication>
#include <QDir>
#include <QSettings>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

#include "config/settings.h"
#include "isolatedsettings.h"
#include "support/testfiles.h"

class TestSettings : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void configurations_data();
    void configurations();
    void brokenConfigurations_data();
    void brokenConfigurations();
    void expandPath_data();
    void expandPath();
    void defaultInstallPath();
    void installPath();
    void changeRules_data();
    void changeRules();
    void storedAcrossRuns();

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
        QTest::newRow(product) << QStringLiteral(":/resources/settings_%1.json").arg(QLatin1String(product));
    // No file given: the one compiled in.
    QTest::newRow("compiled in") << QString();
}

// What every product file must give, whatever its values: a launcher that
// can reach its servers and draw its window from what we ship.
void TestSettings::configurations()
{
    QFETCH(QString, product);

    const auto owned
        = product.isEmpty() ? std::make_unique<Settings>(nullptr) : std::make_unique<Settings>(product, nullptr);
    const Settings &settings = *owned;
    QCOMPARE(Settings::instance(), &settings);
    QVERIFY(!settings.version().isEmpty() && !settings.applicationName().isEmpty());
    QVERIFY(!settings.executableName().isEmpty());
    QCOMPARE(settings.manifestFile(), QStringLiteral("checksums.txt.gz"));
    QVERIFY(QFile::exists(QStringLiteral(":/resources/") + settings.logoImage()));
    const QUrl updateUrl(settings.updateUrl());
    QVERIFY(updateUrl.isValid() && !settings.updateUrl().endsWith(QLatin1Char('/')));
    QCOMPARE(QUrl(settings.launcherUpdateUrl()).host(), updateUrl.host());
    QVERIFY(QUrl(settings.companyUrl()).isValid() && !settings.companyUrl().isEmpty());

    // Every row is a link with an icon we ship, or the one empty separator.
    int separators = 0;
    for (const QJsonValue &value : settings.categories()) {
        const QJsonObject category = value.toObject();
        separators += category.isEmpty();
        const QString icon = category.value(QLatin1String("icon")).toString();
        QVERIFY2(category.isEmpty()
                     || (!category.value(QLatin1String("name")).toString().isEmpty() && QFile::exists(icon)
                         && QUrl(category.value("url").toString()).isValid()),
                 qPrintable(icon));
    }
    QCOMPARE(separators, 1);

    QCOMPARE(QCoreApplication::organizationName(), settings.companyName());
    QCOMPARE(QCoreApplication::applicationName(), settings.applicationName() + QStringLiteral(" Launcher"));
    QCOMPARE(QCoreApplication::applicationVersion(), settings.version());
}

void TestSettings::brokenConfigurations_data()
{
    QTest::addColumn<QByteArray>("contents"); // empty: no file at all
    QTest::addColumn<QString>("applicationName");

    QTest::newRow("missing") << QByteArray() << QString();
    QTest::newRow("not JSON") << QByteArray("{\"version\": \"1\",") << QString();
    QTest::newRow("array at the root") << QByteArray("[{\"version\": \"1\"}]") << QString();
    QTest::newRow("wrong types") << QByteArray(R"({"version": 2, "applicationName": "Only", "categories": {}})")
                                 << QStringLiteral("Only");
}

void TestSettings::brokenConfigurations()
{
    QFETCH(QByteArray, contents);
    QFETCH(QString, applicationName);

    const QString path = m_files.filePath(QString::fromLatin1(QTest::currentDataTag()));
    QVERIFY(contents.isEmpty() || TestFiles::write(path, contents));
    const Settings settings(path, nullptr);
    QCOMPARE(settings.applicationName(), applicationName);
    QVERIFY(settings.version().isEmpty() && settings.companyName().isEmpty() && settings.updateUrl().isEmpty());
    QVERIFY(settings.categories().isEmpty());
    QVERIFY(QCoreApplication::organizationName().isEmpty());
    QCOMPARE(QCoreApplication::applicationName(), applicationName + QStringLiteral(" Launcher"));
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
        QVERIFY(result.startsWith(QLatin1String("xxxx")) && result.contains(QLatin1String("%LAUNCHER_TEST_SELF%")));
    } else {
        QCOMPARE(result, native(substitute(expected)));
    }
}

void TestSettings::defaultInstallPath()
{
    const Settings settings(QStringLiteral(":/resources/settings_ashfallow.json"), nullptr);
    // The template names the company and the game itself, right below the
    // data folder, so they must not appear twice. The parent is made ready
    // for the folder dialog, the folder itself is not.
    const QString dataHome = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    QCOMPARE(settings.defaultInstallPath(), native(dataHome + QStringLiteral("/Brindlewood Works/Ashfallow")));
    QVERIFY(QDir(dataHome + QStringLiteral("/Brindlewood Works")).exists());
    QVERIFY(!QDir(settings.defaultInstallPath()).exists());
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
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("emitted");

    // Setting the default while nothing is stored is no change.
    QTest::newRow("language en") << "language" << QVariant(QStringLiteral("en")) << false;
    QTest::newRow("language pt") << "language" << QVariant(QStringLiteral("pt")) << true;
    QTest::newRow("auto update on") << "autoUpdate" << QVariant(true) << false;
    QTest::newRow("auto update off") << "autoUpdate" << QVariant(false) << true;
    QTest::newRow("last check") << "lastUpdateCheck" << QVariant(QStringLiteral("2026-11-23T10:00:00")) << true;
}

void TestSettings::changeRules()
{
    QFETCH(QString, key);
    QFETCH(QVariant, value);
    QFETCH(bool, emitted);

    Settings settings(nullptr);
    QSignalSpy languageChanged(&settings, &Settings::languageChanged);
    QSignalSpy autoUpdateChanged(&settings, &Settings::autoUpdateChanged);
    QSignalSpy lastCheckChanged(&settings, &Settings::lastUpdateCheckChanged);
    // The same value twice is one change at most.
    for (int i = 0; i < 2; ++i) {
        if (key == QLatin1String("language"))
            settings.setLanguage(value.toString());
        else if (key == QLatin1String("autoUpdate"))
            settings.setAutoUpdate(value.toBool());
        else
            settings.setLastUpdateCheck(value.toString());
    }
    QCOMPARE(languageChanged.count() + autoUpdateChanged.count() + lastCheckChanged.count(), emitted ? 1 : 0);
    // The time of the last check is kept in memory only.
    QCOMPARE(QSettings().contains(key), emitted && key != QLatin1String("lastUpdateCheck"));
}

void TestSettings::storedAcrossRuns()
{
    QCOMPARE(Settings(nullptr).language(), QLocale::system().name().section(QLatin1Char('_'), 0, 0));
    {
        Settings settings(nullptr);
        QVERIFY(!settings.animationsEnabled() && !settings.hasSelectedInstallPath()
                && !settings.ignoreLegacyInstallationMigration());
        // These write even an unchanged value, so the key exists afterwards.
        settings.setAnimationsEnabled(false);
        settings.setHasSelectedInstallPath(false);
        settings.setIgnoreLegacyInstallationMigration(false);
        settings.setLanguage(QStringLiteral("pt"));
        settings.setLastUpdateCheck(QStringLiteral("2026-11-23T10:00:00"));
    }
    const QSettings store;
    for (const char *key : {"animationsEnabled", "hasSelectedInstallPath", "ignoreLegacyInstallationMigration"})
        QVERIFY2(store.contains(QLatin1String(key)), key);
    // The next run reads the language back; the last check starts afresh.
    const Settings settings(nullptr);
    QCOMPARE(settings.language(), QStringLiteral("pt"));
    QVERIFY(settings.lastUpdateCheck().isEmpty());
}

QTEST_GUILESS_MAIN(TestSettings)
#include "tst_config_settings.moc"
