#include <QActionGroup>
#include <QDesktopServices>
#include <QDialog>
#include <QJsonArray>
#include <QJsonObject>
#include <QLabel>
#include <QLayout>
#include <QMenu>
#include <QProcess>
#include <QPushButton>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

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
    // What a Portuguese player must read, written out here rather than taken
    // from the catalogue, so that a wrong or missing entry there fails.
    const char *const Catalogue[][2] = {
        {"Browse", "Explorar"},
        {"Calculating...", "Calculando..."},
        {"Cancel", "Cancelar"},
        {"Check for Updates", "Verificar Atualizações"},
        {"Checking for updates", "Verificando atualizações"},
        {"Confirm", "Confirmar"},
        {"Confirm Location Change", "Confirmar Alteração de Local"},
        {"Disable Animations", "Desativar Animações"},
        {"Discord", "Discord"},
        {"Download Error", "Erro no Download"},
        {"Enable Animations", "Ativar Animações"},
        {"Error", "Erro"},
        {"Failed to launch the game. Please verify your installation.",
         "Falha ao iniciar o jogo. Verifique sua instalação."},
        {"Failed to migrate old files to the new installation path.",
         "Falha ao migrar os arquivos antigos para o novo caminho de instalação."},
        {"Failed to move game files. Please try again.",
         "Falha ao mover os arquivos do jogo. Por favor, tente novamente."},
        {"Game Files Location", "Localização dos Arquivos do Jogo"},
        {"Game executable not found. Please verify your installation.",
         "O executável do jogo não foi encontrado. Verifique sua instalação."},
        {"Game files moved successfully.", "Arquivos do jogo movidos com sucesso."},
        {"Install", "Instalar"},
        {"Installing", "Instalando"},
        {"Language", "Idioma"},
        {"Launch Failed", "Falha ao Iniciar"},
        {"Launcher", "Launcher"},
        {"Launching", "Iniciando"},
        {"Legacy Installation Detected", "Instalação Antiga Detectada"},
        {"Migration Complete", "Migração Concluída"},
        {"Migration Failed", "Falha na Migração"},
        {"Modify Install", "Modificar Instalação"},
        {"New Player Guide", "Guia de Jogo"},
        {"Old files have been migrated to the new installation path successfully!",
         "Os arquivos antigos foram migrados com sucesso para o novo caminho de instalação!"},
        {"Patch Notes", "Atualizações"},
        {"Play", "Jogar"},
        {"Playing", "Jogando"},
        {"Please select where you would like to install the game.", "Selecione onde deseja instalar o jogo."},
        {"Hollowmere Wiki", "Hollowmere Wiki"},
        {"Select Game Files Directory", "Selecionar Pasta dos Arquivos do Jogo"},
        {"Shop", "Loja"},
        {"Show in Explorer", "Mostrar na Pasta"},
        {"Success", "Sucesso"},
        {"Twitch", "Twitch"},
        {"Twitter (X)", "Twitter (X)"},
        {"Uninstall", "Desinstalar"},
        {"Update", "Atualizar"},
        {"Updating", "Atualizando"},
        {"Warning: Changing the location might require a full reinstallation of the game.",
         "Aviso: Alterar o local pode exigir a reinstalação completa do jogo."},
        {"We have detected a legacy installation. Would you like to migrate old files to the new installation path?",
         "Detectamos uma instalação antiga. Deseja migrar os arquivos antigos para o novo caminho de instalação?"},
        {"Website", "Site"},
        {"Would you like to move your current game files to the new location?",
         "Deseja mover seus arquivos atuais do jogo para o novo local?"},
        {"YouTube", "YouTube"},
    };

    const char LanguageProbe[] = "--language-probe";

    QJsonObject category(const char *name, const char *icon, const char *page = nullptr, const char *color = nullptr)
    {
        QJsonObject object {{"name", name}, {"icon", QString(":/resources/icon_" + QLatin1String(icon) + ".svg")}};
        if (page)
            object.insert("url", QString("launchertest://open/" + QLatin1String(page)));
        if (color)
            object.insert("color", color);
        return object;
    }

    // Twitch has no page, to have a row that opens nothing.
    const QJsonArray Categories {
        category("Website", "website", "website"),
        category("Patch Notes", "patch_notes", "notes"),
        category("New Player Guide", "guide", "guide"),
        category("Shop", "store", "shop", "#FEFEC6"),
        QJsonObject(),
        category("Discord", "discord", "discord"),
        category("Twitch", "twitch"),
    };

    QStringList menuTexts(const QMenu *menu)
    {
        QStringList texts;
        for (const QAction *action : menu->actions())
            texts << action->text();
        return texts;
    }

    QAction *menuEntry(const QMenu *menu, const QString &text)
    {
        for (QAction *action : menu->actions()) {
            if (action->text() == text)
                return action;
        }
        return nullptr;
    }

    QStringList checkedLanguages(const QMenu *menu)
    {
        QStringList codes;
        for (const QAction *action : menu->actions().constFirst()->menu()->actions()) {
            if (action->isChecked())
                codes << action->data().toString();
        }
        return codes;
    }

    // The child side of startupLanguage: a fresh process, so that the
    // system locale is the one its environment names.
    int probeLanguage(const QString &configuration, const QString &stored)
    {
        if (!stored.isEmpty()) {
            // Settings gives QSettings its scope. Written directly, since
            // setLanguage skips a value equal to its own default.
            Settings settings(configuration, nullptr);
            QSettings().setValue(QStringLiteral("language"), stored);
        }
        MainWindow window(configuration);
        window.showSettingsMenu();
        const auto *menu = window.findChild<QMenu *>(QStringLiteral("settingsMenu"));
        QTextStream(stdout) << MainWindow::tr("Install") << '|' << checkedLanguages(menu).join(QLatin1Char(','))
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
    void cleanupTestCase();
    void init();
    void cleanup();

    void entries_data();
    void entries();
    void gatedEntries_data();
    void gatedEntries();
    void animationSwitch_data();
    void animationSwitch();
    void catalogue();
    void languageSwitch_data();
    void languageSwitch();
    void startupLanguage_data();
    void startupLanguage();
    void sidebarOfOneSeparator();
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
    QDesktopServices::setUrlHandler(QStringLiteral("launchertest"), this, "recordUrl");
}

void TestSettingsMenu::cleanupTestCase()
{
    QDesktopServices::unsetUrlHandler(QStringLiteral("launchertest"));
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
    m_server.reset();
    m_opened.clear();
    m_questions.clear();
    m_install = std::make_unique<QTemporaryDir>(m_scratch.filePath(QStringLiteral("install-XXXXXX")));
    {
        // Stored before the window exists: a change of path starts a check.
        Settings settings(m_configuration, nullptr);
        settings.setInstallPath(m_install->path());
        settings.setAnimationsEnabled(true);
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

void TestSettingsMenu::cleanup()
{
    m_window.reset();
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
    QTest::addColumn<QStringList>("texts");

    QTest::newRow("installed") << true
                               << QStringList {
                                      "Language", "Show in Explorer", "Check for Updates", "Disable Animations",
                                      "",         "Modify Install",   "Uninstall"};
    QTest::newRow("no install directory")
        << false << QStringList {"Language", "Disable Animations", "", "Modify Install"};
}

void TestSettingsMenu::entries()
{
    QFETCH(bool, installed);
    QFETCH(QStringList, texts);

    if (!installed)
        QVERIFY(m_install->remove());
    QPointer<QMenu> menu = openMenu();
    QCOMPARE(menuTexts(menu), texts);
    QVERIFY(menu->actions().at(texts.indexOf(QString()))->isSeparator());
    QCOMPARE(menuTexts(menu->actions().constFirst()->menu()),
             (QStringList {"English", QStringLiteral("Português (Brasil)")}));
    QCOMPARE(checkedLanguages(menu), QStringList {"en"});

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

    m_server.setContent(QStringLiteral("/game/checksums.txt.gz"), qCompress("{\"files\": {}}"));
    const QString kept = m_install->filePath(QStringLiteral("kept.bin"));
    QVERIFY(TestFiles::write(kept, "kept"));
    m_window->setButtonState(state);
    QSignalSpy checks(&m_window->engine(), &Updater::checkingForUpdates);

    // Whatever dialog the entry opens is seen and dismissed, modal or not.
    bool dialogOpened = false;
    QTimer::singleShot(0, this, [&dialogOpened] {
        for (QWidget *widget : QApplication::topLevelWidgets()) {
            auto *dialog = qobject_cast<QDialog *>(widget);
            if (dialog && dialog->isVisible()) {
                dialogOpened = true;
                dialog->reject();
            }
        }
    });
    QAction *action = menuEntry(openMenu(), entry);
    QVERIFY(action);
    action->trigger();
    QCoreApplication::processEvents();

    const bool checked = !checks.isEmpty();
    const bool asked = !m_questions.isEmpty();
    QCOMPARE(checked, acts && entry == QLatin1String("Check for Updates"));
    QCOMPARE(dialogOpened, acts && entry == QLatin1String("Modify Install"));
    QCOMPARE(asked, acts && entry == QLatin1String("Uninstall"));
    if (checked)
        QTRY_VERIFY(m_server.requests().contains(QStringLiteral("/game/checksums.txt.gz")));
    QVERIFY(QFile::exists(kept));
}

void TestSettingsMenu::animationSwitch_data()
{
    QTest::addColumn<bool>("enabledBefore");
    QTest::addColumn<QStringList>("texts");

    QTest::newRow("switched off") << true << QStringList {"Disable Animations", "Enable Animations"};
    QTest::newRow("switched on") << false << QStringList {"Enable Animations", "Disable Animations"};
}

void TestSettingsMenu::animationSwitch()
{
    QFETCH(bool, enabledBefore);
    QFETCH(QStringList, texts);

    Settings::instance()->setAnimationsEnabled(enabledBefore);
    QSignalSpy firstPaint(m_window.get(), &MainWindow::backgroundSetupComplete);
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    QTRY_COMPARE(firstPaint.count(), 1);
    const auto *video = m_window->findChild<BackgroundVideo *>();
    QVERIFY(video);
    QTRY_COMPARE(video->isPlaying(), enabledBefore);

    QMenu *menu = openMenu();
    QAction *action = menuEntry(menu, texts.first());
    QVERIFY(action);
    action->trigger();
    QCOMPARE(Settings::instance()->animationsEnabled(), !enabledBefore);
    QCOMPARE(action->text(), texts.last());
    QCOMPARE(video->isPlaying(), !enabledBefore);
}

void TestSettingsMenu::catalogue()
{
    for (const char *language : {"pt", "en"}) {
        m_window->applyLanguage(QString::fromLatin1(language));
        for (const auto &entry : Catalogue)
            QCOMPARE(MainWindow::tr(entry[0]), QString::fromUtf8(entry[qstrcmp(language, "pt") == 0 ? 1 : 0]));
    }
}

void TestSettingsMenu::languageSwitch_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<QString>("playText");
    QTest::addColumn<QString>("languageTitle");

    QTest::newRow("Portuguese") << QStringLiteral("Português (Brasil)")
                                << QStringList {"Site",         QStringLiteral("Atualizações"),
                                                "Guia de Jogo", "Loja",
                                                "Discord",      "Twitch"}
                                << "Jogar"
                                << "Idioma";
    QTest::newRow("English") << "English"
                             << QStringList {"Website", "Patch Notes", "New Player Guide", "Shop", "Discord", "Twitch"}
                             << "Play"
                             << "Language";
}

void TestSettingsMenu::languageSwitch()
{
    QFETCH(QString, language);
    QFETCH(QStringList, names);
    QFETCH(QString, playText);
    QFETCH(QString, languageTitle);

    m_window->setButtonState(QStringLiteral("play"));
    // From the other language, so that every row is a real switch.
    m_window->applyLanguage(language == QLatin1String("English") ? QStringLiteral("pt") : QStringLiteral("en"));
    const QList<QWidget *> oldRows = sidebarItems();

    QMenu *menu = openMenu();
    QAction *choice = menuEntry(menu->actions().constFirst()->menu(), language);
    QVERIFY(choice);
    choice->trigger();
    const QString code = choice->data().toString();
    QCOMPARE(QSettings().value(QStringLiteral("language")).toString(), code);

    QCOMPARE(m_window->windowTitle(), QStringLiteral("Launcher"));
    QCOMPARE(m_window->findChild<QPushButton *>(QStringLiteral("manageButton"))->text(), playText);
    QCOMPARE(openMenu()->actions().constFirst()->text(), languageTitle);

    // One set of rows, the separator among them, and the closing stretch.
    QList<QWidget *> items = sidebarItems();
    QCOMPARE(items.size(), names.size() + 2);
    QCOMPARE(items.last(), nullptr);
    for (QWidget *old : oldRows)
        QVERIFY(!old || !items.contains(old));
    QStringList shown;
    QList<QLabel *> texts;
    for (QWidget *item : std::as_const(items)) {
        if (item && item->property("class").toString() == QLatin1String("CategoryButton")) {
            texts << item->findChildren<QLabel *>().constLast();
            shown << texts.constLast()->text();
        }
    }
    QCOMPARE(shown, names);

    // The bundled face is the one in use, so every system measures alike.
    const QFont font = texts.constFirst()->font();
    QCOMPARE(QFontInfo(font).weight(), int(QFont::DemiBold));
    QVERIFY2(QFontInfo(font).family().startsWith(QLatin1String("Poppins")), qPrintable(QFontInfo(font).family()));
    int widest = 0;
    for (const QString &name : std::as_const(names))
        widest = qMax(widest, QFontMetrics(font).horizontalAdvance(name));
    QCOMPARE(m_window->findChild<QWidget *>(QStringLiteral("categoriesPanel"))->width(), widest + 98);

    for (QLabel *label : std::as_const(texts))
        label->ensurePolished();
    QCOMPARE(
        texts.at(names.indexOf(QRegularExpression(QStringLiteral("Shop|Loja"))))->palette().color(QPalette::WindowText),
        QColor(QStringLiteral("#FEFEC6")));
    QCOMPARE(texts.constFirst()->palette().color(QPalette::WindowText), QColor(Qt::white));
}

void TestSettingsMenu::startupLanguage_data()
{
    // Stored language, system locale, then what the window shows: the text
    // of "Install" and the checked language entries.
    QTest::addColumn<QStringList>("row");

    QTest::newRow("stored English beats a Portuguese system") << QStringList {"en", "pt_BR.UTF-8", "Install|en"};
    QTest::newRow("stored Portuguese beats a German system") << QStringList {"pt", "de_DE.UTF-8", "Instalar|pt"};
    QTest::newRow("nothing stored, Portuguese system") << QStringList {"", "pt_BR.UTF-8", "Instalar|pt"};
    QTest::newRow("nothing stored, German system") << QStringList {"", "de_DE.UTF-8", "Install|"};
}

void TestSettingsMenu::startupLanguage()
{
    QFETCH(QStringList, row);
    const QString &systemLocale = row.at(1);

    // Qt reads the system locale once per process.
    QTemporaryDir home;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("HOME"), home.path());
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), home.path());
    environment.insert(QStringLiteral("LC_ALL"), systemLocale);
    environment.remove(QStringLiteral("LANGUAGE"));
    QProcess probe;
    probe.setProcessEnvironment(environment);
    probe.start(QCoreApplication::applicationFilePath(),
                {QString::fromLatin1(LanguageProbe), m_configuration, row.at(0)});
    // Waited for in the event loop: the probe's news request needs the server.
    QTRY_COMPARE_WITH_TIMEOUT(probe.state(), QProcess::NotRunning, 60000);
    QCOMPARE(QString::fromUtf8(probe.readAllStandardOutput()).trimmed(), row.at(2));
}

// A separator alone: no name to measure, a short line, the closing stretch.
void TestSettingsMenu::sidebarOfOneSeparator()
{
    openWindow(writeConfiguration(QStringLiteral("separator"), {QJsonObject()}));
    const auto *panel = m_window->findChild<QWidget *>(QStringLiteral("categoriesPanel"));
    QCOMPARE(panel->width(), 98);
    const QList<QWidget *> items = sidebarItems();
    QCOMPARE(items.size(), 2);
    QCOMPARE(items.constFirst()->maximumSize(), QSize(80, 1));
    QVERIFY(panel->layout()->itemAt(1)->spacerItem());
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

    // Released outside the row, as after a press on it and a drag away: the
    // row still gets the release, as under Qt's implicit grab.
    const QPointF outside(-20, 5);
    QMouseEvent release(QEvent::MouseButtonRelease, outside, target->mapToGlobal(outside), button, Qt::NoButton,
                        Qt::NoModifier);
    QCoreApplication::sendEvent(target, &release);
    QCOMPARE(m_opened, opened);

    // Consumed only when a page was opened.
    QObject *filter = m_window.get();
    QCOMPARE(filter->eventFilter(target, &release), !opened.isEmpty());
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
