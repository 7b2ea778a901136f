#include <QBuffer>
#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
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
#include "support/testhttpserver.h"
#include "support/virtualdisplay.h"
#include "ui/announcementwidget.h"
#include "ui/circularprogresswidget.h"
#include "ui/mainwindow.h"
#include "updater/crc32.h"
#include "updater/userprompt.h"

// The window driven by a real engine against the loopback server: what the
// manage button shows in each state, and what a press on it does.
class TestManage : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void outcomes_data();
    void outcomes();
    void installRun();
    void stagedFilesAreInstalledThenRechecked();
    void checkingAnimation();
    void repeatedStateChangesNothing();
    void launch_data();
    void launch();
    void speedLabelStartsEmptyEachRun();
    void firstPaintShowsPictureAndNeutralButton();
    void newsFillsBothCards();
    void legacyQuestion_data();
    void legacyQuestion();

private:
    void serve(const QMap<QString, QByteArray> &files);
    QPushButton *button() const;
    QString state() const;
    QMessageBox *errorBox() const;

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
}

void TestManage::initTestCase()
{
    QVERIFY2(m_display.isRunning(), "Xvfb is needed for the launch tests");
    const QJsonObject configuration {
        {QStringLiteral("version"), QStringLiteral("dev")},
        {QStringLiteral("applicationName"), GameTitle},
        {QStringLiteral("companyName"), QStringLiteral("Brindlewood Works")},
        {QStringLiteral("manifestFile"), QStringLiteral("checksums.txt.gz")},
        {QStringLiteral("updateUrl"), QString(m_server.baseUrl().toString() + QStringLiteral("/game"))},
        {QStringLiteral("executableName"), ExecutableName},
        {QStringLiteral("logoImage"), QStringLiteral("hm_logo.png")},
        {QStringLiteral("newsUrl"), QString(m_server.baseUrl().toString() + QStringLiteral("/api/news"))},
        {QStringLiteral("legacyDir"), QStringLiteral("Legacy/manage")},
    };
    m_configuration = m_scratch.filePath(QStringLiteral("settings.json"));
    QFile file(m_configuration);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(QJsonDocument(configuration).toJson());
}

void TestManage::init()
{
    m_server.reset();
    m_install = std::make_unique<QTemporaryDir>(m_scratch.filePath(QStringLiteral("install-XXXXXX")));
    {
        // Stored before the window exists: a change of path starts a check.
        Settings settings(m_configuration, nullptr);
        settings.setInstallPath(m_install->path());
    }
    m_window = std::make_unique<MainWindow>(m_configuration);
    QDir(Updater::stagingDirectory()).removeRecursively();
    m_window->engine().setToolProgram(QStringLiteral(LAUNCHER_BINARY));
    // The first video frame would start the whole start-up flow; these tests
    // drive the engine themselves.
    disconnect(m_window.get(), &MainWindow::backgroundSetupComplete, m_window.get(),
               &MainWindow::onBackgroundSetupComplete);
}

void TestManage::cleanup()
{
    m_window.reset();
}

void TestManage::serve(const QMap<QString, QByteArray> &files)
{
    QJsonObject table;
    for (auto it = files.cbegin(); it != files.cend(); ++it) {
        m_server.setContent(QStringLiteral("/game") + it.key(), it.value());
        table.insert(it.key(),
                     QJsonObject {{QStringLiteral("checksum"),
                                   Crc32::toDigest(Crc32::update(0, it.value().constData(), it.value().size()))},
                                  {QStringLiteral("size"), it.value().size()}});
    }
    m_server.setContent(QStringLiteral("/game/checksums.txt.gz"),
                        qCompress(QJsonDocument(QJsonObject {{QStringLiteral("files"), table}}).toJson()));
}

QPushButton *TestManage::button() const
{
    return m_window->findChild<QPushButton *>(QStringLiteral("manageButton"));
}

QString TestManage::state() const
{
    return button()->property("state").toString();
}

QMessageBox *TestManage::errorBox() const
{
    return m_window->findChild<QMessageBox *>();
}

void TestManage::outcomes_data()
{
    QTest::addColumn<bool>("installed");
    QTest::addColumn<bool>("manifestFails");
    QTest::addColumn<QString>("expectedState");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("error");

    QTest::newRow("nothing installed") << false << false << "install"
                                       << "Install" << QString();
    QTest::newRow("up to date") << true << false << "play"
                                << "Play" << QString();
    QTest::newRow("patch needed") << true << true << "update"
                                  << "Update" << QString();
    QTest::newRow("patch server down") << false << true << "install"
                                       << "Install"
                                       << "Network error occurred";
}

void TestManage::outcomes()
{
    QFETCH(bool, installed);
    QFETCH(bool, manifestFails);
    QFETCH(QString, expectedState);
    QFETCH(QString, text);
    QFETCH(QString, error);

    const QByteArray content("game data");
    serve({{QStringLiteral("/data.bin"), content}});
    if (installed) {
        QFile marker(m_install->filePath(QStringLiteral(".initcomplete")));
        QVERIFY(marker.open(QIODevice::WriteOnly));
        marker.close();
        QFile data(m_install->filePath(QStringLiteral("data.bin")));
        QVERIFY(data.open(QIODevice::WriteOnly));
        // "patch needed": the file on disk differs from the published one.
        data.write(manifestFails ? QByteArray("old data") : content);
    }
    if (manifestFails && !installed)
        m_server.setFault(QStringLiteral("/game/checksums.txt.gz"), {TestHttpServer::Fault::Status, 500, 0, 0});

    // Nothing is claimed before the first check has settled.
    QCOMPARE(state(), QString());
    QCOMPARE(button()->text(), QString());
    QVERIFY(!button()->isEnabled());
    auto *circle = m_window->findChild<CircularProgressWidget *>();
    m_window->engine().checkForUpdates();
    QCOMPARE(state(), QStringLiteral("checking"));
    QVERIFY(!button()->isEnabled());
    QVERIFY(circle->isVisibleTo(m_window.get()));
    QVERIFY(circle->isBusy());

    QTRY_COMPARE(state(), expectedState);
    QCOMPARE(button()->text(), text);
    QVERIFY(button()->isEnabled());
    QVERIFY(!button()->icon().isNull());
    QVERIFY(!circle->isVisibleTo(m_window.get()));
    QVERIFY(!circle->isBusy());
    if (error.isEmpty()) {
        QVERIFY(!errorBox());
    } else {
        QVERIFY(errorBox());
        QCOMPARE(errorBox()->windowTitle(), QStringLiteral("Download Error"));
        QCOMPARE(errorBox()->text(), error);
    }
}

void TestManage::installRun()
{
    QByteArray big(2 * 1024 * 1024, 'b');
    serve({{QStringLiteral("/big.bin"), big}, {QStringLiteral("/small.bin"), QByteArray("small")}});
    m_server.setFault(QStringLiteral("/game/big.bin"), {TestHttpServer::Fault::Trickle, 0, 256 * 1024, 150});
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));

    m_window->engine().checkForUpdates();
    QTRY_COMPARE(state(), QStringLiteral("install"));
    QVERIFY(button()->isEnabled());

    QSignalSpy states(m_window.get(), &MainWindow::buttonStateChanged);
    QTest::mousePress(button(), Qt::LeftButton);
    QTRY_COMPARE(state(), QStringLiteral("installing"));
    QCOMPARE(button()->text(), QStringLiteral("Installing"));
    QVERIFY(!button()->isEnabled());
    auto *circle = m_window->findChild<CircularProgressWidget *>();
    auto *speed = m_window->findChild<QLabel *>(QStringLiteral("speedLabel"));
    QVERIFY(circle->isVisible());
    QVERIFY(speed->isVisible());
    // Nothing until the run's first speed sample.
    QCOMPARE(speed->text(), QString());
    // Circle and text sit side by side, centred together in the button.
    QVERIFY(button()->styleSheet().contains(QLatin1String("padding-left")));
    QVERIFY(circle->x() > 0 && circle->x() < button()->width() / 2);
    QTRY_VERIFY(circle->value() > 0);
    QTRY_VERIFY(speed->text().endsWith(QLatin1String("B/s")));

    QTRY_VERIFY_WITH_TIMEOUT(state() == QLatin1String("play"), 20000);
    QCOMPARE(button()->text(), QStringLiteral("Play"));
    QVERIFY(!circle->isVisible());
    QVERIFY(!speed->isVisible());
    QCOMPARE(states.first().first().toString(), QStringLiteral("installing"));
    QCOMPARE(states.last().first().toString(), QStringLiteral("play"));
    QVERIFY(QFile::exists(m_install->filePath(QStringLiteral(".initcomplete"))));
    QCOMPARE(QFileInfo(m_install->filePath(QStringLiteral("big.bin"))).size(), big.size());
}

void TestManage::stagedFilesAreInstalledThenRechecked()
{
    const QByteArray content("staged before a crash");
    serve({{QStringLiteral("/a.bin"), content}});
    const QString staging = Updater::stagingDirectory();
    QDir().mkpath(staging);
    QFile staged(staging + QStringLiteral("/a.bin"));
    QVERIFY(staged.open(QIODevice::WriteOnly));
    staged.write(content);
    staged.close();

    QSignalSpy checking(&m_window->engine(), &Updater::checkingForUpdates);
    m_window->engine().checkForUpdates();
    // The staged file is accepted, installed, and a fresh check follows.
    QTRY_COMPARE(QFile::exists(m_install->filePath(QStringLiteral("a.bin"))), true);
    QTRY_COMPARE_WITH_TIMEOUT(checking.count(), 2, 3000);
    QTRY_COMPARE(state(), QStringLiteral("play"));
}

void TestManage::checkingAnimation()
{
    serve({{QStringLiteral("/a.bin"), QByteArray("a")}});
    m_server.setFault(QStringLiteral("/game/checksums.txt.gz"), {TestHttpServer::Fault::Stall, 0, 0, 0});
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

void TestManage::repeatedStateChangesNothing()
{
    QSignalSpy states(m_window.get(), &MainWindow::buttonStateChanged);
    m_window->setButtonState(QStringLiteral("updating"));
    auto *speed = m_window->findChild<QLabel *>(QStringLiteral("speedLabel"));
    QVERIFY(speed->isVisibleTo(m_window.get()));
    button()->setText(QStringLiteral("marker"));
    m_window->setButtonState(QStringLiteral("updating"));
    QCOMPARE(states.count(), 1);
    QCOMPARE(button()->text(), QStringLiteral("marker"));
    QVERIFY(speed->isVisibleTo(m_window.get()));
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
                                       << "Failed to launch the game. Please verify your installation.";
    QTest::newRow("executable missing") << QString() << QStringList {"Checking for updates"}
                                        << "Game executable not found. Please verify your installation.";
}

void TestManage::launch()
{
    QFETCH(QString, program);
    QFETCH(QStringList, texts);
    QFETCH(QString, error);

    serve({});
    // The check that follows the game stays on "checking".
    m_server.setFault(QStringLiteral("/game/checksums.txt.gz"), {TestHttpServer::Fault::Stall, 0, 0, 0});
    if (!program.isEmpty()) {
        // As a download leaves it: a plain data file.
        QVERIFY(QFile::copy(program, m_install->filePath(ExecutableName)));
        QFile::setPermissions(m_install->filePath(ExecutableName), QFile::ReadOwner | QFile::WriteOwner);
    }
    qputenv("SAMPLE_GAME_TITLE", GameTitle.toUtf8());
    // The game must show its window on the X server, not off screen.
    const QByteArray platform = qgetenv("QT_QPA_PLATFORM");
    qputenv("QT_QPA_PLATFORM", "xcb");
    const auto restore = qScopeGuard([platform] { qputenv("QT_QPA_PLATFORM", platform); });
    qputenv("SAMPLE_GAME_SECONDS", "3");
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
    if (error.isEmpty()) {
        QVERIFY(!errorBox());
    } else {
        QVERIFY(errorBox());
        QCOMPARE(errorBox()->windowTitle(), QStringLiteral("Launch Failed"));
        QCOMPARE(errorBox()->text(), error);
    }
}

void TestManage::speedLabelStartsEmptyEachRun()
{
    auto *speed = m_window->findChild<QLabel *>(QStringLiteral("speedLabel"));
    m_window->setButtonState(QStringLiteral("updating"));
    QCOMPARE(speed->text(), QString());
    emit m_window->engine().downloadProgress(2048);
    QCOMPARE(speed->text(), QStringLiteral("2.0 KB/s"));
    // Within the second: held, as the label changes at most once a second.
    emit m_window->engine().downloadProgress(4096);
    QCOMPARE(speed->text(), QStringLiteral("2.0 KB/s"));

    // The next run does not start with the last one's speed, and its first
    // sample shows at once.
    m_window->setButtonState(QStringLiteral("play"));
    m_window->setButtonState(QStringLiteral("installing"));
    QVERIFY(speed->isVisibleTo(m_window.get()));
    QCOMPARE(speed->text(), QString());
    emit m_window->engine().downloadProgress(3 * 1048576);
    QCOMPARE(speed->text(), QStringLiteral("3.0 MB/s"));
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
    QImage picture(400, 150, QImage::Format_RGB32);
    picture.fill(Qt::red);
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    picture.save(&buffer, "PNG");
    m_server.setContent(QStringLiteral("/news/red.png"), png);
    const QString image = m_server.baseUrl().toString() + QStringLiteral("/news/red.png");
    m_server.setContent(QStringLiteral("/api/news"),
                        QJsonDocument::fromJson(QString(R"([{"title": "First", "image": "%1"},
                                                            {"title": "Second", "image": "%1"},
                                                            {"title": "Third"}])")
                                                    .arg(image)
                                                    .toUtf8())
                            .toJson());

    const QList<AnnouncementWidget *> cards = m_window->findChildren<AnnouncementWidget *>();
    QCOMPARE(cards.size(), 2);
    QTRY_VERIFY(cards.at(0)->isVisibleTo(m_window.get()) && cards.at(1)->isVisibleTo(m_window.get()));
    QStringList titles;
    for (const AnnouncementWidget *card : cards)
        titles << card->findChild<QLabel *>(QStringLiteral("announcementTitleLabel"))->text();
    QCOMPARE(titles, (QStringList {"First", "Second"}));
    QTRY_VERIFY(!cards.at(0)->picture().isNull() && !cards.at(1)->picture().isNull());
    QCOMPARE(cards.at(0)->y(), m_window->height() - cards.at(0)->height() - 26);
}

void TestManage::legacyQuestion_data()
{
    QTest::addColumn<bool>("legacy");
    QTest::addColumn<bool>("answerYes");
    QTest::addColumn<QStringList>("shown");
    QTest::addColumn<bool>("migrated");

    const QString question = QStringLiteral("Legacy Installation Detected");
    QTest::newRow("no legacy installation") << false << true << QStringList() << false;
    QTest::newRow("declined") << true << false << QStringList {question} << false;
    QTest::newRow("accepted") << true << true << QStringList {question, QStringLiteral("Migration Complete")} << true;
}

void TestManage::legacyQuestion()
{
    QFETCH(bool, legacy);
    QFETCH(bool, answerYes);
    QFETCH(QStringList, shown);
    QFETCH(bool, migrated);

    const QString appData = m_scratch.filePath(QStringLiteral("appdata"));
    qputenv("APPDATA", appData.toUtf8());
    const QString legacyDirectory = appData + QStringLiteral("/Legacy/manage");
    QDir(legacyDirectory).removeRecursively();
    QDir().mkpath(legacyDirectory);
    QFile old(legacyDirectory + QStringLiteral("/old.dat"));
    QVERIFY(old.open(QIODevice::WriteOnly));
    old.close();
    if (legacy) {
        QFile marker(legacyDirectory + QStringLiteral("/.initcomplete"));
        QVERIFY(marker.open(QIODevice::WriteOnly));
    }
    Settings::instance()->setIgnoreLegacyInstallationMigration(false);

    QStringList seen;
    const auto tell = [&seen](const QString &title, const QString &, QWidget *) { seen << title; };
    UserPrompt::setHandlers({tell, tell, tell, [&seen, answerYes](const QString &title, const QString &, QWidget *) {
                                 seen << title;
                                 return answerYes ? UserPrompt::Answer::Yes : UserPrompt::Answer::No;
                             }});
    m_window->onBackgroundSetupComplete();

    QCOMPARE(seen, shown);
    QCOMPARE(QFile::exists(m_install->filePath(QStringLiteral("old.dat"))), migrated);
    // Declining is remembered, so the question does not come again.
    QCOMPARE(Settings::instance()->ignoreLegacyInstallationMigration(), legacy && !answerYes);
}

QTEST_MAIN(TestManage)
#include "tst_ui_manage.moc"
