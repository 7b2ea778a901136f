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
    void versions_data()
    {
        QTest::addColumn<QString>("version");
        QTest::addColumn<QByteArray>("body"); // null: not found
        QTest::addColumn<bool>("answerYes");
        QTest::addColumn<bool>("success");
        QTest::addColumn<QStringList>("prompts");
        const auto row = [](const char *name, const char *version, const QByteArray &body, bool answerYes, bool success,
                            const QStringList &prompts = {}) {
            QTest::newRow(name) << QString(version) << body << answerYes << success << prompts;
        };

        const QString asked = QStringLiteral("Launcher Update: Install new version now?");
        const QStringList refused {asked, QStringLiteral("Launcher Update: Update cancelled. Exiting now.")};
        // A dev build asks nothing of the server.
        row("dev build", "dev", R"({"version": "0.0.2"})", true, true);
        row("same version", "0.0.1", R"({"version": "0.0.1", "url": "u"})", false, true);
        // No updater program lies beside the test: say so and carry on.
        row("newer, accepted, no updater", "0.0.1", R"({"version": "0.0.2", "url": "u"})", true, true,
            {asked,
             "Launcher Update: The launcher updater could not be started ("
                 + QDir::toNativeSeparators(QCoreApplication::applicationDirPath() + "/updater.exe")
                 + "). This launcher will carry on with its current version."});
        row("older, refused", "0.0.1", R"({"version": "0.0.0"})", false, false, refused);
        row("same in another form", "0.0.1", R"({"version": "0.0.1.0"})", false, false, refused);
        row("not JSON", "0.0.1", "<html>", false, true);
        row("version is a number", "0.0.1", R"({"version": 2})", false, true);
        row("request fails", "0.0.1", QByteArray(), false, false,
            {"Launch Error: Unable to connect to the patching server."});
    }

    void versions()
    {
        QFETCH(QString, version);
        QFETCH(QByteArray, body);
        QFETCH(bool, answerYes);
        QFETCH(bool, success);
        QFETCH(QStringList, prompts);

        QStringList shown;
        const auto tell = [&shown, answerYes](const QString &title, const QString &text, QWidget *) {
            shown << title + ": " + text;
            return answerYes ? UserPrompt::Answer::Yes : UserPrompt::Answer::No;
        };
        UserPrompt::setHandlers({tell, {}, {}, tell});
        const QString url = m_server.baseUrl().toString() + "/launcher.json";
        Settings settings(
            TestFiles::writeConfiguration(m_scratch.path(), {{"version", version}, {"launcherUpdateUrl", url}}),
            nullptr);
        m_server.reset();
        m_server.setContent(QStringLiteral("/launcher.json"), body, body.isNull() ? 404 : 200);

        Updater updater;
        QSignalSpy complete(&updater, &Updater::launcherVersionCheckComplete);
        updater.checkLauncherVersion();
        QTRY_COMPARE(complete.count(), 1);
        QCOMPARE(shown, prompts);
        QCOMPARE(complete.first().first().toBool(), success);
        if (version == QLatin1String("dev"))
            QTest::qWait(100);
        QCOMPARE(m_server.requests().isEmpty(), version == QLatin1String("dev"));
    }

private:
    IsolatedSettings m_isolation;
    QTemporaryDir m_scratch;
    TestHttpServer m_server;
};

QTEST_GUILESS_MAIN(TestLauncherVersion)
#include "tst_updater_launcher.moc"
