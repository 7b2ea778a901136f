#include <QtTest>

#include "config/settings.h"
#include "isolatedsettings.h"
#include "support/testfiles.h"

namespace
{
    const auto native = [](const QString &path) { return QDir::toNativeSeparators(QDir::cleanPath(path)); };
    const auto dataHome = [] { return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation); };
}

class TestSettings : public QObject
{
    Q_OBJECT
    IsolatedSettings m_isolation;
    QTemporaryDir m_files;

private slots:
    void brokenConfiguration_data()
    {
        QTest::addColumn<QByteArray>("contents"); // empty: no file at all
        QTest::newRow("missing") << QByteArray();
        QTest::newRow("not JSON") << QByteArray("{\"version\": \"1\",");
        QTest::newRow("wrong types") << QByteArray(R"({"version": 2, "updateUrl": [], "categories": {}})");
    }

    void brokenConfiguration()
    {
        QFETCH(QByteArray, contents);
        const QString path = m_files.filePath(QString::fromUtf8(QTest::currentDataTag()));
        QVERIFY(contents.isEmpty() || TestFiles::write(path, contents));
        const Settings settings(path, nullptr);
        QVERIFY(settings.version().isEmpty() && settings.updateUrl().isEmpty() && settings.categories().isEmpty());
        QCOMPARE(QCoreApplication::organizationName() + '|' + QCoreApplication::applicationName(), "| Launcher");
    }

    void expandPath_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("expected");
        const QString data = dataHome(), scratch = m_files.path();
        QTest::newRow("placeholders, case-sensitive, normalised")
            << "{appData}//{companyName}/./x/../{CompanyName}/{applicationName}/"
            << data + "/Brindlewood Works/{CompanyName}/Hollowmere PTR";
        QTest::newRow("unset stays, values shorter and longer than names")
            << scratch + "/%TST_UNSET%%TST_ROOT%/%TST_NAME%" << scratch + "/%TST_UNSET%root/a-long-name";
        QTest::newRow("Windows' name with parentheses") << "%ProgramFiles(x86)%/x" << scratch + "/x";
        QTest::newRow("variable naming a variable naming a placeholder") << "%TST_NESTED%/x" << data + "/nested/x";
        QTest::newRow("variable naming itself ends") << "%TST_SELF%" << QString();
    }

    void expandPath()
    {
        QFETCH(QString, path);
        QFETCH(QString, expected);
        const std::pair<const char *, QByteArray> environment[] {
            {"TST_ROOT", "root"},       {"TST_NAME", "a-long-name"}, {"TST_NESTED", "%TST_PLACE%/nested"},
            {"TST_PLACE", "{appData}"}, {"TST_SELF", "x%TST_SELF%"}, {"ProgramFiles(x86)", m_files.path().toUtf8()}};
        for (const auto &[name, value] : environment)
            qputenv(name, value);
        qunsetenv("TST_UNSET");
        const QString result
            = Settings(QStringLiteral(":/resources/settings_hollowmere_ptr.json"), nullptr).expandPath(path);
        QVERIFY2(expected.isEmpty() ? result.startsWith("xxxx") && result.endsWith("%TST_SELF%")
                                    : result == native(expected),
                 qPrintable(result));
    }

    // The compiled-in configuration, and what the user's choices leave behind.
    void storedValues()
    {
        Settings settings(nullptr);
        QCOMPARE(QCoreApplication::organizationName() + '|' + QCoreApplication::applicationName(),
                 settings.companyName() + '|' + settings.applicationName() + " Launcher");
        QVERIFY(!settings.version().isEmpty() && !settings.updateUrl().isEmpty() && !settings.categories().isEmpty());
        // Company and game once below the data folder; only the parent is made.
        const QString company = dataHome() + '/' + settings.companyName();
        QCOMPARE(settings.installPath(), native(company + '/' + settings.applicationName()));
        QVERIFY(QDir(company).exists() && !QDir(settings.installPath()).exists());
        QCOMPARE(settings.language(), QLocale::system().name().section('_', 0, 0));
        QStringList emitted;
        for (const auto signal :
             {&Settings::installPathChanged, &Settings::languageChanged, &Settings::lastUpdateCheckChanged})
            connect(&settings, signal, this, [&emitted](const QString &value) { emitted << value; });
        connect(&settings, &Settings::autoUpdateChanged, this, [&emitted](bool on) { emitted << QString::number(on); });
        // A missing key compares as "", "en" and on: no change.
        settings.setInstallPath(QString());
        settings.setLanguage(QStringLiteral("en"));
        settings.setAutoUpdate(true);
        for (int i = 0; i < 2; ++i) {
            settings.setInstallPath(QStringLiteral("/games//hollowmere/"));
            settings.setLanguage(QStringLiteral("pt"));
            settings.setAutoUpdate(false);
            settings.setLastUpdateCheck(QStringLiteral("2026-11-23T10:00:00"));
        }
        // Once per change; the path as given, normalised on reading, compared as stored.
        QCOMPARE(emitted, QStringList({"/games//hollowmere/", "pt", "0", "2026-11-23T10:00:00"}));
        QCOMPARE(settings.installPath(), native(QStringLiteral("/games/hollowmere")));
        settings.setInstallPath(QStringLiteral("/games/hollowmere"));
        QCOMPARE(emitted.size(), 5);
        // These write even an unchanged value; the last check is kept in memory only.
        settings.setAnimationsEnabled(false);
        settings.setHasSelectedInstallPath(false);
        settings.setIgnoreLegacyInstallationMigration(false);
        QCOMPARE(QSettings().allKeys(),
                 QStringList({"animationsEnabled", "autoUpdate", "hasSelectedInstallPath",
                              "ignoreLegacyInstallationMigration", "installPath", "language"}));
    }
};

QTEST_GUILESS_MAIN(TestSettings)
#include "tst_config_settings.moc"
