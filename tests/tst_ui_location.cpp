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
        m_run.quit = m_run.quit || event->type() == QEvent::Quit;
        return event->type() == QEvent::Quit;
    }

private slots:
    void initTestCase();
    void init();
    void cleanup() { m_window.reset(); }
    void location_data();
    void location();

private:
    void answerDialogs(const QStringList &rounds, const QString &target);
    QString pathFor(const QString &key) const;

    IsolatedSettings m_isolation;
    QTemporaryDir m_scratch;
    TestHttpServer m_server;
    QString m_configuration;
    QString m_default;
    std::unique_ptr<QTemporaryDir> m_install;
    std::unique_ptr<MainWindow> m_window;
    // What one row answers and sees.
    struct
    {
        UserPrompt::Answer answer = UserPrompt::Answer::Yes;
        QStringList prompts, fieldTexts, browseStarts;
        bool quit = false, checkedInDialog = false, launcherChecked = false;
    } m_run;
};

void TestLocation::initTestCase()
{
    m_default = m_scratch.filePath(QStringLiteral("not-yet/Location Game"));
    const QString base = m_server.baseUrl().toString();
    m_configuration = TestFiles::writeConfiguration(m_scratch.path(),
                                                    {{"applicationName", "Location Test"},
                                                     {"updateUrl", QString(base + "/game")},
                                                     {"executableName", "locationgame.bin"},
                                                     {"logoImage", "hm_logo.png"},
                                                     {"newsUrl", QString(base + "/api/news")},
                                                     {"defaultPaths", QJsonObject {{"other", m_default}}}});
    m_server.setContent(QStringLiteral("/game/data.bin"), "game data");
    m_server.setContent(QStringLiteral("/game/checksums.txt.gz"),
                        TestManifest::body(QMap<QString, QByteArray> {{"/data.bin", "game data"}}));
}

void TestLocation::init()
{
    m_install = std::make_unique<QTemporaryDir>(m_scratch.filePath(QStringLiteral("install-XXXXXX")));
    {
        // Every test starts as a first start would, with nothing stored.
        Settings settings(m_configuration, nullptr);
        QSettings().clear();
    }
    m_window = std::make_unique<MainWindow>(m_configuration);
    m_window->engine().setToolProgram(QStringLiteral(LAUNCHER_BINARY));
    disconnect(m_window.get(), &MainWindow::backgroundSetupComplete, m_window.get(),
               &MainWindow::onBackgroundSetupComplete);
    connect(&m_window->engine(), &Updater::checkingForUpdates, this, [this] {
        m_run.checkedInDialog |= qobject_cast<LocationDialog *>(QApplication::activeModalWidget()) != nullptr;
    });
    connect(&m_window->engine(), &Updater::launcherVersionCheckComplete, this,
            [this] { m_run.launcherChecked = true; });
    m_run = {};
    const auto tell = [this](const char *kind) {
        return [this, kind](const QString &title, const QString &text, QWidget *) {
            m_run.prompts << QString::fromLatin1(kind) + QLatin1Char(':') + title;
            if (title == QLatin1String("Error"))
                m_run.prompts << text;
        };
    };
    UserPrompt::setHandlers({tell("critical"), tell("warning"), tell("information"),
                             [this](const QString &title, const QString &, QWidget *) {
                                 m_run.prompts << QStringLiteral("question:") + title;
                                 return m_run.answer;
                             }});
}

QString TestLocation::pathFor(const QString &key) const
{
    const QFileInfo launcher(QCoreApplication::applicationDirPath());
    const QHash<QString, QString> paths {{"launcher, dotted", launcher.filePath() + "/./"},
                                         {"launcher, doubled", launcher.path() + "//" + launcher.fileName()},
                                         {"inside", m_install->filePath("inside")},
                                         {"old", m_install->path()},
                                         {"default", m_default}};
    // Beside this test's own install directory, so no row sees another's.
    return paths.value(key, m_install->path() + " chosen " + key);
}

// Each dialog takes the next round of steps, one beyond them is dismissed. Two
// timers, as one does not fire again while the file picker runs in its slot.
void TestLocation::answerDialogs(const QStringList &rounds, const QString &target)
{
    const auto answer = [this, rounds, target] {
        if (auto *files = qobject_cast<QFileDialog *>(QApplication::activeModalWidget())) {
            m_run.browseStarts << files->directory().absolutePath();
            QDir().mkpath(target);
            files->setDirectory(target);
            QMetaObject::invokeMethod(files, &QDialog::accept);
            return;
        }
        auto *dialog = qobject_cast<LocationDialog *>(QApplication::activeModalWidget());
        if (!dialog || dialog->property("answered").toBool())
            return;
        dialog->setProperty("answered", true);
        auto *field = dialog->findChild<QLineEdit *>(QStringLiteral("locationPathEdit"));
        m_run.fieldTexts << field->text();
        for (const QString &step : rounds.value(m_run.fieldTexts.size() - 1, "escape").split(QLatin1Char('+'))) {
            if (step == QLatin1String("no"))
                m_run.answer = UserPrompt::Answer::No;
            else if (step == QLatin1String("set"))
                field->setText(target); // what a file picker hands back for a path spelled this way
            else if (step == QLatin1String("escape"))
                QTest::keyClick(dialog, Qt::Key_Escape);
            else
                dialog->findChild<QPushButton *>(step + QStringLiteral("Button"))->click();
        }
    };
    for (int i = 0; i < 2; ++i) {
        auto *timer = new QTimer(m_window.get());
        connect(timer, &QTimer::timeout, m_window.get(), answer);
        timer->start(10);
    }
}

void TestLocation::location_data()
{
    // Start, target, path stored at the end, then one round of steps per dialog.
    // "first" starts with nothing stored, the others with files in the old
    // place, "installed" marked complete, "busy" while the engine works.
    QTest::addColumn<QStringList>("row");
    QTest::addColumn<bool>("selected");
    // What the user is told; an error box's text comes last.
    QTest::addColumn<QStringList>("prompts");

    const QStringList asked {"question:Confirm Location Change"};
    const QStringList moved {asked.constFirst(), "information:Success"};
    const QStringList refused {"warning:Error",
                               "Game files cannot be installed to the same directory as the launcher."};
    const QStringList none;
    QTest::newRow("first run, browse") << QStringList {"first", "new", "new", "browse+confirm"} << true << none;
    QTest::newRow("first run, default") << QStringList {"first", "new", "default", "confirm"} << true << none;
    QTest::newRow("first run, escape") << QStringList {"first", "new", "default", "escape"} << false << none;
    QTest::newRow("first, browse, escape") << QStringList {"first", "new", "default", "browse+escape"} << true << none;
    QTest::newRow("first run, launcher, dotted")
        << QStringList {"first", "launcher, dotted", "default", "set+confirm", "confirm"} << true << refused;
    QTest::newRow("cancel") << QStringList {"installed", "new", "old", "browse+cancel"} << true << none;
    QTest::newRow("confirm the current path") << QStringList {"installed", "new", "old", "confirm"} << true << none;
    QTest::newRow("nothing installed") << QStringList {"files", "new", "new", "browse+confirm"} << true << none;
    QTest::newRow("move, Yes") << QStringList {"installed", "new", "new", "browse+confirm"} << true << moved;
    QTest::newRow("move, No") << QStringList {"installed", "new", "new", "browse+no+confirm"} << true << asked;
    QTest::newRow("move into itself fails") << QStringList {"installed", "inside", "old", "browse+confirm"} << true
                                            << asked + QStringList {"Installation process failed"};
    QTest::newRow("launcher, doubled") << QStringList {"installed", "launcher, doubled", "old", "set+confirm", "escape"}
                                       << true << refused;
    QTest::newRow("closed while busy") << QStringList {"busy", "new", "old"} << true << none;
}

void TestLocation::location()
{
    QFETCH(QStringList, row);
    QFETCH(bool, selected);
    QFETCH(QStringList, prompts);

    const QString &start = row.at(0);
    const QString &storedPath = row.at(2);
    const QStringList rounds = row.mid(3);
    const bool firstRun = start == QLatin1String("first");
    const QString oldPath = m_install->path();
    if (!firstRun) {
        Settings::instance()->setInstallPath(oldPath);
        Settings::instance()->setHasSelectedInstallPath(true);
        QVERIFY(TestFiles::write(m_install->filePath(QStringLiteral("data.bin")), "data"));
        if (start != QLatin1String("files"))
            QVERIFY(TestFiles::write(m_install->filePath(QStringLiteral(".initcomplete")), {}));
        // The check the stored path started keeps the dialog closed until it has settled.
        auto *button = m_window->findChild<QPushButton *>(QStringLiteral("manageButton"));
        QTRY_VERIFY(button->isEnabled());
        button->setEnabled(start != QLatin1String("busy"));
    }

    qApp->installEventFilter(this);
    answerDialogs(rounds, pathFor(row.at(1)));
    // A quit request is only heard inside the application's own loop.
    QTimer::singleShot(0, m_window.get(), [this, firstRun] {
        firstRun ? m_window->onBackgroundSetupComplete() : m_window->showLocationDialog(false);
        QCoreApplication::exit(0);
    });
    QCoreApplication::exec();
    qApp->removeEventFilter(this);

    const QString shown = firstRun ? QString() : QDir::toNativeSeparators(oldPath);
    QCOMPARE(m_run.fieldTexts, QStringList(rounds.size(), shown));
    if (rounds.value(0).startsWith(QLatin1String("browse")))
        QCOMPARE(m_run.browseStarts, QStringList {firstRun ? QFileInfo(m_default).path() : shown});
    if (auto *box = m_window->findChild<QMessageBox *>())
        m_run.prompts << box->text();
    QCOMPARE(m_run.prompts, prompts);
    QCOMPARE(Settings::instance()->installPath(), QDir::toNativeSeparators(pathFor(storedPath)));
    QCOMPARE(Settings::instance()->hasSelectedInstallPath(), selected);
    QCOMPARE(m_run.quit, !selected);
    QCOMPARE(m_run.launcherChecked, firstRun && selected);
    // A first run checks a new path before its dialog closes; a later check may merge with the last one.
    QCOMPARE(firstRun && m_run.checkedInDialog, firstRun && storedPath != QLatin1String("default"));
    if (firstRun)
        return;
    // The files go only where a reported success says.
    const QString holder = prompts.contains("information:Success") ? pathFor(storedPath) : oldPath;
    QVERIFY(QFileInfo::exists(holder + QStringLiteral("/data.bin")));
    QCOMPARE(QFileInfo::exists(holder + QStringLiteral("/.initcomplete")), start != QLatin1String("files"));
    QCOMPARE(QFileInfo::exists(oldPath + QStringLiteral("/data.bin")), holder == oldPath);
}

QTEST_MAIN(TestLocation)
#include "tst_ui_location.moc"
