#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QSaveFile>
#include <QTextStream>

#include "manifestwriter.h"

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("launcher-publish"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Writes the manifest of a game directory: the CRC-32 and size of every file, qCompress-framed JSON.\n"
        "Serve it as <updateUrl>/checksums.txt.gz, with the files themselves below <updateUrl>."));
    parser.addHelpOption();
    const QCommandLineOption outputOption(QStringLiteral("output"),
                                          QStringLiteral("Manifest to write (default: <directory>/checksums.txt.gz)."),
                                          QStringLiteral("file"));
    const QCommandLineOption binaryOption(
        QStringLiteral("binary"), QStringLiteral("Relative path of the game executable, also listed as \"binary\"."),
        QStringLiteral("path"));
    const QCommandLineOption excludeOption(QStringLiteral("exclude"),
                                           QStringLiteral("Relative path to leave out; may be repeated."),
                                           QStringLiteral("path"));
    parser.addOptions({outputOption, binaryOption, excludeOption});
    parser.addPositionalArgument(QStringLiteral("directory"), QStringLiteral("The game files as players get them."));
    parser.process(app);

    QTextStream err(stderr);
    if (parser.positionalArguments().size() != 1) {
        err << "Give exactly one game directory.\n";
        return 1;
    }

    const QString directory = parser.positionalArguments().first();
    const QString output = parser.isSet(outputOption) ? parser.value(outputOption)
                                                      : QDir(directory).filePath(QStringLiteral("checksums.txt.gz"));

    // The manifest may be written into the directory it describes.
    QStringList excluded = parser.values(excludeOption);
    const QString outputRelative = QDir(directory).relativeFilePath(QFileInfo(output).absoluteFilePath());
    if (!outputRelative.startsWith(QLatin1String("..")))
        excluded.append(outputRelative);

    const ManifestWriter::Result result = ManifestWriter::build(directory, excluded, parser.value(binaryOption));
    if (!result.error.isEmpty()) {
        err << result.error << '\n';
        return 1;
    }

    QSaveFile file(output);
    if (!file.open(QIODevice::WriteOnly) || file.write(result.data) != result.data.size() || !file.commit()) {
        err << "Cannot write " << output << '\n';
        return 1;
    }
    QTextStream(stdout) << "Published " << result.files << " files, " << result.bytes << " bytes, to " << output
                        << '\n';
    return 0;
}
