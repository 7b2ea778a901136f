#include <QtTest>
#include <QtWidgets>

#include "config/settings.h"
#include "isolatedsettings.h"
#include "support/testfiles.h"
#include "support/testhttpserver.h"
#include "support/testmanifest.h"
#include "ui/locationdialog.h"
#include "ui/mainwindow.h"
#include "updater/userprompt.h"

// The game files location dialog on a real window, with the real relocation
// tool moving real files.
class TestLocation : public QObject
{
    Q_OBJECT

protected:
    // Notes and swallows a quit request, so that the test goes on after it.
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Quit)
            m_told << "quit";
        return event->type() == QEvent::Quit;
    }

private slots:
    void initTestCase()
    {
        m_configuration = TestFiles::writeConfiguration(m_scratch.path(),
                                                        {{"applicationName", "Location Test"},
                                                         {"updateUrl", m_server.baseUrl().toString().append("/game")},
                                                         {"logoImage", "hm_logo.png"},
                                                         {"defaultPaths", QJsonObject {{"other", m_default}}}});
        m_server.setContent("/game/data.bin", "game data");
        m_server.setContent("/game/checksums.txt.gz", TestManifest::body({{"/data.bin", QByteArray("game data")}}));
    }

    void cleanup() { m_window.reset(); }

    void location_data()
    {
        // Start, target, path stored at the end, then one round of steps per dialog. "first" starts with nothing
        // stored, the others with files in the old place, "installed" marked complete, "busy" while the engine works.
        QTest::addColumn<QString>("row");
        // What the user is told, and on a first run the checks that follow and a quit; an error box's text comes last.
        QTest::addColumn<QStringList>("prompts");

        const QStringList none, asked {"question:Confirm Location Change"};
        // A first run checks a new path before its dialog closes, then the launcher's own version.
        QTest::newRow("first run, browse") << "first new new browse+confirm" << QStringList {"check", "launcher"};
        QTest::newRow("first run, default") << "first new default confirm" << QStringList {"launcher"};
        QTest::newRow("first run, escape") << "first new default escape" << QStringList {"quit"};
        // The launcher's own directory, however spelled, is refused and asked for again.
        QTest::newRow("first run, launcher")
            << "first launcher default set+confirm confirm" << QStringList {"warning:Error", "launcher"};
        QTest::newRow("cancel") << "installed new old browse+cancel" << none;
        QTest::newRow("confirm the current path") << "installed new old confirm" << none;
        QTest::newRow("nothing installed") << "files new new browse+confirm" << none;
        QTest::newRow("move, Yes") << "installed new new browse+confirm" << asked + QStringList {"information:Success"};
        QTest::newRow("move, No") << "installed new new browse+no+confirm" << asked;
        QTest::newRow("move into itself fails")
            << "installed inside old browse+confirm" << asked + QStringList {"Installation process failed"};
        QTest::newRow("closed while busy") << "busy new old" << none;
    }

    void location()
    {
        QFETCH(QString, row);
        QFETCH(QStringList, prompts);
        const QStringList words = row.split(' '), rounds = words.mid(3);
        const QString start = words.at(0), stored = words.at(2);
        const bool firstRun = start == "first";
        m_install = std::make_unique<QTemporaryDir>(m_scratch.filePath("install-XXXXXX"));
        const QString oldPath = m_install->path(), target = pathFor(words.at(1));
        {
            // Every row starts as a first start would, with nothing stored.
            Settings settings(m_configuration, nullptr);
            QSettings().clear();
        }
        m_window = std::make_unique<MainWindow>(m_configuration);
        Updater *engine = &m_window->engine();
        engine->setToolProgram(QStringLiteral(LAUNCHER_BINARY));
        disconnect(m_window.get(), &MainWindow::backgroundSetupComplete, m_window.get(),
                   &MainWindow::onBackgroundSetupComplete);
        // A later check may merge with the one the stored path started.
        connect(engine, &Updater::checkingForUpdates, this, [this, firstRun] {
            if (firstRun && qobject_cast<LocationDialog *>(QApplication::activeModalWidget()))
                m_told << "check";
        });
        connect(engine, &Updater::launcherVersionCheckComplete, this, [this] { m_told << "launcher"; });
        m_told.clear();
        QStringList fieldTexts, browseStarts;
        auto answer = UserPrompt::Answer::Yes;
        const auto tell = [&](const char *kind) {
            return [&, kind](const QString &title, const QString &, QWidget *) {
                m_told << kind + title;
                return answer;
            };
        };
        UserPrompt::setHandlers({tell("critical:"), tell("warning:"), tell("information:"), tell("question:")});
        if (!firstRun) {
            Settings::instance()->setInstallPath(oldPath);
            Settings::instance()->setHasSelectedInstallPath(true);
            QVERIFY(TestFiles::write(m_install->filePath("data.bin"), "data"));
            QVERIFY(start == "files" || TestFiles::write(m_install->filePath(".initcomplete"), {}));
            // The check the stored path started keeps the dialog closed until it has settled.
            auto *button = m_window->findChild<QPushButton *>("manageButton");
            QTRY_VERIFY(button->isEnabled());
            button->setEnabled(start != "busy");
        }

        // Each dialog takes the next round of steps, one beyond them is dismissed. Two timers, as one does not fire
        // again while the file picker runs in its slot.
        const auto act = [&] {
            QWidget *modal = QApplication::activeModalWidget();
            if (auto *files = qobject_cast<QFileDialog *>(modal)) {
                browseStarts << files->directory().absolutePath();
                QDir().mkpath(target);
                files->setDirectory(target);
                QMetaObject::invokeMethod(files, &QDialog::accept);
            }
            if (!qobject_cast<LocationDialog *>(modal) || modal->property("answered").toBool())
                return;
            modal->setProperty("answered", true);
            auto *field = modal->findChild<QLineEdit *>("locationPathEdit");
            fieldTexts << field->text();
            for (const QString &step : rounds.value(fieldTexts.size() - 1, "escape").split('+')) {
                if (step == "no")
                    answer = UserPrompt::Answer::No;
                else if (step == "set")
                    field->setText(target); // what a file picker hands back for a path spelled this way
                else if (step == "escape")
                    QTest::keyClick(modal, Qt::Key_Escape);
                else
                    modal->findChild<QPushButton *>(step + "Button")->click();
            }
        };
        for (int i = 0; i < 2; ++i) {
            auto *timer = new QTimer(m_window.get());
            connect(timer, &QTimer::timeout, m_window.get(), act);
            timer->start(10);
        }
        qApp->installEventFilter(this);
        // A quit request is only heard inside the application's own loop.
        QTimer::singleShot(0, m_window.get(), [this, firstRun] {
            firstRun ? m_window->onBackgroundSetupComplete() : m_window->showLocationDialog(false);
            QCoreApplication::exit(0);
        });
        QCoreApplication::exec();
        qApp->removeEventFilter(this);

        const QString shown = firstRun ? QString() : QDir::toNativeSeparators(oldPath);
        QCOMPARE(fieldTexts, QStringList(rounds.size(), shown));
        if (rounds.value(0).startsWith("browse"))
            QCOMPARE(browseStarts, QStringList {firstRun ? QFileInfo(m_default).path() : shown});
        if (auto *box = m_window->findChild<QMessageBox *>())
            m_told << box->text();
        QCOMPARE(m_told, prompts);
        QCOMPARE(Settings::instance()->installPath(), QDir::toNativeSeparators(pathFor(stored)));
        QCOMPARE(Settings::instance()->hasSelectedInstallPath(), !prompts.contains("quit"));
        if (firstRun)
            return;
        // The files go only where a reported success says.
        const QString holder = prompts.contains("information:Success") ? target : oldPath;
        QVERIFY(QFileInfo::exists(holder + "/data.bin"));
        QCOMPARE(QFileInfo::exists(holder + "/.initcomplete"), start != "files");
        QCOMPARE(QFileInfo::exists(oldPath + "/data.bin"), holder == oldPath);
    }

private:
    QString pathFor(const QString &key) const
    {
        const QFileInfo launcher(QCoreApplication::applicationDirPath());
        const QHash<QString, QString> paths {{"launcher", launcher.path() + "//" + launcher.fileName() + "/./"},
                                             {"inside", m_install->filePath("inside")},
                                             {"old", m_install->path()}};
        // Beside this test's own install directory, so no row sees another's.
        return paths.value(key, key == "new" ? m_install->path() + " chosen" : m_default);
    }

    IsolatedSettings m_isolation;
    QTemporaryDir m_scratch;
    TestHttpServer m_server;
    QString m_configuration;
    const QString m_default = m_scratch.filePath("not-yet/Location Game");
    std::unique_ptr<QTemporaryDir> m_install;
    std::unique_ptr<MainWindow> m_window;
    QStringList m_told;
};

QTEST_MAIN(TestLocation)
#include "tst_ui_location.moc"
