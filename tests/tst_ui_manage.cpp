#include <QtTest>
#include <QtWidgets>

#include "support/testwindow.h"
#include "support/virtualdisplay.h"
#include "ui/announcementwidget.h"
#include "ui/circularprogresswidget.h"

// The manage button against a real engine and the loopback server: what it shows, and what a press does.
class TestManage : public QObject, public TestWindow
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY2(m_display.isRunning(), "Xvfb is needed for the launch tests");
        configure({{"applicationName", "Manage Test Game"},
                   {"executableName", "managegame.bin"},
                   {"newsUrl", server.baseUrl().toString().append("/api/news")},
                   {"legacyDir", "Legacy/manage"}});
        // The games started show their windows on the X server, not off screen.
        qputenv("QT_QPA_PLATFORM", "xcb");
        qputenv("SAMPLE_GAME_TITLE", "Manage Test Game");
        qputenv("SAMPLE_GAME_SECONDS", "3");
    }

    void init()
    {
        server.reset();
        open();
        // Beside the install directory, so that no row sees another's legacy installation.
        qputenv("APPDATA", QString(install->path() + "-appdata").toUtf8());
        QDir(Updater::stagingDirectory()).removeRecursively();
        window->engine().setToolProgram(QStringLiteral(LAUNCHER_BINARY));
    }

    void manage_data()
    {
        // The start-up's setup, or "launch:" and the game's program; the button's texts, dots left out; what was said.
        QTest::addColumn<QString>("setup");
        QTest::addColumn<QStringList>("texts");
        QTest::addColumn<QStringList>("prompts");
        const QString checking = "Checking for updates", legacy = "question:Legacy Installation Detected";
        const auto row = [](const char *name, const QString &setup, const QStringList &texts, const QStringList &said) {
            QTest::newRow(name) << setup << texts << said;
        };
        row("patch server down", "failing", {checking, "Install"}, {"Download Error: Network error occurred"});
        row("staged files", "staged", {checking, "Play"}, {}); // staged before a crash: installed, then checked again
        row("legacy installation, migration declined", "declined", {checking, "Install"}, {legacy});
        row("legacy installation migrated", "migrated", {checking, "Update"},
            {legacy, "information:Migration Complete"});
        // Each launch ends in a new check, which overwrites "Play" at once.
        row("game shows its window", "launch:" SAMPLE_GAME_BINARY, {"Launching", "Playing", checking}, {});
        row("no window in time", "launch:" + QStandardPaths::findExecutable("sleep"), {"Launching", checking},
            {"Launch Failed: Failed to launch the game. Please verify your installation."});
        row("executable missing", "launch:", {checking},
            {"Launch Failed: Game executable not found. Please verify your installation."});
    }

    void manage()
    {
        QFETCH(QString, setup);
        QFETCH(QStringList, texts);
        QFETCH(QStringList, prompts);
        const bool launching = setup.startsWith("launch:");
        const int legacy = setup == "declined" ? 1 : setup == "migrated" ? 2 : 0;
        serve({{"/data.bin", "game data"}});
        // The check that follows a game stays on "checking".
        if (launching || setup == "failing")
            server.setFault("/game/checksums.txt.gz",
                            {launching ? TestHttpServer::Fault::Stall : TestHttpServer::Fault::Status, 500});
        server.setContent("/api/news", R"([{"title": "A"}, {"title": "B"}])");
        QVERIFY(setup != "staged" || TestFiles::write(Updater::stagingDirectory() + "/data.bin", "game data"));
        // As a download leaves it: a plain data file.
        const QString program = launching ? setup.mid(7) : QString();
        QVERIFY(program.isEmpty() || TestFiles::write(install->filePath("managegame.bin"), TestFiles::read(program)));
        QVERIFY(!legacy || TestFiles::write(qEnvironmentVariable("APPDATA") + "/Legacy/manage/.initcomplete", {}));
        answer = legacy == 2 ? UserPrompt::Answer::Yes : UserPrompt::Answer::No;
        QStringList seen;
        QString atFirstPaint;
        const auto note = [this, &seen] {
            const QString text = button()->text().remove('.');
            if (!text.isEmpty() && (seen.isEmpty() || seen.last() != text))
                seen << text;
        };
        QImage picture; // the first paint, the start signal, shows the still picture and a button of no state

        connect(window.get(), &MainWindow::backgroundSetupComplete, this, [&] {
            atFirstPaint = state() + button()->text() + QString::number(button()->isEnabled());
            picture = window->grab().toImage();
        });
        QSignalSpy checks(&window->engine(), &Updater::checkingForUpdates);
        connect(&window->engine(), &Updater::checkingForUpdates, this, note);
        if (launching) {
            window->setLaunchTimeLimit(3000);
            window->setButtonState("play");
            // Any mouse button launches; a press while the game runs is swallowed.
            QTest::mousePress(button(), Qt::RightButton);
            QTest::mousePress(button(), Qt::LeftButton);
            note();
        } else {
            connect(window.get(), &MainWindow::backgroundSetupComplete, window.get(),
                    &MainWindow::onBackgroundSetupComplete);
            window->show();
        }
        QTimer watcher;
        connect(&watcher, &QTimer::timeout, this, note);
        watcher.start(50);
        QTRY_VERIFY_WITH_TIMEOUT(seen.size() >= texts.size() && seen.last() == texts.last(), 15000);
        QTest::qWait(200);
        QCOMPARE(seen, texts);
        QCOMPARE(told + boxes(), prompts);
        if (launching)
            return;
        QCOMPARE(state(), texts.last().toLower());
        QVERIFY(button()->isEnabled() && !button()->icon().isNull() && !circle()->isVisibleTo(window.get())
                && !circle()->isBusy());
        QCOMPARE(checks.count(), setup == "staged" ? 2 : 1);
        QCOMPARE(atFirstPaint, "0");
        QVERIFY(qGray(picture.pixel(1010, 150)) > 150 && qAlpha(picture.pixel(0, 0)) == 0
                && qAlpha(picture.pixel(picture.width() / 2, picture.height() / 3)) == 255);
        QCOMPARE(Settings::instance()->ignoreLegacyInstallationMigration(), legacy == 1);
        const auto title = [this](int i) {
            const AnnouncementWidget *card = window->findChildren<AnnouncementWidget *>().value(i);
            return card && card->isVisible() ? card->findChild<QLabel *>("announcementTitleLabel")->text() : QString();
        };
        QTRY_COMPARE(title(0) + title(1), "AB");
    }

    // A check is busy, its text fitted without the lifted line and its dots growing to the right without a new fit;
    // a run puts circle and text side by side, the text lifted above the speed line; a repeated state is ignored.
    void states()
    {
        auto *speed = window->findChild<QLabel *>("speedLabel");
        Updater &engine = window->engine();
        emit engine.checkingForUpdates();
        const QString style = button()->styleSheet();
        QVERIFY(!button()->isEnabled() && circle()->isVisibleTo(window.get()) && circle()->isBusy());
        QVERIFY(style.contains("padding-left") && !style.contains("padding-bottom"));
        QTRY_COMPARE(button()->text(), "Checking for updates..");
        QCOMPARE(button()->styleSheet(), style);
        QSignalSpy states(window.get(), &MainWindow::buttonStateChanged);
        emit engine.stateChanged("installing");
        emit engine.stateChanged("installing");
        QVERIFY(states.count() == 1 && button()->text() == "Installing" && !button()->isEnabled()
                && !circle()->isBusy());
        QVERIFY(circle()->isVisibleTo(window.get()) && circle()->x() > 0 && circle()->x() < button()->width() / 2);
        QVERIFY(button()->styleSheet().contains("padding-bottom") && speed->isVisibleTo(window.get())
                && speed->text().isEmpty());
        emit engine.overallProgress(1, 4);
        emit engine.downloadProgress(2 * 1048576);
        QVERIFY(circle()->value() > 0 && speed->text() == "2.0 MB/s");
        emit engine.updateComplete();
        QVERIFY(state() == "play" && !circle()->isVisibleTo(window.get()) && !speed->isVisibleTo(window.get()));
        // A new run shows no old speed, its first sample at once, later ones a second apart.
        window->setButtonState("updating");
        QVERIFY(speed->isVisibleTo(window.get()) && speed->text().isEmpty());
        emit engine.downloadProgress(3 * 1048576);
        emit engine.downloadProgress(4096);
        QCOMPARE(speed->text(), "3.0 MB/s");
    }

private:
    CircularProgressWidget *circle() const { return window->findChild<CircularProgressWidget *>(); }
    VirtualDisplay m_display;
};

QTEST_MAIN(TestManage)
#include "tst_ui_manage.moc"
