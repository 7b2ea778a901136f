#pragma once

#include <QMessageBox>
#include <QPushButton>
#include <QSettings>
#include <QTemporaryDir>

#include <memory>

#include "config/settings.h"
#include "isolatedsettings.h"
#include "support/testfiles.h"
#include "support/testhttpserver.h"
#include "support/testmanifest.h"
#include "ui/mainwindow.h"
#include "updater/userprompt.h"

// The window in a private home, its patch server on loopback below "/game", its
// questions and alarms noted in `told` as "kind:title" and given `answer`.
class TestWindow
{
public:
    void configure(QJsonObject keys)
    {
        keys.insert(QStringLiteral("updateUrl"), server.baseUrl().toString().append(QStringLiteral("/game")));
        keys.insert(QStringLiteral("logoImage"), QStringLiteral("hm_logo.png"));
        configuration = TestFiles::writeConfiguration(scratch.path(), keys);
    }

    void serve(const QMap<QString, QByteArray> &files)
    {
        for (auto it = files.cbegin(); it != files.cend(); ++it)
            server.setContent(QStringLiteral("/game") + it.key(), it.value());
        server.setContent(QStringLiteral("/game/checksums.txt.gz"), TestManifest::body(files));
    }

    // A new window over a new install directory, stored before the window exists (a change of path starts a
    // check) or, as on a first start, not at all. Its first paint leaves the start-up flow to the test.
    void open(bool chosen = true)
    {
        window.reset();
        install = std::make_unique<QTemporaryDir>(scratch.filePath(QStringLiteral("install-XXXXXX")));
        {
            Settings settings(configuration, nullptr);
            QSettings().clear();
            // Directly, since setLanguage skips a value equal to its own default.
            QSettings().setValue(QStringLiteral("language"), QStringLiteral("en"));
            if (chosen) {
                settings.setInstallPath(install->path());
                settings.setHasSelectedInstallPath(true);
            }
        }
        window = std::make_unique<MainWindow>(configuration);
        QObject::disconnect(window.get(), &MainWindow::backgroundSetupComplete, window.get(),
                            &MainWindow::onBackgroundSetupComplete);
        told.clear();
        answer = UserPrompt::Answer::No;
        const auto note = [this](const char *kind) {
            return [this, kind](const QString &title, const QString &, QWidget *) {
                told << kind + title;
                return answer;
            };
        };
        UserPrompt::setHandlers({note("critical:"), note("warning:"), note("information:"), note("question:")});
    }

    // "title: text" of each box the window shows by itself.
    QStringList boxes() const
    {
        QStringList texts;
        for (const QMessageBox *box : window->findChildren<QMessageBox *>())
            texts << box->windowTitle() + QStringLiteral(": ") + box->text();
        return texts;
    }

    QPushButton *button() const { return window->findChild<QPushButton *>(QStringLiteral("manageButton")); }
    QString state() const { return button()->property("state").toString(); }

    IsolatedSettings isolation;
    QTemporaryDir scratch;
    TestHttpServer server;
    QString configuration;
    std::unique_ptr<QTemporaryDir> install;
    std::unique_ptr<MainWindow> window;
    QStringList told;
    UserPrompt::Answer answer = UserPrompt::Answer::No;
};
