#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

#include "config/settings.h"
#include "isolatedsettings.h"
#include "support/testfiles.h"
#include "support/testhttpserver.h"
#include "support/testmanifest.h"
#include "support/virtualdisplay.h"
#include "ui/announcementwidget.h"
#include "ui/circularprogresswidget.h"
#include "ui/mainwindow.h"
#include "updater/userprompt.h"

// The window driven by a real engine against the loopback server: what the
// manage button shows in each state, and what a press on it does.
class TestManage : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup() { m_window.reset(); }

    void outcomes_data();
    void outcomes();
    void installRun();
    void checkingAnimation();
    void launch_data();
    void launch();
    void firstPaintShowsPictureAndNeutralButton();
    void newsFillsBothCards();
    void legacyQuestion_data();
    void legacyQuestion();

private:
    void serve(const QMap<QString, QByteArray> &files);
    QPushButton *button() const { return m_window->findChild<QPushButton *>(QStringLiteral("manageButton")); }
    QString state() const { return button()->property("state").toString(); }
    template <typename T> T *child(const char *name = nullptr) const
    {
        return m_window->findChild<T *>(name ? QLatin1String(name) : QString());
    }
    // "title: text" of the window's message box, if one is open.
    QString errorBox() const;

    IsolatedSettings m_isolation;
    VirtualDisplay m_display;
    QTemporaryDir m_scratch;
    TestHttpServer m_server;
    QString m_configuration;
    std::unique_ptr<QTemporaryDir> m_install;
    std::unique_ptr<MainWindow> m_window;
};

namespace
{
    const QString GameTitle = QStringLiteral("Manage Test Game");
    const QString ExecutableName = QStringLiteral("managegame.bin");
    const QString ManifestPath = QStringLiteral("/game/checksums.txt.gz");
}

void TestManage::initTestCase()
{
    QVERIFY2(m_display.isRunning(), "Xvfb is needed for the launch tests");
    const QString server = m_server.baseUrl().toString();
    m_configuration
        = TestFiles::writeConfiguration(m_scratch.path(),
                                        {{QStringLiteral("applicationName"), GameTitle},
                                         {QStringLiteral("updateUrl"), QString(server + QStringLiteral("/game"))},
                                         {QStringLiteral("executableName"), ExecutableName},
                                         {QStringLiteral("logoImage"), QStringLiteral("hm_logo.png")},
                                         {QStringLiteral("newsUrl"), QString(server + QStringLiteral("/api/news"))},
                                         {QStringLiteral("legacyDir"), QStringLiteral("Legacy/manage")}});
}

void TestManage::init()
{
    m_server.reset();
    m_install = std::make_unique<QTemporaryDir>(m_scratch.filePath(QStringLiteral("install-XXXXXX")));
    {
        // Stored before the window exists: a change of path starts a check.
        // The player has chosen it, so no first-run question comes.
        Settings settings(m_configuration, nullptr);
        settings.setInstallPath(m_install->path());
        settings.setHasSelectedInstallPath(true);
    }
    m_window = std::make_unique<MainWindow>(m_configuration);
    QDir(Updater::stagingDirectory()).removeRecursively();
    m_window->engine().setToolProgram(QStringLiteral(LAUNCHER_BINARY));
    // The first video frame would start the whole start-up flow; these tests
    // drive the engine themselves.
    disconnect(m_window.get(), &MainWindow::backgroundSetupComplete, m_window.get(),
               &MainWindow::onBackgroundSetupComplete);
}

void TestManage::serve(const QMap<QString, QByteArray> &files)
{
    for (auto it = files.cbegin(); it != files.cend(); ++it)
        m_server.setContent(QStringLiteral("/game") + it.key(), it.value());
    m_server.setContent(ManifestPath, TestManifest::body(files));
}

QString TestManage::errorBox() const
{
    const auto *box = m_window->findChild<QMessageBox *>();
    return box ? box->windowTitle() + QStringLiteral(": ") + box->text() : QString();
}

void TestManage::outcomes_data()
{
    QTest::addColumn<QByteArray>("onDisk"); // data.bin in the install directory, empty: none
    QTest::addColumn<bool>("staged"); // the published data.bin waits in the staging directory
    QTest::addColumn<int>("status"); // of the manifest
    QTest::addColumn<QString>("expectedState");
    QTest::addColumn<QString>("error");

    QTest::newRow("nothing installed") << QByteArray() << false << 200 << "install" << QString();
    QTest::newRow("up to date") << QByteArray("game data") << false << 200 << "play" << QString();
    QTest::newRow("patch needed") << QByteArray("old data") << false << 200 << "update" << QString();
    QTest::newRow("patch server down") << QByteArray() << false << 500 << "install"
                                       << "Download Error: Network error occurred";
    // Staged before a crash: installed, then checked again.
    QTest::newRow("staged files") << QByteArray() << true << 200 << "play" << QString();
}

void TestManage::outcomes()
{
    QFETCH(QByteArray, onDisk);
    QFETCH(bool, staged);
    QFETCH(int, status);
    QFETCH(QString, expectedState);
    QFETCH(QString, error);

    const QByteArray content("game data");
    serve({{QStringLiteral("/data.bin"), content}});
    if (status != 200)
        m_server.setFault(ManifestPath, {TestHttpServer::Fault::Status, status});
    if (!onDisk.isEmpty()) {
        QVERIFY(TestFiles::write(m_install->filePath(QStringLiteral(".initcomplete")), {}));
        QVERIFY(TestFiles::write(m_install->filePath(QStringLiteral("data.bin")), onDisk));
    }
    if (staged)
        QVERIFY(TestFiles::write(Updater::stagingDirectory() + QStringLiteral("/data.bin"), content));

    QSignalSpy checking(&m_window->engine(), &Updater::checkingForUpdates);
    auto *circle = m_window->findChild<CircularProgressWidget *>();
    m_window->engine().checkForUpdates();
    QCOMPARE(state(), QStringLiteral("checking"));
    QVERIFY(!button()->isEnabled());
    QVERIFY(circle->isVisibleTo(m_window.get()) && circle->isBusy());

    QTRY_COMPARE(state(), expectedState);
    QCOMPARE(button()->text(), expectedState.at(0).toUpper() + expectedState.mid(1));
    QVERIFY(button()->isEnabled() && !button()->icon().isNull());
    QVERIFY(!circle->isVisibleTo(m_window.get()) && !circle->isBusy());
    QCOMPARE(errorBox(), error);
    QCOMPARE(checking.count(), staged ? 2 : 1);
    if (staged)
        QCOMPARE(TestFiles::read(m_install->filePath(QStringLiteral("data.bin"))), content);
}

void TestManage::installRun()
{
    const QByteArray big(2 * 1024 * 1024, 'b');
    serve({{QStringLiteral("/big.bin"), big}, {QStringLiteral("/small.bin"), QByteArray("small")}});
    m_server.setFault(QStringLiteral("/game/big.bin"), {TestHttpServer::Fault::Trickle, 0, 256 * 1024, 150});
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    m_window->engine().checkForUpdates();
    QTRY_COMPARE(state(), QStringLiteral("install"));

    QTest::mousePress(button(), Qt::LeftButton);
    QTRY_COMPARE(state(), QStringLiteral("installing"));
    QCOMPARE(button()->text(), QStringLiteral("Installing"));
    QVERIFY(!button()->isEnabled());
    auto *circle = m_window->findChild<CircularProgressWidget *>();
    auto *speed = m_window->findChild<QLabel *>(QStringLiteral("speedLabel"));
    QVERIFY(circle->isVisible() && speed->isVisible());
    // Circle and text sit side by side, centred together, the text lifted
    // above the speed line.
    QVERIFY(button()->styleSheet().contains(QLatin1String("padding-bottom")));
    QVERIFY(circle->x() > 0 && circle->x() < button()->width() / 2);
    QTRY_VERIFY(circle->value() > 0);
    QTRY_VERIFY(speed->text().endsWith(QLatin1String("B/s")));

    QTRY_VERIFY_WITH_TIMEOUT(state() == QLatin1String("play"), 20000);
    QCOMPARE(button()->text(), QStringLiteral("Play"));
    QVERIFY(!circle->isVisible() && !speed->isVisible());
    QVERIFY(QFile::exists(m_install->filePath(QStringLiteral(".initcomplete"))));
    QCOMPARE(QFileInfo(m_install->filePath(QStringLiteral("big.bin"))).size(), big.size());

    // The next run does not start with the last one's speed; its first
    // sample shows at once, and the label changes at most once a second.
    QSignalSpy states(m_window.get(), &MainWindow::buttonStateChanged);
    m_window->setButtonState(QStringLiteral("updating"));
    QVERIFY(speed->isVisible());
    QCOMPARE(speed->text(), QString());
    emit m_window->engine().downloadProgress(3 * 1048576);
    QCOMPARE(speed->text(), QStringLiteral("3.0 MB/s"));
    emit m_window->engine().downloadProgress(4096);
    QCOMPARE(speed->text(), QStringLiteral("3.0 MB/s"));
    // The same state again changes nothing.
    button()->setText(QStringLiteral("marker"));
    m_window->setButtonState(QStringLiteral("updating"));
    QCOMPARE(states.count(), 1);
    QCOMPARE(button()->text(), QStringLiteral("marker"));
    QVERIFY(speed->isVisible());
}

void TestManage::checkingAnimation()
{
    serve({{QStringLiteral("/a.bin"), QByteArray("a")}});
    m_server.setFault(ManifestPath, {TestHttpServer::Fault::Stall});
    m_window->engine().checkForUpdates();
    QCOMPARE(button()->text(), QStringLiteral("Checking for updates"));
    const QString style = button()->styleSheet();
    QVERIFY(style.startsWith(QLatin1String("font-size: 14px; text-align: left; padding-left: ")));
    QVERIFY(!style.contains(QLatin1String("padding-bottom")));
    QTRY_COMPARE(button()->text(), QStringLiteral("Checking for updates."));
    QTRY_COMPARE(button()->text(), QStringLiteral("Checking for updates.."));
    // The dots grow to the right; the fitted style stays.
    QCOMPARE(button()->styleSheet(), style);
}

void TestManage::launch_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<QStringList>("texts");
    QTest::addColumn<QString>("error");

    // Each ends in a new check, which overwrites "Play" at once.
    QTest::newRow("game shows its window") << QStringLiteral(SAMPLE_GAME_BINARY)
                                           << QStringList {"Launching", "Playing", "Checking for updates"} << QString();
    QTest::newRow("no window in time") << QStandardPaths::findExecutable(QStringLiteral("sleep"))
                                       << QStringList {"Launching", "Checking for updates"}
                                       << "Launch Failed: Failed to launch the game. Please verify your installation.";
    QTest::newRow("executable missing") << QString() << QStringList {"Checking for updates"}
                                        << "Launch Failed: Game executable not found. Please verify your installation.";
}

void TestManage::launch()
{
    QFETCH(QString, program);
    QFETCH(QStringList, texts);
    QFETCH(QString, error);

    serve({});
    // The check that follows the game stays on "checking".
    m_server.setFault(ManifestPath, {TestHttpServer::Fault::Stall});
    if (!program.isEmpty()) {
        // As a download leaves it: a plain data file.
        QVERIFY(QFile::copy(program, m_install->filePath(ExecutableName)));
        QFile::setPermissions(m_install->filePath(ExecutableName), QFile::ReadOwner | QFile::WriteOwner);
    }
    qputenv("SAMPLE_GAME_TITLE", GameTitle.toUtf8());
    qputenv("SAMPLE_GAME_SECONDS", "3");
    // The game must show its window on the X server, not off screen.
    const QByteArray platform = qgetenv("QT_QPA_PLATFORM");
    qputenv("QT_QPA_PLATFORM", "xcb");
    const auto restore = qScopeGuard([platform] { qputenv("QT_QPA_PLATFORM", platform); });
    m_window->setLaunchTimeLimit(3000);
    m_window->setButtonState(QStringLiteral("play"));

    QStringList seen;
    QTimer watcher;
    connect(&watcher, &QTimer::timeout, this, [this, &seen] {
        const QString text = button()->text().remove(QLatin1Char('.'));
        if (seen.isEmpty() || seen.last() != text)
            seen << text;
    });
    watcher.start(50);

    // Any mouse button launches; a press while the game runs is swallowed.
    QTest::mousePress(button(), Qt::RightButton);
    QTest::mousePress(button(), Qt::LeftButton);
    QTRY_VERIFY2_WITH_TIMEOUT(seen.size() >= texts.size() && seen.last() == texts.last(),
                              qPrintable(seen.join(QLatin1Char(','))), 15000);
    QTest::qWait(200);
    QCOMPARE(seen, texts);
    QCOMPARE(state(), QStringLiteral("checking"));
    QCOMPARE(errorBox(), error);
}

void TestManage::firstPaintShowsPictureAndNeutralButton()
{
    // The first paint is the start signal; at that moment the window shows
    // the still picture and a button that claims no state yet.
    QSignalSpy checking(&m_window->engine(), &Updater::checkingForUpdates);
    QStringList atFirstPaint;
    QImage picture;
    connect(m_window.get(), &MainWindow::backgroundSetupComplete, this, [&] {
        atFirstPaint << state() << button()->text() << QString::number(button()->isEnabled());
        picture = m_window->grab().toImage();
    });
    connect(m_window.get(), &MainWindow::backgroundSetupComplete, m_window.get(),
            &MainWindow::onBackgroundSetupComplete);
    m_window->show();
    QTRY_COMPARE(atFirstPaint, (QStringList {QString(), QString(), QStringLiteral("0")}));
    // A "dev" launcher skips its own version check and goes on to the first check.
    QTRY_COMPARE(checking.count(), 1);
    // The moon of the still picture, and corners cut round.
    QVERIFY(qGray(picture.pixel(1010, 150)) > 150);
    QCOMPARE(qAlpha(picture.pixel(0, 0)), 0);
    QCOMPARE(qAlpha(picture.pixel(picture.width() / 2, picture.height() / 3)), 255);
}

void TestManage::newsFillsBothCards()
{
    // The window's request goes out once the event loop runs.
    m_server.setContent(QStringLiteral("/api/news"),
                        R"([{"title": "First"}, {"title": "Second"}, {"title": "Third"}])");
    const QList<AnnouncementWidget *> cards = m_window->findChildren<AnnouncementWidget *>();
    QCOMPARE(cards.size(), 2);
    QTRY_VERIFY(cards.at(0)->isVisibleTo(m_window.get()) && cards.at(1)->isVisibleTo(m_window.get()));
    QStringList titles;
    for (const AnnouncementWidget *card : cards)
        titles << card->findChild<QLabel *>(QStringLiteral("announcementTitleLabel"))->text();
    QCOMPARE(titles, (QStringList {"First", "Second"}));
    QCOMPARE(cards.at(0)->y(), m_window->height() - cards.at(0)->height() - 26);
}

void TestManage::legacyQuestion_data()
{
    QTest::addColumn<bool>("legacy");
    QTest::addColumn<bool>("answerYes");
    QTest::addColumn<QStringList>("shown");

    const QString question = QStringLiteral("Legacy Installation Detected");
    QTest::newRow("no legacy installation") << false << true << QStringList();
    QTest::newRow("declined") << true << false << QStringList {question};
    QTest::newRow("accepted") << true << true << QStringList {question, QStringLiteral("Migration Complete")};
}

void TestManage::legacyQuestion()
{
    QFETCH(bool, legacy);
    QFETCH(bool, answerYes);
    QFETCH(QStringList, shown);

    const QString appData = m_scratch.filePath(QStringLiteral("appdata"));
    qputenv("APPDATA", appData.toUtf8());
    const QString legacyDirectory = appData + QStringLiteral("/Legacy/manage");
    QDir(legacyDirectory).removeRecursively();
    QVERIFY(TestFiles::write(legacyDirectory + QStringLiteral("/old.dat"), {}));
    if (legacy)
        QVERIFY(TestFiles::write(legacyDirectory + QStringLiteral("/.initcomplete"), {}));
    Settings::instance()->setIgnoreLegacyInstallationMigration(false);

    QStringList seen;
    const auto tell = [&seen](const QString &title, const QString &, QWidget *) { seen << title; };
    UserPrompt::setHandlers({tell, tell, tell, [&seen, answerYes](const QString &title, const QString &, QWidget *) {
                                 seen << title;
                                 return answerYes ? UserPrompt::Answer::Yes : UserPrompt::Answer::No;
                             }});
    m_window->onBackgroundSetupComplete();

    QCOMPARE(seen, shown);
    QCOMPARE(QFile::exists(m_install->filePath(QStringLiteral("old.dat"))), legacy && answerYes);
    // Declining is remembered, so the question does not come again.
    QCOMPARE(Settings::instance()->ignoreLegacyInstallationMigration(), legacy && !answerYes);
}

QTEST_MAIN(TestManage)
#include "tst_ui_manage.moc"
