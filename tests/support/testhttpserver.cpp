#include "support/testhttpserver.h"

#include <QDir>
#include <QFile>
#include <QPointer>
#include <QTcpSocket>
#include <QTimer>

TestHttpServer::TestHttpServer(QObject *parent)
    : QObject(parent)
{
    connect(&m_server, &QTcpServer::newConnection, this, &TestHttpServer::handleNewConnection);
    m_server.listen(QHostAddress::LocalHost, 0);
}

TestHttpServer::~TestHttpServer()
{
    m_server.close();
    // The sockets are the server's children and outlive this object's members.
    const QList<QTcpSocket *> sockets = m_server.findChildren<QTcpSocket *>();
    for (QTcpSocket *socket : sockets) {
        socket->disconnect(this);
        delete socket;
    }
}

QUrl TestHttpServer::baseUrl() const
{
    return QUrl(QStringLiteral("http://127.0.0.1:%1").arg(m_server.serverPort()));
}

void TestHttpServer::setRootDirectory(const QString &prefix, const QString &directory)
{
    m_prefix = prefix;
    m_directory = directory;
}

void TestHttpServer::setContent(const QString &path, const QByteArray &body, int status)
{
    m_contents.insert(path, {body, status});
}

void TestHttpServer::setFault(const QString &path, const Fault &fault)
{
    m_faults.insert(path, fault);
}

void TestHttpServer::clearFaults()
{
    m_faults.clear();
}

void TestHttpServer::reset()
{
    m_contents.clear();
    m_faults.clear();
    m_redirects.clear();
    resetStatistics();
}

QStringList TestHttpServer::requests() const
{
    return m_requests;
}

int TestHttpServer::maxConcurrentRequests() const
{
    return m_maxConcurrent;
}

void TestHttpServer::resetStatistics()
{
    m_requests.clear();
    m_maxConcurrent = static_cast<int>(m_inFlight.size());
}

void TestHttpServer::handleNewConnection()
{
    while (QTcpSocket *socket = m_server.nextPendingConnection()) {
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { handleReadyRead(socket); });
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] { finishConnection(socket); });
    }
}

void TestHttpServer::finishConnection(QTcpSocket *socket)
{
    m_inFlight.remove(socket);
    m_pending.remove(socket);
    socket->deleteLater();
}

void TestHttpServer::handleReadyRead(QTcpSocket *socket)
{
    QByteArray &buffer = m_pending[socket];
    buffer += socket->readAll();
    const qsizetype end = buffer.indexOf("\r\n\r\n");
    if (end < 0 || m_inFlight.contains(socket))
        return;

    const QList<QByteArray> requestLine = buffer.left(buffer.indexOf("\r\n")).split(' ');
    buffer.clear();
    if (requestLine.size() < 2) {
        socket->disconnectFromHost();
        return;
    }
    QString path = QUrl::fromPercentEncoding(requestLine.at(1));
    while (path.contains(QLatin1String("//")))
        path.replace(QLatin1String("//"), QLatin1String("/"));

    m_requests.append(path);
    m_inFlight.insert(socket);
    m_maxConcurrent = qMax(m_maxConcurrent, static_cast<int>(m_inFlight.size()));
    respond(socket, path);
}

bool TestHttpServer::readFile(const QString &path, QByteArray *body) const
{
    if (m_directory.isEmpty() || !path.startsWith(m_prefix + QLatin1Char('/')))
        return false;
    const QString relative = path.mid(m_prefix.size() + 1);
    const QString filePath = QDir::cleanPath(m_directory + QLatin1Char('/') + relative);
    if (!filePath.startsWith(QDir::cleanPath(m_directory) + QLatin1Char('/')))
        return false;
    QFile file(filePath);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    *body = file.readAll();
    return true;
}

void TestHttpServer::setRedirect(const QString &path, const QString &target)
{
    m_redirects.insert(path, target);
}

void TestHttpServer::respond(QTcpSocket *socket, const QString &path)
{
    const auto redirect = m_redirects.constFind(path);
    if (redirect != m_redirects.constEnd()) {
        socket->write("HTTP/1.1 302 Found\r\nLocation: " + redirect->toUtf8()
                      + "\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
        socket->disconnectFromHost();
        return;
    }
    const Fault fault = m_faults.value(path);
    if (fault.kind == Fault::Status) {
        send(socket, fault.status, QByteArrayLiteral("injected failure\n"), Fault());
        return;
    }

    QByteArray body;
    int status = 200;
    const auto content = m_contents.constFind(path);
    if (content != m_contents.constEnd()) {
        body = content->first;
        status = content->second;
    } else if (!readFile(path, &body)) {
        send(socket, 404, QByteArrayLiteral("not found\n"), Fault());
        return;
    }
    send(socket, status, body, fault);
}

void TestHttpServer::send(QTcpSocket *socket, int status, const QByteArray &body, const Fault &fault)
{
    const QByteArray reason = status == 200 ? QByteArrayLiteral("OK") : QByteArrayLiteral("Error");
    socket->write("HTTP/1.1 " + QByteArray::number(status) + ' ' + reason
                  + "\r\nContent-Length: " + QByteArray::number(body.size())
                  + "\r\nContent-Type: application/octet-stream\r\nConnection: close\r\n\r\n");

    switch (fault.kind) {
    case Fault::Reset:
        socket->write(body.left(fault.bytes));
        socket->flush();
        socket->abort();
        return;
    case Fault::Stall:
        // Left open and silent until the client gives up or the test ends.
        socket->write(body.left(fault.bytes));
        return;
    case Fault::ShortBody:
        socket->write(body.left(fault.bytes));
        socket->disconnectFromHost();
        return;
    case Fault::Trickle:
        trickle(socket, body, qMax<qint64>(1, fault.bytes), fault.intervalMs);
        return;
    default:
        socket->write(body);
        socket->disconnectFromHost();
        return;
    }
}

void TestHttpServer::trickle(QTcpSocket *socket, QByteArray remaining, qint64 pieceSize, int intervalMs)
{
    socket->write(remaining.left(pieceSize));
    remaining.remove(0, pieceSize);
    if (remaining.isEmpty()) {
        socket->disconnectFromHost();
        return;
    }
    const QPointer<QTcpSocket> guard(socket);
    QTimer::singleShot(intervalMs, this, [this, guard, remaining, pieceSize, intervalMs] {
        if (guard && guard->state() == QAbstractSocket::ConnectedState)
            trickle(guard, remaining, pieceSize, intervalMs);
    });
}
