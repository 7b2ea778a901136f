#include <QtTest>
#include <QtWidgets>

#include "support/testwindow.h"
#include "ui/backgroundvideo.h"

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

    // The child side of startupLanguage: a fresh process, so that the system locale is the one its environment names.
    int probeLanguage(const QString &configuration, const QString &stored)
    {
        {
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
class TestSettingsMenu : public QObject, public TestWindow
{
    Q_OBJECT

public slots:
    void recordUrl(const QUrl &url) { told << url.toString(); }

private slots:
    void initTestCase()
    {
        // The longest name changes with the language.
        configure({{"applicationName", "Menu Test Game"},
                   {"categories",
                    QJsonArray {category("New Player Guide"), QJsonObject(),
                                category("Shop", "launchertest://open/shop", "#FEFEC6"), category("Twitch")}}});
        serve({});
        QDesktopServices::setUrlHandler("launchertest", this, "recordUrl");
    }

    void cleanupTestCase() { QDesktopServices::unsetUrlHandler("launchertest"); }
    void init() { open(); }

    void entries_data()
    {
        // The menu (installed and animated, or neither), then what the engine's entries did; none while busy.
        QTest::addColumn<QStringList>("texts");
        QTest::addColumn<QString>("actions");
        const QStringList full {"Language", "Show in Explorer", "Check for Updates", "Disable Animations",
                                "",         "Modify Install",   "Uninstall"};
        QTest::newRow("installed, animated, idle") << full << "question:Confirm Uninstall,Game Files Location,check";
        QTest::newRow("installed, busy") << full << "";
        QTest::newRow("no install directory, still")
            << QStringList {"Language", "Enable Animations", "", "Modify Install"} << "Game Files Location";
    }

    void entries()
    {
        QFETCH(QStringList, texts);
        QFETCH(QString, actions);
        const bool animated = texts.contains("Disable Animations");
        QVERIFY(texts.contains("Uninstall") || install->remove());
        Settings::instance()->setAnimationsEnabled(animated);
        QSignalSpy firstPaint(window.get(), &MainWindow::backgroundSetupComplete);
        window->show();
        QTRY_COMPARE(firstPaint.count(), 1);
        const auto *video = window->findChild<BackgroundVideo *>();
        QTRY_COMPARE(video->isPlaying(), animated);
        QPointer<QMenu> menu = openMenu();
        QCOMPARE(menuTexts(menu), texts);
        QAction *animations = menu->actions().at(texts.indexOf(QString()) - 1);
        animations->trigger();
        QVERIFY(Settings::instance()->animationsEnabled() != animated && video->isPlaying() != animated);
        QCOMPARE(animations->text(), animated ? "Enable Animations" : "Disable Animations");
        // Built anew on each click: this one is gone once it has closed.
        menu->close();
        QTRY_VERIFY(menu.isNull());
        // The engine's entries ask a question, open a dialog, start a check; while busy they are shown but do nothing.
        connect(&window->engine(), &Updater::checkingForUpdates, this, [this] { told << "check"; });
        QTimer::singleShot(0, this, [this] {
            if (auto *dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget())) {
                told << dialog->windowTitle();
                dialog->reject();
            }
        });
        window->setButtonState(actions.isEmpty() ? "updating" : "play");
        for (const char *entry : {"Uninstall", "Modify Install", "Check for Updates"}) {
            const QMenu *fresh = openMenu();
            if (QAction *action = fresh->actions().value(menuTexts(fresh).indexOf(entry)))
                action->trigger();
        }
        QCoreApplication::processEvents();
        QCOMPARE(told.join(','), actions);
    }

    void languageSwitch_data()
    {
        // The language's name, the manage button's text, the menu's first entry, then the sidebar's names.
        QTest::addColumn<QStringList>("texts");
        QTest::newRow("Portuguese") << QStringList {
            QStringLiteral("Português (Brasil)"), "Jogar", "Idioma", "Guia de Jogo", "Loja", "Twitch"};
        QTest::newRow("English") << QStringList {"English", "Play", "Language", "New Player Guide", "Shop", "Twitch"};
    }

    void languageSwitch()
    {
        QFETCH(QStringList, texts);
        const QString language = texts.takeFirst();
        window->setButtonState(QStringLiteral("play"));
        // From the other language, so that every row is a real switch.
        window->applyLanguage(language == QLatin1String("English") ? QStringLiteral("pt") : QStringLiteral("en"));
        const QMenu *languages = openMenu()->actions().constFirst()->menu();
        QAction *choice = languages->actions().value(menuTexts(languages).indexOf(language));
        choice->trigger();
        QCOMPARE(QSettings().value("language").toString(), choice->data().toString());
        QCOMPARE(button()->text(), texts.takeFirst());
        QCOMPARE(openMenu()->actions().constFirst()->text(), texts.takeFirst());
        // One set of rows, the separator among them, and the closing stretch.
        auto *panel = window->findChild<QWidget *>("categoriesPanel");
        const int count = panel->layout()->count();
        QCOMPARE(count, texts.size() + 2);
        // Released outside, as after a drag away: under Qt's implicit grab the row still gets it.
        const auto released = [](QWidget *row, Qt::MouseButton which) {
            QMouseEvent event(QEvent::MouseButtonRelease, QPointF(-20, 5), row->mapToGlobal(QPointF(-20, 5)), which,
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
            const bool shop = texts.indexOf(label->text()) == 1;
            QCOMPARE(label->palette().color(QPalette::WindowText), QColor(shop ? "#FEFEC6" : "white"));
            // A left release on a row with a page opens it and is consumed there.
            QVERIFY(!released(row, Qt::RightButton) && released(row, Qt::LeftButton) == shop);
        }
        QCOMPARE(shown, texts);
        QCOMPARE(told, QStringList {"launchertest://open/shop"});
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
        probe.start(QCoreApplication::applicationFilePath(), {LanguageProbe, configuration, row.at(0)});
        QVERIFY(probe.waitForFinished(60000));
        QCOMPARE(QString::fromUtf8(probe.readAllStandardOutput()), row.at(2));
    }

private:
    QMenu *openMenu()
    {
        window->findChild<QPushButton *>("settingsButton")->click();
        // Menus that were not closed by a click elsewhere are still there.
        return window->findChildren<QMenu *>("settingsMenu", Qt::FindDirectChildrenOnly).constLast();
    }
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
