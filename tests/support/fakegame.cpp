// Stands in for the game: opens one window titled $FAKE_GAME_TITLE and quits
// after $FAKE_GAME_SECONDS, as a player closing the game would.
#include <QApplication>
#include <QLabel>
#include <QTimer>

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    const QString title = qEnvironmentVariable("FAKE_GAME_TITLE", QStringLiteral("Hollowmere"));
    const int seconds = qEnvironmentVariableIntValue("FAKE_GAME_SECONDS");

    QLabel window(title);
    window.setWindowTitle(title);
    window.resize(320, 200);
    window.show();
    QTimer::singleShot((seconds > 0 ? seconds : 30) * 1000, &app, &QCoreApplication::quit);
    return app.exec();
}
