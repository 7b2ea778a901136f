#include <QtTest>
#include <QtWidgets>

#include "support/testwindow.h"
#include "ui/locationdialog.h"

// The game files location dialog on a real window, with the real relocation tool moving real files.
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
        // Start, target, path stored at the end, the steps of each dialog in turn, then what was said and shown.
        // "first" stores nothing; the others have files in place, "installed" marked complete, "busy" being updated.
        QTest::addColumn<QString>("row");
        QTest::newRow("first run, browse") << "first new new browse+confirm|check,launcher";
        QTest::newRow("first run, escape") << "first new default escape|quit";
        // The launcher's own directory, however spelled, is refused and asked for again.
        QTest::newRow("first run, launcher") << "first launcher default set+confirm confirm|warning:Error,launcher";
        QTest::newRow("cancel") << "installed new old browse+cancel|";
        QTest::newRow("confirm the current path") << "installed new old confirm|";
        QTest::newRow("nothing installed") << "files new new browse+confirm|";
        QTest::newRow("move, Yes")
            << "installed new new browse+confirm|question:Confirm Location Change,information:Success";
        QTest::newRow("move, No") << "installed new new browse+no+confirm|question:Confirm Location Change";
        QTest::newRow("move into itself fails") << "installed inside old browse+confirm|question:Confirm Location "
                                                   "Change,Download Error: Installation process failed";
        QTest::newRow("closed while busy") << "busy new old|";
    }

    void location()
    {
        QFETCH(QString, row);
        const QStringList words = row.section('|', 0, 0).split(' '), rounds = words.mid(3);
        const bool firstRun = words.at(0) == "first";
        open(!firstRun);
        const QString oldPath = install->path(), target = pathFor(words.at(1));
        window->engine().setToolProgram(QStringLiteral(LAUNCHER_BINARY));
        // A first run checks the chosen path before its dialog closes.
        connect(&window->engine(), &Updater::checkingForUpdates, this, [this, firstRun] {
            if (firstRun && qobject_cast<LocationDialog *>(QApplication::activeModalWidget()))
                told << "check";
        });
        connect(&window->engine(), &Updater::launcherVersionCheckComplete, this, [this] { told << "launcher"; });
        answer = UserPrompt::Answer::Yes;
        if (!firstRun) {
            QVERIFY(TestFiles::write(install->filePath("data.bin"), "data"));
            QVERIFY(words.at(0) == "files" || TestFiles::write(install->filePath(".initcomplete"), {}));
            window->setButtonState(words.at(0) == "busy" ? "updating" : "play");
        }
        // A dialog beyond the rounds is dismissed. Two timers: one does not fire again while the picker runs in it.
        QStringList fieldTexts, browseStarts;
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
                    field->setText(target); // as a file picker hands back a path spelled this way
                else if (step == "escape")
                    QTest::keyClick(modal, Qt::Key_Escape);
                else
                    modal->findChild<QPushButton *>(step + "Button")->click();
            }
        };
        QTimer timers[2];
        for (QTimer &timer : timers) {
            connect(&timer, &QTimer::timeout, window.get(), act);
            timer.start(10);
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
        QCOMPARE((told + boxes()).join(','), row.section('|', 1));
        QCOMPARE(Settings::instance()->installPath(), QDir::toNativeSeparators(pathFor(words.at(2))));
        const QString holder = row.contains("information:Success") ? target : oldPath;
        QVERIFY(firstRun
                || (QFileInfo::exists(holder + "/data.bin")
                    && QFileInfo::exists(oldPath + "/data.bin") == (holder == oldPath)));
    }

private:
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Quit)
            told << "quit";
        return event->type() == QEvent::Quit;
    }

    QString pathFor(const QString &key) const
    {
        const QFileInfo launcher(QCoreApplication::applicationDirPath());
        // Beside this test's own install directory, so no row sees another's.
        const QHash<QString, QString> paths {{"launcher", launcher.path() + "//" + launcher.fileName() + "/./"},
                                             {"inside", install->filePath("inside")},
                                             {"old", install->path()},
                                             {"new", install->path() + " chosen"}};
        return paths.value(key, m_default);
    }

    const QString m_default = scratch.filePath("not-yet/Location Game");
};

QTEST_MAIN(TestLocation)
#include "tst_ui_location.moc"
