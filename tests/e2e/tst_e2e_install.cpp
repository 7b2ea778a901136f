#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

#include "support/testfiles.h"
#include "support/virtualdisplay.h"

// A player's first install and a later update, end to end: nginx serves a
// published sample game, the real launcher runs on an X server, and the test
// presses the manage button with real X input and reads the screen.
class TestEndToEnd : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase()
    {
        stopLauncher();
        m_nginx.kill();
        m_nginx.waitForFinished();
    }
    void installThenUpdate();

private:
    bool run(const QString &program, const QStringList &arguments, QByteArray *output = nullptr);
    void publish();
    void startLauncher();
    void stopLauncher();
    QImage screenshot();
    // "install", "update", "checking" or "play" as the manage button looks.
    QString look();
    bool waitForLook(const QString &wanted, int timeoutMs = 30000);
    void pressManageButton();

    VirtualDisplay m_display;
    QTemporaryDir m_root;
    QString m_served;
    QString m_install;
    QProcess m_nginx;
    QProcess m_launcher;
    QPoint m_origin;
};

bool TestEndToEnd::run(const QString &program, const QStringList &arguments, QByteArray *output)
{
    QProcess process;
    process.start(program, arguments);
    const bool finished = process.waitForFinished(120000);
    if (output)
        *output = process.readAllStandardOutput();
    return finished && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

void TestEndToEnd::initTestCase()
{
    QVERIFY2(m_display.isRunning(), "Xvfb could not be started");
    m_served = m_root.filePath(QStringLiteral("www/hollowmere_e2e"));
    m_install = m_root.filePath(QStringLiteral("install"));
    QVERIFY(run(QStringLiteral(SOURCE_DIR "/demo/make-sample-game.sh"),
                {m_served, QStringLiteral(SAMPLE_GAME_BINARY), QStringLiteral("hollowmere_dx.exe"),
                 QStringLiteral("Hollowmere E2E"), QStringLiteral("12")}));
    publish();

    const QString configuration = m_root.filePath(QStringLiteral("nginx.conf"));
    QVERIFY(TestFiles::write(configuration,
                             TestFiles::read(QStringLiteral(SOURCE_DIR "/demo/nginx.conf.in"))
                                 .replace("@ROOT@", m_root.path().toUtf8())
                                 .replace("@PORT@", QByteArray::number(E2E_PORT))
                                 .replace("@RATE@", "0")));
    m_nginx.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_nginx.start(QStandardPaths::findExecutable(QStringLiteral("nginx"), {QStringLiteral("/usr/sbin")}),
                  {QStringLiteral("-p"), m_root.path(), QStringLiteral("-c"), configuration});
    QTRY_VERIFY_WITH_TIMEOUT(([] {
                                 QTcpSocket socket;
                                 socket.connectToHost(QStringLiteral("127.0.0.1"), E2E_PORT);
                                 return socket.waitForConnected(200);
                             })(),
                             10000);

    // A player who has chosen where the game goes, so no first-run question,
    // and who has turned the animations on.
    QVERIFY(TestFiles::write(
        m_root.filePath(QStringLiteral("home/config/Brindlewood Works/Hollowmere E2E Launcher.conf")),
        "[General]\nhasSelectedInstallPath=true\ninstallPath=" + m_install.toUtf8() + "\nanimationsEnabled=true\n"));
}

void TestEndToEnd::publish()
{
    QVERIFY(run(QStringLiteral(PUBLISH_BINARY),
                {QStringLiteral("--output"), m_served + QStringLiteral("/checksums.txt.gz"), m_served}));
}

void TestEndToEnd::startLauncher()
{
    const QString home = m_root.filePath(QStringLiteral("home"));
    QDir().mkpath(home + QStringLiteral("/tmp"));
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("HOME"), home);
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/config"));
    environment.insert(QStringLiteral("XDG_DATA_HOME"), home + QStringLiteral("/data"));
    environment.insert(QStringLiteral("TMPDIR"), home + QStringLiteral("/tmp"));
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    m_launcher.setProcessEnvironment(environment);
    m_launcher.setProcessChannelMode(QProcess::ForwardedChannels);
    m_launcher.start(QStringLiteral(LAUNCHER_BINARY), {});
    QVERIFY(m_launcher.waitForStarted());

    QByteArray geometry;
    QVERIFY(
        run(QStringLiteral("xdotool"),
            {QStringLiteral("search"), QStringLiteral("--sync"), QStringLiteral("--name"),
             QStringLiteral("Hollowmere E2E Launcher"), QStringLiteral("getwindowgeometry"), QStringLiteral("--shell")},
            &geometry));
    for (const QByteArray &line : geometry.split('\n')) {
        if (line.startsWith("X="))
            m_origin.setX(line.mid(2).toInt());
        if (line.startsWith("Y="))
            m_origin.setY(line.mid(2).toInt());
    }

    // The first painted frame of the background starts the launcher's own
    // flow; until then the button shows its initial look, not a check's.
    QVERIFY2(QTest::qWaitFor([this] { return qGray(screenshot().pixel(m_origin + QPoint(1010, 150))) > 150; }, 20000),
             "the background was never painted");
}

void TestEndToEnd::stopLauncher()
{
    m_launcher.terminate();
    if (!m_launcher.waitForFinished(5000))
        m_launcher.kill();
    m_launcher.waitForFinished();
}

QImage TestEndToEnd::screenshot()
{
    // The virtual display is this process's own DISPLAY.
    QByteArray png;
    run(QStringLiteral("import"), {QStringLiteral("-window"), QStringLiteral("root"), QStringLiteral("png:-")}, &png);
    return QImage::fromData(png, "PNG");
}

QString TestEndToEnd::look()
{
    // Spots on the button's frame: one clear of text and icon, one where
    // the busy circle sits while checking.
    const QImage image = screenshot();
    const QColor frame = image.pixelColor(m_origin + QPoint(30 + 20, 685 + 60));
    const QColor circle = image.pixelColor(m_origin + QPoint(30 + 120, 685 + 38));
    const auto isBlue = [](const QColor &c) { return c.blue() > c.red() + 30 && c.blue() > 80; };
    if (frame.green() > frame.red() + 30 && frame.green() > frame.blue() + 20)
        return QStringLiteral("play");
    if (frame.red() > frame.blue() + 60 && frame.green() > frame.blue() + 20)
        return QStringLiteral("install");
    if (isBlue(frame))
        return isBlue(circle) ? QStringLiteral("update") : QStringLiteral("checking");
    return QString();
}

bool TestEndToEnd::waitForLook(const QString &wanted, int timeoutMs)
{
    return QTest::qWaitFor([this, wanted] { return look() == wanted; }, timeoutMs);
}

void TestEndToEnd::pressManageButton()
{
    const QPoint centre = m_origin + QPoint(30 + 195, 685 + 38);
    QVERIFY(run(QStringLiteral("xdotool"),
                {QStringLiteral("mousemove"), QString::number(centre.x()), QString::number(centre.y()),
                 QStringLiteral("click"), QStringLiteral("1")}));
}

void TestEndToEnd::installThenUpdate()
{
    startLauncher();
    QVERIFY2(waitForLook(QStringLiteral("install")), "the button never offered to install");
    // The background plays: sky, mountains and fog between the logo and the
    // bottom bar, clear of every widget, change within a second.
    const QRect sky(m_origin + QPoint(320, 200), QSize(1000, 440));
    const QImage before = screenshot().copy(sky);
    QTest::qWait(1000);
    QVERIFY(screenshot().copy(sky) != before);

    pressManageButton();
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(m_install + QStringLiteral("/.initcomplete")), 60000);
    QVERIFY2(waitForLook(QStringLiteral("play")), "the button did not turn to Play");
    // Every published file arrived intact.
    QDirIterator it(m_served, QDir::Files, QDirIterator::Subdirectories);
    int files = 0;
    while (it.hasNext()) {
        const QString relative = QDir(m_served).relativeFilePath(it.next());
        QVERIFY2(relative == QLatin1String("checksums.txt.gz")
                     || TestFiles::read(it.filePath()) == TestFiles::read(m_install + QLatin1Char('/') + relative),
                 qPrintable(relative));
        ++files;
    }
    QVERIFY(files > 300);
    stopLauncher();

    // A patch: one file changes on the server.
    const QString changed = QStringLiteral("/scripts/file_3.dat");
    QVERIFY(TestFiles::write(m_served + changed, QByteArray(70000, 'p')));
    publish();
    startLauncher();
    QVERIFY2(waitForLook(QStringLiteral("update")), "the button never offered the update");
    pressManageButton();
    QTRY_VERIFY_WITH_TIMEOUT(TestFiles::read(m_install + changed) == QByteArray(70000, 'p'), 30000);
    QVERIFY2(waitForLook(QStringLiteral("play")), "the button did not return to Play after the update");
}

QTEST_GUILESS_MAIN(TestEndToEnd)
#include "tst_e2e_install.moc"
