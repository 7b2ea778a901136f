#pragma once

#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QTcpServer>
#include <QUrl>

class QTcpSocket;

// A small HTTP/1.1 server on 127.0.0.1 for the engine's tests: it serves a
// directory and in-memory bodies, records what was asked, and misbehaves on
// request, per path. It runs in the thread that creates it, driven by that
// thread's event loop, and answers one request per connection.
class TestHttpServer : public QObject
{
    Q_OBJECT

public:
    struct Fault
    {
        enum Kind
        {
            None,
            Status, // answers with `status` and a short body
            Reset, // sends the headers and `bytes` of the body, then resets
            Stall, // sends the headers and `bytes` of the body, then nothing
            ShortBody, // announces the full length, sends `bytes`, then closes
            Trickle, // sends the body in `bytes`-sized pieces every `intervalMs`
        };
        Kind kind = None;
        int status = 0;
        qint64 bytes = 0;
        int intervalMs = 0;
    };

    explicit TestHttpServer(QObject *parent = nullptr);
    ~TestHttpServer() override;

    QUrl baseUrl() const;

    // Files under `directory` answer below `prefix` ("/game/data/a.bin" for
    // prefix "/game"); "%2F" in the request path counts as "/".
    void setRootDirectory(const QString &prefix, const QString &directory);
    void setContent(const QString &path, const QByteArray &body, int status = 200);
    void setFault(const QString &path, const Fault &fault);
    // Answers `path` with "302 Found" pointing at `target`.
    void setRedirect(const QString &path, const QString &target);
    void clearFaults();
    // Forgets contents, faults and statistics.
    void reset();

    // Decoded paths in order of arrival.
    QStringList requests() const;
    int maxConcurrentRequests() const;
    void resetStatistics();

private:
    void handleNewConnection();
    void handleReadyRead(QTcpSocket *socket);
    void respond(QTcpSocket *socket, const QString &path);
    void send(QTcpSocket *socket, int status, const QByteArray &body, const Fault &fault);
    void trickle(QTcpSocket *socket, QByteArray remaining, qint64 pieceSize, int intervalMs);
    void finishConnection(QTcpSocket *socket);
    bool readFile(const QString &path, QByteArray *body) const;

    QTcpServer m_server;
    QString m_prefix;
    QString m_directory;
    QHash<QString, QPair<QByteArray, int>> m_contents;
    QHash<QString, Fault> m_faults;
    QHash<QString, QString> m_redirects;
    QHash<QTcpSocket *, QByteArray> m_pending;
    QSet<QTcpSocket *> m_inFlight;
    QStringList m_requests;
    int m_maxConcurrent = 0;
};
