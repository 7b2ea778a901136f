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
    void expandPath_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("expected"); // empty: a variable naming itself
        const std::pair<const char *, QByteArray> environment[] {
            {"TST_ROOT", "root"},       {"TST_NAME", "a-long-name"}, {"TST_NESTED", "%TST_PLACE%/nested"},
            {"TST_PLACE", "{appData}"}, {"TST_SELF", "x%TST_SELF%"}, {"ProgramFiles(x86)", m_files.path().toUtf8()}};
        for (const auto &[name, value] : environment)
            qputenv(name, value);
        qunsetenv("TST_UNSET");
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
        const QString result
            = Settings(QStringLiteral(":/resources/settings_hollowmere_ptr.json"), nullptr).expandPath(path);
        QVERIFY2(expected.isEmpty() ? result.startsWith("xxxx") && result.endsWith("%TST_SELF%")
                                    : result == native(expected),
                 qPrintable(result));
    }

    // The compiled-in configuration, and what the user's choices leave behind.
    void storedValues()
    {
        {
            // Values of the wrong type read as empty, not as their text.
            const Settings broken(
                TestFiles::writeConfiguration(m_files.path(), {{"version", 2}, {"updateUrl", QJsonArray()}}), nullptr);
            QVERIFY(broken.version().isEmpty() && broken.updateUrl().isEmpty());
        }
        Settings settings(nullptr);
        QCOMPARE(QCoreApplication::organizationName() + '|' + QCoreApplication::applicationName(),
                 settings.companyName() + '|' + settings.applicationName() + " Launcher");
        QVERIFY(!settings.version().isEmpty() && !settings.updateUrl().isEmpty() && !settings.categories().isEmpty());
        // Company and game once below the data folder; only the parent is made.
        const QString company = dataHome() + '/' + settings.companyName();
        QCOMPARE(settings.installPath(), native(company + '/' + settings.applicationName()));
        QVERIFY(QDir(company).exists() && !QDir(settings.installPath()).exists());
        // Only a change is told: a missing path compares as "", which the main window must not be sent.
        QSignalSpy moved(&settings, &Settings::installPathChanged);
        for (const QString &path :
             {QString(), QStringLiteral("/games//hollowmere/"), QStringLiteral("/games//hollowmere/")})
            settings.setInstallPath(path);
        QCOMPARE(QList<QVariantList>(moved), QList<QVariantList>({{"/games//hollowmere/"}}));
        // The language's default compares as "en", so that choosing English stores nothing.
        settings.setLanguage(QStringLiteral("en"));
        QVERIFY(!QSettings().contains("language"));
        settings.setLanguage(QStringLiteral("pt"));
        settings.setAutoUpdate(false);
        settings.setLastUpdateCheck(QStringLiteral("2026-11-23T10:00:00"));
        // Normalised on reading.
        QCOMPARE(settings.installPath(), native(QStringLiteral("/games/hollowmere")));
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
