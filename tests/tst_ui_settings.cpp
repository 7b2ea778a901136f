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

    QJsonObject category(const char *name, const char *url = "", const char *color = "")
    {
        return {{"name", name}, {"icon", ":/resources/icon_website.svg"}, {"url", url}, {"color", color}};
    }

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

    // The child side of startupLanguage: a fresh process, so that the system locale is the one its environment names.
    int probeLanguage(const QString &configuration, const QString &stored)
    {
        {
            // Written directly, since setLanguage skips a value equal to its own default.
            Settings settings(configuration, nullptr);
            stored.isEmpty() ? QSettings().remove("language") : QSettings().setValue("language", stored);
        }
        MainWindow window(configuration);
        window.showSettingsMenu();
        const QAction *checked = window.findChild<QActionGroup *>()->checkedAction();
        QTextStream(stdout) << MainWindow::tr("Install") << '|' << (checked ? checked->data().toString() : "");
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
    void initTestCase()
    {
        m_configuration = TestFiles::writeConfiguration(
            m_scratch.path(),
            {{"applicationName", "Menu Test Game"},
             {"updateUrl", m_server.baseUrl().toString().append("/game")},
             {"logoImage", "hm_logo.png"},
             // The longest name changes with the language.
             {"categories",
              QJsonArray {category("New Player Guide"), QJsonObject(),
                          category("Shop", "launchertest://open/shop", "#FEFEC6"), category("Twitch")}}});
        m_server.setContent("/game/checksums.txt.gz", qCompress("{\"files\": {}}"));
        QDesktopServices::setUrlHandler("launchertest", this, "recordUrl");
    }

    void cleanupTestCase() { QDesktopServices::unsetUrlHandler("launchertest"); }

    void init()
    {
        m_opened.clear();
        m_install = std::make_unique<QTemporaryDir>(m_scratch.filePath("install-XXXXXX"));
        {
            // Stored before the window exists: a change of path starts a check.
            Settings settings(m_configuration, nullptr);
            settings.setInstallPath(m_install->path());
            QSettings().setValue("language", "en");
        }
        m_window = std::make_unique<MainWindow>(m_configuration);
        // The start-up flow would check the launcher and the game by itself.
        disconnect(m_window.get(), &MainWindow::backgroundSetupComplete, m_window.get(),
                   &MainWindow::onBackgroundSetupComplete);
    }

    void cleanup() { m_window.reset(); }

    void entries_data()
    {
        // The manage button's state, the menu it shows, then what the entries that start engine work did. Installed
        // and animated or neither, as the menu tells.
        QTest::addColumn<QString>("state");
        QTest::addColumn<QStringList>("texts");
        QTest::addColumn<QString>("actions");

        const QStringList full {"Language", "Show in Explorer", "Check for Updates", "Disable Animations",
                                "",         "Modify Install",   "Uninstall"};
        QTest::newRow("installed, animated, idle") << "play" << full << "Confirm Uninstall,Game Files Location,check";
        // Still offered, but only while the manage button takes a press.
        QTest::newRow("installed, busy") << "updating" << full << "";
        QTest::newRow("no install directory, still")
            << "play" << QStringList {"Language", "Enable Animations", "", "Modify Install"} << "Game Files Location";
    }

    void entries()
    {
        QFETCH(QString, state);
        QFETCH(QStringList, texts);
        QFETCH(QString, actions);
        const bool installed = texts.contains("Uninstall"), animated = texts.contains("Disable Animations");

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
        QAction *animations = menu->actions().at(texts.indexOf(QString()) - 1);
        animations->trigger();
        QCOMPARE(Settings::instance()->animationsEnabled(), !animated);
        QCOMPARE(animations->text(), animated ? "Enable Animations" : "Disable Animations");
        QCOMPARE(video->isPlaying(), !animated);
        // Built anew on each click: this one is gone once it has closed.
        menu->close();
        QTRY_VERIFY(menu.isNull());

        // What each entry that starts engine work did: a question asked, a dialog opened, a check started.
        QStringList acted;
        UserPrompt::setHandlers({{}, {}, {}, [&acted](const QString &title, const QString &, QWidget *) {
                                     acted << title;
                                     return UserPrompt::Answer::No;
                                 }});
        connect(&m_window->engine(), &Updater::checkingForUpdates, this, [&acted] { acted << "check"; });
        QTimer::singleShot(0, this, [&acted] {
            if (auto *dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget())) {
                acted << dialog->windowTitle();
                dialog->reject();
            }
        });
        m_window->setButtonState(state);
        for (const char *entry : {"Uninstall", "Modify Install", "Check for Updates"}) {
            if (QAction *action = menuEntry(openMenu(), entry))
                action->trigger();
        }
        QCoreApplication::processEvents();
        QCOMPARE(acted.join(','), actions);
    }

    void languageSwitch_data()
    {
        // The manage button's text, the menu's first entry, then the sidebar's names.
        QTest::addColumn<QString>("language");
        QTest::addColumn<QStringList>("texts");

        QTest::newRow("Portuguese") << QStringLiteral("Português (Brasil)")
                                    << QStringList {"Jogar", "Idioma", "Guia de Jogo", "Loja", "Twitch"};
        QTest::newRow("English") << "English" << QStringList {"Play", "Language", "New Player Guide", "Shop", "Twitch"};
    }

    void languageSwitch()
    {
        QFETCH(QString, language);
        QFETCH(QStringList, texts);

        m_window->setButtonState(QStringLiteral("play"));
        // From the other language, so that every row is a real switch.
        m_window->applyLanguage(language == QLatin1String("English") ? QStringLiteral("pt") : QStringLiteral("en"));
        QAction *choice = menuEntry(openMenu()->actions().constFirst()->menu(), language);
        choice->trigger();
        QCOMPARE(QSettings().value("language").toString(), choice->data().toString());
        QCOMPARE(m_window->findChild<QPushButton *>("manageButton")->text(), texts.takeFirst());
        QCOMPARE(openMenu()->actions().constFirst()->text(), texts.takeFirst());

        // One set of rows, the separator among them, and the closing stretch.
        auto *panel = m_window->findChild<QWidget *>("categoriesPanel");
        const int count = panel->layout()->count();
        QCOMPARE(count, texts.size() + 2);
        QCOMPARE(panel->layout()->itemAt(count - 1)->widget(), nullptr);
        // Released outside, as after a drag away: under Qt's implicit grab the row still gets it.
        const auto released = [](QWidget *row, Qt::MouseButton button) {
            QMouseEvent event(QEvent::MouseButtonRelease, QPointF(-20, 5), row->mapToGlobal(QPointF(-20, 5)), button,
                              Qt::NoButton, Qt::NoModifier);
            QCoreApplication::sendEvent(row, &event);
            return event.isAccepted();
        };
        QStringList shown;
        int widest = 0;
        for (int i = 0; i < count - 1; ++i) {
            QWidget *row = panel->layout()->itemAt(i)->widget();
            const QLabel *label = row->findChildren<QLabel *>().value(1);
            if (!label)
                continue;
            label->ensurePolished();
            shown << label->text();
            // The bundled face is the one in use, so every system measures alike.
            const QFontInfo font(label->font());
            QVERIFY(font.family().startsWith(QLatin1String("Poppins")) && font.weight() == QFont::DemiBold);
            widest = qMax(widest, QFontMetrics(label->font()).horizontalAdvance(label->text()));
            const bool shop = label->text() == QLatin1String("Shop") || label->text() == QLatin1String("Loja");
            QCOMPARE(label->palette().color(QPalette::WindowText), QColor(shop ? "#FEFEC6" : "white"));
            // A left release on a row with a page opens it and is consumed there.
            QVERIFY(!released(row, Qt::RightButton));
            QCOMPARE(released(row, Qt::LeftButton), shop);
        }
        QCOMPARE(shown, texts);
        QCOMPARE(m_opened, QList<QUrl> {QUrl("launchertest://open/shop")});
        QCOMPARE(panel->width(), widest + 98);
    }

    void startupLanguage_data()
    {
        // Stored language, system locale, then the text of "Install" and the checked language.
        QTest::addColumn<QStringList>("row");

        QTest::newRow("stored English beats a Portuguese system") << QStringList {"en", "pt_BR.UTF-8", "Install|en"};
        QTest::newRow("nothing stored, Portuguese system") << QStringList {"", "pt_BR.UTF-8", "Instalar|pt"};
        QTest::newRow("nothing stored, German system") << QStringList {"", "de_DE.UTF-8", "Install|"};
    }

    void startupLanguage()
    {
        QFETCH(QStringList, row);
        // Qt reads the system locale once per process.
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("LC_ALL", row.at(1));
        environment.remove("LANGUAGE");
        QProcess probe;
        probe.setProcessEnvironment(environment);
        probe.start(QCoreApplication::applicationFilePath(), {LanguageProbe, m_configuration, row.at(0)});
        QVERIFY(probe.waitForFinished(60000));
        QCOMPARE(QString::fromUtf8(probe.readAllStandardOutput()), row.at(2));
    }

private:
    QMenu *openMenu()
    {
        m_window->findChild<QPushButton *>("settingsButton")->click();
        // Menus that were not closed by a click elsewhere are still there.
        return m_window->findChildren<QMenu *>("settingsMenu", Qt::FindDirectChildrenOnly).constLast();
    }

    IsolatedSettings m_isolation;
    QTemporaryDir m_scratch;
    TestHttpServer m_server;
    QString m_configuration;
    std::unique_ptr<QTemporaryDir> m_install;
    std::unique_ptr<MainWindow> m_window;
    QList<QUrl> m_opened;
};

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
