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
    void cleanupTestCase();
    void installThenUpdate();

private:
    enum class Look
    {
        Unknown,
        Install,
        Update,
        Checking,
        Play,
    };

    bool run(const QString &program, const QStringList &arguments, QByteArray *output = nullptr);
    void publish();
    void startLauncher();
    void stopLauncher();
    QImage screenshot(const QString &name);
    Look look();
    bool waitForLook(Look wanted, int timeoutMs);
    void pressManageButton();

    VirtualDisplay m_display;
    QTemporaryDir m_root;
    QString m_served;
    QString m_install;
    QProcess m_nginx;
    QProcess m_launcher;
    QPoint m_windowOrigin;
};

namespace
{
    const QString Title = QStringLiteral("Hollowmere E2E");

    // The manage button inside the window, and spots on its frame: one clear
    // of text and icon, one where the busy circle sits while checking.
    const QPoint FrameSpot(30 + 20, 685 + 60);
    const QPoint CircleSpot(30 + 120, 685 + 38);

    bool isBlue(const QColor &c)
    {
        return c.blue() > c.red() + 30 && c.blue() > 80;
    }
}

bool TestEndToEnd::run(const QString &program, const QStringList &arguments, QByteArray *output)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForFinished(120000))
        return false;
    if (output)
        *output = process.readAll();
    return process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

void TestEndToEnd::initTestCase()
{
    QVERIFY2(m_display.isRunning(), "Xvfb could not be started");
    for (const char *tool : {"nginx", "xdotool", "import"})
        QVERIFY2(!QStandardPaths::findExecutable(QLatin1String(tool)).isEmpty()
                     || QFile::exists(QStringLiteral("/usr/sbin/") + QLatin1String(tool)),
                 tool);

    QTcpSocket probe;
    probe.connectToHost(QStringLiteral("127.0.0.1"), E2E_PORT);
    QVERIFY2(!probe.waitForConnected(500), "the end-to-end port is taken by another program");

    m_served = m_root.filePath(QStringLiteral("www/hollowmere_e2e"));
    m_install = m_root.filePath(QStringLiteral("install"));
    QDir().mkpath(QStringLiteral(SCREENSHOT_DIR));
    QVERIFY(run(QStringLiteral(SOURCE_DIR "/demo/make-sample-game.sh"),
                {m_served, QStringLiteral(SAMPLE_GAME_BINARY), QStringLiteral("hollowmere_dx.exe"), Title,
                 QStringLiteral("12")}));
    publish();

    const QString configuration = m_root.filePath(QStringLiteral("nginx.conf"));
    QVERIFY(TestFiles::write(configuration,
                             TestFiles::read(QStringLiteral(SOURCE_DIR "/demo/nginx.conf.in"))
                                 .replace("@ROOT@", m_root.path().toUtf8())
                                 .replace("@PORT@", QByteArray::number(E2E_PORT))
                                 .replace("@RATE@", "0")));

    const QString nginx = QStandardPaths::findExecutable(QStringLiteral("nginx"), {QStringLiteral("/usr/sbin")});
    m_nginx.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_nginx.start(nginx, {QStringLiteral("-p"), m_root.path(), QStringLiteral("-c"), configuration});
    QVERIFY(m_nginx.waitForStarted());
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

void TestEndToEnd::cleanupTestCase()
{
    stopLauncher();
    m_nginx.terminate();
    m_nginx.waitForFinished(5000);
}

void TestEndToEnd::publish()
{
    QByteArray output;
    QVERIFY2(run(QStringLiteral(PUBLISH_BINARY),
                 {QStringLiteral("--output"), m_served + QStringLiteral("/checksums.txt.gz"), m_served}, &output),
             output.constData());
}

void TestEndToEnd::startLauncher()
{
    const QString home = m_root.filePath(QStringLiteral("home"));
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    const QList<std::pair<const char *, QString>> variables {{"HOME", home},
                                                             {"XDG_CONFIG_HOME", home + "/config"},
                                                             {"XDG_DATA_HOME", home + "/data"},
                                                             {"TMPDIR", home + "/tmp"},
                                                             {"QT_QPA_PLATFORM", QStringLiteral("xcb")},
                                                             {"DISPLAY", m_display.name()}};
    for (const auto &[name, value] : variables)
        environment.insert(QLatin1String(name), value);
    QDir().mkpath(home + QStringLiteral("/tmp"));
    m_launcher.setProcessEnvironment(environment);
    m_launcher.setProcessChannelMode(QProcess::ForwardedChannels);
    m_launcher.start(QStringLiteral(LAUNCHER_BINARY), {});
    QVERIFY(m_launcher.waitForStarted());

    QByteArray window;
    QTRY_VERIFY_WITH_TIMEOUT(
        run(QStringLiteral("xdotool"),
            {QStringLiteral("search"), QStringLiteral("--name"), Title + QStringLiteral(" Launcher")}, &window),
        15000);
    QByteArray geometry;
    QVERIFY(run(QStringLiteral("xdotool"),
                {QStringLiteral("getwindowgeometry"), QString::fromUtf8(window.split('\n').first())}, &geometry));
    const QByteArray position = geometry.mid(geometry.indexOf("Position:") + 9).trimmed().split(' ').first();
    m_windowOrigin = QPoint(position.split(',').value(0).toInt(), position.split(',').value(1).toInt());

    // The first painted frame of the background starts the launcher's own
    // flow; until then the button shows its initial look, not a check's.
    QVERIFY2(QTest::qWaitFor(
                 [this] {
                     const QImage image = screenshot(QString());
                     const QRect moon(m_windowOrigin + QPoint(960, 100), QSize(100, 100));
                     for (int y = moon.top(); y < moon.bottom(); y += 4) {
                         for (int x = moon.left(); x < moon.right(); x += 4) {
                             if (!image.isNull() && qGray(image.pixel(x, y)) > 150)
                                 return true;
                         }
                     }
                     return false;
                 },
                 20000),
             "the background was never painted");
}

void TestEndToEnd::stopLauncher()
{
    if (m_launcher.state() == QProcess::NotRunning)
        return;
    m_launcher.terminate();
    if (!m_launcher.waitForFinished(5000)) {
        m_launcher.kill();
        m_launcher.waitForFinished();
    }
}

QImage TestEndToEnd::screenshot(const QString &name)
{
    // The virtual display is this process's own DISPLAY.
    QProcess import;
    import.start(QStringLiteral("import"),
                 {QStringLiteral("-window"), QStringLiteral("root"), QStringLiteral("png:-")});
    import.waitForFinished(20000);
    const QImage image = QImage::fromData(import.readAllStandardOutput(), "PNG");
    const QString path = QStringLiteral(SCREENSHOT_DIR "/") + name + QStringLiteral(".png");
    if (!name.isEmpty() && image.save(path))
        qInfo().noquote() << "screenshot:" << path;
    return image;
}

TestEndToEnd::Look TestEndToEnd::look()
{
    const QImage image = screenshot(QString());
    if (image.isNull())
        return Look::Unknown;
    const QColor frame = image.pixelColor(m_windowOrigin + FrameSpot);
    const QColor circle = image.pixelColor(m_windowOrigin + CircleSpot);
    if (frame.green() > frame.red() + 30 && frame.green() > frame.blue() + 20)
        return Look::Play;
    if (frame.red() > frame.blue() + 60 && frame.green() > frame.blue() + 20)
        return Look::Install;
    if (isBlue(frame))
        return isBlue(circle) ? Look::Update : Look::Checking;
    return Look::Unknown;
}

bool TestEndToEnd::waitForLook(Look wanted, int timeoutMs)
{
    return QTest::qWaitFor([this, wanted] { return look() == wanted; }, timeoutMs);
}

void TestEndToEnd::pressManageButton()
{
    const QPoint centre = m_windowOrigin + QPoint(30 + 195, 685 + 38);
    QVERIFY(run(QStringLiteral("xdotool"),
                {QStringLiteral("mousemove"), QString::number(centre.x()), QString::number(centre.y()),
                 QStringLiteral("click"), QStringLiteral("1")}));
}

void TestEndToEnd::installThenUpdate()
{
    startLauncher();
    QVERIFY2(waitForLook(Look::Install, 30000), "the button never offered to install");
    const QImage before = screenshot(QStringLiteral("1-install"));
    QTest::qWait(1000);
    const QImage after = screenshot(QString());
    // The background plays: sky, mountains and fog between the logo and the
    // bottom bar, clear of every widget, change within a second.
    const QRect sky(m_windowOrigin + QPoint(320, 200), QSize(1000, 440));
    int moving = 0;
    for (int y = sky.top(); y <= sky.bottom(); ++y) {
        for (int x = sky.left(); x <= sky.right(); ++x) {
            const QRgb a = before.pixel(x, y);
            const QRgb b = after.pixel(x, y);
            moving += qAbs(qRed(a) - qRed(b)) + qAbs(qGreen(a) - qGreen(b)) + qAbs(qBlue(a) - qBlue(b)) > 12;
        }
    }
    QVERIFY2(moving > 1000, qPrintable(QStringLiteral("%1 pixels changed in a second").arg(moving)));

    pressManageButton();
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(m_install + QStringLiteral("/.initcomplete")), 60000);
    QVERIFY2(waitForLook(Look::Play, 15000), "the button did not turn to Play");
    screenshot(QStringLiteral("2-play"));

    // Every published file arrived intact.
    QDirIterator it(m_served, QDir::Files, QDirIterator::Subdirectories);
    int files = 0;
    while (it.hasNext()) {
        const QString served = it.next();
        const QString relative = QDir(m_served).relativeFilePath(served);
        if (relative == QLatin1String("checksums.txt.gz"))
            continue;
        QVERIFY2(TestFiles::read(served) == TestFiles::read(m_install + QLatin1Char('/') + relative),
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
    QVERIFY2(waitForLook(Look::Update, 30000), "the button never offered the update");
    screenshot(QStringLiteral("3-update"));
    pressManageButton();
    QTRY_VERIFY_WITH_TIMEOUT(TestFiles::read(m_install + changed) == QByteArray(70000, 'p'), 30000);
    QVERIFY2(waitForLook(Look::Play, 15000), "the button did not return to Play after the update");
    screenshot(QStringLiteral("4-updated"));
}

QTEST_GUILESS_MAIN(TestEndToEnd)
#include "tst_e2e_install.moc"
