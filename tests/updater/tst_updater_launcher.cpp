#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

#include "config/settings.h"
#include "isolatedsettings.h"
#include "support/testhttpserver.h"
#include "updater/updater.h"
#include "updater/userprompt.h"

// The launcher's check of its own version against the launcher manifest.
class TestLauncherVersion : public QObject
{
    Q_OBJECT

private slots:
    void versions_data();
    void versions();
    void devBuildSendsNothing();

private:
    std::unique_ptr<Settings> makeSettings(const QString &version);

    IsolatedSettings m_isolation;
    QTemporaryDir m_scratch;
    TestHttpServer m_server;
};

std::unique_ptr<Settings> TestLauncherVersion::makeSettings(const QString &version)
{
    const QJsonObject configuration {
        {QStringLiteral("version"), version},
        {QStringLiteral("applicationName"), QStringLiteral("Version Test")},
        {QStringLiteral("companyName"), QStringLiteral("Brindlewood Works")},
        {QStringLiteral("manifestFile"), QStringLiteral("checksums.txt.gz")},
        {QStringLiteral("launcherUpdateUrl"),
         QString(m_server.baseUrl().toString() + QStringLiteral("/launcher.json"))},
    };
    QFile file(m_scratch.filePath(QStringLiteral("settings.json")));
    if (!file.open(QIODevice::WriteOnly))
        return nullptr;
    file.write(QJsonDocument(configuration).toJson());
    file.close();
    return std::make_unique<Settings>(file.fileName(), nullptr);
}

void TestLauncherVersion::versions_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("answerYes");
    QTest::addColumn<bool>("success");
    QTest::addColumn<QStringList>("prompts");

    const QStringList none;
    QTest::newRow("same version") << QByteArray(R"({"version": "0.0.1", "url": "u"})") << 200 << false << true << none;
    // No updater program lies beside the test: say so and carry on.
    QTest::newRow("newer, accepted, no updater")
        << QByteArray(R"({"version": "0.0.2", "url": "u"})") << 200 << true << true
        << QStringList {"Launcher Update: Install new version now?",
                        "Launcher Update: The launcher updater could not be started ("
                            + QDir::toNativeSeparators(QCoreApplication::applicationDirPath() + "/updater.exe")
                            + "). This launcher will carry on with its current version."};
    QTest::newRow("older, refused") << QByteArray(R"({"version": "0.0.0"})") << 200 << false << false
                                    << QStringList {"Launcher Update: Install new version now?",
                                                    "Launcher Update: Update cancelled. Exiting now."};
    QTest::newRow("same in another form")
        << QByteArray(R"({"version": "0.0.1.0"})") << 200 << false << false
        << QStringList {"Launcher Update: Install new version now?", "Launcher Update: Update cancelled. Exiting now."};
    QTest::newRow("not JSON") << QByteArray("<html>") << 200 << false << true << none;
    QTest::newRow("version is a number") << QByteArray(R"({"version": 2})") << 200 << false << true << none;
    QTest::newRow("request fails") << QByteArray("gone") << 404 << false << false
                                   << QStringList {"Launch Error: Unable to connect to the patching server."};
}

void TestLauncherVersion::versions()
{
    QFETCH(QByteArray, body);
    QFETCH(int, status);
    QFETCH(bool, answerYes);
    QFETCH(bool, success);
    QFETCH(QStringList, prompts);

    QStringList shown;
    UserPrompt::setHandlers({
        [&shown](const QString &title, const QString &text, QWidget *) { shown << title + QStringLiteral(": ") + text; },
        {},
        {},
        [&shown, answerYes](const QString &title, const QString &text, QWidget *) {
            shown << title + QStringLiteral(": ") + text;
            return answerYes ? UserPrompt::Answer::Yes : UserPrompt::Answer::No;
        },
    });

    const auto settings = makeSettings(QStringLiteral("0.0.1"));
    m_server.setContent(QStringLiteral("/launcher.json"), body, status);
    Updater updater;
    QSignalSpy complete(&updater, &Updater::launcherVersionCheckComplete);
    updater.checkLauncherVersion();
    QTRY_COMPARE(complete.count(), 1);
    QCOMPARE(shown, prompts);
    QCOMPARE(complete.first().first().toBool(), success);
    QVERIFY(m_server.requests().contains(QStringLiteral("/launcher.json")));
}

void TestLauncherVersion::devBuildSendsNothing()
{
    const auto settings = makeSettings(QStringLiteral("dev"));
    m_server.resetStatistics();
    Updater updater;
    QSignalSpy complete(&updater, &Updater::launcherVersionCheckComplete);
    updater.checkLauncherVersion();
    QCOMPARE(complete.count(), 1);
    QCOMPARE(complete.first().first().toBool(), true);
    QTest::qWait(100);
    QVERIFY(m_server.requests().isEmpty());
}

QTEST_GUILESS_MAIN(TestLauncherVersion)
#include "tst_updater_launcher.moc"
