#include <QApplication>
#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QLoggingCategory>

#include <memory>

#include "platform/eventdispatchers.h"
#include "relocatedirectory.h"
#include "ui/mainwindow.h"

namespace
{
    struct Options
    {
        QCommandLineOption source {QStringLiteral("source"),
                                   QStringLiteral("Source directory containing files to move"),
                                   QStringLiteral("source")};
        QCommandLineOption dest {QStringLiteral("dest"), QStringLiteral("Destination directory for files"),
                                 QStringLiteral("dest")};
        QCommandLineOption ignore {QStringLiteral("ignore"), QStringLiteral("Files to ignore"),
                                   QStringLiteral("ignore")};
    };

    void declare(QCommandLineParser &parser, const Options &options)
    {
        parser.setApplicationDescription(QStringLiteral("Hollowmere Launcher"));
        parser.addHelpOption();
        parser.addVersionOption();
        parser.addOption(options.source);
        parser.addOption(options.dest);
        parser.addOption(options.ignore);
    }

    // Read from argv before any application object exists: a GUI application
    // needs a display, which an elevated run (its environment cleared) lacks,
    // and a tool running as root must not open the user's. The same parser
    // reads argv as the real parse will, "--dest=" and "--" included. A
    // command line it cannot parse only leads to an error message, which
    // needs no display either.
    bool needsGui(int argc, char *argv[])
    {
        QStringList arguments;
        for (int i = 0; i < argc; ++i)
            arguments << QString::fromLocal8Bit(argv[i]);
        QCommandLineParser parser;
        const Options options;
        declare(parser, options);
        return parser.parse(arguments) && !(parser.isSet(options.source) && parser.isSet(options.dest));
    }
}

int main(int argc, char *argv[])
{
    // Before Qt starts a thread of its own.
    Platform::chooseEventDispatchers();
    QGuiApplication::setHighDpiScaleFactorRoundingPolicy(Qt::HighDpiScaleFactorRoundingPolicy::Floor);
    // The layout is cut in device pixels; Qt 6 ignores the attribute, but a
    // build against an older Qt must not scale the window either.
    QT_WARNING_PUSH
    QT_WARNING_DISABLE_DEPRECATED
    QCoreApplication::setAttribute(Qt::AA_DisableHighDpiScaling, true);
    QT_WARNING_POP

    const bool gui = needsGui(argc, argv);
    std::unique_ptr<QCoreApplication> app;
    if (gui)
        app = std::make_unique<QApplication>(argc, argv);
    else
        app = std::make_unique<QCoreApplication>(argc, argv);

    QCommandLineParser parser;
    const Options options;
    declare(parser, options);
    parser.process(*app);

    // The launcher runs itself in this mode, often elevated, to move files
    // into the install directory; the exit code is all the caller reads.
    if (parser.isSet(options.source) && parser.isSet(options.dest)) {
        const bool moved
            = relocateDirectory(parser.value(options.source), parser.value(options.dest), parser.value(options.ignore));
        return moved ? 0 : 1;
    }
    // Where the system splits the command line by other rules than argv's,
    // the two readings could disagree; a tool run must never guess.
    if (!gui)
        return 1;

    QLoggingCategory::setFilterRules(QStringLiteral("qt.multimedia.ffmpeg.*=false"));

    MainWindow window;
    window.show();
    return app->exec();
}
