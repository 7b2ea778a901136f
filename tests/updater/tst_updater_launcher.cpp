#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include "config/settings.h"
#include "isolatedsettings.h"
#include "support/testfiles.h"
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

private:
    IsolatedSettings m_isolation;
    QTemporaryDir m_scratch;
    TestHttpServer m_server;
};

void TestLauncherVersion::versions_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("answerYes");
    QTest::addColumn<bool>("success");
    QTest::addColumn<QStringList>("prompts");

    const QString ours = QStringLiteral("0.0.1");
    const QString asked = QStringLiteral("Launcher Update: Install new version now?");
    const QStringList refused {asked, QStringLiteral("Launcher Update: Update cancelled. Exiting now.")};
    // A dev build asks nothing of the server.
    QTest::newRow("dev build") << "dev" << QByteArray(R"({"version": "0.0.2"})") << 200 << true << true
                               << QStringList();
    QTest::newRow("same version") << ours << QByteArray(R"({"version": "0.0.1", "url": "u"})") << 200 << false << true
                                  << QStringList();
    // No updater program lies beside the test: say so and carry on.
    QTest::newRow("newer, accepted, no updater")
        << ours << QByteArray(R"({"version": "0.0.2", "url": "u"})") << 200 << true << true
        << QStringList {asked,
                        "Launcher Update: The launcher updater could not be started ("
                            + QDir::toNativeSeparators(QCoreApplication::applicationDirPath() + "/updater.exe")
                            + "). This launcher will carry on with its current version."};
    QTest::newRow("older, refused") << ours << QByteArray(R"({"version": "0.0.0"})") << 200 << false << false
                                    << refused;
    QTest::newRow("same in another form")
        << ours << QByteArray(R"({"version": "0.0.1.0"})") << 200 << false << false << refused;
    QTest::newRow("not JSON") << ours << QByteArray("<html>") << 200 << false << true << QStringList();
    QTest::newRow("version is a number") << ours << QByteArray(R"({"version": 2})") << 200 << false << true
                                         << QStringList();
    QTest::newRow("request fails") << ours << QByteArray("gone") << 404 << false << false
                                   << QStringList {"Launch Error: Unable to connect to the patching server."};
}

void TestLauncherVersion::versions()
{
    QFETCH(QString, version);
    QFETCH(QByteArray, body);
    QFETCH(int, status);
    QFETCH(bool, answerYes);
    QFETCH(bool, success);
    QFETCH(QStringList, prompts);

    QStringList shown;
    const auto tell = [&shown](const QString &title, const QString &text, QWidget *) { shown << title + ": " + text; };
    UserPrompt::setHandlers({tell, {}, {}, [tell, answerYes](const QString &title, const QString &text, QWidget *) {
                                 tell(title, text, nullptr);
                                 return answerYes ? UserPrompt::Answer::Yes : UserPrompt::Answer::No;
                             }});
    Settings settings(TestFiles::writeConfiguration(m_scratch.path(),
                                                    {{QStringLiteral("version"), version},
                                                     {QStringLiteral("launcherUpdateUrl"),
                                                      QString(m_server.baseUrl().toString() + "/launcher.json")}}),
                      nullptr);
    m_server.reset();
    m_server.setContent(QStringLiteral("/launcher.json"), body, status);

    Updater updater;
    QSignalSpy complete(&updater, &Updater::launcherVersionCheckComplete);
    updater.checkLauncherVersion();
    QTRY_COMPARE(complete.count(), 1);
    QCOMPARE(shown, prompts);
    QCOMPARE(complete.first().first().toBool(), success);
    if (version == QLatin1String("dev"))
        QTest::qWait(100);
    QCOMPARE(m_server.requests().contains(QStringLiteral("/launcher.json")), version != QLatin1String("dev"));
}

QTEST_GUILESS_MAIN(TestLauncherVersion)
#include "tst_updater_launcher.moc"
