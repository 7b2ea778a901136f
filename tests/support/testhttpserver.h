#pragma once

#include <QHash>
#include <QSet>
#include <QStringList>
#include <QTcpServer>
#include <QUrl>

class QTcpSocket;

// A small HTTP/1.1 server on 127.0.0.1 for the engine's tests: it serves a
// directory and in-memory bodies, records what was asked, and misbehaves on
// request, per path. It runs in the thread that creates it, driven by that
// thread's event loop, and answers one request per connection.
class TestHttpServer
{
public:
    struct Fault
    {
        enum Kind
        {
            None,
            Status, // answers with `status` and a short body
            Stall, // sends the headers and `bytes` of the body, then nothing
            Trickle, // sends the body in `bytes`-sized pieces every `intervalMs`
        };
        Kind kind = None;
        int status = 0;
        qint64 bytes = 0;
        int intervalMs = 0;
    };

    TestHttpServer();

    QUrl baseUrl() const { return QUrl(QStringLiteral("http://127.0.0.1:%1").arg(m_server.serverPort())); }
    // Files under `directory` answer below `prefix` ("/game/data/a.bin" for
    // prefix "/game"); "%2F" in the request path counts as "/".
    void setRootDirectory(const QString &prefix, const QString &directory) { m_root = {prefix, directory}; }
    void setContent(const QString &path, const QByteArray &body, int status = 200)
    {
        m_contents[path] = {body, status};
    }
    void setFault(const QString &path, const Fault &fault) { m_faults[path] = fault; }
    // Answers `path` with "302 Found" pointing at `target`.
    void setRedirect(const QString &path, const QString &target) { m_redirects[path] = target; }
    void clearFaults() { m_faults.clear(); }
    // Forgets contents, faults and statistics.
    void reset();

    // Decoded paths in order of arrival.
    QStringList requests() const { return m_requests; }
    int maxConcurrentRequests() const { return m_maxConcurrent; }
    void resetStatistics();

private:
    void accept();
    void respond(QTcpSocket *socket, const QString &path);

    QTcpServer m_server;
    QPair<QString, QString> m_root;
    QHash<QString, QPair<QByteArray, int>> m_contents;
    QHash<QString, Fault> m_faults;
    QHash<QString, QString> m_redirects;
    QSet<QTcpSocket *> m_inFlight;
    QStringList m_requests;
    int m_maxConcurrent = 0;
};
