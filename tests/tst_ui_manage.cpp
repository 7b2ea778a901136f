#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
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

namespace
{
    const QString GameTitle = QStringLiteral("Manage Test Game");
    const QString ManifestPath = QStringLiteral("/game/checksums.txt.gz");
    const TestHttpServer::Fault Stall {TestHttpServer::Fault::Stall}, ServerError {TestHttpServer::Fault::Status, 500};
}

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
                                                        {{"applicationName", GameTitle},
                                                         {"updateUrl", QString(server + "/game")},
                                                         {"executableName", "managegame.bin"},
                                                         {"logoImage", "hm_logo.png"},
                                                         {"newsUrl", QString(server + "/api/news")},
                                                         {"legacyDir", "Legacy/manage"}});
        // The games started show their windows on the X server, not off screen.
        qputenv("QT_QPA_PLATFORM", "xcb");
        qputenv("SAMPLE_GAME_TITLE", GameTitle.toUtf8());
        qputenv("SAMPLE_GAME_SECONDS", "3");
    }

    void init()
    {
        m_server.reset();
        m_install = std::make_unique<QTemporaryDir>(m_scratch.filePath(QStringLiteral("install-XXXXXX")));
        {
            // Stored before the window exists, as a change of path starts a check; chosen, so no first-run question.
            Settings settings(m_configuration, nullptr);
            settings.setInstallPath(m_install->path());
            settings.setHasSelectedInstallPath(true);
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
        QTest::addColumn<QByteArray>("onDisk"); // data.bin in the install directory, empty: none
        QTest::addColumn<bool>("staged"); // the published data.bin waits in the staging directory
        QTest::addColumn<int>("legacy"); // 0: no legacy installation, 1: one, its migration declined, 2: accepted
        QTest::addColumn<QString>("program"); // copied in as the game and launched from "play"; null: start-up
        QTest::addColumn<QStringList>("texts"); // the button's, dots left out
        QTest::addColumn<QString>("error"); // a check's comes from a failing manifest

        const QString checking = QStringLiteral("Checking for updates");
        const QByteArray game("game data");
        const auto start = [&](const char *name, const QByteArray &onDisk, const char *result,
                               const QString &error = {}, bool staged = false, int legacy = 0) {
            QTest::newRow(name) << onDisk << staged << legacy << QString() << QStringList {checking, result} << error;
        };
        start("nothing installed", {}, "Install");
        start("up to date", game, "Play");
        start("patch needed", "old", "Update");
        start("patch server down", {}, "Install", "Download Error: Network error occurred");
        start("staged files", {}, "Play", {}, true); // staged before a crash: installed, then checked again
        start("legacy installation, migration declined", {}, "Install", {}, false, 1);
        start("legacy installation migrated", {}, "Update", {}, false, 2);
        // Each launch ends in a new check, which overwrites "Play" at once.
        const auto launch
            = [&](const char *name, const QString &program, QStringList texts, const QString &error = {}) {
                  QTest::newRow(name) << game << false << 0 << program << (texts << checking) << error;
              };
        launch("game shows its window", SAMPLE_GAME_BINARY, {"Launching", "Playing"});
        launch("no window in time", QStandardPaths::findExecutable("sleep"), {"Launching"},
               "Launch Failed: Failed to launch the game. Please verify your installation.");
        launch("executable missing", "", {},
               "Launch Failed: Game executable not found. Please verify your installation.");
    }

    void manage()
    {
        QFETCH(QByteArray, onDisk);
        QFETCH(bool, staged);
        QFETCH(int, legacy);
        QFETCH(QString, program);
        QFETCH(QStringList, texts);
        QFETCH(QString, error);

        const QByteArray content("game data");
        const bool launching = !program.isNull();
        // The check that follows a game stays on "checking".
        serve({{"/data.bin", content}}, launching ? Stall : error.isEmpty() ? TestHttpServer::Fault() : ServerError);
        m_server.setContent(QStringLiteral("/api/news"), R"([{"title": "A"}, {"title": "B"}, {"title": "C"}])");
        QVERIFY(onDisk.isEmpty()
                || (TestFiles::write(m_install->filePath(QStringLiteral(".initcomplete")), {})
                    && TestFiles::write(m_install->filePath(QStringLiteral("data.bin")), onDisk)));
        QVERIFY(!staged || TestFiles::write(Updater::stagingDirectory() + QStringLiteral("/data.bin"), content));
        // As a download leaves it: a plain data file.
        const QString executable = m_install->filePath(QStringLiteral("managegame.bin"));
        QVERIFY(program.isEmpty()
                || (QFile::copy(program, executable)
                    && QFile::setPermissions(executable, QFile::ReadOwner | QFile::WriteOwner)));
        qputenv("APPDATA", m_scratch.filePath(QStringLiteral("appdata")).toUtf8());
        QDir legacyDirectory(m_scratch.filePath(QStringLiteral("appdata/Legacy/manage")));
        QVERIFY(legacyDirectory.removeRecursively() && TestFiles::write(legacyDirectory.filePath("old.dat"), {}));
        QVERIFY(!legacy || TestFiles::write(legacyDirectory.filePath(".initcomplete"), {}));
        Settings::instance()->setIgnoreLegacyInstallationMigration(false);
        QStringList prompts;
        const auto tell = [&prompts](const QString &title, const QString &, QWidget *) { prompts << title; };
        UserPrompt::setHandlers({tell, tell, tell, [&](const QString &title, const QString &, QWidget *) {
                                     prompts << title;
                                     return legacy == 2 ? UserPrompt::Answer::Yes : UserPrompt::Answer::No;
                                 }});

        QStringList seen;
        const auto note = [this, &seen] {
            const QString text = button()->text().remove(QLatin1Char('.'));
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
            m_window->setButtonState(QStringLiteral("play"));
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
        QCOMPARE(errorBox(), error);
        QVERIFY(busyWhileChecking);
        if (launching) {
            // The check's text is fitted without the lifted line; its dots grow to the right without a new fit.
            QCOMPARE(state(), QStringLiteral("checking"));
            const QString style = button()->styleSheet();
            QVERIFY(style.contains(QLatin1String("padding-left")) && !style.contains(QLatin1String("padding-bottom")));
            QTRY_COMPARE(button()->text(), QStringLiteral("Checking for updates.."));
            QCOMPARE(button()->styleSheet(), style);
            return;
        }
        QCOMPARE(state(), texts.last().toLower());
        QVERIFY(button()->isEnabled() && !button()->icon().isNull());
        QVERIFY(!circle()->isVisibleTo(m_window.get()) && !circle()->isBusy());
        QVERIFY(!staged || TestFiles::read(m_install->filePath(QStringLiteral("data.bin"))) == content);
        // A "dev" launcher skips its own version check and goes on to the first check.
        QCOMPARE(checks.count(), staged ? 2 : 1);
        QCOMPARE(atFirstPaint, (QStringList {QString(), QString(), QStringLiteral("0")}));
        // The moon of the still picture, and corners cut round.
        QVERIFY(qGray(picture.pixel(1010, 150)) > 150 && qAlpha(picture.pixel(0, 0)) == 0
                && qAlpha(picture.pixel(picture.width() / 2, picture.height() / 3)) == 255);
        const QString question = QStringLiteral("Legacy Installation Detected");
        QCOMPARE(prompts, (QStringList {question, "Migration Complete"}.mid(0, legacy)));
        QCOMPARE(QFile::exists(m_install->filePath(QStringLiteral("old.dat"))), legacy == 2);
        // Declining is remembered, so the question does not come again.
        QCOMPARE(Settings::instance()->ignoreLegacyInstallationMigration(), legacy == 1);
        // The news fill both cards, which stay hidden until then.
        const auto title = [this](int i) {
            const AnnouncementWidget *card = m_window->findChildren<AnnouncementWidget *>().value(i);
            return card && card->isVisible() ? card->findChild<QLabel *>("announcementTitleLabel")->text() : QString();
        };
        QTRY_COMPARE(title(0) + title(1), QStringLiteral("AB"));
    }

    void installRun()
    {
        serve({{"/big.bin", QByteArray(2 * 1024 * 1024, 'b')}, {"/small.bin", "small"}});
        m_server.setFault(QStringLiteral("/game/big.bin"), {TestHttpServer::Fault::Trickle, 0, 256 * 1024, 150});
        auto *speed = m_window->findChild<QLabel *>(QStringLiteral("speedLabel"));
        m_window->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
        m_window->engine().checkForUpdates();
        QTRY_COMPARE(state(), QStringLiteral("install"));

        QTest::mousePress(button(), Qt::LeftButton);
        QTRY_COMPARE(state(), QStringLiteral("installing"));
        QVERIFY(button()->text() == QLatin1String("Installing") && !button()->isEnabled());
        // Circle and text sit side by side, centred together, the text lifted above the speed line.
        QVERIFY(circle()->isVisible() && circle()->x() > 0 && circle()->x() < button()->width() / 2);
        QVERIFY(speed->isVisible() && button()->styleSheet().contains(QLatin1String("padding-bottom")));
        QTRY_VERIFY(circle()->value() > 0);
        QTRY_VERIFY(speed->text().endsWith(QLatin1String("B/s")));
        QTRY_VERIFY_WITH_TIMEOUT(state() == QLatin1String("play"), 20000);
        QVERIFY(!circle()->isVisible() && !speed->isVisible());

        // A new run shows no old speed, its first sample at once, later ones once a second; a repeated state is
        // ignored.
        QSignalSpy states(m_window.get(), &MainWindow::buttonStateChanged);
        m_window->setButtonState(QStringLiteral("updating"));
        m_window->setButtonState(QStringLiteral("updating"));
        QVERIFY(states.count() == 1 && speed->isVisible() && speed->text().isEmpty());
        emit m_window->engine().downloadProgress(3 * 1048576);
        emit m_window->engine().downloadProgress(4096);
        QCOMPARE(speed->text(), QStringLiteral("3.0 MB/s"));
    }

private:
    QPushButton *button() const { return m_window->findChild<QPushButton *>(QStringLiteral("manageButton")); }
    QString state() const { return button()->property("state").toString(); }
    CircularProgressWidget *circle() const { return m_window->findChild<CircularProgressWidget *>(); }
    void serve(const QMap<QString, QByteArray> &files, const TestHttpServer::Fault &manifestFault = {})
    {
        for (auto it = files.cbegin(); it != files.cend(); ++it)
            m_server.setContent(QStringLiteral("/game") + it.key(), it.value());
        m_server.setContent(ManifestPath, TestManifest::body(files));
        m_server.setFault(ManifestPath, manifestFault);
    }
    // "title: text" of the window's message box, if one is open.
    QString errorBox() const
    {
        const auto *box = m_window->findChild<QMessageBox *>();
        return box ? box->windowTitle() + QStringLiteral(": ") + box->text() : QString();
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
