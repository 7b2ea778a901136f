#include <QImage>
#include <QtTest>

#include "isolatedsettings.h"
#include "support/testfiles.h"
#include "support/virtualdisplay.h"

// A player's first install and a later update, end to end: nginx serves a published sample game, the real
// launcher runs on an X server, and the test presses the manage button with real X input and reads the screen.
class TestEndToEnd : public QObject
{
    Q_OBJECT

private slots:
    void installThenUpdate()
    {
        QVERIFY2(m_display.isRunning(), "Xvfb could not be started");
        qputenv("QT_QPA_PLATFORM", "xcb");
        QVERIFY(run(SOURCE_DIR "/demo/make-sample-game.sh",
                    {m_served, SAMPLE_GAME_BINARY, "hollowmere_dx.exe", "Hollowmere E2E", "12"}));
        publish();
        const QString configuration = m_root.filePath("nginx.conf");
        QVERIFY(TestFiles::write(configuration,
                                 TestFiles::read(SOURCE_DIR "/demo/nginx.conf.in")
                                     .replace("@ROOT@", m_root.path().toUtf8())
                                     .replace("@PORT@", QByteArray::number(E2E_PORT))
                                     .replace("@RATE@", "0")));
        m_nginx.start(QStandardPaths::findExecutable("nginx", {"/usr/sbin"}),
                      {"-p", m_root.path(), "-c", configuration});
        // Written once nginx listens.
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(m_root.filePath("nginx.pid")), 10000);
        // A player who has chosen where the game goes, so no first-run question, and turned the animations on.
        QVERIFY(TestFiles::write(m_isolation.home() + "/config/Brindlewood Works/Hollowmere E2E Launcher.conf",
                                 "[General]\nhasSelectedInstallPath=true\ninstallPath=" + m_install.toUtf8()
                                     + "\nanimationsEnabled=true\n"));
        const auto pressManageButton = [this] {
            const QPoint centre = m_origin + QPoint(30 + 195, 685 + 38);
            return run("xdotool",
                       {"mousemove", QString::number(centre.x()), QString::number(centre.y()), "click", "1"});
        };

        startLauncher();
        QTRY_VERIFY2_WITH_TIMEOUT(look() == "install", "the button never offered to install", 30000);
        // The background plays: the sky between the logo and the bottom bar, clear of every widget, changes.
        const QRect sky(m_origin + QPoint(320, 200), QSize(1000, 440));
        const QImage before = screenshot().copy(sky);
        QTest::qWait(1000);
        QVERIFY(screenshot().copy(sky) != before);
        QVERIFY(pressManageButton());
        QTRY_VERIFY2_WITH_TIMEOUT(look() == "play" && QFile::exists(m_install + "/.initcomplete"),
                                  "the install did not finish on Play", 60000);
        // Every published file arrived intact, and nothing else.
        QVERIFY(run("diff", {"-r", "--exclude=checksums.txt.gz", "--exclude=.initcomplete", m_served, m_install}));

        // A patch: one file changes on the server, and the next start offers it.
        const QString changed = "/scripts/file_3.dat";
        QVERIFY(TestFiles::write(m_served + changed, QByteArray(70000, 'p')));
        publish();
        startLauncher();
        QTRY_VERIFY2_WITH_TIMEOUT(look() == "update", "the button never offered the update", 30000);
        QVERIFY(pressManageButton());
        QTRY_VERIFY2_WITH_TIMEOUT(look() == "play" && TestFiles::read(m_install + changed) == QByteArray(70000, 'p'),
                                  "the update did not finish on Play", 30000);
    }

private:
    bool run(const QString &program, const QStringList &arguments, QByteArray *output = nullptr)
    {
        QProcess process;
        process.start(program, arguments);
        const bool finished = process.waitForFinished(120000);
        if (output)
            *output = process.readAllStandardOutput().trimmed();
        return finished && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    }

    void publish() { QVERIFY(run(PUBLISH_BINARY, {"--output", m_served + "/checksums.txt.gz", m_served})); }

    void startLauncher()
    {
        m_launcher.kill();
        m_launcher.waitForFinished();
        m_launcher.start(LAUNCHER_BINARY, {});
        QByteArray shell;
        QVERIFY(run("xdotool",
                    {"search", "--sync", "--name", "Hollowmere E2E Launcher", "getwindowgeometry", "--shell"}, &shell));
        const auto at = QRegularExpression("X=(\\d+)\\s+Y=(\\d+)").match(QString::fromLatin1(shell));
        m_origin = QPoint(at.captured(1).toInt(), at.captured(2).toInt());
    }

    QImage screenshot()
    {
        // The virtual display is this process's own DISPLAY.
        QByteArray png;
        run("import", {"-window", "root", "png:-"}, &png);
        return QImage::fromData(png, "PNG");
    }

    // "install", "update", "checking" or "play" as the manage button looks.
    QString look()
    {
        // Spots on the button's frame: one clear of text and icon, one where the busy circle sits while checking.
        const QImage image = screenshot();
        const QColor frame = image.pixelColor(m_origin + QPoint(30 + 20, 685 + 60));
        const QColor circle = image.pixelColor(m_origin + QPoint(30 + 120, 685 + 38));
        const auto isBlue = [](const QColor &c) { return c.blue() > c.red() + 30 && c.blue() > 80; };
        if (frame.green() > frame.red() + 30 && frame.green() > frame.blue() + 20)
            return "play";
        if (frame.red() > frame.blue() + 60 && frame.green() > frame.blue() + 20)
            return "install";
        if (isBlue(frame))
            return isBlue(circle) ? "update" : "checking";
        return QString();
    }

    // The launcher started from here inherits this home.
    IsolatedSettings m_isolation;
    VirtualDisplay m_display;
    QTemporaryDir m_root;
    QString m_served = m_root.filePath("www/hollowmere_e2e");
    QString m_install = m_root.filePath("install");
    QProcess m_nginx;
    QProcess m_launcher;
    QPoint m_origin;
};

QTEST_GUILESS_MAIN(TestEndToEnd)
#include "tst_e2e_install.moc"
