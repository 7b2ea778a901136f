#include <QtTest>
#include <QtWidgets>

#include "support/testwindow.h"
#include "ui/backgroundvideo.h"

// The settings menu, the language switch and the sidebar, on a window whose engine talks to the loopback server.
class TestSettingsMenu : public QObject, public TestWindow
{
    Q_OBJECT

public slots:
    void recordUrl(const QUrl &url) { told << url.toString(); }

private slots:
    void initTestCase()
    {
        // The longest name changes with the language.
        const QJsonObject shop {{"name", "Shop"}, {"url", "launchertest://open/shop"}, {"color", "#FEFEC6"}};
        configure({{"applicationName", "Menu Test Game"},
                   {"categories",
                    QJsonArray {QJsonObject {{"name", "New Player Guide"}}, QJsonObject(), shop,
                                QJsonObject {{"name", "Twitch"}}}}});
        serve({});
        QDesktopServices::setUrlHandler("launchertest", this, "recordUrl");
    }

    void cleanupTestCase() { QDesktopServices::unsetUrlHandler("launchertest"); }
    void init() { open(); }

    void entries_data()
    {
        // The menu (installed and animated, or neither), then what the engine's entries did; nothing while busy.
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
        // Built anew on each click: this one is gone once it has closed.
        menu->close();
        QTRY_VERIFY(menu.isNull());
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

    // The language chosen is stored and re-translates the button, the menu and the sidebar, whose width follows.
    void languageSwitch()
    {
        window->setButtonState("play");
        const QMenu *languages = openMenu()->actions().constFirst()->menu();
        languages->actions().value(menuTexts(languages).indexOf(QStringLiteral("Português (Brasil)")))->trigger();
        QCOMPARE(QSettings().value("language").toString() + button()->text()
                     + openMenu()->actions().constFirst()->text(),
                 "ptJogarIdioma");
        QLayout *rows = window->findChild<QWidget *>("categoriesPanel")->layout();
        QCOMPARE(rows->count(), 5);
        QStringList shown;
        int widest = 0;
        for (int i = 0; i < rows->count() - 1; ++i) {
            QWidget *row = rows->itemAt(i)->widget();
            const QLabel *label = row->findChildren<QLabel *>().value(1);
            if (!label)
                continue;
            label->ensurePolished();
            const QFontInfo font(label->font());
            QVERIFY(font.family().startsWith(QLatin1String("Poppins")) && font.weight() == QFont::DemiBold);
            widest = qMax(widest, QFontMetrics(label->font()).horizontalAdvance(label->text()));
            // A left release on a row with a page opens it and is consumed there, even outside after a drag away.
            shown << label->text() + ' ' + label->palette().color(QPalette::WindowText).name() + ' '
                    + QString::number(released(row, Qt::RightButton)) + QString::number(released(row, Qt::LeftButton));
        }
        QCOMPARE(shown, QStringList({"Guia de Jogo #ffffff 00", "Loja #fefec6 01", "Twitch #ffffff 00"}));
        QCOMPARE(told, QStringList {"launchertest://open/shop"});
        QCOMPARE(rows->parentWidget()->width(), widest + 98);
    }

    // With nothing stored the system's language holds from the start; stored English beat it in every other test.
    void startupLanguage()
    {
        window.reset();
        QSettings().remove("language");
        window = std::make_unique<MainWindow>(configuration);
        window->showSettingsMenu();
        QCOMPARE(window->findChild<QActionGroup *>()->checkedAction()->data().toString(), "pt");
        QCOMPARE(MainWindow::tr("Install"), "Instalar");
        window->applyLanguage("de");
        QCOMPARE(MainWindow::tr("Install"), "Install");
    }

private:
    QMenu *openMenu()
    {
        window->findChild<QPushButton *>("settingsButton")->click();
        // Menus that were not closed by a click elsewhere are still there.
        return window->findChildren<QMenu *>("settingsMenu", Qt::FindDirectChildrenOnly).constLast();
    }

    static QStringList menuTexts(const QMenu *menu)
    {
        QStringList texts;
        for (const QAction *action : menu->actions())
            texts << action->text();
        return texts;
    }

    // Under Qt's implicit grab a row gets the release also outside it.
    static bool released(QWidget *row, Qt::MouseButton which)
    {
        QMouseEvent event(QEvent::MouseButtonRelease, QPointF(-20, 5), row->mapToGlobal(QPointF(-20, 5)), which,
                          Qt::NoButton, Qt::NoModifier);
        QCoreApplication::sendEvent(row, &event);
        return event.isAccepted();
    }
};

int main(int argc, char *argv[])
{
    // A Portuguese system; Qt reads its locale once per process.
    qputenv("LC_ALL", "pt_BR.UTF-8");
    qunsetenv("LANGUAGE");
    QApplication app(argc, argv);
    app.setAttribute(Qt::AA_Use96Dpi, true);
    TestSettingsMenu test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_ui_settings.moc"
