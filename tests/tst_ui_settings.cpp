#include <QtTest>
#include <QtWidgets>

#include <memory>

#include "config/settings.h"
#include "isolatedsettings.h"
#include "support/testfiles.h"
#include "support/testhttpserver.h"
#include "ui/backgroundvideo.h"
#include "ui/mainwindow.h"
#include "updater/userprompt.h"

namespace
{
    const char LanguageProbe[] = "--language-probe";

    QJsonObject category(const char *name, const char *page = nullptr, const char *color = nullptr)
    {
        QJsonObject object {{"name", name}, {"icon", ":/resources/icon_website.svg"}};
        if (page)
            object.insert("url", QString("launchertest://open/" + QLatin1String(page)));
        if (color)
            object.insert("color", color);
        return object;
    }

    // Twitch has no page, to have a row that opens nothing.
    const QJsonArray Categories = QJsonArray()
        << category("Website", "website") << category("Patch Notes", "notes") << category("New Player Guide", "guide")
        << category("Shop", "shop", "#FEFEC6") << QJsonObject() << category("Discord", "discord") << category("Twitch");

    QStringList menuTexts(const QMenu *menu)
    {
        QStringList texts;
        for (const QAction *action : menu->actions())
            texts << action->text();
        return texts;
    }

    QAction *menuEntry(const QMenu *menu, const QString &text)
    {
        return menu->actions().value(menuTexts(menu).indexOf(text));
    }

    // The child side of startupLanguage: a fresh process, so that the
    // system locale is the one its environment names.
    int probeLanguage(const QString &configuration, const QString &stored)
    {
        if (!stored.isEmpty()) {
            // Written directly, since setLanguage skips a value equal to its own default.
            Settings settings(configuration, nullptr);
            QSettings().setValue(QStringLiteral("language"), stored);
        }
        MainWindow window(configuration);
        window.showSettingsMenu();
        const QAction *checked = window.findChild<QActionGroup *>()->checkedAction();
        QTextStream(stdout) << MainWindow::tr("Install") << '|' << (checked ? checked->data().toString() : QString())
                            << Qt::endl;
        return 0;
    }
}

// The settings menu, the language switch and the sidebar, on a window whose
// engine talks to the loopback server.
class TestSettingsMenu : public QObject
{
    Q_OBJECT

public slots:
    // Receives what the window asks the desktop to open.
    void recordUrl(const QUrl &url) { m_opened << url; }

private slots:
    void initTestCase();
    void cleanupTestCase() { QDesktopServices::unsetUrlHandler(QStringLiteral("launchertest")); }
    void init();
    void cleanup() { m_window.reset(); }

    void entries_data();
    void entries();
    void gatedEntries_data();
    void gatedEntries();
    void languageSwitch_data();
    void languageSwitch();
    void startupLanguage_data();
    void startupLanguage();
    void rowRelease_data();
    void rowRelease();

private:
    QString writeConfiguration(const QString &directory, const QJsonArray &categories);
    void openWindow(const QString &configuration);
    QMenu *openMenu();
    QList<QWidget *> sidebarItems() const;

    IsolatedSettings m_isolation;
    QTemporaryDir m_scratch;
    TestHttpServer m_server;
    QString m_configuration;
    std::unique_ptr<QTemporaryDir> m_install;
    std::unique_ptr<MainWindow> m_window;
    QList<QUrl> m_opened;
    QStringList m_questions;
};

void TestSettingsMenu::initTestCase()
{
    m_configuration = writeConfiguration(QStringLiteral("full"), Categories);
    m_server.setContent(QStringLiteral("/game/checksums.txt.gz"), qCompress("{\"files\": {}}"));
    QDesktopServices::setUrlHandler(QStringLiteral("launchertest"), this, "recordUrl");
}

QString TestSettingsMenu::writeConfiguration(const QString &directory, const QJsonArray &categories)
{
    const QString base = m_server.baseUrl().toString();
    return TestFiles::writeConfiguration(m_scratch.filePath(directory),
                                         {{"applicationName", "Menu Test Game"},
                                          {"updateUrl", QString(base + "/game")},
                                          {"executableName", "menugame.bin"},
                                          {"logoImage", "hm_logo.png"},
                                          {"newsUrl", QString(base + "/api/news")},
                                          {"categories", categories}});
}

void TestSettingsMenu::init()
{
    m_opened.clear();
    m_questions.clear();
    m_install = std::make_unique<QTemporaryDir>(m_scratch.filePath(QStringLiteral("install-XXXXXX")));
    {
        // Stored before the window exists: a change of path starts a check.
        Settings settings(m_configuration, nullptr);
        settings.setInstallPath(m_install->path());
        QSettings().setValue(QStringLiteral("language"), QStringLiteral("en"));
    }
    openWindow(m_configuration);
}

void TestSettingsMenu::openWindow(const QString &configuration)
{
    m_window.reset();
    m_window = std::make_unique<MainWindow>(configuration);
    // The start-up flow would check the launcher and the game by itself.
    disconnect(m_window.get(), &MainWindow::backgroundSetupComplete, m_window.get(),
               &MainWindow::onBackgroundSetupComplete);
    UserPrompt::setHandlers({{}, {}, {}, [this](const QString &title, const QString &, QWidget *) {
                                 m_questions << title;
                                 return UserPrompt::Answer::No;
                             }});
}

QMenu *TestSettingsMenu::openMenu()
{
    m_window->findChild<QPushButton *>(QStringLiteral("settingsButton"))->click();
    // Menus that were not closed by a click elsewhere are still there.
    return m_window->findChildren<QMenu *>(QStringLiteral("settingsMenu"), Qt::FindDirectChildrenOnly).constLast();
}

QList<QWidget *> TestSettingsMenu::sidebarItems() const
{
    QList<QWidget *> items;
    const QLayout *layout = m_window->findChild<QWidget *>(QStringLiteral("categoriesPanel"))->layout();
    for (int i = 0; i < layout->count(); ++i)
        items << layout->itemAt(i)->widget();
    return items;
}

void TestSettingsMenu::entries_data()
{
    QTest::addColumn<bool>("installed");
    QTest::addColumn<bool>("animated");
    QTest::addColumn<QStringList>("texts");

    QTest::newRow("installed, animated")
        << true << true << QStringList {"Language", "Show in Explorer", "Check for Updates", "Disable Animations",
                                        "",         "Modify Install",   "Uninstall"};
    QTest::newRow("no install directory, still")
        << false << false << QStringList {"Language", "Enable Animations", "", "Modify Install"};
}

void TestSettingsMenu::entries()
{
    QFETCH(bool, installed);
    QFETCH(bool, animated);
    QFETCH(QStringList, texts);

    if (!installed)
        QVERIFY(m_install->remove());
    Settings::instance()->setAnimationsEnabled(animated);
    QSignalSpy firstPaint(m_window.get(), &MainWindow::backgroundSetupComplete);
    m_window->show();
    QTRY_COMPARE(firstPaint.count(), 1);
    const auto *video = m_window->findChild<BackgroundVideo *>();
    QTRY_COMPARE(video->isPlaying(), animated);

    QPointer<QMenu> menu = openMenu();
    QCOMPARE(menuTexts(menu), texts);
    const int separator = texts.indexOf(QString());
    QVERIFY(menu->actions().at(separator)->isSeparator());

    QAction *animations = menu->actions().at(separator - 1);
    animations->trigger();
    QCOMPARE(Settings::instance()->animationsEnabled(), !animated);
    QCOMPARE(animations->text(), animated ? "Enable Animations" : "Disable Animations");
    QCOMPARE(video->isPlaying(), !animated);

    // Built anew on each click: this one is gone once it has closed.
    menu->close();
    QTRY_VERIFY(menu.isNull());
}

void TestSettingsMenu::gatedEntries_data()
{
    QTest::addColumn<QString>("entry");
    QTest::addColumn<QString>("state");
    QTest::addColumn<bool>("acts");

    for (const char *entry : {"Check for Updates", "Modify Install", "Uninstall"}) {
        QTest::addRow("%s while updating", entry) << entry << "updating" << false;
        QTest::addRow("%s in play", entry) << entry << "play" << true;
    }
}

void TestSettingsMenu::gatedEntries()
{
    QFETCH(QString, entry);
    QFETCH(QString, state);
    QFETCH(bool, acts);

    m_window->setButtonState(state);
    QSignalSpy checks(&m_window->engine(), &Updater::checkingForUpdates);
    // Whatever dialog the entry opens is seen and dismissed.
    bool dialogOpened = false;
    QTimer::singleShot(0, this, [&dialogOpened] {
        if (auto *dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget())) {
            dialogOpened = true;
            dialog->reject();
        }
    });
    menuEntry(openMenu(), entry)->trigger();
    QCoreApplication::processEvents();

    QCOMPARE(!checks.isEmpty(), acts && entry == QLatin1String("Check for Updates"));
    QCOMPARE(dialogOpened, acts && entry == QLatin1String("Modify Install"));
    QCOMPARE(!m_questions.isEmpty(), acts && entry == QLatin1String("Uninstall"));
}

void TestSettingsMenu::languageSwitch_data()
{
    // The manage button's text, the menu's first entry, then the sidebar's names.
    QTest::addColumn<QJsonArray>("categories");
    QTest::addColumn<QString>("language");
    QTest::addColumn<QStringList>("texts");

    QTest::newRow("Portuguese") << Categories << QStringLiteral("Português (Brasil)")
                                << QStringList {"Jogar",        "Idioma", "Site",    QStringLiteral("Atualizações"),
                                                "Guia de Jogo", "Loja",   "Discord", "Twitch"};
    QTest::newRow("English") << Categories << "English"
                             << QStringList {"Play", "Language", "Website", "Patch Notes", "New Player Guide",
                                             "Shop", "Discord",  "Twitch"};
    // No name to measure: the panel keeps only its margins.
    QTest::newRow("a separator alone") << QJsonArray {QJsonObject()} << "English" << QStringList {"Play", "Language"};
}

void TestSettingsMenu::languageSwitch()
{
    QFETCH(QJsonArray, categories);
    QFETCH(QString, language);
    QFETCH(QStringList, texts);

    if (categories != Categories)
        openWindow(writeConfiguration(QStringLiteral("separator"), categories));
    m_window->setButtonState(QStringLiteral("play"));
    // From the other language, so that every row is a real switch.
    m_window->applyLanguage(language == QLatin1String("English") ? QStringLiteral("pt") : QStringLiteral("en"));
    QAction *choice = menuEntry(openMenu()->actions().constFirst()->menu(), language);
    choice->trigger();
    QCOMPARE(QSettings().value(QStringLiteral("language")).toString(), choice->data().toString());

    // Re-translating the form puts back its own title.
    QCOMPARE(m_window->windowTitle(), QStringLiteral("Launcher"));
    QCOMPARE(m_window->findChild<QPushButton *>(QStringLiteral("manageButton"))->text(), texts.takeFirst());
    QCOMPARE(openMenu()->actions().constFirst()->text(), texts.takeFirst());

    // One set of rows, the separator among them, and the closing stretch.
    const QList<QWidget *> items = sidebarItems();
    QCOMPARE(items.size(), texts.size() + 2);
    QCOMPARE(items.last(), nullptr);
    QStringList shown;
    int widest = 0;
    for (QWidget *item : items.first(items.size() - 1)) {
        if (item->property("class").toString() != QLatin1String("CategoryButton")) {
            QCOMPARE(item->maximumSize(), QSize(80, 1));
            continue;
        }
        auto *label = item->findChildren<QLabel *>().constLast();
        label->ensurePolished();
        shown << label->text();
        // The bundled face is the one in use, so every system measures alike.
        const QFontInfo font(label->font());
        QVERIFY(font.family().startsWith(QLatin1String("Poppins")) && font.weight() == QFont::DemiBold);
        widest = qMax(widest, QFontMetrics(label->font()).horizontalAdvance(label->text()));
        const bool shop = shown.constLast() == QLatin1String("Shop") || shown.constLast() == QLatin1String("Loja");
        QCOMPARE(label->palette().color(QPalette::WindowText), QColor(shop ? "#FEFEC6" : "white"));
    }
    QCOMPARE(shown, texts);
    QCOMPARE(m_window->findChild<QWidget *>(QStringLiteral("categoriesPanel"))->width(), widest + 98);
}

void TestSettingsMenu::startupLanguage_data()
{
    // Stored language, system locale, then the text of "Install" and the checked language.
    QTest::addColumn<QStringList>("row");

    QTest::newRow("stored English beats a Portuguese system") << QStringList {"en", "pt_BR.UTF-8", "Install|en"};
    QTest::newRow("stored Portuguese beats a German system") << QStringList {"pt", "de_DE.UTF-8", "Instalar|pt"};
    QTest::newRow("nothing stored, Portuguese system") << QStringList {"", "pt_BR.UTF-8", "Instalar|pt"};
    QTest::newRow("nothing stored, German system") << QStringList {"", "de_DE.UTF-8", "Install|"};
}

void TestSettingsMenu::startupLanguage()
{
    QFETCH(QStringList, row);

    // Qt reads the system locale once per process.
    QTemporaryDir home;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), home.path());
    environment.insert(QStringLiteral("LC_ALL"), row.at(1));
    environment.remove(QStringLiteral("LANGUAGE"));
    QProcess probe;
    probe.setProcessEnvironment(environment);
    probe.start(QCoreApplication::applicationFilePath(),
                {QString::fromLatin1(LanguageProbe), m_configuration, row.at(0)});
    // Waited for in the event loop: the probe's news request needs the server.
    QTRY_COMPARE_WITH_TIMEOUT(probe.state(), QProcess::NotRunning, 60000);
    QCOMPARE(QString::fromUtf8(probe.readAllStandardOutput()).trimmed(), row.at(2));
}

void TestSettingsMenu::rowRelease_data()
{
    QTest::addColumn<QString>("row");
    QTest::addColumn<Qt::MouseButton>("button");
    QTest::addColumn<QList<QUrl>>("opened");

    QTest::newRow("left button opens the page")
        << "Shop" << Qt::LeftButton << QList<QUrl> {QUrl(QStringLiteral("launchertest://open/shop"))};
    QTest::newRow("right button opens nothing") << "Shop" << Qt::RightButton << QList<QUrl>();
    QTest::newRow("row without a page") << "Twitch" << Qt::LeftButton << QList<QUrl>();
}

void TestSettingsMenu::rowRelease()
{
    QFETCH(QString, row);
    QFETCH(Qt::MouseButton, button);
    QFETCH(QList<QUrl>, opened);

    QWidget *target = nullptr;
    for (QWidget *item : sidebarItems()) {
        const auto *label = item ? item->findChildren<QLabel *>().value(1) : nullptr;
        if (label && label->text() == row)
            target = item;
    }
    QVERIFY(target);

    // Released outside, as after a drag away: under Qt's implicit grab the row still gets it.
    const QPointF outside(-20, 5);
    QMouseEvent release(QEvent::MouseButtonRelease, outside, target->mapToGlobal(outside), button, Qt::NoButton,
                        Qt::NoModifier);
    QCoreApplication::sendEvent(target, &release);
    QCOMPARE(m_opened, opened);
    // Consumed only when a page was opened.
    QCOMPARE(static_cast<QObject *>(m_window.get())->eventFilter(target, &release), !opened.isEmpty());
}

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    app.setAttribute(Qt::AA_Use96Dpi, true);
    if (argc == 4 && qstrcmp(argv[1], LanguageProbe) == 0)
        return probeLanguage(QString::fromLocal8Bit(argv[2]), QString::fromLocal8Bit(argv[3]));

    TestSettingsMenu test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_ui_settings.moc"
