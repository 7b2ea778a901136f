#include <QtTest>
#include <QtWidgets>

#include "support/testwindow.h"
#include "ui/locationdialog.h"

// The game files location dialog on a real window, with the real relocation
// tool moving real files.
class TestLocation : public QObject, public TestWindow
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        configure({{"applicationName", "Location Test"}, {"defaultPaths", QJsonObject {{"other", m_default}}}});
        serve({{"/data.bin", "game data"}});
    }

    void location_data()
    {
        // Start, target, path stored at the end, then one round of steps per dialog. "first" starts with nothing
        // stored, the others with files in the old place, "installed" marked complete, "busy" while the engine works.
        QTest::addColumn<QString>("row");
        QTest::addColumn<QStringList>("prompts"); // with a first run's checks and quit; boxes last
        const QStringList none, asked {"question:Confirm Location Change"};
        // A first run checks a new path before its dialog closes, then the launcher's own version.
        QTest::newRow("first run, browse") << "first new new browse+confirm" << QStringList {"check", "launcher"};
        QTest::newRow("first run, escape") << "first new default escape" << QStringList {"quit"};
        // The launcher's own directory, however spelled, is refused and asked for again.
        QTest::newRow("first run, launcher")
            << "first launcher default set+confirm confirm" << QStringList {"warning:Error", "launcher"};
        QTest::newRow("cancel") << "installed new old browse+cancel" << none;
        QTest::newRow("confirm the current path") << "installed new old confirm" << none;
        QTest::newRow("nothing installed") << "files new new browse+confirm" << none;
        QTest::newRow("move, Yes") << "installed new new browse+confirm" << asked + QStringList {"information:Success"};
        QTest::newRow("move, No") << "installed new new browse+no+confirm" << asked;
        QTest::newRow("move into itself fails") << "installed inside old browse+confirm"
                                                << asked + QStringList {"Download Error: Installation process failed"};
        QTest::newRow("closed while busy") << "busy new old" << none;
    }

    void location()
    {
        QFETCH(QString, row);
        QFETCH(QStringList, prompts);
        const QStringList words = row.split(' '), rounds = words.mid(3);
        const QString start = words.at(0), stored = words.at(2);
        const bool firstRun = start == "first";
        open(!firstRun);
        const QString oldPath = install->path(), target = pathFor(words.at(1));
        window->engine().setToolProgram(QStringLiteral(LAUNCHER_BINARY));
        // A first run checks the chosen path before its dialog closes; a move's own check is not this test's.
        connect(&window->engine(), &Updater::checkingForUpdates, this, [this, firstRun] {
            if (firstRun && qobject_cast<LocationDialog *>(QApplication::activeModalWidget()))
                told << "check";
        });
        connect(&window->engine(), &Updater::launcherVersionCheckComplete, this, [this] { told << "launcher"; });
        QStringList fieldTexts, browseStarts;
        answer = UserPrompt::Answer::Yes;
        if (!firstRun) {
            QVERIFY(TestFiles::write(install->filePath("data.bin"), "data"));
            QVERIFY(start == "files" || TestFiles::write(install->filePath(".initcomplete"), {}));
            window->setButtonState(start == "busy" ? "updating" : "play");
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
            auto *timer = new QTimer(window.get());
            connect(timer, &QTimer::timeout, window.get(), act);
            timer->start(10);
        }
        qApp->installEventFilter(this);
        // A quit request is only heard inside the application's own loop.
        QTimer::singleShot(0, window.get(), [this, firstRun] {
            firstRun ? window->onBackgroundSetupComplete() : window->showLocationDialog(false);
            QCoreApplication::exit(0);
        });
        QCoreApplication::exec();
        qApp->removeEventFilter(this);
        const QString shown = firstRun ? QString() : QDir::toNativeSeparators(oldPath);
        QCOMPARE(fieldTexts, QStringList(rounds.size(), shown));
        if (rounds.value(0).startsWith("browse"))
            QCOMPARE(browseStarts, QStringList {firstRun ? QFileInfo(m_default).path() : shown});
        QCOMPARE(told + boxes(), prompts);
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
    // Notes and swallows a quit request, so that the test goes on after it.
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Quit)
            told << "quit";
        return event->type() == QEvent::Quit;
    }

    QString pathFor(const QString &key) const
    {
        const QFileInfo launcher(QCoreApplication::applicationDirPath());
        const QHash<QString, QString> paths {{"launcher", launcher.path() + "//" + launcher.fileName() + "/./"},
                                             {"inside", install->filePath("inside")},
                                             {"old", install->path()}};
        // Beside this test's own install directory, so no row sees another's.
        return paths.value(key, key == "new" ? install->path() + " chosen" : m_default);
    }

    const QString m_default = scratch.filePath("not-yet/Location Game");
};

QTEST_MAIN(TestLocation)
#include "tst_ui_location.moc"
