#include <QApplication>
#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QLoggingCategory>

#include "relocatedirectory.h"
#include "ui/mainwindow.h"

int main(int argc, char *argv[])
{
    QGuiApplication::setHighDpiScaleFactorRoundingPolicy(Qt::HighDpiScaleFactorRoundingPolicy::Floor);
    // The layout is cut in device pixels; Qt 6 ignores the attribute, but a
    // build against an older Qt must not scale the window either.
    QT_WARNING_PUSH
    QT_WARNING_DISABLE_DEPRECATED
    QCoreApplication::setAttribute(Qt::AA_DisableHighDpiScaling, true);
    QT_WARNING_POP

    QApplication app(argc, argv);

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Hollowmere Launcher"));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption sourceOption(QStringLiteral("source"),
                                          QStringLiteral("Source directory containing files to move"),
                                          QStringLiteral("source"));
    const QCommandLineOption destOption(QStringLiteral("dest"), QStringLiteral("Destination directory for files"),
                                        QStringLiteral("dest"));
    const QCommandLineOption ignoreOption(QStringLiteral("ignore"), QStringLiteral("Files to ignore"),
                                          QStringLiteral("ignore"));
    parser.addOption(sourceOption);
    parser.addOption(destOption);
    parser.addOption(ignoreOption);
    parser.process(app);

    // The launcher runs itself in this mode, often elevated, to move files
    // into the install directory; the exit code is all the caller reads.
    if (parser.isSet(sourceOption) && parser.isSet(destOption)) {
        const bool moved
            = relocateDirectory(parser.value(sourceOption), parser.value(destOption), parser.value(ignoreOption));
        return moved ? 0 : 1;
    }

    QLoggingCategory::setFilterRules(QStringLiteral("qt.multimedia.ffmpeg.*=false"));

    MainWindow window;
    window.show();
    return app.exec();
}
