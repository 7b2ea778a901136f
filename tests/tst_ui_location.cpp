#include <QApplication>
#include <QDir>
#include <QFileDialog>
#include <QJsonObject>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QSettings>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

#include <memory>

#include "config/settings.h"
#include "isolatedsettings.h"
#include "support/testfiles.h"
#include "support/testhttpserver.h"
#include "support/testmanifest.h"
#include "ui/locationdialog.h"
#include "ui/mainwindow.h"
#include "updater/userprompt.h"

namespace
{
    // Swallows the application's quit request and notes it, so that a test
    // can see the launcher asking to end and still go on.
    class QuitWatcher : public QObject
    {
    public:
        bool quitRequested = false;

    protected:
        bool eventFilter(QObject *watched, QEvent *event) override
        {
            if (event->type() != QEvent::Quit)
                return QObject::eventFilter(watched, event);
            quitRequested = true;
            return true;
        }
    };
}

// The game files location dialog on a real window, with the real relocation
// tool moving real files. Each dialog is answered by a list of steps, one
// list per dialog in the order they appear.
class TestLocation : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void firstRun_data();
    void firstRun();
    void change_data();
    void change();
    void changeIsClosedWhileBusy();

private:
    void answerDialogs(const QStringList &rounds, const QString &target);
    void act(LocationDialog *dialog, const QString &steps, const QString &target);
    QString pathFor(const QString &key) const;
    QString installPath() const;

    IsolatedSettings m_isolation;
    QTemporaryDir m_scratch;
    TestHttpServer m_server;
    QString m_configuration;
    QString m_default;
    std::unique_ptr<QTemporaryDir> m_install;
    std::unique_ptr<MainWindow> m_window;
    // Parent of the timers that answer dialogs; gone with each test.
    std::unique_ptr<QObject> m_driver;
    QStringList m_prompts;
    QStringList m_events;
    QStringList m_fieldTexts;
    QStringList m_browseStarts;
    UserPrompt::Answer m_answer = UserPrompt::Answer::No;
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
        m_events << (qobject_cast<LocationDialog *>(QApplication::activeModalWidget())
                         ? QStringLiteral("checking in dialog")
                         : QStringLiteral("checking"));
    });
    connect(&m_window->engine(), &Updater::launcherVersionCheckComplete, this,
            [this] { m_events << QStringLiteral("launcher"); });

    m_driver = std::make_unique<QObject>();
    m_prompts.clear();
    m_events.clear();
    m_fieldTexts.clear();
    m_browseStarts.clear();
    const auto tell = [this](const char *kind) {
        return [this, kind](const QString &title, const QString &text, QWidget *) {
            m_prompts << QString::fromLatin1(kind) + QLatin1Char(':') + title;
            if (title == QLatin1String("Error"))
                m_prompts << text;
        };
    };
    UserPrompt::setHandlers({tell("critical"), tell("warning"), tell("information"),
                             [this](const QString &title, const QString &, QWidget *) {
                                 m_prompts << QStringLiteral("question:") + title;
                                 return m_answer;
                             }});
}

void TestLocation::cleanup()
{
    m_driver.reset();
    m_window.reset();
    UserPrompt::setHandlers({});
}

QString TestLocation::pathFor(const QString &key) const
{
    const QString launcher = QCoreApplication::applicationDirPath();
    if (key == QLatin1String("launcher"))
        return launcher;
    if (key == QLatin1String("launcher, dotted"))
        return launcher + QStringLiteral("/./");
    if (key == QLatin1String("launcher, doubled"))
        return QFileInfo(launcher).path() + QStringLiteral("//") + QFileInfo(launcher).fileName();
    if (key == QLatin1String("inside"))
        return m_install->filePath(QStringLiteral("inside"));
    if (key == QLatin1String("old"))
        return m_install->path();
    if (key == QLatin1String("default"))
        return m_default;
    // Beside this test's own install directory, so no row sees another's.
    return m_install->path() + QStringLiteral(" chosen ") + key;
}

QString TestLocation::installPath() const
{
    return Settings::instance()->installPath();
}

// Each dialog that comes up takes the next round of steps; one more than
// the rounds foresee is recorded and dismissed, so a test cannot hang on it.
void TestLocation::answerDialogs(const QStringList &rounds, const QString &target)
{
    auto *timer = new QTimer(m_driver.get());
    auto next = std::make_shared<int>(0);
    connect(timer, &QTimer::timeout, m_driver.get(), [this, rounds, target, next] {
        auto *dialog = qobject_cast<LocationDialog *>(QApplication::activeModalWidget());
        if (!dialog || !dialog->isVisible() || dialog->property("answered").toBool())
            return;
        dialog->setProperty("answered", true);
        m_fieldTexts << dialog->findChild<QLineEdit *>(QStringLiteral("locationPathEdit"))->text();
        act(dialog, *next < rounds.size() ? rounds.at(*next) : QStringLiteral("escape"), target);
        ++*next;
    });
    timer->start(10);
}

void TestLocation::act(LocationDialog *dialog, const QString &steps, const QString &target)
{
    const QStringList list = steps.split(QLatin1Char('+'));
    for (const QString &step : list) {
        if (step == QLatin1String("browse")) {
            auto *timer = new QTimer(m_driver.get());
            connect(timer, &QTimer::timeout, m_driver.get(), [this, timer, target] {
                auto *files = qobject_cast<QFileDialog *>(QApplication::activeModalWidget());
                if (!files)
                    return;
                timer->stop();
                m_browseStarts << files->directory().absolutePath();
                QDir().mkpath(target);
                files->setDirectory(target);
                QMetaObject::invokeMethod(files, &QDialog::accept);
            });
            timer->start(10);
            dialog->findChild<QPushButton *>(QStringLiteral("browseButton"))->click();
        } else if (step == QLatin1String("set")) {
            // What a file dialog hands back for a path spelled this way.
            dialog->findChild<QLineEdit *>(QStringLiteral("locationPathEdit"))->setText(target);
        } else if (step == QLatin1String("escape")) {
            QTest::keyClick(dialog, Qt::Key_Escape);
        } else {
            dialog->findChild<QPushButton *>(step + QStringLiteral("Button"))->click();
        }
    }
}

void TestLocation::firstRun_data()
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<QStringList>("rounds");
    QTest::addColumn<QString>("storedPath");
    QTest::addColumn<bool>("flag");
    QTest::addColumn<bool>("checkFromDialog");
    QTest::addColumn<QStringList>("prompts");

    const QStringList none;
    QTest::newRow("browse and confirm") << "first" << QStringList {"browse+confirm"} << "first" << true << true << none;
    QTest::newRow("confirm the default") << "first" << QStringList {"confirm"} << "default" << true << false << none;
    QTest::newRow("escape, nothing chosen") << "first" << QStringList {"escape"} << "default" << false << false << none;
    QTest::newRow("browse, then escape") << "first" << QStringList {"browse+escape"} << "default" << true << false
                                         << none;
    QTest::newRow("launcher directory, dotted")
        << "launcher, dotted" << QStringList {"set+confirm", "confirm"} << "default" << true << false
        << QStringList {"warning:Error", "Game files cannot be installed to the same directory as the launcher."};
}

void TestLocation::firstRun()
{
    QFETCH(QString, target);
    QFETCH(QStringList, rounds);
    QFETCH(QString, storedPath);
    QFETCH(bool, flag);
    QFETCH(bool, checkFromDialog);
    QFETCH(QStringList, prompts);

    QuitWatcher quit;
    qApp->installEventFilter(&quit);
    answerDialogs(rounds, pathFor(target));
    // A quit request is only heard inside the application's own loop, where
    // the start-up flow runs for real.
    QTimer::singleShot(0, m_window.get(), [this] {
        m_window->onBackgroundSetupComplete();
        QCoreApplication::exit(0);
    });
    QCoreApplication::exec();
    qApp->removeEventFilter(&quit);

    QCOMPARE(m_fieldTexts.size(), rounds.size());
    for (const QString &text : std::as_const(m_fieldTexts))
        QCOMPARE(text, QString());
    if (rounds.first().startsWith(QLatin1String("browse")))
        QCOMPARE(m_browseStarts, QStringList {QFileInfo(m_default).path()});
    QCOMPARE(installPath(), QDir::toNativeSeparators(pathFor(storedPath)));
    QCOMPARE(Settings::instance()->hasSelectedInstallPath(), flag);
    QCOMPARE(quit.quitRequested, !flag);
    QCOMPARE(m_events.contains(QStringLiteral("checking in dialog")), checkFromDialog);
    // Whether the start-up went on to the launcher's own check.
    QCOMPARE(m_events.contains(QStringLiteral("launcher")), flag);
    QCOMPARE(m_prompts, prompts);
}

void TestLocation::change_data()
{
    QTest::addColumn<bool>("installed");
    QTest::addColumn<QString>("target");
    QTest::addColumn<QStringList>("rounds");
    QTest::addColumn<bool>("answerYes");
    QTest::addColumn<QString>("storedPath");
    QTest::addColumn<QString>("filesAt");
    QTest::addColumn<QStringList>("prompts");
    QTest::addColumn<QString>("error");

    const QStringList asked {"question:Confirm Location Change"};
    const QStringList refused {"warning:Error",
                               "Game files cannot be installed to the same directory as the launcher."};
    QTest::newRow("cancel") << true << "new" << QStringList {"browse+cancel"} << true << "old"
                            << "old" << QStringList() << QString();
    QTest::newRow("confirm the current path") << true << "new" << QStringList {"confirm"} << true << "old"
                                              << "old" << QStringList() << QString();
    QTest::newRow("nothing installed") << false << "new" << QStringList {"browse+confirm"} << true << "new"
                                       << "old" << QStringList() << QString();
    QTest::newRow("move, Yes") << true << "new" << QStringList {"browse+confirm"} << true << "new"
                               << "new" << QStringList {asked.first(), "information:Success"} << QString();
    QTest::newRow("move, No") << true << "new" << QStringList {"browse+confirm"} << false << "new"
                              << "old" << asked << QString();
    QTest::newRow("move into itself fails") << true << "inside" << QStringList {"browse+confirm"} << true << "old"
                                            << "old" << asked << "Installation process failed";
    QTest::newRow("launcher directory, doubled")
        << true << "launcher, doubled" << QStringList {"set+confirm", "cancel"} << true << "old"
        << "old" << refused << QString();
}

void TestLocation::change()
{
    QFETCH(bool, installed);
    QFETCH(QString, target);
    QFETCH(QStringList, rounds);
    QFETCH(bool, answerYes);
    QFETCH(QString, storedPath);
    QFETCH(QString, filesAt);
    QFETCH(QStringList, prompts);
    QFETCH(QString, error);

    const QString oldPath = m_install->path();
    Settings::instance()->setInstallPath(oldPath);
    Settings::instance()->setHasSelectedInstallPath(true);
    QVERIFY(TestFiles::write(m_install->filePath(QStringLiteral("data.bin")), "data"));
    if (installed)
        QVERIFY(TestFiles::write(m_install->filePath(QStringLiteral(".initcomplete")), {}));
    m_answer = answerYes ? UserPrompt::Answer::Yes : UserPrompt::Answer::No;
    // The check the stored path started must have settled: a check keeps
    // the button, and so the dialog, closed.
    QTRY_VERIFY(m_window->findChild<QPushButton *>(QStringLiteral("manageButton"))->isEnabled());

    answerDialogs(rounds, pathFor(target));
    m_window->showLocationDialog(false);

    QCOMPARE(m_fieldTexts.size(), rounds.size());
    for (const QString &text : std::as_const(m_fieldTexts))
        QCOMPARE(text, QDir::toNativeSeparators(oldPath));
    if (rounds.first().startsWith(QLatin1String("browse")))
        QCOMPARE(m_browseStarts, QStringList {QDir::toNativeSeparators(oldPath)});
    QCOMPARE(m_prompts, prompts);
    QCOMPARE(installPath(), QDir::toNativeSeparators(pathFor(storedPath)));
    const QString holder = pathFor(filesAt);
    QVERIFY(QFileInfo::exists(holder + QStringLiteral("/data.bin")));
    QCOMPARE(QFileInfo::exists(holder + QStringLiteral("/.initcomplete")), installed);
    if (filesAt != QLatin1String("old"))
        QVERIFY(!QFileInfo::exists(oldPath + QStringLiteral("/data.bin")));
    auto *box = m_window->findChild<QMessageBox *>();
    QCOMPARE(box ? box->text() : QString(), error);
}

// Files must not move under a check, a download or an install.
void TestLocation::changeIsClosedWhileBusy()
{
    m_window->findChild<QPushButton *>(QStringLiteral("manageButton"))->setEnabled(false);
    answerDialogs({QStringLiteral("cancel")}, QString());
    m_window->showLocationDialog(false);
    QVERIFY(m_fieldTexts.isEmpty());
}

QTEST_MAIN(TestLocation)
#include "tst_ui_location.moc"
