#include <QtTest>
#include <QtWidgets>

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
    void initTestCase()
    {
        QVERIFY2(m_display.isRunning(), "Xvfb is needed for the launch tests");
        const QString server = m_server.baseUrl().toString();
        m_configuration = TestFiles::writeConfiguration(m_scratch.path(),
                                                        {{"applicationName", "Manage Test Game"},
                                                         {"updateUrl", QString(server + "/game")},
                                                         {"executableName", "managegame.bin"},
                                                         {"logoImage", "hm_logo.png"},
                                                         {"newsUrl", QString(server + "/api/news")},
                                                         {"legacyDir", "Legacy/manage"}});
        // The games started show their windows on the X server, not off screen.
        qputenv("QT_QPA_PLATFORM", "xcb");
        qputenv("SAMPLE_GAME_TITLE", "Manage Test Game");
        qputenv("SAMPLE_GAME_SECONDS", "3");
        qputenv("APPDATA", m_scratch.filePath("appdata").toUtf8());
    }

    void init()
    {
        m_server.reset();
        m_install = std::make_unique<QTemporaryDir>(m_scratch.filePath("install-XXXXXX"));
        {
            // Stored before the window exists, as a change of path starts a check; chosen, so no first-run question.
            Settings settings(m_configuration, nullptr);
            settings.setInstallPath(m_install->path());
            settings.setHasSelectedInstallPath(true);
            settings.setIgnoreLegacyInstallationMigration(false);
        }
        m_window = std::make_unique<MainWindow>(m_configuration);
        QDir(Updater::stagingDirectory()).removeRecursively();
        m_window->engine().setToolProgram(QStringLiteral(LAUNCHER_BINARY));
        // The first paint would start the whole start-up flow; most tests drive the engine themselves.
        disconnect(m_window.get(), &MainWindow::backgroundSetupComplete, m_window.get(),
                   &MainWindow::onBackgroundSetupComplete);
    }

    void cleanup() { m_window.reset(); }

    void manage_data()
    {
        QTest::addColumn<QString>("setup"); // the start-up flow's: what waits on disk, what the server does
        QTest::addColumn<QString>("program"); // copied in as the game and launched from "play"; null: start-up
        QTest::addColumn<QStringList>("texts"); // the button's, dots left out
        QTest::addColumn<QString>("error");

        const QString checking = QStringLiteral("Checking for updates");
        const auto start = [&](const char *name, const char *setup, const char *result, const char *error = "") {
            QTest::newRow(name) << setup << QString() << QStringList {checking, result} << error;
        };
        start("patch server down", "failing", "Install", "Download Error: Network error occurred");
        start("staged files", "staged", "Play"); // staged before a crash: installed, then checked again
        start("legacy installation, migration declined", "declined", "Install");
        start("legacy installation migrated", "migrated", "Update");
        // Each launch ends in a new check, which overwrites "Play" at once.
        const auto launch = [&](const char *name, const QString &program, QStringList texts, const char *error) {
            QTest::newRow(name) << QString() << program << (texts << checking) << error;
        };
        launch("game shows its window", SAMPLE_GAME_BINARY, {"Launching", "Playing"}, "");
        launch("no window in time", QStandardPaths::findExecutable("sleep"), {"Launching"},
               "Launch Failed: Failed to launch the game. Please verify your installation.");
        launch("executable missing", "", {},
               "Launch Failed: Game executable not found. Please verify your installation.");
    }

    void manage()
    {
        QFETCH(QString, setup);
        QFETCH(QString, program);
        QFETCH(QStringList, texts);
        QFETCH(QString, error);

        const bool launching = !program.isNull();
        const int legacy = setup == "declined" ? 1 : setup == "migrated" ? 2 : 0;
        const QByteArray content("game data");
        serve({{"/data.bin", content}});
        // The check that follows a game stays on "checking".
        m_server.setFault("/game/checksums.txt.gz",
                          {launching                ? TestHttpServer::Fault::Stall
                               : setup == "failing" ? TestHttpServer::Fault::Status
                                                    : TestHttpServer::Fault::None,
                           500});
        m_server.setContent("/api/news", R"([{"title": "A"}, {"title": "B"}, {"title": "C"}])");
        QVERIFY(setup != "staged" || TestFiles::write(Updater::stagingDirectory() + "/data.bin", content));
        // As a download leaves it: a plain data file.
        const QString executable = m_install->filePath("managegame.bin");
        QVERIFY(program.isEmpty()
                || (QFile::copy(program, executable)
                    && QFile::setPermissions(executable, QFile::ReadOwner | QFile::WriteOwner)));
        QDir legacyDirectory(m_scratch.filePath("appdata/Legacy/manage"));
        QVERIFY(legacyDirectory.removeRecursively()
                && (!legacy || TestFiles::write(legacyDirectory.filePath(".initcomplete"), {})));
        QStringList prompts;
        const auto tell = [&](const QString &title, const QString &, QWidget *) {
            prompts << title;
            return legacy == 2 ? UserPrompt::Answer::Yes : UserPrompt::Answer::No;
        };
        UserPrompt::setHandlers({tell, tell, tell, tell});

        QStringList seen;
        const auto note = [this, &seen] {
            const QString text = button()->text().remove('.');
            if (!text.isEmpty() && (seen.isEmpty() || seen.last() != text))
                seen << text;
        };
        // At the first paint, the start signal, the window shows the still picture and a button claiming no state;
        // during a check the button is busy.
        QStringList atFirstPaint;
        QImage picture;
        bool busyWhileChecking = true;
        connect(m_window.get(), &MainWindow::backgroundSetupComplete, this, [&] {
            atFirstPaint << state() << button()->text() << QString::number(button()->isEnabled());
            picture = m_window->grab().toImage();
        });
        QSignalSpy checks(&m_window->engine(), &Updater::checkingForUpdates);
        connect(&m_window->engine(), &Updater::checkingForUpdates, this, [&] {
            note();
            busyWhileChecking &= !button()->isEnabled() && circle()->isVisibleTo(m_window.get()) && circle()->isBusy();
        });
        if (launching) {
            m_window->setLaunchTimeLimit(3000);
            m_window->setButtonState("play");
            // Any mouse button launches; a press while the game runs is swallowed.
            QTest::mousePress(button(), Qt::RightButton);
            QTest::mousePress(button(), Qt::LeftButton);
            note();
        } else {
            connect(m_window.get(), &MainWindow::backgroundSetupComplete, m_window.get(),
                    &MainWindow::onBackgroundSetupComplete);
            m_window->show();
        }
        QTimer watcher;
        connect(&watcher, &QTimer::timeout, this, note);
        watcher.start(50);
        QTRY_VERIFY2_WITH_TIMEOUT(seen.size() >= texts.size() && seen.last() == texts.last(),
                                  qPrintable(seen.join(',')), 15000);
        QTest::qWait(200);
        QCOMPARE(seen, texts);
        const auto *box = m_window->findChild<QMessageBox *>();
        QCOMPARE(box ? box->windowTitle() + ": " + box->text() : QString(), error);
        QVERIFY(busyWhileChecking);
        if (launching) {
            // The check's text is fitted without the lifted line; its dots grow to the right without a new fit.
            const QString style = button()->styleSheet();
            QVERIFY(style.contains("padding-left") && !style.contains("padding-bottom"));
            QTRY_COMPARE(button()->text(), "Checking for updates..");
            QCOMPARE(button()->styleSheet(), style);
            return;
        }
        QCOMPARE(state(), texts.last().toLower());
        QVERIFY(button()->isEnabled() && !button()->icon().isNull());
        QVERIFY(!circle()->isVisibleTo(m_window.get()) && !circle()->isBusy());
        // A "dev" launcher skips its own version check and goes on to the first check.
        QCOMPARE(checks.count(), setup == "staged" ? 2 : 1);
        QCOMPARE(atFirstPaint, (QStringList {"", "", "0"}));
        // The moon of the still picture, and corners cut round.
        QVERIFY(qGray(picture.pixel(1010, 150)) > 150 && qAlpha(picture.pixel(0, 0)) == 0
                && qAlpha(picture.pixel(picture.width() / 2, picture.height() / 3)) == 255);
        QCOMPARE(prompts, (QStringList {"Legacy Installation Detected", "Migration Complete"}.mid(0, legacy)));
        // Declining is remembered, so the question does not come again.
        QCOMPARE(Settings::instance()->ignoreLegacyInstallationMigration(), legacy == 1);
        // The news fill both cards, which stay hidden until then.
        const auto title = [this](int i) {
            const AnnouncementWidget *card = m_window->findChildren<AnnouncementWidget *>().value(i);
            return card && card->isVisible() ? card->findChild<QLabel *>("announcementTitleLabel")->text() : QString();
        };
        QTRY_COMPARE(title(0) + title(1), "AB");
    }

    void installRun()
    {
        serve({{"/big.bin", QByteArray(2 * 1024 * 1024, 'b')}, {"/small.bin", "small"}});
        m_server.setFault("/game/big.bin", {TestHttpServer::Fault::Trickle, 0, 256 * 1024, 150});
        auto *speed = m_window->findChild<QLabel *>("speedLabel");
        m_window->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
        m_window->engine().checkForUpdates();
        QTRY_COMPARE(state(), "install");
        QTest::mousePress(button(), Qt::LeftButton);
        QTRY_COMPARE(state(), "installing");
        // Circle and text sit side by side, centred together, the text lifted above the speed line.
        QVERIFY(button()->text() == "Installing" && !button()->isEnabled() && speed->isVisible());
        QVERIFY(circle()->isVisible() && circle()->x() > 0 && circle()->x() < button()->width() / 2);
        QVERIFY(button()->styleSheet().contains("padding-bottom"));
        QTRY_VERIFY(circle()->value() > 0);
        QTRY_VERIFY_WITH_TIMEOUT(state() == "play", 20000);
        QVERIFY(!circle()->isVisible() && !speed->isVisible());

        // A new run shows no old speed, its first sample at once, later ones once a second; a repeated state is
        // ignored.
        QSignalSpy states(m_window.get(), &MainWindow::buttonStateChanged);
        m_window->setButtonState("updating");
        m_window->setButtonState("updating");
        QVERIFY(states.count() == 1 && speed->isVisible() && speed->text().isEmpty());
        emit m_window->engine().downloadProgress(3 * 1048576);
        emit m_window->engine().downloadProgress(4096);
        QCOMPARE(speed->text(), "3.0 MB/s");
    }

private:
    QPushButton *button() const { return m_window->findChild<QPushButton *>("manageButton"); }
    QString state() const { return button()->property("state").toString(); }
    CircularProgressWidget *circle() const { return m_window->findChild<CircularProgressWidget *>(); }
    void serve(const QMap<QString, QByteArray> &files)
    {
        for (auto it = files.cbegin(); it != files.cend(); ++it)
            m_server.setContent("/game" + it.key(), it.value());
        m_server.setContent("/game/checksums.txt.gz", TestManifest::body(files));
    }

    IsolatedSettings m_isolation;
    VirtualDisplay m_display;
    QTemporaryDir m_scratch;
    TestHttpServer m_server;
    QString m_configuration;
    std::unique_ptr<QTemporaryDir> m_install;
    std::unique_ptr<MainWindow> m_window;
};

QTEST_MAIN(TestManage)
#include "tst_ui_manage.moc"
