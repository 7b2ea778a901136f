// What the launcher costs while a player looks at it: the real program on an
// X server of its own, first with the background video playing, then with
// animations off. For each run: the time from the start of the process to the
// first frame on the screen that shows the still picture and the neutral
// button, then resident memory and CPU time sampled from /proc while it idles.
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QMap>
#include <QProcess>
#include <QScopeGuard>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>
#include <QTextStream>
#include <QThread>

#include <unistd.h>
#include <xcb/xcb.h>

#include <cstdlib>
#include <memory>
#include <optional>

#include "benchsetup.h"
#include "support/virtualdisplay.h"

namespace
{
    // Once the language is applied the title is the translated "Launcher".
    const QByteArray WindowTitle = "Launcher";
    // Spots in the window: the moon of the still picture, and the frame of
    // the manage button clear of any text.
    const QRect MoonArea(960, 100, 100, 100);
    const QPoint ButtonFrameSpot(30 + 20, 685 + 60);

    // Answers the launcher's two requests: a manifest with one file that is
    // not installed, so the button settles on "Install", and an empty feed.
    class PatchServer : public QObject
    {
    public:
        explicit PatchServer(quint16 port)
        {
            const QByteArray content(4096, 'g');
            const QJsonObject file {
                {QStringLiteral("checksum"), Crc32::toDigest(Crc32::update(0, content.constData(), content.size()))},
                {QStringLiteral("size"), content.size()}};
            m_manifest = BenchSetup::manifest(QJsonObject {{QStringLiteral("/game.bin"), file}});
            connect(&m_server, &QTcpServer::newConnection, this, [this] {
                while (QTcpSocket *socket = m_server.nextPendingConnection()) {
                    connect(socket, &QTcpSocket::readyRead, socket, [this, socket] { answer(socket); });
                    connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
                }
            });
            m_listening = m_server.listen(QHostAddress::LocalHost, port);
        }

        bool isListening() const { return m_listening; }

    private:
        void answer(QTcpSocket *socket)
        {
            m_requests[socket] += socket->readAll();
            const QByteArray &request = m_requests[socket];
            if (!request.contains("\r\n\r\n"))
                return;
            const QByteArray path = request.split(' ').value(1);
            m_requests.remove(socket);
            QByteArray body = "not found";
            QByteArray status = "404 Not Found";
            if (path.endsWith("/checksums.txt.gz")) {
                body = m_manifest;
                status = "200 OK";
            } else if (path.endsWith("/api/news")) {
                body = "[]";
                status = "200 OK";
            }
            socket->write("HTTP/1.1 " + status + "\r\nContent-Length: " + QByteArray::number(body.size())
                          + "\r\nConnection: close\r\n\r\n" + body);
            socket->disconnectFromHost();
        }

        QTcpServer m_server;
        QByteArray m_manifest;
        QHash<QTcpSocket *, QByteArray> m_requests;
        bool m_listening = false;
    };

    // Looks at the screen the way a person would, through the X server.
    class Screen
    {
    public:
        explicit Screen(const QString &display)
            : m_connection(xcb_connect(display.toLatin1().constData(), nullptr))
        {
            if (xcb_connection_has_error(m_connection) == 0)
                m_root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
        }
        ~Screen() { xcb_disconnect(m_connection); }
        Screen(const Screen &) = delete;
        Screen &operator=(const Screen &) = delete;

        // The top-left corner of the launcher's mapped window, if there is one.
        std::optional<QPoint> launcherWindow() const
        {
            std::unique_ptr<xcb_query_tree_reply_t, decltype(&std::free)> tree(
                xcb_query_tree_reply(m_connection, xcb_query_tree(m_connection, m_root), nullptr), &std::free);
            if (!tree)
                return std::nullopt;
            const xcb_window_t *children = xcb_query_tree_children(tree.get());
            for (int i = 0; i < xcb_query_tree_children_length(tree.get()); ++i) {
                if (title(children[i]) != WindowTitle || !isViewable(children[i]))
                    continue;
                std::unique_ptr<xcb_get_geometry_reply_t, decltype(&std::free)> geometry(
                    xcb_get_geometry_reply(m_connection, xcb_get_geometry(m_connection, children[i]), nullptr),
                    &std::free);
                if (geometry)
                    return QPoint(geometry->x, geometry->y);
            }
            return std::nullopt;
        }

        QImage grab(const QRect &area) const
        {
            std::unique_ptr<xcb_get_image_reply_t, decltype(&std::free)> reply(
                xcb_get_image_reply(m_connection,
                                    xcb_get_image(m_connection, XCB_IMAGE_FORMAT_Z_PIXMAP, m_root,
                                                  static_cast<int16_t>(area.x()), static_cast<int16_t>(area.y()),
                                                  static_cast<uint16_t>(area.width()),
                                                  static_cast<uint16_t>(area.height()), ~0u),
                                    nullptr),
                &std::free);
            if (!reply || xcb_get_image_data_length(reply.get()) < area.width() * area.height() * 4)
                return {};
            return QImage(xcb_get_image_data(reply.get()), area.width(), area.height(), area.width() * 4,
                          QImage::Format_RGB32)
                .copy();
        }

    private:
        QByteArray title(xcb_window_t window) const
        {
            std::unique_ptr<xcb_get_property_reply_t, decltype(&std::free)> reply(
                xcb_get_property_reply(
                    m_connection,
                    xcb_get_property(m_connection, 0, window, XCB_ATOM_WM_NAME, XCB_GET_PROPERTY_TYPE_ANY, 0, 256),
                    nullptr),
                &std::free);
            if (!reply)
                return {};
            return QByteArray(static_cast<const char *>(xcb_get_property_value(reply.get())),
                              xcb_get_property_value_length(reply.get()));
        }

        bool isViewable(xcb_window_t window) const
        {
            std::unique_ptr<xcb_get_window_attributes_reply_t, decltype(&std::free)> attributes(
                xcb_get_window_attributes_reply(m_connection, xcb_get_window_attributes(m_connection, window), nullptr),
                &std::free);
            return attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE;
        }

        xcb_connection_t *m_connection;
        xcb_window_t m_root = 0;
    };

    bool isBlue(QRgb c)
    {
        return qBlue(c) > qRed(c) + 30 && qBlue(c) > 80;
    }

    bool isAmber(QRgb c)
    {
        return qRed(c) > qBlue(c) + 60 && qGreen(c) > qBlue(c) + 20;
    }

    bool showsStillPicture(const QImage &moon)
    {
        for (int y = 0; y < moon.height(); y += 4) {
            for (int x = 0; x < moon.width(); x += 4) {
                if (qGray(moon.pixel(x, y)) > 150)
                    return true;
            }
        }
        return false;
    }

    // utime + stime in clock ticks of a process, or of a thread given as
    // "pid/task/tid".
    qint64 cpuTicks(const QString &process)
    {
        QFile stat(QStringLiteral("/proc/%1/stat").arg(process));
        if (!stat.open(QIODevice::ReadOnly))
            return -1;
        // The fields after the command name, which may hold spaces itself.
        const QByteArray line = stat.readAll();
        const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
        return fields.value(11).toLongLong() + fields.value(12).toLongLong();
    }

    // CPU ticks by thread name, threads of the same name added up.
    QMap<QString, qint64> threadTicks(qint64 pid)
    {
        QMap<QString, qint64> ticks;
        const QDir tasks(QStringLiteral("/proc/%1/task").arg(pid));
        for (const QString &task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
            QFile comm(tasks.filePath(task + QStringLiteral("/comm")));
            if (!comm.open(QIODevice::ReadOnly))
                continue;
            const QString name = QString::fromUtf8(comm.readAll().trimmed());
            ticks[name] += cpuTicks(QStringLiteral("%1/task/%2").arg(pid).arg(task));
        }
        return ticks;
    }

    qint64 residentKiB(qint64 pid)
    {
        QFile status(QStringLiteral("/proc/%1/status").arg(pid));
        if (!status.open(QIODevice::ReadOnly))
            return -1;
        for (const QByteArray &line : status.readAll().split('\n')) {
            if (line.startsWith("VmRSS:"))
                return line.mid(6).trimmed().split(' ').first().toLongLong();
        }
        return -1;
    }

    struct Result
    {
        qint64 firstFrameMs = -1;
        double meanMiB = 0;
        double maxMiB = 0;
        double cpuPercent = 0;
        QString threads;
        QString error;
    };

    Result measure(const QString &launcher, const QString &display, bool animations, int seconds)
    {
        Result result;
        QTemporaryDir home;
        const QProcessEnvironment environment = BenchSetup::launcherEnvironment(
            home.path(), home.filePath(QStringLiteral("install")), animations, display);
        if (environment.isEmpty()) {
            result.error = QStringLiteral("cannot write the settings");
            return result;
        }

        Screen screen(display);
        QProcess process;
        process.setProcessEnvironment(environment);
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        QElapsedTimer sinceStart;
        sinceStart.start();
        process.start(launcher, {});
        if (!process.waitForStarted()) {
            result.error = QStringLiteral("the launcher did not start");
            return result;
        }
        const auto stop = qScopeGuard([&process] { BenchSetup::stopProcess(process); });

        // Small pictures every few milliseconds: fine enough to time the
        // moment, light enough not to slow down the start it measures.
        std::optional<QPoint> origin;
        while (sinceStart.elapsed() < 20000) {
            if (!origin)
                origin = screen.launcherWindow();
            if (origin && showsStillPicture(screen.grab(MoonArea.translated(*origin)))
                && isBlue(screen.grab(QRect(*origin + ButtonFrameSpot, QSize(1, 1))).pixel(0, 0))) {
                result.firstFrameMs = sinceStart.elapsed();
                break;
            }
            QCoreApplication::processEvents();
            QThread::msleep(4);
        }
        if (result.firstFrameMs < 0) {
            result.error = QStringLiteral("no first frame with the still picture and a neutral button");
            return result;
        }

        // Idle means after the first check, with the button on "Install".
        const bool settled = QTest::qWaitFor(
            [&] { return isAmber(screen.grab(QRect(*origin + ButtonFrameSpot, QSize(1, 1))).pixel(0, 0)); }, 30000);
        if (!settled) {
            result.error = QStringLiteral("the first check never settled");
            return result;
        }
        QTest::qWait(2000);

        const qint64 pid = process.processId();
        const qint64 ticksPerSecond = sysconf(_SC_CLK_TCK);
        const qint64 startTicks = cpuTicks(QString::number(pid));
        const QMap<QString, qint64> startThreads = threadTicks(pid);
        QElapsedTimer sampling;
        sampling.start();
        qint64 sumKiB = 0;
        qint64 maxKiB = 0;
        for (int second = 0; second < seconds; ++second) {
            QTest::qWait(1000);
            const qint64 kib = residentKiB(pid);
            sumKiB += kib;
            maxKiB = qMax(maxKiB, kib);
        }
        const double elapsedSeconds = double(sampling.elapsed()) / 1000.0;
        const auto percent
            = [&](qint64 ticks) { return 100.0 * double(ticks) / double(ticksPerSecond) / elapsedSeconds; };
        result.cpuPercent = percent(cpuTicks(QString::number(pid)) - startTicks);
        const QMap<QString, qint64> endThreads = threadTicks(pid);
        QStringList busy;
        for (auto it = endThreads.cbegin(); it != endThreads.cend(); ++it) {
            const double share = percent(it.value() - startThreads.value(it.key()));
            if (share >= 0.05)
                busy << QStringLiteral("%1 %2").arg(it.key()).arg(share, 0, 'f', 1);
        }
        result.threads = busy.join(QStringLiteral(", "));
        result.meanMiB = double(sumKiB) / seconds / 1024.0;
        result.maxMiB = double(maxKiB) / 1024.0;
        return result;
    }
}

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    const QCommandLineOption secondsOption(QStringLiteral("seconds"), QStringLiteral("Idle seconds to sample."),
                                           QStringLiteral("n"), QStringLiteral("30"));
    const QCommandLineOption runsOption(QStringLiteral("runs"), QStringLiteral("Start-ups to time per mode."),
                                        QStringLiteral("n"), QStringLiteral("1"));
    parser.addOptions({secondsOption, runsOption});
    parser.process(app);
    const int seconds = qMax(1, parser.value(secondsOption).toInt());
    const int runs = qMax(1, parser.value(runsOption).toInt());

    VirtualDisplay display;
    PatchServer server(BENCH_PORT);
    QTextStream out(stdout);
    if (!display.isRunning() || !server.isListening()) {
        if (display.isRunning())
            out << "failed: port " << BENCH_PORT << " is taken\n";
        else
            out << "failed: Xvfb did not start\n";
        return 1;
    }

    int failures = 0;
    for (const bool animations : {true, false}) {
        for (int run = 0; run < runs; ++run) {
            const Result result = measure(QStringLiteral(LAUNCHER_BINARY), display.name(), animations, seconds);
            out << (animations ? "video playing:  " : "animations off: ");
            if (!result.error.isEmpty()) {
                out << "failed: " << result.error << '\n';
                ++failures;
                continue;
            }
            out << "first frame " << result.firstFrameMs << " ms, RSS " << QString::number(result.meanMiB, 'f', 1)
                << " MiB (max " << QString::number(result.maxMiB, 'f', 1) << "), CPU "
                << QString::number(result.cpuPercent, 'f', 1) << " % of one core over " << seconds << " s ("
                << result.threads << ")\n";
            out.flush();
        }
    }
    return failures == 0 ? 0 : 1;
}
