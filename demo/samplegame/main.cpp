// Stands in for the game in the demo and the tests: one window titled like
// the product, closed by the player or after $SAMPLE_GAME_SECONDS.
#include <QApplication>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);

    // The launcher starts the game with no arguments and waits for a window
    // with exactly the product's name as title.
    QString title = qEnvironmentVariable("SAMPLE_GAME_TITLE");
    QFile titleFile(QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("game-title.txt")));
    if (title.isEmpty() && titleFile.open(QIODevice::ReadOnly))
        title = QString::fromUtf8(titleFile.readAll()).trimmed();
    if (title.isEmpty())
        title = QStringLiteral("Hollowmere");

    QWidget window;
    window.setWindowTitle(title);
    window.setStyleSheet(QStringLiteral("background: #10131c; color: #FEFEC6; font-size: 28px;"));
    auto *layout = new QVBoxLayout(&window);
    auto *label = new QLabel(title, &window);
    label->setAlignment(Qt::AlignCenter);
    auto *quit = new QPushButton(QStringLiteral("Quit"), &window);
    layout->addWidget(label);
    layout->addWidget(quit);
    QObject::connect(quit, &QPushButton::clicked, &app, &QCoreApplication::quit);
    window.resize(480, 270);
    window.show();

    const int seconds = qEnvironmentVariableIntValue("SAMPLE_GAME_SECONDS");
    if (seconds > 0)
        QTimer::singleShot(seconds * 1000, &app, &QCoreApplication::quit);
    return app.exec();
}
